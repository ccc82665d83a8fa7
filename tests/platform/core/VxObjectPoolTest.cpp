#include "platform/core/VxObjectPool.h"

#include <gtest/gtest.h>

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
        for (int k = 2; isTaken(label); ++k)
            label = base + "<" + std::to_string(k) + ">";
        labels.push_back(label);
        return label;
    }
    bool isTaken(const std::string &label) const
    {
        for (const std::string &l : labels)
            if (l == label)
                return true;
        return false;
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

    // A pooled object given another label frees its old one and takes the
    // new one, even when another object carries it already.
    c->setLabel("Head.dcm<4>");
    EXPECT_EQ(pool->add(new CountedObject("Head.dcm", &destroyed))->label(), "Head.dcm<3>");
    EXPECT_EQ(pool->add(new CountedObject("Head.dcm", &destroyed))->label(), "Head.dcm<5>");
    e->setLabel("Head.dcm<5>");
    EXPECT_EQ(pool->find("Head.dcm<5>")->label(), "Head.dcm<5>");
    EXPECT_EQ(pool->add(new CountedObject("Head.dcm", &destroyed))->label(), "Head.dcm<2>");
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
    const std::vector<std::string> bases = {"Doe^Jane",   "Doe^Jane<3>", "Doe^Jane<03>",
                                            "Doe^Jane<1>", "Doe^Jane<>", "ct<2><2>",
                                            "<5>",         "",           "ct"};
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 10;
        if (what < 7 || objects.empty()) {
            const std::string &base = what < 5 ? bases[0] : bases[random() % bases.size()];
            auto *object = pool->add(new CountedObject(base.c_str(), &destroyed));
            objects.push_back(object);
            ASSERT_EQ(object->label(), model.add(base)) << "step " << step;
        } else if (what < 9) {
            const size_t i = random() % objects.size();
            ASSERT_TRUE(pool->remove(objects[i]));
            objects.erase(objects.begin() + static_cast<long>(i));
            model.labels.erase(model.labels.begin() + static_cast<long>(i));
        } else {
            const size_t i = random() % objects.size();
            const std::string label = model.labels[random() % model.labels.size()];
            objects[i]->setLabel(random() % 2 ? label : bases[random() % bases.size()] + "<2>");
            model.labels[i] = objects[i]->label();
        }
    }
    ASSERT_EQ(pool->size(), static_cast<int>(model.labels.size()));
    const auto all = pool->objects();
    for (int i = 0; i < all.size(); ++i)
        EXPECT_EQ(all[i]->label(), model.labels[static_cast<size_t>(i)]);

    // A long run of namesakes with every third one removed and the gaps
    // filled again, smallest first, before the numbering goes on.
    pool->clear();
    model.labels.clear();
    objects.clear();
    for (int i = 0; i < 1500; ++i) {
        objects.push_back(pool->add(new CountedObject("Roe^Ann", &destroyed)));
        model.add("Roe^Ann");
    }
    for (int i = static_cast<int>(objects.size()) - 1; i >= 0; i -= 3) {
        ASSERT_TRUE(pool->remove(objects[static_cast<size_t>(i)]));
        model.labels.erase(model.labels.begin() + i);
    }
    for (int i = 0; i < 600; ++i)
        ASSERT_EQ(pool->add(new CountedObject("Roe^Ann", &destroyed))->label(),
                  model.add("Roe^Ann"))
            << "namesake " << i << " after the removals";

    // After a clear the numbering starts again at the bare name.
    pool->clear();
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane");
    EXPECT_EQ(pool->add(new CountedObject("Doe^Jane", &destroyed))->label(), "Doe^Jane<2>");
}
