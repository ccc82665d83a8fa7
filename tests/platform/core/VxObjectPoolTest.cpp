#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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

// The pool's labels as a plain list, numbered by walking the suffixes from 2
// and comparing with every label in use: the rule the pool must keep, however
// it finds the number.
struct LabelModel
{
    std::vector<std::string> labels; // in the order added

    std::string add(const std::string &base)
    {
        std::string label = base;
        for (int k = 2; std::find(labels.begin(), labels.end(), label) != labels.end(); ++k)
            label = base + "<" + std::to_string(k) + ">";
        labels.push_back(label);
        return label;
    }
};

class VxObjectPoolTest : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override { VxObjectPool::instance()->clear(); }
    int destroyed = 0;
};

} // namespace

TEST_F(VxObjectPoolTest, NamesakesAreNumberedAsByTheSmallestFreeSuffix)
{
    // Thousands of namesakes (every field of one patient), with removals
    // that free suffixes in the middle, relabelled objects (the reader gives
    // a stack its second label after registering it, which may equal another
    // object's label or free one) and labels that merely look numbered.
    VxObjectPool *pool = VxObjectPool::instance();
    LabelModel model;
    std::vector<VxPoolObject *> objects;
    std::mt19937 random(20260101);
    int added = 0;
    const std::vector<std::string> bases = {
        "Doe^Jane", "Doe^Jane<3>", "Doe^Jane<03>", "Doe^Jane<1>", "Doe^Jane<>", "ct<2><2>", "<5>",
        "",         "ct"};
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 10;
        if (what < 7 || objects.empty()) {
            const std::string &base = what < 5 ? bases[0] : bases[random() % bases.size()];
            auto *object = pool->add(new CountedObject(base.c_str(), &destroyed));
            ++added;
            objects.push_back(object);
            ASSERT_EQ(object->label(), model.add(base)) << "step " << step;
        } else if (what < 9) {
            const size_t i = random() % objects.size();
            ASSERT_TRUE(pool->remove(objects[i]));
            objects.erase(objects.begin() + static_cast<long>(i));
            model.labels.erase(model.labels.begin() + static_cast<long>(i));
        } else {
            const size_t i = random() % objects.size();
            // A relabelled object takes its new label as it is, taken or not.
            const std::string label = random() % 2 ? model.labels[random() % model.labels.size()]
                                                   : bases[random() % bases.size()] + "<2>";
            objects[i]->setLabel(label.c_str());
            ASSERT_EQ(objects[i]->label(), label) << "step " << step;
            model.labels[i] = label;
        }
    }
    ASSERT_EQ(pool->size(), static_cast<int>(model.labels.size()));
    const auto all = pool->objects();
    for (int i = 0; i < all.size(); ++i)
        EXPECT_EQ(all[i]->label(), model.labels[static_cast<size_t>(i)]);

    // The pool owns its objects; after a clear the numbering starts again.
    pool->clear();
    EXPECT_EQ(destroyed, added);
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane");
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane<2>");
}
