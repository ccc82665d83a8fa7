#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

int compareInt(const void *a, const void *b)
{
    const int x = *static_cast<const int *>(a);
    const int y = *static_cast<const int *>(b);
    return (x > y) - (x < y);
}

int compareIntDescending(const void *a, const void *b)
{
    return compareInt(b, a);
}

int compareKcString(const void *a, const void *b)
{
    return static_cast<const KcString *>(a)->compare(*static_cast<const KcString *>(b));
}

// A record sorted by key only; tag tells equal keys apart.
struct Keyed
{
    int key;
    char tag;
};

int compareKeyed(const void *a, const void *b)
{
    return compareInt(&static_cast<const Keyed *>(a)->key, &static_cast<const Keyed *>(b)->key);
}

template <typename T> std::vector<T> toVector(const KcDArray<T> &a)
{
    return std::vector<T>(a.begin(), a.end());
}

} // namespace

TEST(KcDArray, AppendInsertRemoveKeepOrderAndReportIndexes)
{
    KcDArray<int> a;
    EXPECT_TRUE(a.isEmpty());
    EXPECT_EQ(a.append(10), 0);
    EXPECT_EQ(a.append(30), 1);
    EXPECT_EQ(a.insert(1, 20), 1);
    EXPECT_EQ(a.insert(0, 5), 0);
    EXPECT_EQ(a.insert(a.size(), 40), 4);
    EXPECT_EQ(toVector(a), (std::vector<int>{5, 10, 20, 30, 40}));
    a.remove(0);
    a.remove(a.size() - 1);
    EXPECT_EQ(toVector(a), (std::vector<int>{10, 20, 30}));
    EXPECT_EQ(a.find(20), 1);
    EXPECT_EQ(a.find(99), -1);
    EXPECT_EQ(a.last(), 30);
    a.clear();
    EXPECT_EQ(a.size(), 0);
}

TEST(KcDArray, SortsWithQsortStyleComparatorForPlainAndClassTypes)
{
    KcDArray<int> ints{7, -3, 12, 0, 7, 2};
    ints.sort(compareInt);
    EXPECT_EQ(toVector(ints), (std::vector<int>{-3, 0, 2, 7, 7, 12}));
    ints.sort(compareIntDescending);
    EXPECT_EQ(toVector(ints), (std::vector<int>{12, 7, 7, 2, 0, -3}));

    KcDArray<KcString> names{"IM0010", "IM0002", "IM0001", "DICOMDIR"};
    names.sort(compareKcString);
    EXPECT_EQ(toVector(names), (std::vector<KcString>{"DICOMDIR", "IM0001", "IM0002", "IM0010"}));

    KcDArray<int> empty;
    empty.sort(compareInt);
    EXPECT_TRUE(empty.isEmpty());
}

TEST(KcDArray, BinarySearchFindsElementsAndInsertPositions)
{
    const KcDArray<int> a{2, 4, 6, 8};
    int pos = -1;
    EXPECT_EQ(a.binarySearch(2, compareInt, &pos), 0);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(a.binarySearch(8, compareInt, &pos), 3);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(a.binarySearch(5, compareInt, &pos), -1);
    EXPECT_EQ(pos, 2);
    EXPECT_EQ(a.binarySearch(1, compareInt, &pos), -1);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(a.binarySearch(9, compareInt, &pos), -1);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(a.binarySearch(6, compareInt), 2);

    const KcDArray<int> none;
    EXPECT_EQ(none.binarySearch(1, compareInt, &pos), -1);
    EXPECT_EQ(pos, 0);
}

TEST(KcDArray, InsertSortedPlacesEqualKeysAfterExistingOnes)
{
    KcDArray<Keyed> a;
    EXPECT_EQ(a.insertSorted({5, 'a'}, compareKeyed), 0);
    EXPECT_EQ(a.insertSorted({1, 'b'}, compareKeyed), 0);
    EXPECT_EQ(a.insertSorted({5, 'c'}, compareKeyed), 2);
    EXPECT_EQ(a.insertSorted({3, 'd'}, compareKeyed), 1);
    EXPECT_EQ(a.insertSorted({5, 'e'}, compareKeyed), 4);
    EXPECT_EQ(a.insertSorted({9, 'f'}, compareKeyed), 5);
    std::string tags;
    for (const Keyed &k : a)
        tags += k.tag;
    EXPECT_EQ(tags, "bdacef");
}
