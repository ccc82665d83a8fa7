#include "platform/data/VxParamBundle.h"

#include <cstring>

namespace {

// Below this many entries a plain search is as quick as the index and the
// bundle keeps no index (a loaded volume holds one small bundle per slice).
constexpr size_t kIndexedFrom = 24;

} // namespace

VxParamBundle::VxParamBundle(const char *name) : VxParamBase(name) {}

VxParamBundle::VxParamBundle(const VxParamBundle &other) : VxParamBase(other)
{
    entries.reserve(other.entries.size());
    for (const auto &e : other.entries) {
        entries.push_back(e->clone());
        entries.back()->owner = this;
    }
}

VxParamBundle &VxParamBundle::operator=(const VxParamBundle &other)
{
    if (this == &other)
        return *this;
    // Copy first: other may be one of our own descendants.
    std::vector<std::unique_ptr<VxParamBase>> copied;
    copied.reserve(other.entries.size());
    for (const auto &e : other.entries) {
        copied.push_back(e->clone());
        copied.back()->owner = this;
    }
    setName(other.name().c_str());
    entries = std::move(copied);
    forgetIndex();
    return *this;
}

VxParamBundle::~VxParamBundle() = default;

std::unique_ptr<VxParamBase> VxParamBundle::clone() const
{
    return std::unique_ptr<VxParamBase>(new VxParamBundle(*this));
}

int VxParamBundle::insert(VxParamBase *entry, bool replace)
{
    return insert(std::unique_ptr<VxParamBase>(entry), replace);
}

int VxParamBundle::insert(std::unique_ptr<VxParamBase> entry, bool replace)
{
    if (!entry)
        return -1;
    if (replace) {
        const int i = indexOf(entry->name().c_str());
        if (i >= 0) {
            auto &place = entries[static_cast<size_t>(i)];
            if (place.get() != entry.get()) {
                // Same name, same place: the index stays right.
                place = std::move(entry);
                place->owner = this;
            } else {
                entry.release(); // already ours at that place
            }
            return i;
        }
    }
    return append(std::move(entry));
}

int VxParamBundle::append(std::unique_ptr<VxParamBase> entry)
{
    entry->owner = this;
    entries.push_back(std::move(entry));
    const int i = size() - 1;
    if (indexed)
        firstOfName.emplace(entries.back()->name(), i); // an earlier namesake stays first
    return i;
}

void VxParamBundle::entryRenamed()
{
    forgetIndex();
}

void VxParamBundle::forgetIndex() const
{
    if (!indexed)
        return;
    firstOfName.clear();
    indexed = false;
}

int VxParamBundle::copy(const VxParamBase *entry)
{
    if (!entry)
        return -1;
    return insert(entry->clone(), true);
}

bool VxParamBundle::remove(const char *name)
{
    const int i = indexOf(name);
    if (i < 0)
        return false;
    entries.erase(entries.begin() + i);
    forgetIndex();
    return true;
}

void VxParamBundle::clear()
{
    entries.clear();
    forgetIndex();
}

std::unique_ptr<VxParamBase> VxParamBundle::take(int i)
{
    if (i < 0 || i >= size())
        return nullptr;
    std::unique_ptr<VxParamBase> out = std::move(entries[static_cast<size_t>(i)]);
    entries.erase(entries.begin() + i);
    forgetIndex();
    out->owner = nullptr;
    return out;
}

VxParamBase *VxParamBundle::entry(int i) const
{
    if (i < 0 || i >= size())
        return nullptr;
    return entries[static_cast<size_t>(i)].get();
}

int VxParamBundle::indexOf(const char *name) const
{
    const char *key = name ? name : "";
    if (entries.size() < kIndexedFrom) {
        for (size_t i = 0; i < entries.size(); ++i)
            if (entries[i]->name() == key)
                return static_cast<int>(i);
        return -1;
    }
    if (!indexed) {
        firstOfName.reserve(entries.size());
        for (size_t i = 0; i < entries.size(); ++i)
            firstOfName.emplace(entries[i]->name(), static_cast<int>(i));
        indexed = true;
    }
    const auto it = firstOfName.find(key);
    return it == firstOfName.end() ? -1 : it->second;
}

VxParamBase *VxParamBundle::find(const char *name) const
{
    return entry(indexOf(name));
}

VxParameter *VxParamBundle::parameter(const char *name) const
{
    const char *key = name ? name : "";
    // Entries before the first of that name cannot match.
    const int first = indexOf(key);
    if (first < 0)
        return nullptr;
    for (size_t i = static_cast<size_t>(first); i < entries.size(); ++i)
        if (!entries[i]->isBundle() && entries[i]->name() == key)
            return static_cast<VxParameter *>(entries[i].get());
    return nullptr;
}

VxParamBundle *VxParamBundle::bundle(const char *name) const
{
    const char *key = name ? name : "";
    const int first = indexOf(key);
    if (first < 0)
        return nullptr;
    for (size_t i = static_cast<size_t>(first); i < entries.size(); ++i)
        if (entries[i]->isBundle() && entries[i]->name() == key)
            return static_cast<VxParamBundle *>(entries[i].get());
    return nullptr;
}

VxParamBundle *VxParamBundle::bundle(int i) const
{
    if (i < 0)
        return nullptr;
    for (const auto &e : entries) {
        if (!e->isBundle())
            continue;
        if (i == 0)
            return static_cast<VxParamBundle *>(e.get());
        --i;
    }
    return nullptr;
}

int VxParamBundle::nBundles() const
{
    int n = 0;
    for (const auto &e : entries)
        if (e->isBundle())
            ++n;
    return n;
}

void VxParamBundle::setString(const char *name, const KcString &value)
{
    insert(std::make_unique<VxParameter>(name, value));
}

void VxParamBundle::setInt(const char *name, int value)
{
    insert(std::make_unique<VxParameter>(name, value));
}

void VxParamBundle::setFloat(const char *name, double value)
{
    insert(std::make_unique<VxParameter>(name, value));
}

KcString VxParamBundle::getString(const char *name, const KcString &fallback) const
{
    const VxParameter *p = parameter(name);
    return p ? p->stringValue() : fallback;
}

KcString VxParamBundle::dump(int indent) const
{
    const std::string pad(static_cast<size_t>(indent > 0 ? indent : 0) * 2, ' ');
    KcString out;
    for (const auto &e : entries) {
        if (const VxParamBundle *b = e->asBundle()) {
            out += pad + e->name() + ":\n";
            out += b->dump(indent + 1);
        } else {
            out += pad + e->name() + " = " + static_cast<VxParameter *>(e.get())->stringValue() + "\n";
        }
    }
    return out;
}
