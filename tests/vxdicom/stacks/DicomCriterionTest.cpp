#include "vxdicom/stacks/DicomCriterion.h"

#include "platform/core/VxScriptVars.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace {

KcDArray<QString> values(std::initializer_list<const char *> texts)
{
    KcDArray<QString> out;
    for (const char *t : texts)
        out.append(QString::fromLatin1(t));
    return out;
}

KcDArray<float> locations(std::initializer_list<float> list)
{
    KcDArray<float> out;
    for (float v : list)
        out.append(v);
    return out;
}

} // namespace

TEST(CriterionRule, EachPolicyOnNumbersAndTexts)
{
    using O = DicomLoadOption;
    struct Row
    {
        O::Id policy;
        const char *name;
        const char *candidate;
        std::initializer_list<const char *> stack; // newest first
        bool pass;
        const char *why;
    };
    const Row rows[] = {
        {O::StrictlyMonotonic, "slice location", "3", {"2", "1"}, true, "load order 1, 2, 3"},
        {O::StrictlyMonotonic,
         "slice location",
         "3",
         {"1", "2"},
         false,
         "load order 2, 1, 3 reverses"},
        {O::StrictlyMonotonic, "slice location", "2", {"2", "1"}, false, "a repeat"},
        {O::StrictlyMonotonic, "slice location", "2", {"1"}, true, "one stack value: any change"},
        {O::StrictlyMonotonic, "slice location", "1.0", {"1"}, false, "numerically equal texts"},
        {O::StrictlyMonotonic, "x", "c", {"b", "a"}, true, "texts step ordinally a, b, c"},
        {O::StrictlyMonotonic, "x", "a", {"b", "a"}, false, "texts turn back"},
        {O::StrictlyMonotonic, "x", "B", {"a"}, true, "texts that differ only in case differ"},
        {O::Monotonic, "x", "4", {"5", "5"}, true, "older step 0 never breaks"},
        {O::Monotonic, "x", "5", {"5", "4"}, true, "a newer step 0 never breaks"},
        {O::Monotonic, "x", "3", {"5", "4"}, false, "direction reverses"},
        {O::Monotonic, "x", "6", {"5", "4"}, true, "same direction"},
        {O::Linear, "slice location", "-1.019", {"0", "1"}, true, "steps 1.0 and 1.019"},
        {O::Linear, "slice location", "-1.03", {"0", "1"}, false, "steps 1.0 and 1.03"},
        {O::Linear, "slice location", "1", {"1", "1"}, true, "both steps 0"},
        {O::Linear, "slice location", "2", {"1", "1"}, false, "zero older step, non-zero newer"},
        {O::Linear, "slice location", "1", {"1", "2"}, false, "zero newer step, non-zero older"},
        {O::Linear,
         "Slice Location",
         "-1.019",
         {"0", "1"},
         false,
         "the relative rule needs the exact lower-case name"},
        {O::Linear,
         "instance number",
         "3.0000001",
         {"2", "1"},
         true,
         "absolute 1e-6 for other names"},
        {O::Linear, "instance number", "3.01", {"2", "1"}, false, "absolute 1e-6 for other names"},
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
        EXPECT_EQ(
            isOptionSatisfied(QString::fromLatin1(r.candidate), values(r.stack), option, 0.02f),
            r.pass)
            << r.why << " (" << r.candidate << ")";
    }
}

TEST(CriterionRule, LinearToleranceIsTheStacksSharedTolerance)
{
    DicomLoadOption linear(32, 4161, DicomLoadOption::Linear, "slice location", 31);
    EXPECT_TRUE(isOptionSatisfied("-1.03", values({"0", "1"}), linear, 0.05f));
    EXPECT_FALSE(isOptionSatisfied("-1.03", values({"0", "1"}), linear, 0.02f));

    ASSERT_FLOAT_EQ(DicomStackItem::uniformTolerance, 0.02f) << "the initial value";
    EXPECT_FALSE(DicomStackItem::isOptionSatisfied("-1.03", values({"0", "1"}), linear));
    DicomStackItem::uniformTolerance = 0.05f;
    EXPECT_TRUE(DicomStackItem::isOptionSatisfied("-1.03", values({"0", "1"}), linear));
    DicomStackItem::uniformTolerance = 0.02f;
}

TEST(StackChecks, MonotonousNeedsOneDirectionWithoutRepeats)
{
    EXPECT_TRUE(slicesAreMonotonous(locations({1, 1})))
        << "two equal locations count as monotonous";
    EXPECT_FALSE(slicesAreMonotonous(locations({1, 1, 2}))) << "first step is zero";
    EXPECT_FALSE(slicesAreMonotonous(locations({1, 2, 2}))) << "a later step is zero";
    EXPECT_TRUE(slicesAreMonotonous(locations({3, 2, 1}))) << "descending is monotonous";
    EXPECT_FALSE(slicesAreMonotonous(locations({10, 30, 20}))) << "direction reverses";
    EXPECT_TRUE(slicesAreMonotonous(locations({1, 2, 5, 6}))) << "steps need not be equal";
    EXPECT_TRUE(slicesAreMonotonous(locations({})));
}

TEST(StackChecks, UniformComparesSuccessiveStepsRelatively)
{
    EXPECT_TRUE(slicesAreUniform(locations({0, 1, 2, 3.01f}), 0.02f)) << "1% off";
    EXPECT_FALSE(slicesAreUniform(locations({0, 1, 2, 3.05f}), 0.02f)) << "5% off";
    EXPECT_TRUE(slicesAreUniform(locations({0, 1, 2, 3.05f}), 0.06f)) << "within a wider tolerance";
    EXPECT_TRUE(slicesAreUniform(locations({5, 5, 5}), 0.02f)) << "zero steps agree";
    EXPECT_FALSE(slicesAreUniform(locations({5, 5, 6}), 0.02f)) << "zero step then a real one";
    EXPECT_FALSE(slicesAreUniform(locations({0, 1, 3}), 0.02f));
    EXPECT_TRUE(slicesAreUniform(locations({0, 7}), 0.02f)) << "two slices are uniform";
    EXPECT_TRUE(slicesAreUniform(locations({}), 0.02f));
}

TEST(StackChecks, PixelSizesHaveARelativeToleranceOfTheirSum)
{
    EXPECT_FALSE(pixelSizesDiffer(0.5f, 0.50004f)) << "0.00004 < 0.00005 x 1.00004";
    EXPECT_TRUE(pixelSizesDiffer(0.5f, 0.5001f)) << "0.0001 > 0.00005 x 1.0001";
    EXPECT_FALSE(pixelSizesDiffer(0.482421875f, 0.482421875f));
    EXPECT_TRUE(pixelSizesDiffer(0.5f, 0.6f));
}

TEST(ColumnText, NumbersCompareAsNumbersOtherTextsOrdinally)
{
    EXPECT_EQ(compareColumnTexts("10", "9"), 1) << "numeric, not text order";
    EXPECT_EQ(compareColumnTexts("-2", "-10"), 1);
    EXPECT_EQ(compareColumnTexts("1.0", "1"), 0) << "equal numbers";
    EXPECT_EQ(compareColumnTexts("abc", "abd"), -1);
    EXPECT_EQ(compareColumnTexts("B", "a"), -1) << "case-sensitive ordinal: 'B' < 'a'";
    EXPECT_EQ(compareColumnTexts("10", "9a"), -1) << "one side not a number: text order";
}

TEST(ColumnText, SortKeysShiftNumbersAndKeepTexts)
{
    EXPECT_EQ(dicomColumnKey("-12.5"), "+000000099987.5");
    EXPECT_EQ(dicomColumnKey("0"), "+00000000100000");
    EXPECT_EQ(dicomColumnKey("HEAD"), "HEAD");
    EXPECT_LT(dicomColumnKey("9"), dicomColumnKey("10")) << "numbers compare correctly as text";
    EXPECT_LT(dicomColumnKey("-99"), dicomColumnKey("-98"));
}

TEST(ColumnText, ValueFormsOfTheImageRecord)
{
    EXPECT_EQ(dicomSliceLocationText(-12.5f), "-12.5");
    EXPECT_EQ(dicomSliceLocationText(2230.40403f), "2230.4") << "six significant digits";
    EXPECT_EQ(dicomSliceLocationText(1234567.0f), "1.23457e+06");
    EXPECT_EQ(dicomInstanceNumberText(42), "42");

    const QString seven = dicomLoadIndexCriterionText(7);
    ASSERT_EQ(seven.size(), 1) << "one character";
    EXPECT_EQ(seven.at(0).unicode(), 7);
    EXPECT_EQ(dicomLoadIndexCriterionText(300).at(0).unicode(), 44) << "low 8 bits of 300";
    EXPECT_LT(dicomLoadIndexCriterionText(9), dicomLoadIndexCriterionText(10))
        << "the code increases with the index";
}

TEST(ColumnText, HeaderValuesStayDistinctInAnyEncoding)
{
    EXPECT_EQ(dicomHeaderText(nullptr), QString());
    EXPECT_EQ(dicomHeaderText("M\xc3\xbcller"), QString::fromUtf8("M\xc3\xbcller")) << "UTF-8";
    EXPECT_EQ(dicomHeaderText("M\xfcller"), QString::fromUtf8("M\xc3\xbcller"))
        << "ISO_IR 100 bytes are read as Latin-1";
    EXPECT_NE(dicomHeaderText("M\xfcller"), dicomHeaderText("M\xfdller"));
}

TEST(StackChecks, MaxDistErrorComesFromTheScriptVariable)
{
    VxScriptVars::instance()->unset("DicomMaxDistError");
    EXPECT_FLOAT_EQ(DicomStackItem::getMaxDistError(), 0.05f) << "unset";
    VxScriptVars::instance()->set("DicomMaxDistError", "0.5");
    EXPECT_FLOAT_EQ(DicomStackItem::getMaxDistError(), 0.5f);
    VxScriptVars::instance()->unset("DicomMaxDistError");
}
