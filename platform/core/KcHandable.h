#pragma once

#include <atomic>

/// Intrusive reference count: objects start with count 0; the last unref()
/// deletes the object. ref()/unref() are thread-safe.
class KcHandable
{
public:
    KcHandable() = default;
    KcHandable(const KcHandable &) : refs(0) {}
    KcHandable &operator=(const KcHandable &) { return *this; }
    virtual ~KcHandable() = default;

    void ref() const { refs.fetch_add(1, std::memory_order_relaxed); }
    /// Drops one reference; deletes the object when none is left. Returns the new count.
    int unref() const
    {
        const int left = refs.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left <= 0)
            delete this;
        return left;
    }
    int refCount() const { return refs.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int> refs{0};
};
