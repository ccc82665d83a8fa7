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
    EXPECT_EQ(std::string(second->label()) + third->label(), "Doe^Jane<2>Doe^Jane<3>");
    ASSERT_TRUE(pool->remove(second));
    EXPECT_EQ(add("Doe^Jane")->label(), "Doe^Jane<2>") << "a freed suffix is handed out again";
    EXPECT_EQ(add("Doe^Jane")->label(), "Doe^Jane<4>");
    EXPECT_EQ(add("Doe^Jane<3>")->label(), "Doe^Jane<3><2>");
    third->setLabel("ct");
    jane->setLabel("Doe^Jane<5>");
    EXPECT_EQ(add("Doe^Jane")->label(), "Doe^Jane");
    EXPECT_EQ(add("Doe^Jane")->label(), "Doe^Jane<3>");
    EXPECT_EQ(add("Doe^Jane")->label(), "Doe^Jane<6>");
    EXPECT_EQ(add("ct")->label(), "ct<2>");
    EXPECT_EQ(pool->size(), 9);
    pool->clear();
    EXPECT_EQ(destroyed, 10);
}
