#include "platform/data/VxParamBundle.h"

#include <gtest/gtest.h>

#include <random>

// A bundle big enough to index its names, changed in every way an entry can change (replacing
// and duplicate inserts, removal, taking, renaming in place, assignment over an entry), answers
// every lookup as a search of its entries in order would; so does a copy, which is deep.
TEST(VxParamBundle, CopiesAreDeepAndLargeBundlesFindWhatAPlainSearchFinds)
{
    VxParamBundle b("DICOM");
    std::mt19937 random(20260102);
    auto check = [](const VxParamBundle &bundle, int step) {
        for (int k = 0; k < 300; k += 7) {
            const std::string name = "Slice" + std::to_string(k);
            int i = -1;
            const VxParamBase *p = nullptr, *sub = nullptr; // the first of each kind
            for (int j = bundle.size() - 1; j >= 0; --j)
                if (const VxParamBase *e = bundle.entry(j); e->name() == name)
                    i = j, (e->isBundle() ? sub : p) = e;
            ASSERT_EQ(bundle.indexOf(name.c_str()), i) << name << " at step " << step;
            ASSERT_EQ(bundle.parameter(name.c_str()), p) << name << " at step " << step;
            ASSERT_EQ(bundle.bundle(name.c_str()), sub) << name << " at step " << step;
        }
    };
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 12;
        const std::string name = "Slice" + std::to_string(random() % 300);
        const int any = b.size() ? int(random() % unsigned(b.size())) : -1;
        if (what < 5)
            b.setInt(name.c_str(), step);
        else if (what < 7)
            b.insert(new VxParamBundle(name.c_str()), what == 5);
        else if (what == 7)
            b.insert(new VxParameter(name.c_str(), step), false);
        else if (any < 0)
            continue;
        else if (what == 8)
            b.remove(b.entry(any)->name().c_str());
        else if (what == 9)
            b.take(any);
        else if (what == 10)
            b.entry(any)->setName(name.c_str());
        else if (!b.entry(any)->isBundle())
            *static_cast<VxParameter *>(b.entry(any)) = VxParameter(name.c_str(), "assigned");
        check(b, step);
    }
    ASSERT_GT(b.size(), 40) << "the bundle never grew large";

    // A copy indexes its own entries and values: renaming or changing them leaves the original.
    VxParamBundle copy(b);
    check(copy, -1);
    const std::string first = copy.entry(0)->name();
    copy.entry(0)->setName("renamed");
    EXPECT_EQ(copy.indexOf("renamed"), 0);
    EXPECT_EQ(b.indexOf(first.c_str()), 0);
    EXPECT_EQ(b.indexOf("renamed"), -1);
    // A taken entry is renamed without its former bundle noticing.
    std::unique_ptr<VxParamBase> taken = copy.take(0);
    taken->setName(first.c_str());
    EXPECT_EQ(copy.indexOf("renamed"), -1);
    check(copy, -3);
    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name [PN]: Doe^John");
    b.insert(all);
    VxParamBundle deep(b);
    deep.bundle("All")->setString("G0010-0010", "changed");
    EXPECT_EQ(b.bundle("All")->getString("G0010-0010"), "patient name [PN]: Doe^John");
    // Assigning a bundle one of its own descendants must not read freed memory.
    b = *all;
    EXPECT_EQ(b.name(), "All");
    EXPECT_EQ(b.getString("G0010-0010"), "patient name [PN]: Doe^John");
}
