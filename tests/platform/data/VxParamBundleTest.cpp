#include "platform/data/VxParamBundle.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

namespace {

// The names of a bundle's entries in order, joined with ",".
std::string names(const VxParamBundle &b)
{
    std::string out;
    for (int i = 0; i < b.size(); ++i)
        out += (i ? "," : "") + b.entry(i)->name();
    return out;
}

} // namespace

TEST(VxParameter, ValuesConvertBetweenTextAndNumbers)
{
    VxParameter s("s", "  42.75abc");
    EXPECT_EQ(s.type(), VxParameter::String);
    EXPECT_TRUE(s.isString());
    EXPECT_EQ(s.stringValue(), "  42.75abc");
    EXPECT_EQ(s.intValue(), 42);
    EXPECT_DOUBLE_EQ(s.floatValue(), 42.75);

    VxParameter bad("bad", "not a number");
    EXPECT_EQ(bad.intValue(), 0);
    EXPECT_EQ(bad.floatValue(), 0.0);

    VxParameter i("i", -17);
    EXPECT_EQ(i.type(), VxParameter::Int);
    EXPECT_EQ(i.stringValue(), "-17");
    EXPECT_DOUBLE_EQ(i.floatValue(), -17.0);

    VxParameter f("f", 0.001);
    EXPECT_EQ(f.type(), VxParameter::Float);
    EXPECT_EQ(f.stringValue(), "0.001");
    VxParameter g("g", 1.5e-7);
    EXPECT_EQ(g.stringValue(), "1.5e-07");
    VxParameter h("h", -2.9);
    EXPECT_EQ(h.intValue(), -2); // toward zero
}

TEST(VxParamBundle, InsertKeepsOrderAndReplaceKeepsPosition)
{
    VxParamBundle b("B");
    EXPECT_EQ(b.insert(new VxParameter("a", "1")), 0);
    EXPECT_EQ(b.insert(new VxParameter("b", "2")), 1);
    EXPECT_EQ(b.insert(new VxParameter("c", "3")), 2);
    EXPECT_EQ(names(b), "a,b,c");

    // Replacing "b" keeps it in the middle, with the new value.
    EXPECT_EQ(b.insert(new VxParameter("b", "new")), 1);
    EXPECT_EQ(names(b), "a,b,c");
    EXPECT_EQ(b.getString("b"), "new");

    // Without replace the duplicate is appended; lookups find the first.
    EXPECT_EQ(b.insert(new VxParameter("a", "second"), false), 3);
    EXPECT_EQ(names(b), "a,b,c,a");
    EXPECT_EQ(b.getString("a"), "1");
    EXPECT_EQ(b.indexOf("a"), 0);

    EXPECT_EQ(b.insert(static_cast<VxParamBase *>(nullptr)), -1);
    EXPECT_EQ(b.size(), 4);
}

TEST(VxParamBundle, ReplaceMayTurnAParameterIntoABundle)
{
    VxParamBundle b;
    b.setString("x", "text");
    b.setInt("y", 1);
    b.insert(new VxParamBundle("x"));
    EXPECT_EQ(names(b), "x,y");
    EXPECT_NE(b.bundle("x"), nullptr);
    EXPECT_EQ(b.parameter("x"), nullptr);
    EXPECT_EQ(b.getString("x", "none"), "none");
}

TEST(VxParamBundle, RemoveFindAndTake)
{
    VxParamBundle b;
    b.setString("a", "1");
    b.setString("b", "2");
    b.insert(new VxParameter("a", "dup"), false);
    EXPECT_TRUE(b.remove("a"));
    EXPECT_EQ(names(b), "b,a");
    EXPECT_EQ(b.getString("a"), "dup");
    EXPECT_FALSE(b.remove("zzz"));
    EXPECT_EQ(b.find("zzz"), nullptr);
    EXPECT_EQ(b.find("b"), b.entry(0));
    EXPECT_EQ(b.entry(-1), nullptr);
    EXPECT_EQ(b.entry(2), nullptr);

    std::unique_ptr<VxParamBase> taken = b.take(0);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->name(), "b");
    EXPECT_EQ(names(b), "a");
    EXPECT_EQ(b.take(5), nullptr);
    EXPECT_EQ(b.take(-1), nullptr);

    // A taken entry can go into another bundle.
    VxParamBundle other;
    other.insert(std::move(taken));
    EXPECT_EQ(other.getString("b"), "2");

    b.clear();
    EXPECT_EQ(b.size(), 0);
}

TEST(VxParamBundle, SubBundlesAreCountedAndIndexedSeparately)
{
    VxParamBundle dicom("DICOM");
    dicom.setString("Name", "x");
    dicom.insert(new VxParamBundle("All"));
    dicom.setString("Other", "y");
    dicom.insert(new VxParamBundle("Slice000"));
    dicom.insert(new VxParamBundle("Slice001"));

    EXPECT_EQ(dicom.nBundles(), 3);
    ASSERT_NE(dicom.bundle(0), nullptr);
    EXPECT_EQ(dicom.bundle(0)->name(), "All");
    EXPECT_EQ(dicom.bundle(2)->name(), "Slice001");
    EXPECT_EQ(dicom.bundle(3), nullptr);
    EXPECT_EQ(dicom.bundle(-1), nullptr);
    EXPECT_EQ(dicom.bundle("Slice000"), dicom.bundle(1));
    EXPECT_EQ(dicom.bundle("Name"), nullptr);
    EXPECT_EQ(dicom.bundle("nope"), nullptr);
    EXPECT_EQ(dicom.bundle(1)->asBundle(), dicom.bundle(1));
}

TEST(VxParamBundle, CopiesAreDeepAndIndependent)
{
    VxParamBundle src("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name [PN]: Doe^John");
    src.insert(all);
    src.setFloat("Spacing", 0.5);

    VxParamBundle copy(src);
    EXPECT_EQ(copy.name(), "DICOM");
    ASSERT_NE(copy.bundle("All"), nullptr);
    EXPECT_NE(copy.bundle("All"), src.bundle("All"));
    copy.bundle("All")->setString("G0010-0010", "changed");
    EXPECT_EQ(src.bundle("All")->getString("G0010-0010"), "patient name [PN]: Doe^John");
    EXPECT_EQ(copy.parameter("Spacing")->type(), VxParameter::Float);

    VxParamBundle assigned("X");
    assigned.setString("old", "gone");
    assigned = src;
    EXPECT_EQ(assigned.name(), "DICOM");
    EXPECT_EQ(names(assigned), "All,Spacing");

    // Assigning a bundle from one of its own descendants must not read freed memory.
    VxParamBundle outer("outer");
    auto *inner = new VxParamBundle("inner");
    inner->setString("k", "v");
    outer.insert(inner);
    outer = *inner;
    EXPECT_EQ(outer.name(), "inner");
    EXPECT_EQ(outer.getString("k"), "v");

    std::unique_ptr<VxParamBase> cloned = src.clone();
    ASSERT_TRUE(cloned->isBundle());
    EXPECT_EQ(cloned->asBundle()->dump(), src.dump());
}

TEST(VxParamBundle, LargeBundlesFindWhatAPlainSearchFinds)
{
    // A bundle big enough to index its names, changed in every way an entry
    // can change (replacing and duplicate inserts, removal, taking, renaming
    // an entry in place, assignment over an entry, a copy of the whole),
    // answers every lookup as a search of its entries in order would.
    VxParamBundle b("DICOM");
    std::mt19937 random(20260102);
    auto nameOf = [&random] { return "Slice" + std::to_string(random() % 300); };
    auto plainIndex = [](const VxParamBundle &bundle, const std::string &name) {
        for (int i = 0; i < bundle.size(); ++i)
            if (bundle.entry(i)->name() == name)
                return i;
        return -1;
    };
    auto check = [&](const VxParamBundle &bundle, int step) {
        for (int k = 0; k < 300; k += 7) {
            const std::string name = "Slice" + std::to_string(k);
            const int i = plainIndex(bundle, name);
            ASSERT_EQ(bundle.indexOf(name.c_str()), i) << name << " at step " << step;
            const VxParameter *p = bundle.parameter(name.c_str());
            const VxParamBundle *sub = bundle.bundle(name.c_str());
            const VxParameter *plainP = nullptr;
            const VxParamBundle *plainSub = nullptr;
            for (int j = 0; j < bundle.size(); ++j) {
                VxParamBase *e = bundle.entry(j);
                if (e->name() != name)
                    continue;
                if (!plainP && !e->isBundle())
                    plainP = static_cast<const VxParameter *>(e);
                if (!plainSub && e->isBundle())
                    plainSub = e->asBundle();
            }
            ASSERT_EQ(p, plainP) << name << " at step " << step;
            ASSERT_EQ(sub, plainSub) << name << " at step " << step;
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

    // A copy indexes its own entries; renaming one of them leaves the
    // original alone.
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
