#include "platform/core/VxObjectPool.h"

#include <algorithm>
#include <climits>

namespace {

// Whether label is "name<k>" as add numbers it ("%s<%d>" with k >= 2): the
// digits after the last '<' up to a closing '>' at the end, without a sign or
// leading zero.
bool splitNumbered(const std::string &label, std::string &name, int &k)
{
    if (label.size() < 3 || label.back() != '>')
        return false;
    const size_t open = label.rfind('<');
    if (open == std::string::npos)
        return false;
    const size_t first = open + 1, end = label.size() - 1;
    if (first == end || end - first > 10 || label[first] == '0')
        return false;
    long long value = 0;
    for (size_t i = first; i < end; ++i) {
        if (label[i] < '0' || label[i] > '9')
            return false;
        value = value * 10 + (label[i] - '0');
    }
    if (value < 2 || value > INT_MAX)
        return false;
    name.assign(label, 0, open);
    k = static_cast<int>(value);
    return true;
}

std::string numbered(const std::string &name, int k)
{
    return name + '<' + std::to_string(k) + '>';
}

} // namespace

void VxPoolObject::setLabel(const KcString &label)
{
    if (owner)
        owner->relabel(this, label);
    else
        objectLabel = label;
}

VxObjectPool *VxObjectPool::instance()
{
    static VxObjectPool thePool;
    return &thePool;
}

bool VxObjectPool::taken(const std::string &label) const
{
    return inUse.find(label) != inUse.end();
}

void VxObjectPool::take(const std::string &label)
{
    ++inUse[label];
}

void VxObjectPool::release(const std::string &label)
{
    const auto it = inUse.find(label);
    if (it == inUse.end() || --it->second > 0)
        return;
    inUse.erase(it);
    std::string name;
    int k;
    if (splitNumbered(label, name, k)) {
        const auto it = numbering.find(name);
        if (it != numbering.end() && k < it->second.next)
            it->second.freed.insert(k);
    }
}

VxPoolObject *VxObjectPool::add(VxPoolObject *object)
{
    if (!object)
        return nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (object->owner == this)
        return object;

    const KcString base = object->label();
    if (taken(base)) {
        // Below `next` every suffix is taken or was freed since; a freed one
        // may have been taken again by a relabelling, and is then dropped.
        Numbering &n = numbering[base];
        int k = 0;
        while (!n.freed.empty() && !k) {
            const int candidate = *n.freed.begin();
            n.freed.erase(n.freed.begin());
            if (!taken(numbered(base, candidate)))
                k = candidate;
        }
        if (!k) {
            k = n.next;
            while (taken(numbered(base, k)))
                ++k;
            n.next = k + 1;
        }
        object->objectLabel = numbered(base, k);
    }
    take(object->objectLabel);
    object->owner = this;
    pool.emplace_back(object);
    return object;
}

void VxObjectPool::relabel(VxPoolObject *object, const KcString &label)
{
    std::lock_guard<std::mutex> lock(mutex);
    release(object->objectLabel);
    object->objectLabel = label;
    take(object->objectLabel);
}

VxPoolObject *VxObjectPool::find(const char *label) const
{
    if (!label)
        return nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (!taken(label))
        return nullptr;
    for (const auto &p : pool)
        if (p->label() == label)
            return p.get();
    return nullptr;
}

bool VxObjectPool::remove(VxPoolObject *object)
{
    std::unique_ptr<VxPoolObject> doomed;
    {
        std::lock_guard<std::mutex> lock(mutex);
        // Found by address before anything is read through the pointer: an
        // object removed before is gone, and its pointer dangles.
        const auto it = std::find_if(
            pool.begin(), pool.end(),
            [object](const std::unique_ptr<VxPoolObject> &p) { return p.get() == object; });
        if (!object || it == pool.end())
            return false;
        doomed = std::move(*it);
        pool.erase(it);
        release(object->objectLabel);
        object->owner = nullptr;
    }
    // Destroyed outside the lock: a destructor may look at the pool.
    return true;
}

KcDArray<VxPoolObject *> VxObjectPool::objects() const
{
    std::lock_guard<std::mutex> lock(mutex);
    KcDArray<VxPoolObject *> out;
    out.reserve(static_cast<int>(pool.size()));
    for (const auto &p : pool)
        out.append(p.get());
    return out;
}

int VxObjectPool::size() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(pool.size());
}

void VxObjectPool::clear()
{
    std::vector<std::unique_ptr<VxPoolObject>> doomed;
    {
        std::lock_guard<std::mutex> lock(mutex);
        doomed.swap(pool);
        for (const auto &p : doomed)
            p->owner = nullptr;
        inUse.clear();
        numbering.clear();
    }
}
