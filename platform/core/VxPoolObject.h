#pragma once

#include "platform/core/KcString.h"

class VxObjectPool;

/// What the object pool holds: a data object with a label and the command
/// that loads it again. The data model's VxData derives from it.
class VxPoolObject
{
public:
    virtual ~VxPoolObject() = default;

    const KcString &label() const { return objectLabel; }
    /// A pooled object's new label is told to its pool, which keeps an index
    /// of the labels in use (a label taken this way may equal another's).
    void setLabel(const KcString &label);

    const KcString &loadCommand() const { return command; }
    void setLoadCommand(const KcString &cmd) { command = cmd; }

    /// A short type name for listings ("VxUniformScalarField3", ...).
    virtual const char *typeName() const { return "VxPoolObject"; }

private:
    friend class VxObjectPool;
    KcString objectLabel;
    KcString command;
    /// The pool that owns the object; null outside one.
    VxObjectPool *owner = nullptr;
};
