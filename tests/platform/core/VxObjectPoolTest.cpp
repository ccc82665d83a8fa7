#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

// Random adds, removals and relabels against a plain model: a namesake gets base<k> for the
// smallest free k from 2; the pool owns and destroys its objects.
TEST(VxObjectPoolTest, NamesakesAreNumberedAsByTheSmallestFreeSuffix)
{
    struct Counted : VxPoolObject
    {
        Counted(const std::string &label, int *gone) : gone(gone) { setLabel(label.c_str()); }
        ~Counted() override { ++*gone; }
        int *gone;
    };
    VxObjectPool *pool = VxObjectPool::instance();
    pool->clear();
    std::vector<std::string> model, bases = {"Doe^Jane", "Doe^Jane<3>", "Doe^Jane<>", "<5>", ""};
    std::vector<VxPoolObject *> objects;
    std::mt19937 random(20260101);
    int added = 0, destroyed = 0;
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 10;
        size_t i = objects.empty() ? 0 : random() % objects.size();
        if (what < 7 || objects.empty()) {
            const std::string base = what < 5 ? bases[0] : bases[random() % bases.size()];
            std::string label = base;
            for (int k = 2; std::find(model.begin(), model.end(), label) != model.end(); ++k)
                label = base + "<" + std::to_string(k) + ">";
            objects.push_back(pool->add(new Counted(base, &destroyed)));
            model.push_back(label);
            i = model.size() - 1;
            ++added;
        } else if (what < 9) {
            ASSERT_TRUE(pool->remove(objects[i]));
            objects.erase(objects.begin() + long(i));
            model.erase(model.begin() + long(i));
            continue;
        } else {
            model[i] = random() % 2 ? model[random() % model.size()] : bases[0] + "<2>";
            objects[i]->setLabel(model[i].c_str());
        }
        ASSERT_EQ(objects[i]->label(), model[i]) << "step " << step;
    }
    ASSERT_EQ(pool->size(), int(model.size()));
    pool->clear();
    EXPECT_EQ(destroyed, added);
}
