#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

// A namesake gets base<k> for the smallest free k from 2, also after removals and relabels and
// for labels that merely look numbered; the pool owns and destroys its objects.
TEST(VxObjectPoolTest, NamesakesAreNumberedAsByTheSmallestFreeSuffix)
{
    struct Counted : VxPoolObject
    {
        Counted(const char *label, int *gone) : gone(gone) { setLabel(label); }
        ~Counted() override { ++*gone; }
        int *gone;
    };
    VxObjectPool *pool = VxObjectPool::instance();
    pool->clear();
    int destroyed = 0;
    auto add = [&](const char *label) { return pool->add(new Counted(label, &destroyed)); };
    VxPoolObject *jane = add("Doe^Jane"), *second = add("Doe^Jane"), *third = add("Doe^Jane");
    ASSERT_TRUE(pool->remove(second));
    third->setLabel("ct");
    jane->setLabel("Doe^Jane<4>");
    std::string labels;
    for (const char *label : {"Doe^Jane", "Doe^Jane", "Doe^Jane", "Doe^Jane", "Doe^Jane<2>", "ct"})
        labels += std::string(add(label)->label()) + " ";
    EXPECT_EQ(labels, "Doe^Jane Doe^Jane<2> Doe^Jane<3> Doe^Jane<5> Doe^Jane<2><2> ct<2> ");
    EXPECT_EQ(pool->size(), 8);
    pool->clear();
    EXPECT_EQ(destroyed, 9);
}
