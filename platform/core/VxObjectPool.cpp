#include "platform/core/VxObjectPool.h"

#include <algorithm>

VxObjectPool *VxObjectPool::instance()
{
    static VxObjectPool thePool;
    return &thePool;
}

VxPoolObject *VxObjectPool::add(VxPoolObject *object)
{
    if (!object)
        return nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    const auto owned = [object](const std::unique_ptr<VxPoolObject> &p) {
        return p.get() == object;
    };
    if (std::any_of(pool.begin(), pool.end(), owned))
        return object;

    const auto taken = [this](const KcString &label) {
        return std::any_of(
            pool.begin(), pool.end(),
            [&label](const std::unique_ptr<VxPoolObject> &p) { return p->label() == label; });
    };
    const KcString base = object->label();
    if (taken(base)) {
        KcString candidate;
        for (int n = 2;; ++n) {
            candidate = KcString::format("%s<%d>", base.c_str(), n);
            if (!taken(candidate))
                break;
        }
        object->setLabel(candidate);
    }
    pool.emplace_back(object);
    return object;
}

VxPoolObject *VxObjectPool::find(const char *label) const
{
    if (!label)
        return nullptr;
    std::lock_guard<std::mutex> lock(mutex);
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
        const auto it = std::find_if(
            pool.begin(), pool.end(),
            [object](const std::unique_ptr<VxPoolObject> &p) { return p.get() == object; });
        if (it == pool.end())
            return false;
        doomed = std::move(*it);
        pool.erase(it);
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
    }
}
