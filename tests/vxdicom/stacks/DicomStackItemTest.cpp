#include "vxdicom/stacks/DicomStackItem.h"

#include "platform/core/VxMessage.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackIcons.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using stacktest::LoadedFiles;

namespace {

const char *kCtDir = "dcm_qa_ct/In/Philips/S21610/S2010";

std::string ctFile(const char *name)
{
    return vxtest::sharedPath(std::string(kCtDir) + "/" + name);
}

// Three CT slices, instance numbers 1, 2, 3, each file loaded `copies` times.
std::vector<std::string> ctSlices(int copies = 1)
{
    std::vector<std::string> paths;
    for (int c = 0; c < copies; ++c)
        for (const char *name : {"I10", "I20", "I30"})
            paths.push_back(ctFile(name));
    return paths;
}

} // namespace

TEST(StackItemGeometry, EachDifferencePrintsItsStackBreakLine)
{
    VX_REQUIRE_SHARED_DATA();
    // "allocatedBytes" has no row: the image record derives its sample type
    // from the bytes per sample, so the primType line always comes first.
    struct Row
    {
        const char *message;
        std::function<void(VxDicomImage &)> change;
    };
    const Row rows[] = {
        {"stack break: width is differing", [](VxDicomImage &i) { i.width = 256; }},
        {"stack break: height is differing", [](VxDicomImage &i) { i.height = 256; }},
        {"stack break: size is differing", [](VxDicomImage &i) { i.dataSize /= 2; }},
        {"stack break: primType is differing", [](VxDicomImage &i) { i.isSigned = !i.isSigned; }},
        {"stack break: samplesPerPixel is differing",
         [](VxDicomImage &i) { i.samplesPerPixel = 3; }},
        {"stack break: xPixelSizeMM is differing",
         [](VxDicomImage &i) { i.pixelSpacing[0] += 0.0001f; }},
        {"stack break: yPixelSizeMM is differing", [](VxDicomImage &i) { i.pixelSpacing[1] *= 2; }},
    };
    for (const Row &row : rows) {
        LoadedFiles files({ctFile("I10"), ctFile("I20")});
        ASSERT_EQ(files.size(), 2);
        DicomStackItem stack(files.files[0]->images[0]);
        row.change(*files.files[1]->images[0]);
        DicomListItem candidate(files.files[1]->images[0]);
        VxMessageCapture console;
        EXPECT_FALSE(stack.accept(&candidate, {})) << row.message;
        EXPECT_EQ(console.text(), std::string(row.message) + "\n")
            << "one line, the first difference";
        EXPECT_EQ(candidate.breakOption, -1) << "geometry breaks leave no criterion mark";
    }
}

TEST(StackItemGeometry, PixelSizesWithinTheToleranceAreEqual)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    ASSERT_EQ(files.size(), 2);
    VxDicomImage *a = files.files[0]->images[0];
    VxDicomImage *b = files.files[1]->images[0];
    a->pixelSpacing[0] = a->pixelSpacing[1] = 0.5f;
    b->pixelSpacing[0] = b->pixelSpacing[1] = 0.50004f;
    DicomStackItem stack(a);
    DicomListItem candidate(b);
    VxMessageCapture console;
    EXPECT_TRUE(stack.accept(&candidate, {}));
    EXPECT_EQ(console.text(), "");

    DicomStackItem empty;
    EXPECT_TRUE(empty.accept(&candidate, {})) << "an empty stack accepts anything";
    EXPECT_FALSE(stack.accept(nullptr, {}));
}

TEST(StackItemCriteria, FirstFailingOptionIsMarkedOnStackAndItem)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files(ctSlices(2)); // I10 I20 I30 I10 I20 I30
    ASSERT_EQ(files.size(), 6);
    DicomLoadOption patient(0x0010, 0x0010, DicomLoadOption::Constant, "patient name", 3);
    DicomLoadOption instance(0x0020, 0x0013, DicomLoadOption::StrictlyMonotonic, "instance number",
                             31);
    const KcDArray<DicomLoadOption *> options = {&patient, nullptr, &instance};

    DicomStackItem stack(files.files[0]->images[0]); // instance 1
    DicomListItem next(files.files[1]->images[0]);   // instance 2
    EXPECT_TRUE(stack.accept(&next, options));
    stack.insertImageRow(new DicomListItem(files.files[1]->images[0]));

    DicomListItem repeat(files.files[4]->images[0]); // instance 2 again
    EXPECT_FALSE(stack.accept(&repeat, options));
    EXPECT_EQ(stack.breakOption, 2)
        << "list index of the failing option; the null entry is skipped";
    EXPECT_EQ(repeat.breakOption, 2);

    DicomListItem back(files.files[3]->images[0]); // instance 1 after 1, 2
    EXPECT_FALSE(stack.accept(&back, options)) << "direction reverses";
    DicomListItem onward(files.files[2]->images[0]); // instance 3
    EXPECT_TRUE(stack.accept(&onward, options));
}

TEST(StackItemCriteria, OrientationIsComparedAsGeometryNotAsText)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    ASSERT_EQ(files.size(), 2);
    DicomLoadOption orientation(0x0020, 0x0037, DicomLoadOption::Constant,
                                "image orientation patient", 3);
    DicomStackItem stack(files.files[0]->images[0]);
    VxDicomImage *moved = files.files[1]->images[0];
    DicomListItem candidate(moved);

    moved->rowDirection[0] += 0.0005f; // header text unchanged, geometry within 0.001
    EXPECT_TRUE(stack.testOnLoadOption(&candidate, orientation));
    moved->rowDirection[0] += 0.002f; // header text still unchanged
    EXPECT_FALSE(stack.testOnLoadOption(&candidate, orientation));
    orientation.setValue(DicomLoadOption::Ignore);
    EXPECT_TRUE(stack.testOnLoadOption(&candidate, orientation)) << "ignore passes at once";
}

TEST(StackItemCriteria, PseudoElementsMeetEmptyStackTexts)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I10")});
    ASSERT_EQ(files.size(), 2);
    DicomStackItem stack(files.files[0]->images[0]);
    DicomListItem sameFile(files.files[1]->images[0]);
    // The candidate's file name is compared with the empty text the stack's
    // header lookup gives for a pseudo-element, so even the same file breaks a
    // constant "file name".
    DicomLoadOption fileName(-1, -1, DicomLoadOption::Constant, "file name", 3);
    EXPECT_FALSE(stack.testOnLoadOption(&sameFile, fileName));
    DicomLoadOption loadIndex(-1, -1, DicomLoadOption::Constant, "load index", 23);
    EXPECT_FALSE(stack.testOnLoadOption(&sameFile, loadIndex));
    DicomLoadOption other(-1, -1, DicomLoadOption::Constant, "something else", 3);
    EXPECT_TRUE(stack.testOnLoadOption(&sameFile, other)) << "empty against empty";
}

TEST(StackItemChecks, SliceOrderChecksReadTheChildrenInOrder)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files(ctSlices());
    ASSERT_EQ(files.size(), 3);
    DicomStackItem stack;
    EXPECT_FLOAT_EQ(stack.getMinSliceLocation(), 0) << "no image rows";
    EXPECT_EQ(stack.lastChild(), nullptr);
    for (VxDicomFile *file : files.files)
        stack.append(file->images[0]); // child order: I30, I20, I10
    EXPECT_EQ(stacktest::instanceNumbers(&stack), (std::vector<int>{3, 2, 1}))
        << "a new row becomes the first child";
    EXPECT_EQ(stack.lastChild()->image()->imageNumber, 1);

    auto setLocations = [&](std::initializer_list<float> list) {
        int i = 0;
        for (float v : list)
            static_cast<DicomListItem *>(stack.child(i++))->image()->sliceLocation = v;
    };
    setLocations({10, 20, 15});
    EXPECT_FLOAT_EQ(stack.getMinSliceLocation(), 20) << "the largest location, despite the name";
    EXPECT_FALSE(stack.isMonotonous());
    setLocations({1, 1, 2});
    EXPECT_FALSE(stack.isMonotonous());
    EXPECT_FALSE(stack.isUniform());
    setLocations({3, 2, 1});
    EXPECT_TRUE(stack.isMonotonous());
    EXPECT_TRUE(stack.isUniform());

    stack.relocateChildItems(30, 1.5f);
    EXPECT_EQ(stacktest::sliceLocations(&stack), (std::vector<float>{30, 31.5f, 33}));

    stack.revertChildren();
    EXPECT_EQ(stacktest::instanceNumbers(&stack), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(static_cast<DicomListItem *>(stack.child(0))->loadIndex, 1);
    EXPECT_EQ(static_cast<DicomListItem *>(stack.child(2))->loadIndex, 3);
    EXPECT_EQ(static_cast<DicomListItem *>(stack.child(0))->key(4, true), "00001");
}

TEST(StackItemChecks, TwoEqualLocationsCountAsMonotonous)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    DicomStackItem stack;
    for (VxDicomFile *file : files.files) {
        file->images[0]->sliceLocation = 1;
        stack.append(file->images[0]);
    }
    EXPECT_TRUE(stack.isMonotonous());
}

TEST(StackItemDisplay, IconLabelInfoAndKey)
{
    VX_REQUIRE_SHARED_DATA();
    LoadedFiles files(ctSlices());
    ASSERT_EQ(files.size(), 3);
    DicomStackItem stack(files.files[0]->images[0]);
    auto iconIs = [&](DicomStackIcons::Kind kind) {
        return stack.icon(0).cacheKey() == DicomStackIcons::icon(kind).cacheKey();
    };
    stack.showIcon(true);
    EXPECT_TRUE(iconIs(DicomStackIcons::Slice));
    stack.append(files.files[1]->images[0]);
    stack.append(files.files[2]->images[0]);
    stack.showIcon(true);
    EXPECT_TRUE(iconIs(DicomStackIcons::Uniform)) << "CT slices 2.5 mm apart";
    files.files[0]->images[0]->sliceLocation += 1; // steps no longer equal, still in order
    stack.showIcon(true);
    EXPECT_TRUE(iconIs(DicomStackIcons::NonUniform));
    files.files[0]->images[0]->sliceLocation += 100; // out of order
    stack.showIcon(true);
    EXPECT_TRUE(iconIs(DicomStackIcons::NonMonotonous));
    stack.showIcon(false);
    EXPECT_TRUE(stack.icon(0).isNull());

    stack.showLabel(true);
    EXPECT_EQ(stack.text(0), "HEAD") << "Patient's Name of the CT phantom (pydicom)";
    stack.showLabel(false);
    EXPECT_EQ(stack.text(0), "");

    const QString info = stack.info();
    EXPECT_TRUE(info.startsWith("<b>3 images</b><br>size: 512 x 512 x 3<br>"))
        << info.toStdString();
    EXPECT_TRUE(info.endsWith("<br><br>patient name: <b>HEAD</b><br>patient id: <b>PLASTIC</b><br>"
                              "institution name: <b>QMC</b><br>series date: <b>20150206</b><br>"
                              "modality: <b>CT</b><br>series description: <b>STEREOTAXIS</b><br>"
                              "body part examined: <b>BRAIN</b><br>patient position: <b>HFS</b><br>"
                              "gantry detector tilt: <b>-18.5</b><br>"))
        << info.toStdString();

    stack.index = 42;
    EXPECT_EQ(stack.key(3, false), "00042");
}
