#include "platform/data/VxParamBundle.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

// A bundle big enough to index its names, changed in every way an entry can
// change (replacing and duplicate inserts, removal, taking, renaming in place,
// assignment over an entry, a copy of the whole), answers every lookup as a
// search of its entries in order would.
TEST(VxParamBundle, CopiesAreDeepAndLargeBundlesFindWhatAPlainSearchFinds)
{
    VxParamBundle b("DICOM");
    std::mt19937 random(20260102);
    auto nameOf = [&random] { return "Slice" + std::to_string(random() % 300); };
    auto check = [&](const VxParamBundle &bundle, int step) {
        for (int k = 0; k < 300; k += 7) {
            const std::string name = "Slice" + std::to_string(k);
            int i = -1;
            const VxParameter *p = nullptr;
            const VxParamBundle *sub = nullptr;
            for (int j = bundle.size() - 1; j >= 0; --j) {
                VxParamBase *e = bundle.entry(j);
                if (e->name() != name)
                    continue;
                i = j;
                e->isBundle() ? void(sub = e->asBundle())
                              : void(p = static_cast<const VxParameter *>(e));
            }
            ASSERT_EQ(bundle.indexOf(name.c_str()), i) << name << " at step " << step;
            ASSERT_EQ(bundle.parameter(name.c_str()), p) << name << " at step " << step;
            ASSERT_EQ(bundle.bundle(name.c_str()), sub) << name << " at step " << step;
        }
    };
    for (int step = 0; step < 3000; ++step) {
        const unsigned what = random() % 12;
        const std::string name = nameOf();
        if (what < 5) {
            b.setInt(name.c_str(), step);
        } else if (what < 7) {
            b.insert(new VxParamBundle(name.c_str()), what == 5);
        } else if (what == 7) {
            b.insert(new VxParameter(name.c_str(), step), false);
        } else if (what == 8 && b.size() > 0) {
            b.remove(b.entry(static_cast<int>(random() % static_cast<unsigned>(b.size())))
                         ->name()
                         .c_str());
        } else if (what == 9 && b.size() > 0) {
            b.take(static_cast<int>(random() % static_cast<unsigned>(b.size())));
        } else if (what == 10 && b.size() > 0) {
            b.entry(static_cast<int>(random() % static_cast<unsigned>(b.size())))
                ->setName(name.c_str());
        } else if (b.size() > 0) {
            VxParamBase *e = b.entry(static_cast<int>(random() % static_cast<unsigned>(b.size())));
            if (!e->isBundle())
                *static_cast<VxParameter *>(e) = VxParameter(name.c_str(), "assigned");
        }
        check(b, step);
    }
    ASSERT_GT(b.size(), 40) << "the bundle never grew large";

    // Copies are deep; assigning a bundle one of its own descendants must not
    // read freed memory.

    VxParamBundle src("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name [PN]: Doe^John");
    src.insert(all);
    src.setFloat("Spacing", 0.5);
    VxParamBundle deep(src);
    deep.bundle("All")->setString("G0010-0010", "changed");
    EXPECT_EQ(src.bundle("All")->getString("G0010-0010"), "patient name [PN]: Doe^John");
    EXPECT_EQ(deep.parameter("Spacing")->type(), VxParameter::Float);
    VxParamBundle outer("outer");
    auto *inner = new VxParamBundle("inner");
    inner->setString("k", "v");
    outer.insert(inner);
    outer = *inner;
    EXPECT_EQ(outer.name(), "inner");
    EXPECT_EQ(outer.getString("k"), "v");
    // A copy indexes its own entries; renaming one of them leaves the original alone.
    VxParamBundle copy(b);
    check(copy, -1);
    const std::string first = copy.entry(0)->name();
    copy.entry(0)->setName("renamed");
    EXPECT_EQ(copy.indexOf("renamed"), 0);
    EXPECT_EQ(b.indexOf(first.c_str()), 0);
    EXPECT_EQ(b.indexOf("renamed"), -1);
    check(copy, -2);
    // A taken entry is renamed without its former bundle noticing.
    std::unique_ptr<VxParamBase> taken = copy.take(0);
    taken->setName(first.c_str());
    EXPECT_EQ(copy.indexOf("renamed"), -1);
    check(copy, -3);
}
