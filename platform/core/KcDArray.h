#pragma once

#include <algorithm>
#include <cstdlib>
#include <type_traits>
#include <vector>

/// The host's growable array. Indexes are int; out-of-range access is a
/// programming error (checked in debug builds by std::vector's assertions).
template <typename T>
class KcDArray
{
public:
    /// qsort-style comparator over pointers to two elements.
    using Compare = int (*)(const void *, const void *);

    KcDArray() = default;
    KcDArray(std::initializer_list<T> init) : items(init) {}

    int size() const { return static_cast<int>(items.size()); }
    bool isEmpty() const { return items.empty(); }

    T &operator[](int i) { return items[static_cast<size_t>(i)]; }
    const T &operator[](int i) const { return items[static_cast<size_t>(i)]; }
    T &last() { return items.back(); }
    const T &last() const { return items.back(); }

    /// Appends and returns the new element's index.
    int append(const T &value)
    {
        items.push_back(value);
        return size() - 1;
    }
    int append(T &&value)
    {
        items.push_back(std::move(value));
        return size() - 1;
    }

    /// Inserts before index i (0..size()); returns i.
    int insert(int i, const T &value)
    {
        items.insert(items.begin() + i, value);
        return i;
    }

    /// Removes the element at index i.
    void remove(int i) { items.erase(items.begin() + i); }
    void clear() { items.clear(); }
    void resize(int n) { items.resize(static_cast<size_t>(n)); }
    void reserve(int n) { items.reserve(static_cast<size_t>(n)); }

    /// Index of the first element equal to value, or -1.
    int find(const T &value) const
    {
        auto it = std::find(items.begin(), items.end(), value);
        return it == items.end() ? -1 : static_cast<int>(it - items.begin());
    }

    /// Sorts with a qsort-style comparator. Trivially copyable elements are
    /// sorted with the C library's qsort itself (not stable); others with an
    /// equivalent std::sort.
    void sort(Compare cmp)
    {
        if (items.empty())
            return;
        if constexpr (std::is_trivially_copyable_v<T>) {
            std::qsort(items.data(), items.size(), sizeof(T), cmp);
        } else {
            std::sort(items.begin(), items.end(),
                      [cmp](const T &a, const T &b) { return cmp(&a, &b) < 0; });
        }
    }

    /// Binary search in an array sorted by cmp. Returns the index of an equal
    /// element, or -1; insertPos (when given) receives the index at which the
    /// key would be inserted to keep the order.
    int binarySearch(const T &key, Compare cmp, int *insertPos = nullptr) const
    {
        int lo = 0;
        int hi = size();
        while (lo < hi) {
            const int mid = lo + (hi - lo) / 2;
            const int c = cmp(&items[static_cast<size_t>(mid)], &key);
            if (c == 0) {
                if (insertPos)
                    *insertPos = mid;
                return mid;
            }
            if (c < 0)
                lo = mid + 1;
            else
                hi = mid;
        }
        if (insertPos)
            *insertPos = lo;
        return -1;
    }

    /// Inserts value at its sorted place (after equal elements); returns its index.
    int insertSorted(const T &value, Compare cmp)
    {
        int pos = static_cast<int>(
            std::upper_bound(items.begin(), items.end(), value,
                             [cmp](const T &a, const T &b) { return cmp(&a, &b) < 0; }) -
            items.begin());
        return insert(pos, value);
    }

    T *data() { return items.data(); }
    const T *data() const { return items.data(); }
    auto begin() { return items.begin(); }
    auto end() { return items.end(); }
    auto begin() const { return items.begin(); }
    auto end() const { return items.end(); }

private:
    std::vector<T> items;
};
