#pragma once

#include "platform/core/KcString.h"

#include <memory>

class VxParamBundle;

/// An entry of a parameter tree: a named value (VxParameter) or a named
/// bundle of entries (VxParamBundle).
class VxParamBase
{
public:
    explicit VxParamBase(const char *name = "") : entryName(name) {}
    virtual ~VxParamBase() = default;

    const KcString &name() const { return entryName; }
    /// Renames the entry; the bundle holding it learns of the new name.
    void setName(const char *name);

    virtual bool isBundle() const = 0;
    /// A deep copy.
    virtual std::unique_ptr<VxParamBase> clone() const = 0;

    /// The entry as a bundle, or null.
    VxParamBundle *asBundle();
    const VxParamBundle *asBundle() const;

protected:
    /// A copy has the name, not the place: it belongs to no bundle yet.
    VxParamBase(const VxParamBase &other) : entryName(other.entryName) {}
    /// Takes the other's name; the entry stays where it is.
    VxParamBase &operator=(const VxParamBase &other);

private:
    friend class VxParamBundle;
    KcString entryName;
    /// The bundle that holds the entry; null outside one.
    VxParamBundle *owner = nullptr;
};

/// A named value: a string, an integer or a floating-point number.
class VxParameter : public VxParamBase
{
public:
    enum Type { String = 0, Int = 1, Float = 2 };

    VxParameter(const char *name, const char *value);
    VxParameter(const char *name, const KcString &value);
    VxParameter(const char *name, int value);
    VxParameter(const char *name, double value);

    bool isBundle() const override { return false; }
    std::unique_ptr<VxParamBase> clone() const override;

    Type type() const { return valueType; }
    bool isString() const { return valueType == String; }

    /// The value as text: the string itself, an int in decimal, a float with "%g".
    KcString stringValue() const;
    /// The value as a number; a string is converted with strtol/strtod (0 when unreadable).
    int intValue() const;
    double floatValue() const;

    void setString(const KcString &value);
    void setInt(int value);
    void setFloat(double value);

private:
    Type valueType;
    KcString text;
    int intVal = 0;
    double floatVal = 0.0;
};
