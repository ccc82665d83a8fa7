#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

struct CountedObject : VxPoolObject
{
    CountedObject(const std::string &label, int *d) : destroyed(d) { setLabel(label.c_str()); }
    ~CountedObject() override { ++*destroyed; }
    int *destroyed;
};

} // namespace

// Labels against a plain model: base, else base<k> for the smallest free k from 2.
TEST(VxObjectPoolTest, NamesakesAreNumberedAsByTheSmallestFreeSuffix)
{
    VxObjectPool *pool = VxObjectPool::instance();
    pool->clear();
    std::vector<std::string> model;
    std::vector<VxPoolObject *> objects;
    std::mt19937 random(20260101);
    int added = 0, destroyed = 0;
    const std::vector<std::string> bases = {
        "Doe^Jane", "Doe^Jane<3>", "Doe^Jane<03>", "Doe^Jane<>", "ct<2><2>", "<5>", "", "ct"};
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 10;
        if (what < 7 || objects.empty()) {
            const std::string &base = what < 5 ? bases[0] : bases[random() % bases.size()];
            objects.push_back(pool->add(new CountedObject(base, &destroyed)));
            ++added;
            std::string label = base;
            for (int k = 2; std::find(model.begin(), model.end(), label) != model.end(); ++k)
                label = base + "<" + std::to_string(k) + ">";
            model.push_back(label);
        } else if (what < 9) {
            const long i = long(random() % objects.size());
            ASSERT_TRUE(pool->remove(objects[size_t(i)]));
            objects.erase(objects.begin() + i);
            model.erase(model.begin() + i);
        } else {
            const size_t i = random() % objects.size();
            model[i] = random() % 2 ? model[random() % model.size()]
                                    : bases[random() % bases.size()] + "<2>";
            objects[i]->setLabel(model[i].c_str());
            ASSERT_EQ(objects[i]->label(), model[i]) << "step " << step;
        }
        ASSERT_EQ(pool->size(), int(model.size()));
        if (!objects.empty()) {
            ASSERT_EQ(objects.back()->label(), model.back()) << "step " << step;
        }
    }
    const auto all = pool->objects();
    for (int i = 0; i < all.size(); ++i)
        EXPECT_EQ(all[i]->label(), model[size_t(i)]);
    pool->clear();
    EXPECT_EQ(destroyed, added) << "the pool owns its objects";
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane");
    pool->clear();
}
