#pragma once

#include "platform/core/VxPoolObject.h"

/// A class of the host's type system: a name, a parent class and, for
/// classes that can be instantiated, a factory. Classes are registered once
/// per process and never unregistered; a VxTypeId is a small value that stays
/// valid for the life of the process. Registration and lookup are
/// thread-safe.
class VxTypeId
{
public:
    using Factory = VxPoolObject *(*)();

    /// The bad type (no class).
    VxTypeId() = default;

    /// Registers a class; when one of that name is already registered, returns
    /// it unchanged. A null or empty name gives the bad type.
    static VxTypeId create(const char *name, VxTypeId parent, Factory factory);
    /// The registered class of that name, or the bad type.
    static VxTypeId fromName(const char *name);

    bool isBad() const { return index < 0; }
    /// The class name ("" for the bad type).
    const char *getName() const;
    /// The parent class (bad for a root class and for the bad type).
    VxTypeId getParent() const;
    /// True when this class is `other` or derives from it.
    bool isDerivedFrom(VxTypeId other) const;
    bool canCreateInstance() const;
    /// A new object of this class, owned by the caller, or null when the
    /// class cannot be instantiated.
    VxPoolObject *createInstance() const;

    bool operator==(const VxTypeId &other) const { return index == other.index; }
    bool operator!=(const VxTypeId &other) const { return index != other.index; }

private:
    explicit VxTypeId(int i) : index(i) {}
    int index = -1;
};

/// Declares the type-system members of a class: in the class body, whose
/// base must be VxCompModule or derive from it. It leaves the access at
/// private, so write `public:` after it.
#define VX_TYPE_HEADER(Class)                                                                      \
public:                                                                                            \
    static VxTypeId getClassTypeId();                                                              \
    VxTypeId getTypeId() const override { return getClassTypeId(); }                               \
    static void initClass() { getClassTypeId(); }                                                  \
    static Class *createInstance();                                                                \
                                                                                                   \
private:

/// Defines them in the class's source file. The class registers itself on
/// first use (initClass or getClassTypeId), after its parent.
#define VX_TYPE_INIT(Class, Parent)                                                                \
    VxTypeId Class::getClassTypeId()                                                               \
    {                                                                                              \
        static const VxTypeId id = VxTypeId::create(                                               \
            #Class, Parent::getClassTypeId(), []() -> VxPoolObject * { return new Class; });       \
        return id;                                                                                 \
    }                                                                                              \
    Class *Class::createInstance() { return new Class; }
