#pragma once

/// Sample type of host data. The numeric ids are fixed: 0 is unsigned 8-bit.
class KcPrimType
{
public:
    enum Id { UInt8 = 0, Int16 = 1, UInt16 = 2, Int32 = 3, Float = 4 };

    constexpr KcPrimType(Id id = UInt8) : typeId(id) {}
    constexpr Id id() const { return typeId; }
    constexpr operator Id() const { return typeId; }

    /// Size of one sample in bytes.
    constexpr int size() const
    {
        switch (typeId) {
        case UInt8: return 1;
        case Int16:
        case UInt16: return 2;
        case Int32:
        case Float: return 4;
        }
        return 0;
    }
    constexpr bool isSigned() const { return typeId == Int16 || typeId == Int32 || typeId == Float; }
    constexpr bool isInteger() const { return typeId != Float; }
    /// "uint8", "int16", "uint16", "int32", "float".
    const char *name() const;

private:
    Id typeId;
};
