#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/VxPoolObject.h"

#include <memory>
#include <mutex>
#include <vector>

/// The host's object pool: the data objects of a session, each under a
/// unique label. The pool owns what is added to it.
class VxObjectPool
{
public:
    static VxObjectPool *instance();

    /// Takes ownership. When the object's label is already taken, a suffix
    /// "<2>", "<3>", ... is appended to make it unique (the object's label is
    /// changed). Returns the object.
    VxPoolObject *add(VxPoolObject *object);
    /// The object with that label, or null.
    VxPoolObject *find(const char *label) const;
    /// Removes and destroys the object; false when it is not in the pool.
    bool remove(VxPoolObject *object);
    /// Objects in the order they were added.
    KcDArray<VxPoolObject *> objects() const;
    int size() const;
    /// Destroys every object.
    void clear();

private:
    VxObjectPool() = default;
    mutable std::mutex mutex;
    std::vector<std::unique_ptr<VxPoolObject>> pool;
};
