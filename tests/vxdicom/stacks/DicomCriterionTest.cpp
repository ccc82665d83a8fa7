// Stack-break rules: criteria policies, and geometry and slice-order checks on real CT slices.

#include "vxdicom/stacks/DicomCriterion.h"

#include "platform/core/VxMessage.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/stacks/DicomStackIcons.h"

#include <array>
#include <functional>

using namespace stacktest;

TEST(CriterionRule, EachPolicyOnNumbersAndTexts)
{
    using O = DicomLoadOption;
    const char *slice = "slice location";
    // policy, element, candidate, the stack's values (newest first), accepted, why
    using Row =
        std::tuple<O::Id, const char *, const char *, KcDArray<QString>, bool, const char *>;
    const Row rows[] = {
        {O::StrictlyMonotonic, slice, "3", {"1", "2"}, false, "load order 2, 1, 3 reverses"},
        {O::StrictlyMonotonic, slice, "2", {"2", "1"}, false, "a repeat"},
        {O::StrictlyMonotonic, slice, "1.0", {"1"}, false, "numerically equal texts"},
        {O::StrictlyMonotonic, "x", "a", {"b", "a"}, false, "texts turn back"},
        {O::Monotonic, "x", "3", {"5", "4"}, false, "direction reverses"},
        {O::Linear, slice, "-10.1", {"0", "10"}, true, "steps 10 and 10.1 mm: 1 % apart"},
        {O::Linear, slice, "-0.515", {"0", "0.5"}, false, "steps 0.5 and 0.515 mm: 3 % apart"},
        {O::Linear, slice, "2", {"1", "1"}, false, "zero older step, non-zero newer"},
        {O::Linear, "Slice Location", "-1.019", {"0", "1"}, false, "relative only by exact name"},
        {O::Linear, "instance number", "3.01", {"2", "1"}, false, "absolute 1e-6 elsewhere"},
        {O::Constant, "x", "abc", {"ABC"}, false, "case-sensitive texts"},
        {O::Constant, "x", "anything", {}, true, "an empty stack accepts"},
        {O::Ignore, "x", "z", {"a", "b"}, true, "ignore never breaks"},
    };
    for (const auto &[policy, name, candidate, stack, pass, why] : rows)
        EXPECT_EQ(
            isOptionSatisfied(candidate, stack, DicomLoadOption(32, 4161, policy, name, 31), 0.02f),
            pass)
            << why << " (" << candidate << ")";
    DicomLoadOption linear(32, 4161, O::Linear, slice, 31); // uses the stacks' tolerance
    DicomStackItem::uniformTolerance = 0.05f;
    EXPECT_TRUE(DicomStackItem::isOptionSatisfied("-1.03", {"0", "1"}, linear));
    DicomStackItem::uniformTolerance = 0.02f;
}

TEST(StackItemGeometry, EachDifferencePrintsItsStackBreakLine)
{
    VX_REQUIRE_SHARED_DATA();
    const std::pair<const char *, std::function<void(VxDicomImage &)>> rows[] = {
        {"width", [](VxDicomImage &i) { i.width = 256; }},
        {"primType", [](VxDicomImage &i) { i.isSigned = !i.isSigned; }},
        {"xPixelSizeMM", [](VxDicomImage &i) { i.pixelSpacing[0] += 0.0001f; }},
        {"yPixelSizeMM", [](VxDicomImage &i) { i.pixelSpacing[1] *= 2; }},
        {nullptr, [](VxDicomImage &i) { i.pixelSpacing[0] *= 1.00004f; }},
    };
    for (const auto &[what, change] : rows) {
        LoadedFiles files({ctFile("I10"), ctFile("I20")});
        DicomStackItem stack(files.image(0));
        change(*files.image(1));
        DicomListItem candidate(files.image(1));
        VxMessageCapture console;
        EXPECT_EQ(stack.accept(&candidate, {}), what == nullptr) << (what ? what : "equal");
        EXPECT_EQ(console.text(),
                  what ? "stack break: " + std::string(what) + " is differing\n" : "");
        EXPECT_EQ(candidate.breakOption, -1) << "geometry breaks leave no criterion mark";
    }
}

TEST(StackItemChecks, ChildOrderAndSliceChecksGiveTheIcon)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    DicomStackItem stack;
    auto iconIs = [&](DicomStackIcons::Kind kind) {
        stack.showIcon(true);
        return stack.icon(0).cacheKey() == DicomStackIcons::icon(kind).cacheKey();
    };
    stack.append(files.image(0));
    EXPECT_TRUE(iconIs(DicomStackIcons::Slice));
    stack.append(files.image(1));
    stack.append(files.image(2));
    EXPECT_EQ(stacktest::instanceNumbers(&stack), (std::vector<int>{3, 2, 1}))
        << "a new row becomes the first child";
    EXPECT_TRUE(iconIs(DicomStackIcons::Uniform)) << "CT slices 2.5 mm apart";
    files.image(0)->sliceLocation += 1; // steps no longer equal, still in order
    EXPECT_TRUE(iconIs(DicomStackIcons::NonUniform));
    files.image(0)->sliceLocation += 100; // out of order
    EXPECT_TRUE(iconIs(DicomStackIcons::NonMonotonous));

    const std::tuple<std::array<float, 3>, bool, bool> orders[] = {
        {{10, 20, 15}, false, false}, {{1, 2, 2}, false, false},    {{1, 2, 4}, true, false},
        {{3, 2, 1}, true, true},      {{0, 1, 2.05f}, true, false}, {{5, 5, 5}, false, true}};
    for (const auto &[z, monotonous, uniform] : orders) {
        for (int i = 0; i < 3; ++i)
            static_cast<DicomListItem *>(stack.child(i))->image()->sliceLocation = z[i];
        EXPECT_EQ(stack.isMonotonous(), monotonous) << z[2];
        EXPECT_EQ(stack.isUniform(), uniform) << z[2];
    }
}
