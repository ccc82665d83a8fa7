#include "platform/core/KcPrimType.h"

const char *KcPrimType::name() const
{
    switch (typeId) {
    case UInt8: return "uint8";
    case Int16: return "int16";
    case UInt16: return "uint16";
    case Int32: return "int32";
    case Float: return "float";
    }
    return "unknown";
}
