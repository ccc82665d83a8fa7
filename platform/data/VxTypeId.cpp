#include "platform/data/VxTypeId.h"

#include <deque>
#include <mutex>
#include <string>

namespace {

struct TypeEntry
{
    std::string name;
    int parent;
    VxTypeId::Factory factory;
};

// A deque keeps entries (and their names) in place as the registry grows.
struct TypeRegistry
{
    std::mutex mutex;
    std::deque<TypeEntry> entries;
};

TypeRegistry &registry()
{
    static TypeRegistry r;
    return r;
}

const TypeEntry *entryAt(int index)
{
    if (index < 0)
        return nullptr;
    TypeRegistry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return index < static_cast<int>(r.entries.size()) ? &r.entries[static_cast<size_t>(index)]
                                                      : nullptr;
}

} // namespace

VxTypeId VxTypeId::create(const char *name, VxTypeId parent, Factory factory)
{
    if (!name || !*name)
        return VxTypeId();
    TypeRegistry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (size_t i = 0; i < r.entries.size(); ++i)
        if (r.entries[i].name == name)
            return VxTypeId(static_cast<int>(i));
    r.entries.push_back(TypeEntry{name, parent.index, factory});
    return VxTypeId(static_cast<int>(r.entries.size()) - 1);
}

VxTypeId VxTypeId::fromName(const char *name)
{
    if (!name)
        return VxTypeId();
    TypeRegistry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (size_t i = 0; i < r.entries.size(); ++i)
        if (r.entries[i].name == name)
            return VxTypeId(static_cast<int>(i));
    return VxTypeId();
}

const char *VxTypeId::getName() const
{
    const TypeEntry *e = entryAt(index);
    return e ? e->name.c_str() : "";
}

VxTypeId VxTypeId::getParent() const
{
    const TypeEntry *e = entryAt(index);
    return e ? VxTypeId(e->parent) : VxTypeId();
}

bool VxTypeId::isDerivedFrom(VxTypeId other) const
{
    if (isBad() || other.isBad())
        return false;
    for (VxTypeId t = *this; !t.isBad(); t = t.getParent())
        if (t == other)
            return true;
    return false;
}

bool VxTypeId::canCreateInstance() const
{
    const TypeEntry *e = entryAt(index);
    return e && e->factory;
}

VxPoolObject *VxTypeId::createInstance() const
{
    const TypeEntry *e = entryAt(index);
    return e && e->factory ? e->factory() : nullptr;
}
