// The image stack: appending, spacing, box, value range, overflow decision,
// size and parameters, with numbers worked out by hand.

#include "vxdicom/reader/VxDicomImageStack.h"
#include "platform/core/VxScriptVars.h"
#include "platform/data/VxParameter.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <gtest/gtest.h>

using namespace readertest;

namespace {

const char *const kMrFile = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2/i22.MRDC.1";
const char *const kCtFile = "dcm_qa_ct/In/Philips/S21610/S2010/I10";

// n copies of one real file, read lazily.
struct Copies
{
    OpenedFiles files;
    Copies(const std::string &path, int n, int delayed = 1)
    {
        for (int k = 0; k < n; ++k)
            files.add(path, delayed);
    }
    VxDicomImage *operator[](int k) const { return files.files[static_cast<size_t>(k)]->images[0]; }
};

class ScopedMaxDistError
{
public:
    explicit ScopedMaxDistError(const char *value)
    {
        VxScriptVars::instance()->set("DicomMaxDistError", value);
    }
    ~ScopedMaxDistError() { VxScriptVars::instance()->unset("DicomMaxDistError"); }
};

} // namespace

TEST(DicomImageStack, SpacingStaysUniformWithinATenthOfTheDistanceError)
{
    VX_REQUIRE_SHARED_DATA();
    ScopedMaxDistError error("1");
    ASSERT_FLOAT_EQ(dicomMaxDistError(), 1.0f);
    const struct
    {
        std::vector<float> mm;
        int state;
        const char *why;
    } cases[] = {
        {{0, 10, 20, 30.5f}, 1, "0, 1, 2, 3.05 cm: 0.05 off is not above 0.1"},
        {{0, 10, 20, 32}, 2, "0, 1, 2, 3.2 cm: 0.2 off"},
        {{0, 10, 21, 31}, 2, "the third distance already differs"},
        {{0, 10}, 1, "two slices are uniform"},
        {{5}, 1, "one slice"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Copies images(vxtest::sharedPath(kMrFile), static_cast<int>(c.mm.size()));
        VxDicomImageStack stack;
        for (size_t k = 0; k < c.mm.size(); ++k) {
            images[static_cast<int>(k)]->sliceLocation = c.mm[k];
            EXPECT_EQ(stack.append(images[static_cast<int>(k)]), static_cast<int>(k) + 1);
        }
        EXPECT_EQ(stack.spacingState, c.state);
        EXPECT_EQ(stack.numSlices, static_cast<int>(c.mm.size()));
        ASSERT_EQ(stack.sliceLocations.size(), static_cast<int>(c.mm.size()));
        EXPECT_FLOAT_EQ(stack.bbox[4], c.mm.front() * 0.1f);
        EXPECT_FLOAT_EQ(stack.bbox[5], c.mm.back() * 0.1f);
    }
}

TEST(DicomImageStack, DefaultDistanceErrorToleratesFiveHundredthsOfAMillimetre)
{
    VX_REQUIRE_SHARED_DATA();
    // 0.05 x 0.1 = 0.005 cm = 0.05 mm.
    Copies images(vxtest::sharedPath(kMrFile), 6);
    const float within[] = {0, 3, 6, 9.04f};
    VxDicomImageStack a;
    for (int k = 0; k < 4; ++k) {
        images[k]->sliceLocation = within[k];
        a.append(images[k]);
    }
    EXPECT_EQ(a.spacingState, 1);
    VxDicomImageStack b;
    images[4]->sliceLocation = 0;
    images[5]->sliceLocation = 3;
    b.append(images[4]);
    b.append(images[5]);
    images[0]->sliceLocation = 6.1f;
    b.append(images[0]);
    EXPECT_EQ(b.spacingState, 2);
}

TEST(DicomImageStack, FirstImageGivesNameSizeTypeAndBox)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    // Rows 4 of 6 columns; 0.5 mm between rows, 2.0 mm between columns.
    const std::string path = dir.file("small.dcm");
    editCopy(vxtest::sharedPath(kMrFile), path,
             {"--set", "Rows=4", "--set", "Columns=6", "--set", "PixelSpacing=0.5\\2.0", "--set",
              "PatientName=Doe^Jane", "--pixels", "1,2,3"});
    OpenedFiles files({path});
    ASSERT_EQ(files.images().size(), 1);
    VxDicomImage *image = files.images()[0];
    image->sliceLocation = 12;

    VxDicomImageStack stack;
    stack.append(image);
    EXPECT_EQ(stack.name, "Doe^Jane");
    EXPECT_EQ(stack.width, 6);
    EXPECT_EQ(stack.height, 4);
    EXPECT_EQ(stack.primType, KcPrimType::Int16);
    // Along a row (x) the columns are 2.0 mm apart, down a column (y) the rows
    // 0.5 mm: x: (6 - 1) x 2.0 mm = 1.0 cm; y: (4 - 1) x 0.5 mm = 0.15 cm.
    // Centred on 0.
    EXPECT_FLOAT_EQ(stack.bbox[0], -0.5f);
    EXPECT_FLOAT_EQ(stack.bbox[1], 0.5f);
    EXPECT_FLOAT_EQ(stack.bbox[2], -0.075f);
    EXPECT_FLOAT_EQ(stack.bbox[3], 0.075f);
    EXPECT_FLOAT_EQ(stack.bbox[4], 1.2f);
    EXPECT_FLOAT_EQ(stack.bbox[5], 1.2f);
    EXPECT_EQ(stack.memSize(), 6 * 4 * 2);

    // The slice bundle is a copy of the image's, with the file name.
    VxParamBundle *slice = stack.parameters.bundle("Slice000");
    ASSERT_TRUE(slice);
    EXPECT_EQ(slice->getString("Filename"), path);
    EXPECT_TRUE(slice->find("G0020-0013")) << "instance number travels per slice";
    EXPECT_EQ(stack.parameters.name(), std::string("DICOM"));
}

TEST(DicomImageStack, EmptyPatientNameLeavesUnknown)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string path = dir.file("anon.dcm");
    editCopy(vxtest::sharedPath(kMrFile), path, {"--set", "PatientName="});
    OpenedFiles files({path});
    VxDicomImageStack stack;
    stack.append(files.images()[0]);
    EXPECT_EQ(stack.name, "Unknown");
    EXPECT_EQ(stack.append(nullptr), 1) << "a null image appends nothing";
}

TEST(DicomImageStack, AcceptComparesGeometryExactly)
{
    VX_REQUIRE_SHARED_DATA();
    Copies images(vxtest::sharedPath(kMrFile), 3);
    VxDicomImageStack stack;
    EXPECT_TRUE(stack.accept(images[0])) << "an empty stack takes anything";
    stack.append(images[0]);
    EXPECT_TRUE(stack.accept(images[1]));
    images[1]->pixelSpacing[1] += 1e-6f;
    EXPECT_FALSE(stack.accept(images[1]));
    images[2]->columnDirection[2] = 1e-7f;
    EXPECT_FALSE(stack.accept(images[2]));
}

TEST(DicomImageStack, CtAndMrRangesAreFixedOtherModalitiesUseTheSamples)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string mr = vxtest::sharedPath(kMrFile);
    const struct
    {
        const char *modality;
        const char *stored; // pixel values of the two images
        const char *stored2;
        int min, max;
        const char *stackModality;
    } cases[] = {
        {"CT", "5,6", "7,9000", -200, 200, "CT"},    {"MR", "5,6", "7,9000", 0, 1000, "MR"},
        {"NM", "5,6", "7,9000", 5, 9000, "NM"},      {"OT", "-40,6", "7,90", -40, 90, "Unknown"},
        {"mr", "-40,6", "7,90", -40, 90, "Unknown"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.modality);
        const std::string a = dir.file(std::string(c.modality) + "a"),
                          b = dir.file(std::string(c.modality) + "b");
        editCopy(
            mr, a,
            {"--set", std::string("Modality=") + c.modality, std::string("--pixels=") + c.stored});
        editCopy(
            mr, b,
            {"--set", std::string("Modality=") + c.modality, std::string("--pixels=") + c.stored2});
        OpenedFiles files({a, b}, 0);
        VxDicomImageStack stack;
        for (VxDicomImage *image : files.images())
            stack.append(image);
        EXPECT_EQ(stack.minValue, c.min);
        EXPECT_EQ(stack.maxValue, c.max);
        EXPECT_EQ(stack.modality, c.stackModality);
        stack.minValue = 1;
        stack.maxValue = 0;
        stack.recomputeDataRange();
        EXPECT_EQ(stack.minValue, c.min);
        EXPECT_EQ(stack.maxValue, c.max);
    }
}

TEST(DicomImageStack, OverflowDecisionFollowsTheRescaledRange)
{
    VX_REQUIRE_SHARED_DATA();
    struct Case
    {
        const char *why;
        KcPrimType type;
        int min, max;
        float slope, intercept;
        bool overflow;
        KcPrimType result;
        double scale, offset;
    };
    const Case cases[] = {
        {"unsigned 0..4095, intercept -1024: signed, no rescale", KcPrimType::UInt16, 0, 4095, 1,
         -1024, false, KcPrimType::Int16, 1, 0},
        {"signed rescaled to 0..40000: unsigned, no rescale", KcPrimType::Int16, 0, 20000, 2, 0,
         false, KcPrimType::UInt16, 1, 0},
        {"signed rescaled to 0..70000: unsigned, scaled into 0..65535", KcPrimType::Int16, 0, 35000,
         2, 0, true, KcPrimType::UInt16, 65535.0 / 70000.0, 0},
        {"signed rescaled to -100..70000: stays signed", KcPrimType::Int16, -50, 35000, 2, 0, true,
         KcPrimType::Int16, 65535.0 / 70100.0, -32768.0 + 65535.0 / 70100.0 * 100.0},
        {"unsigned rescaled to -1024..64511: shifted by 1024", KcPrimType::UInt16, 0, 65535, 1,
         -1024, true, KcPrimType::UInt16, 1, 1024},
        {"bytes that fit", KcPrimType::UInt8, 3, 200, 1, 50, false, KcPrimType::UInt8, 1, 0},
        {"slope 0 puts every byte at 300: offset 0 - 300", KcPrimType::UInt8, 0, 10, 0, 300, true,
         KcPrimType::UInt8, 1, -300},
    };
    Copies images(vxtest::sharedPath(kMrFile), 1);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.why);
        VxDicomImageStack stack;
        stack.append(images[0]);
        stack.primType = c.type;
        images[0]->minValue = c.min;
        images[0]->maxValue = c.max;
        images[0]->rescaleSlope = c.slope;
        images[0]->rescaleIntercept = c.intercept;
        float scale = -7, offset = -7;
        KcPrimType type = KcPrimType::Float;
        EXPECT_EQ(stack.checkForDataOverflow(scale, offset, type), c.overflow);
        EXPECT_EQ(type, c.result);
        EXPECT_NEAR(scale, c.scale, 1e-6);
        EXPECT_NEAR(offset, c.offset, 1e-2);
    }

    // No image with a range (minimum below maximum): nothing to decide.
    VxDicomImageStack flat;
    flat.append(images[0]);
    images[0]->minValue = images[0]->maxValue = 70000;
    float scale = 0, offset = 3;
    KcPrimType type = KcPrimType::UInt8;
    EXPECT_FALSE(flat.checkForDataOverflow(scale, offset, type));
    EXPECT_EQ(scale, 1);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(type, flat.primType);
    VxDicomImageStack empty;
    EXPECT_FALSE(empty.checkForDataOverflow(scale, offset, type));
}

TEST(DicomImageStack, OverflowUsesTheWidestRangeOverAllImages)
{
    VX_REQUIRE_SHARED_DATA();
    Copies images(vxtest::sharedPath(kMrFile), 2);
    VxDicomImageStack stack;
    stack.append(images[0]);
    stack.append(images[1]);
    stack.primType = KcPrimType::UInt16;
    // Image 0: -1000..1000; image 1: 500..66000 after rescale.
    images[0]->minValue = 0;
    images[0]->maxValue = 2000;
    images[0]->rescaleIntercept = -1000;
    images[1]->minValue = 250;
    images[1]->maxValue = 33000;
    images[1]->rescaleSlope = 2;
    float scale, offset;
    KcPrimType type;
    EXPECT_TRUE(stack.checkForDataOverflow(scale, offset, type));
    EXPECT_EQ(type, KcPrimType::UInt16);
    EXPECT_NEAR(scale, 65535.0 / 67000.0, 1e-7);
    EXPECT_NEAR(offset, 1000.0 * 65535.0 / 67000.0, 1e-2);
}

TEST(DicomImageStack, SizeShearAndParameters)
{
    VX_REQUIRE_SHARED_DATA();
    Copies ct(vxtest::sharedPath(kCtFile), 3);
    VxDicomImageStack stack;
    EXPECT_EQ(stack.isSheared(), 0) << "empty stack";
    for (int k = 0; k < 3; ++k)
        stack.append(ct[k]);
    EXPECT_EQ(stack.memSize(), 512L * 512 * 3 * 2);
    EXPECT_FLOAT_EQ(stack.isSheared(), -18.5f);

    Copies mr(vxtest::sharedPath(kMrFile), 1);
    VxDicomImageStack straight;
    straight.append(mr[0]);
    EXPECT_EQ(straight.isSheared(), 0);

    stack.setDicomParameters(false);
    VxParamBundle *all = stack.parameters.bundle("All");
    ASSERT_TRUE(all);
    EXPECT_TRUE(all->find("G0010-0010"));
    EXPECT_TRUE(all->find("G0018-1120"));
    EXPECT_FALSE(all->find("G7FE0-0010")) << "pixel data never becomes a parameter";
    EXPECT_EQ(stack.name, "HEAD");

    VxDicomImageStack anonymous;
    anonymous.append(ct[0]);
    anonymous.setDicomParameters(true);
    EXPECT_EQ(anonymous.name, "Anonymized");
    all = anonymous.parameters.bundle("All");
    ASSERT_TRUE(all);
    for (int i = 0; i < all->size(); ++i)
        EXPECT_NE(all->entry(i)->name().rfind("G0010-", 0), 0u) << all->entry(i)->name();
    EXPECT_TRUE(all->find("G0008-0060"));
}
