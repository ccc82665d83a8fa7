#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

namespace {

// Counts its own destructions so ownership can be checked.
class CountedObject : public VxPoolObject
{
public:
    explicit CountedObject(const char *label, int *destroyed) : destroyed(destroyed)
    {
        setLabel(label);
    }
    ~CountedObject() override { ++*destroyed; }

private:
    int *destroyed;
};

class VxObjectPoolTest : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override { VxObjectPool::instance()->clear(); }
    int destroyed = 0;
};

} // namespace

TEST_F(VxObjectPoolTest, TakenLabelsGetNumberedSuffixes)
{
    VxObjectPool *pool = VxObjectPool::instance();
    auto *a = pool->add(new CountedObject("Head.dcm", &destroyed));
    auto *b = pool->add(new CountedObject("Head.dcm", &destroyed));
    auto *c = pool->add(new CountedObject("Head.dcm", &destroyed));
    auto *d = pool->add(new CountedObject("Head.dcm<2>", &destroyed));
    EXPECT_EQ(a->label(), "Head.dcm");
    EXPECT_EQ(b->label(), "Head.dcm<2>");
    EXPECT_EQ(c->label(), "Head.dcm<3>");
    EXPECT_EQ(d->label(), "Head.dcm<2><2>");
    EXPECT_EQ(pool->find("Head.dcm<3>"), c);
    EXPECT_EQ(pool->find("Head.dcm<4>"), nullptr);

    // A freed label can be taken again as it is.
    ASSERT_TRUE(pool->remove(b));
    auto *e = pool->add(new CountedObject("Head.dcm", &destroyed));
    EXPECT_EQ(e->label(), "Head.dcm<2>");
}

TEST_F(VxObjectPoolTest, KeepsInsertionOrderAndOwnsObjects)
{
    VxObjectPool *pool = VxObjectPool::instance();
    auto *first = pool->add(new CountedObject("TimeSeriesCtrl", &destroyed));
    auto *second = pool->add(new CountedObject("ct", &destroyed));
    EXPECT_EQ(pool->add(second), second) << "adding an object twice keeps one entry";
    EXPECT_EQ(pool->add(nullptr), nullptr);
    const auto all = pool->objects();
    ASSERT_EQ(all.size(), 2);
    EXPECT_EQ(all[0], first);
    EXPECT_EQ(all[1], second);

    EXPECT_TRUE(pool->remove(first));
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(pool->remove(first));
    EXPECT_EQ(pool->size(), 1);
    pool->clear();
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(pool->size(), 0);
}
