// The stack-break rules on plain values: the criteria policies and the
// slice-order checks of a finished stack.

#include "vxdicom/stacks/DicomCriterion.h"

#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace {
template <class T, class V> KcDArray<T> array(std::initializer_list<V> list)
{
    KcDArray<T> out;
    for (V v : list)
        out.append(T(v));
    return out;
}
} // namespace

TEST(CriterionRule, EachPolicyOnNumbersAndTexts)
{
    using O = DicomLoadOption;
    struct Row
    {
        O::Id policy;
        const char *name, *candidate;
        std::initializer_list<const char *> stack; // newest first
        bool pass;
        const char *why;
    };
    const char *slice = "slice location";
    const Row rows[] = {
        {O::StrictlyMonotonic, slice, "3", {"2", "1"}, true, "load order 1, 2, 3"},
        {O::StrictlyMonotonic, slice, "3", {"1", "2"}, false, "load order 2, 1, 3 reverses"},
        {O::StrictlyMonotonic, slice, "2", {"2", "1"}, false, "a repeat"},
        {O::StrictlyMonotonic, slice, "2", {"1"}, true, "one stack value: any change"},
        {O::StrictlyMonotonic, slice, "1.0", {"1"}, false, "numerically equal texts"},
        {O::StrictlyMonotonic, "x", "c", {"b", "a"}, true, "texts step ordinally a, b, c"},
        {O::StrictlyMonotonic, "x", "a", {"b", "a"}, false, "texts turn back"},
        {O::StrictlyMonotonic, "x", "B", {"a"}, true, "texts that differ only in case differ"},
        {O::Monotonic, "x", "4", {"5", "5"}, true, "older step 0 never breaks"},
        {O::Monotonic, "x", "5", {"5", "4"}, true, "a newer step 0 never breaks"},
        {O::Monotonic, "x", "3", {"5", "4"}, false, "direction reverses"},
        {O::Monotonic, "x", "6", {"5", "4"}, true, "same direction"},
        {O::Linear, slice, "-1.019", {"0", "1"}, true, "steps 1.0 and 1.019"},
        {O::Linear, slice, "-1.03", {"0", "1"}, false, "steps 1.0 and 1.03"},
        {O::Linear, slice, "-10.1", {"0", "10"}, true, "steps 10 and 10.1 mm: 1 % apart"},
        {O::Linear, slice, "-0.515", {"0", "0.5"}, false, "steps 0.5 and 0.515 mm: 3 % apart"},
        {O::Linear, slice, "1", {"1", "1"}, true, "both steps 0"},
        {O::Linear, slice, "2", {"1", "1"}, false, "zero older step, non-zero newer"},
        {O::Linear, slice, "1", {"1", "2"}, false, "zero newer step, non-zero older"},
        {O::Linear, "Slice Location", "-1.019", {"0", "1"}, false, "relative only by exact name"},
        {O::Linear, "instance number", "3.0000001", {"2", "1"}, true, "absolute 1e-6 elsewhere"},
        {O::Linear, "instance number", "3.01", {"2", "1"}, false, "absolute 1e-6 elsewhere"},
        {O::Linear, "x", "c", {"b", "a"}, true, "text steps compare by their signs"},
        {O::Constant, "x", "1.0", {"1"}, true, "both numeric and equal"},
        {O::Constant, "x", "abc", {"ABC"}, false, "case-sensitive texts"},
        {O::Constant, "x", "abc", {"abc", "zzz"}, true, "only the newest stack value counts"},
        {O::Constant, "x", "anything", {}, true, "an empty stack accepts"},
        {O::Ignore, "x", "z", {"a", "b"}, true, "ignore never breaks"},
        {static_cast<O::Id>(3), "x", "z", {"a", "b"}, true, "a value that is no policy passes"},
    };
    for (const Row &r : rows) {
        const DicomLoadOption option(32, 4161, r.policy, r.name, 31);
        EXPECT_EQ(isOptionSatisfied(r.candidate, array<QString>(r.stack), option, 0.02f), r.pass)
            << r.why << " (" << r.candidate << ")";
    }
    // The stacks' shared uniformity tolerance is the one the linear rule uses.
    DicomLoadOption linear(32, 4161, O::Linear, slice, 31);
    EXPECT_FALSE(DicomStackItem::isOptionSatisfied("-1.03", array<QString>({"0", "1"}), linear));
    DicomStackItem::uniformTolerance = 0.05f;
    EXPECT_TRUE(DicomStackItem::isOptionSatisfied("-1.03", array<QString>({"0", "1"}), linear));
    DicomStackItem::uniformTolerance = 0.02f;
}

TEST(StackChecks, MonotonousAndUniformSlicesAndPixelSizes)
{
    auto monotonous = [](std::initializer_list<float> l) {
        return slicesAreMonotonous(array<float>(l));
    };
    auto uniform = [](std::initializer_list<float> l, float tolerance = 0.02f) {
        return slicesAreUniform(array<float>(l), tolerance);
    };
    EXPECT_TRUE(monotonous({1, 1})) << "two equal locations count as monotonous";
    EXPECT_FALSE(monotonous({1, 1, 2})) << "first step is zero";
    EXPECT_FALSE(monotonous({1, 2, 2})) << "a later step is zero";
    EXPECT_TRUE(monotonous({3, 2, 1})) << "descending";
    EXPECT_FALSE(monotonous({10, 30, 20})) << "direction reverses";
    EXPECT_TRUE(monotonous({1, 2, 5, 6})) << "steps need not be equal";

    EXPECT_TRUE(uniform({0, 1, 2, 3.01f})) << "1% off";
    EXPECT_FALSE(uniform({0, 1, 2, 3.05f})) << "5% off";
    EXPECT_TRUE(uniform({0, 1, 2, 3.05f}, 0.06f)) << "within a wider tolerance";
    EXPECT_TRUE(uniform({5, 5, 5})) << "zero steps agree";
    EXPECT_FALSE(uniform({5, 5, 6})) << "zero step then a real one";
    EXPECT_FALSE(uniform({0, 1, 3})) << "the first two steps differ";
    EXPECT_TRUE(uniform({0, 7})) << "two slices are uniform";

    EXPECT_FALSE(pixelSizesDiffer(0.5f, 0.50004f)) << "0.00004 < 0.00005 x 1.00004";
    EXPECT_TRUE(pixelSizesDiffer(0.5f, 0.5001f)) << "0.0001 > 0.00005 x 1.0001";
}
