#pragma once

#include "platform/core/KcString.h"

/// What the object pool holds: a data object with a label and the command
/// that loads it again. The data model's VxData derives from it.
class VxPoolObject
{
public:
    virtual ~VxPoolObject() = default;

    const KcString &label() const { return objectLabel; }
    virtual void setLabel(const KcString &label) { objectLabel = label; }

    const KcString &loadCommand() const { return command; }
    void setLoadCommand(const KcString &cmd) { command = cmd; }

    /// A short type name for listings ("VxUniformScalarField3", ...).
    virtual const char *typeName() const { return "VxPoolObject"; }

private:
    KcString objectLabel;
    KcString command;
};
