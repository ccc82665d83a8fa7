#include "platform/data/VxParamBundle.h"

#include <gtest/gtest.h>

#include <random>

// Random edits of a large bundle: every lookup answers as a plain search; copies are deep.
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
        const unsigned what = random() % 11;
        const std::string name = "Slice" + std::to_string(random() % 300);
        const int at = b.size() ? int(random() % unsigned(b.size())) : -1;
        VxParamBase *any = at < 0 ? nullptr : b.entry(at);
        if (what < 5)
            b.setInt(name.c_str(), step);
        else if (what < 8)
            b.insert(what == 7 ? static_cast<VxParamBase *>(new VxParameter(name.c_str(), step))
                               : new VxParamBundle(name.c_str()),
                     what == 5);
        else if (any && what == 8)
            b.remove(any->name().c_str());
        else if (any && what == 9)
            b.take(at);
        else if (any && what == 10)
            any->setName(name.c_str());
        check(b, step);
    }
    ASSERT_GT(b.size(), 40) << "the bundle never grew large";

    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name [PN]: Doe^John");
    b.insert(all);
    VxParamBundle copy(b);
    copy.bundle("All")->setString("G0010-0010", "changed");
    b = *all;
    EXPECT_EQ(b.name(), "All");
    EXPECT_EQ(b.getString("G0010-0010"), "patient name [PN]: Doe^John");
}
