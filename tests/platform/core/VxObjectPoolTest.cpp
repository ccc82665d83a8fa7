#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

// Counts its own destructions so ownership can be checked.
struct CountedObject : VxPoolObject
{
    CountedObject(const char *label, int *destroyed) : destroyed(destroyed) { setLabel(label); }
    ~CountedObject() override { ++*destroyed; }
    int *destroyed;
};

} // namespace

// Thousands of namesakes, with removals that free suffixes in the middle,
// relabelled objects (which may take another's label or free one) and labels
// that merely look numbered, are labelled as a plain model does: the base,
// else base<k> for the smallest k from 2 not in use.
TEST(VxObjectPoolTest, NamesakesAreNumberedAsByTheSmallestFreeSuffix)
{
    VxObjectPool *pool = VxObjectPool::instance();
    pool->clear();
    std::vector<std::string> model; // labels in the order added
    std::vector<VxPoolObject *> objects;
    std::mt19937 random(20260101);
    int added = 0, destroyed = 0;
    const std::vector<std::string> bases = {
        "Doe^Jane", "Doe^Jane<3>", "Doe^Jane<03>", "Doe^Jane<1>", "Doe^Jane<>", "ct<2><2>", "<5>",
        "",         "ct"};
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 10;
        if (what < 7 || objects.empty()) {
            const std::string &base = what < 5 ? bases[0] : bases[random() % bases.size()];
            objects.push_back(pool->add(new CountedObject(base.c_str(), &destroyed)));
            ++added;
            std::string label = base;
            for (int k = 2; std::find(model.begin(), model.end(), label) != model.end(); ++k)
                label = base + "<" + std::to_string(k) + ">";
            model.push_back(label);
            ASSERT_EQ(objects.back()->label(), label) << "step " << step;
        } else if (what < 9) {
            const long i = long(random() % objects.size());
            ASSERT_TRUE(pool->remove(objects[size_t(i)]));
            objects.erase(objects.begin() + i);
            model.erase(model.begin() + i);
        } else {
            const size_t i = random() % objects.size();
            const std::string label = random() % 2 ? model[random() % model.size()]
                                                   : bases[random() % bases.size()] + "<2>";
            objects[i]->setLabel(label.c_str());
            ASSERT_EQ(objects[i]->label(), label) << "step " << step;
            model[i] = label;
        }
    }
    ASSERT_EQ(pool->size(), static_cast<int>(model.size()));
    const auto all = pool->objects();
    for (int i = 0; i < all.size(); ++i)
        EXPECT_EQ(all[i]->label(), model[size_t(i)]);
    // The pool owns its objects; after a clear the numbering starts again.
    pool->clear();
    EXPECT_EQ(destroyed, added);
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane");
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane<2>");
    pool->clear();
}
