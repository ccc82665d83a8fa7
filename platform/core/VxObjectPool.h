#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/VxPoolObject.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

/// The host's object pool: the data objects of a session, each under a
/// unique label. The pool owns what is added to it.
///
/// Adding costs constant time on average however many objects share a name
/// (logarithmic when suffixes were freed): the pool counts the labels in use
/// and remembers, per name, below which suffix every numbered label is taken
/// or was freed, and which were freed.
class VxObjectPool
{
public:
    static VxObjectPool *instance();

    /// Takes ownership. When the object's label is already taken, a suffix
    /// "<2>", "<3>", ... is appended to make it unique (the object's label is
    /// changed): the smallest number whose label is free, so a freed label is
    /// handed out again. Returns the object.
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
    friend class VxPoolObject;
    VxObjectPool() = default;
    /// A pooled object is relabelled (VxPoolObject::setLabel).
    void relabel(VxPoolObject *object, const KcString &label);
    bool taken(const std::string &label) const;
    void take(const std::string &label);
    /// One object less carries the label; a numbered label that becomes free
    /// below its name's search start is remembered as freed.
    void release(const std::string &label);

    mutable std::mutex mutex;
    std::vector<std::unique_ptr<VxPoolObject>> pool;
    /// How many objects carry each label.
    std::unordered_map<std::string, int> inUse;
    struct Numbering
    {
        /// Every "name<k>" with 2 <= k < next is taken or in freed.
        int next = 2;
        std::set<int> freed;
    };
    /// Per name that add has numbered.
    std::unordered_map<std::string, Numbering> numbering;
};
