#include "vxdicom/stacks/DicomCriterion.h"

#include "platform/core/VxScriptVars.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <gtest/gtest.h>

namespace {

KcDArray<QString> values(std::initializer_list<const char *> texts)
{
    KcDArray<QString> out;
    for (const char *t : texts)
        out.append(QString(t));
    return out;
}

DicomLoadOption option(DicomLoadOption::Id policy, const char *name = "slice location")
{
    return DicomLoadOption(32, 4161, policy, name, 31);
}

} // namespace

TEST(CriterionRule, EachPolicyOnNumbersAndTexts)
{
    struct Row { DicomLoadOption::Id policy; const char *name; const char *v; std::initializer_list<const char *> s; bool pass; const char *why; };
    const Row rows[] = {
        {DicomLoadOption::StrictlyMonotonic, "slice location", "3", {"2", "1"}, true, "load order 1, 2, 3"},
        {DicomLoadOption::StrictlyMonotonic, "slice location", "3", {"1", "2"}, false, "direction reverses"},
        {DicomLoadOption::StrictlyMonotonic, "slice location", "2", {"2", "1"}, false, "repeat"},
        {DicomLoadOption::StrictlyMonotonic, "slice location", "2", {"1"}, true, "one value only"},
        {DicomLoadOption::StrictlyMonotonic, "slice location", "1.0", {"1"}, false, "numerically equal"},
        {DicomLoadOption::Monotonic, "x", "4", {"5", "5"}, true, "older step 0"},
        {DicomLoadOption::Monotonic, "x", "5", {"5", "4"}, true, "equal neighbours never break"},
        {DicomLoadOption::Monotonic, "x", "3", {"5", "4"}, false, "direction reverses"},
        {DicomLoadOption::Linear, "slice location", "-1.019", {"0", "1"}, true, "steps 1.0 and 1.019"},
        {DicomLoadOption::Linear, "slice location", "-1.03", {"0", "1"}, false, "steps 1.0 and 1.03"},
        {DicomLoadOption::Linear, "slice location", "1", {"1", "1"}, true, "both steps 0"},
        {DicomLoadOption::Linear, "slice location", "2", {"1", "1"}, false, "zero older step, non-zero newer"},
        {DicomLoadOption::Linear, "instance number", "3.0000001", {"2", "1"}, true, "absolute 1e-6 for other names"},
        {DicomLoadOption::Linear, "instance number", "3.01", {"2", "1"}, false, "absolute 1e-6 for other names"},
        {DicomLoadOption::Constant, "x", "1.0", {"1"}, true, "numeric equality"},
        {DicomLoadOption::Constant, "x", "abc", {"ABC"}, false, "case-sensitive texts"},
        {DicomLoadOption::Constant, "x", "anything", {}, true, "empty stack"},
        {DicomLoadOption::StrictlyMonotonic, "x", "c", {"b", "a"}, true, "texts compare ordinally"},
        {DicomLoadOption::StrictlyMonotonic, "x", "a", {"b", "a"}, false, "texts reverse"},
        {DicomLoadOption::Ignore, "x", "z", {"a", "b"}, true, "never breaks"},
    };
    for (const Row &r : rows) {
        const DicomLoadOption o = option(r.policy, r.name);
        EXPECT_EQ(isOptionSatisfied(r.v, values(r.s), o), r.pass) << r.why;
    }
}

TEST(CriterionRule, LinearToleranceFollowsTheSharedSetting)
{
    const float old = dicomUniformTolerance();
    setDicomUniformTolerance(0.05f);
    EXPECT_TRUE(isOptionSatisfied("-1.03", values({"0", "1"}), option(DicomLoadOption::Linear)));
    setDicomUniformTolerance(old);
    EXPECT_FALSE(isOptionSatisfied("-1.03", values({"0", "1"}), option(DicomLoadOption::Linear)));
}

TEST(StackChecks, MonotonousAndUniform)
{
    EXPECT_TRUE(slicesAreMonotonous({1, 1})) << "two equal locations count as monotonous";
    EXPECT_FALSE(slicesAreMonotonous({1, 1, 2}));
    EXPECT_TRUE(slicesAreMonotonous({3, 2, 1}));
    EXPECT_FALSE(slicesAreMonotonous({10, 30, 20}));
    EXPECT_TRUE(slicesAreUniform({0, 1, 2, 3.01f}, 0.02f));
    EXPECT_FALSE(slicesAreUniform({0, 1, 2, 3.05f}, 0.02f));
    EXPECT_TRUE(slicesAreUniform({5, 5, 5}, 0.02f));
    EXPECT_FALSE(slicesAreUniform({5, 5, 6}, 0.02f));
    EXPECT_TRUE(slicesAreUniform({}, 0.02f));
}

TEST(StackChecks, MaxDistErrorComesFromTheScriptVariable)
{
    VxScriptVars::instance().unset("DicomMaxDistError");
    EXPECT_FLOAT_EQ(dicomMaxDistError(), 0.05f);
    VxScriptVars::instance().set("DicomMaxDistError", "0.5");
    EXPECT_FLOAT_EQ(dicomMaxDistError(), 0.5f);
    VxScriptVars::instance().unset("DicomMaxDistError");
}
