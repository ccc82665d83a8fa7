// One stack on real CT slices: the geometry checks of a new image, the
// slice-order checks over the children, and what the row shows.

#include "vxdicom/stacks/DicomStackItem.h"

#include "platform/core/VxMessage.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/stacks/DicomStackIcons.h"

#include <functional>

using stacktest::ctFile;
using stacktest::LoadedFiles;

TEST(StackItemGeometry, EachDifferencePrintsItsStackBreakLine)
{
    VX_REQUIRE_SHARED_DATA();
    const std::pair<const char *, std::function<void(VxDicomImage &)>> rows[] = {
        {"width", [](VxDicomImage &i) { i.width = 256; }},
        {"height", [](VxDicomImage &i) { i.height = 256; }},
        {"size", [](VxDicomImage &i) { i.dataSize /= 2; }},
        {"primType", [](VxDicomImage &i) { i.isSigned = !i.isSigned; }},
        {"samplesPerPixel", [](VxDicomImage &i) { i.samplesPerPixel = 3; }},
        {"xPixelSizeMM", [](VxDicomImage &i) { i.pixelSpacing[0] += 0.0001f; }},
        {"yPixelSizeMM", [](VxDicomImage &i) { i.pixelSpacing[1] *= 2; }},
        {nullptr, [](VxDicomImage &i) { i.pixelSpacing[0] *= 1.00004f; }},
    };
    for (const auto &[what, change] : rows) {
        LoadedFiles files({ctFile("I10"), ctFile("I20")});
        ASSERT_EQ(files.size(), 2);
        DicomStackItem stack(files.image(0));
        change(*files.image(1));
        DicomListItem candidate(files.image(1));
        VxMessageCapture console;
        EXPECT_EQ(stack.accept(&candidate, {}), what == nullptr) << (what ? what : "equal");
        EXPECT_EQ(console.text(),
                  what ? "stack break: " + std::string(what) + " is differing\n" : "")
            << "one line, the first difference";
        EXPECT_EQ(candidate.breakOption, -1) << "geometry breaks leave no criterion mark";
    }
    // The orientation criterion compares directions within 0.001, not header texts.
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    DicomStackItem stack(files.image(0));
    DicomListItem candidate(files.image(1));
    DicomLoadOption orientation(32, 55, DicomLoadOption::Constant,
                                      "image orientation patient", 3);
    files.image(1)->rowDirection[0] += 0.0005f;
    EXPECT_TRUE(stack.testOnLoadOption(&candidate, orientation));
    files.image(1)->rowDirection[0] += 0.002f;
    EXPECT_FALSE(stack.testOnLoadOption(&candidate, orientation));
}

TEST(StackItemChecks, ChildOrderSliceChecksIconsAndInfo)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    ASSERT_EQ(files.size(), 3);
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

    auto setLocations = [&](std::initializer_list<float> list) {
        int i = 0;
        for (float v : list)
            static_cast<DicomListItem *>(stack.child(i++))->image()->sliceLocation = v;
    };
    setLocations({10, 20, 15});
    EXPECT_FLOAT_EQ(stack.getMinSliceLocation(), 20) << "the largest location, despite the name";
    EXPECT_FALSE(stack.isMonotonous());
    setLocations({1, 2, 4});
    EXPECT_TRUE(stack.isMonotonous());
    EXPECT_FALSE(stack.isUniform()) << "the first two steps differ";
    setLocations({3, 2, 1});
    EXPECT_TRUE(stack.isUniform());
    stack.relocateChildItems(30, 1.5f);
    EXPECT_EQ(stacktest::sliceLocations(&stack), (std::vector<float>{30, 31.5f, 33}));
    stack.revertChildren();
    EXPECT_EQ(stacktest::instanceNumbers(&stack), (std::vector<int>{1, 2, 3}));

    stack.showLabel(true);
    EXPECT_EQ(stack.text(0), "HEAD") << "Patient's Name of the CT phantom (pydicom)";
    const QString info = stack.info();
    EXPECT_TRUE(info.startsWith("<b>3 images</b><br>size: 512 x 512 x 3<br>"))
        << info.toStdString();
    EXPECT_TRUE(
        info.endsWith("patient position: <b>HFS</b><br>gantry detector tilt: <b>-18.5</b><br>"))
        << info.toStdString();
}
