#include "platform/data/VxParameter.h"

#include "platform/data/VxParamBundle.h"

#include <cstdlib>

VxParamBundle *VxParamBase::asBundle()
{
    return isBundle() ? static_cast<VxParamBundle *>(this) : nullptr;
}

const VxParamBundle *VxParamBase::asBundle() const
{
    return isBundle() ? static_cast<const VxParamBundle *>(this) : nullptr;
}

void VxParamBase::setName(const char *name)
{
    entryName = name ? name : "";
    if (owner)
        owner->entryRenamed();
}

VxParamBase &VxParamBase::operator=(const VxParamBase &other)
{
    if (this != &other)
        setName(other.entryName.c_str());
    return *this;
}

VxParameter::VxParameter(const char *name, const char *value)
    : VxParamBase(name), valueType(String), text(value)
{
}

VxParameter::VxParameter(const char *name, const KcString &value)
    : VxParamBase(name), valueType(String), text(value)
{
}

VxParameter::VxParameter(const char *name, int value)
    : VxParamBase(name), valueType(Int), intVal(value)
{
}

VxParameter::VxParameter(const char *name, double value)
    : VxParamBase(name), valueType(Float), floatVal(value)
{
}

std::unique_ptr<VxParamBase> VxParameter::clone() const
{
    return std::unique_ptr<VxParamBase>(new VxParameter(*this));
}

KcString VxParameter::stringValue() const
{
    switch (valueType) {
    case Int: return KcString::format("%d", intVal);
    case Float: return KcString::format("%g", floatVal);
    case String: break;
    }
    return text;
}

int VxParameter::intValue() const
{
    switch (valueType) {
    case Int: return intVal;
    case Float: return static_cast<int>(floatVal);
    case String: break;
    }
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

double VxParameter::floatValue() const
{
    switch (valueType) {
    case Int: return intVal;
    case Float: return floatVal;
    case String: break;
    }
    return std::strtod(text.c_str(), nullptr);
}

void VxParameter::setString(const KcString &value)
{
    valueType = String;
    text = value;
}

void VxParameter::setInt(int value)
{
    valueType = Int;
    intVal = value;
    text.clear();
}

void VxParameter::setFloat(double value)
{
    valueType = Float;
    floatVal = value;
    text.clear();
}
