// Field creation: samples, rescaling and the overflow choice, uniform and
// stacked coordinates, colour, parameters and registration.

#include "vxdicom/reader/VxDicomField.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParameter.h"
#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include <filesystem>
#include <memory>

namespace fs = std::filesystem;
using namespace readertest;

namespace {

const char *const kMrFile = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2/i22.MRDC.1";
const char *const kEnhanced6 = "dcm_qa_enh/In/Siemens/XA10";

template <typename T> std::vector<T> samples(const VxField3 &field)
{
    const VxLattice3 *lat = field.lattice();
    const T *p = static_cast<const T *>(lat->data());
    return std::vector<T>(p, p + lat->numVoxels() * lat->nComponents());
}

KcString param(const VxField3 &field, const char *name)
{
    const VxParameter *p = field.parameters().parameter(name);
    return p ? p->stringValue() : KcString("(absent)");
}

// A 256 x 256 real MR file made into one image whose samples repeat `pixels`.
struct OneImageStack
{
    vxtest::TempDir dir;
    OpenedFiles files;
    std::unique_ptr<VxDicomImageStack> stack;

    OneImageStack(const std::vector<std::string> &edits, const std::string &pixels, int delayed = 1)
    {
        const std::string path = dir.file("image.dcm");
        std::vector<std::string> all = edits;
        all.push_back("--pixels=" + pixels);
        editCopy(vxtest::sharedPath(kMrFile), path, all);
        files.add(path, delayed);
        stack = stackOf(files.images());
    }
};

// Clicks a button of the next message box the GUI shows; remembers its text.
class MessageBoxClicker
{
public:
    explicit MessageBoxClicker(const QString &button) : button(button)
    {
        timer.setInterval(10);
        QObject::connect(&timer, &QTimer::timeout, [this] { tryClick(); });
        timer.start();
    }
    QString text, defaultButton;
    QStringList buttons;
    bool clicked = false;

private:
    void tryClick()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || clicked)
            return;
        text = box->text();
        if (box->defaultButton())
            defaultButton = box->defaultButton()->text();
        for (QAbstractButton *b : box->buttons())
            buttons << b->text();
        for (QAbstractButton *b : box->buttons())
            if (b->text() == button) {
                clicked = true;
                timer.stop();
                b->click();
                return;
            }
    }
    QString button;
    QTimer timer;
};

const char *const kQuestion =
    "According to the DICOM header the pixel values should be linearly scaled.\n"
    "However, after applying the scaling an overflow would occur. You can either\n"
    "completely ignore the scaling, apply the scaling and clamp the data values,\n"
    "or use adjusted scaling parameters, so that no data overflow occurs.";

const std::vector<std::string> kUnsignedCt = {
    "--set", "Modality=CT",   "--set", "PixelRepresentation=0", "--set", "RescaleIntercept=-1024",
    "--set", "RescaleSlope=1"};

} // namespace

TEST(DicomFieldCreation, UnsignedCtWithInterceptBecomesSignedHounsfieldValues)
{
    VX_REQUIRE_SHARED_DATA();
    // 33791 - 1024 = 32767: the whole range fits signed 16-bit.
    OneImageStack s(kUnsignedCt, "0,1,1023,1024,2000,4095,30000,33791");
    ASSERT_EQ(s.stack->primType, KcPrimType::UInt16);
    std::unique_ptr<VxField3> field(createField3(*s.stack));
    ASSERT_TRUE(field);
    EXPECT_STREQ(field->typeName(), "VxUniformScalarField3");
    ASSERT_EQ(field->lattice()->primType(), KcPrimType::Int16);
    const std::vector<short> v = samples<short>(*field);
    const short expected[] = {-1024, -1023, -1, 0, 976, 3071, 28976, 32767};
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(v[k], expected[k]);
    EXPECT_EQ(v[256 * 256 - 1], expected[(256 * 256 - 1) % 8]);
    EXPECT_EQ(param(*field, "DataWindow"), "-200 200");
    EXPECT_EQ(param(*field, "Modality"), "CT");
    EXPECT_EQ(param(*field, "UnitLength"), "0.01");
    EXPECT_EQ(param(*field, "DataWindowScale"), "(absent)");
    EXPECT_EQ(param(*field, "DataWindowBias"), "(absent)");
}

TEST(DicomFieldCreation, OverflowTakesAdjustScalingWithoutADisplay)
{
    VX_REQUIRE_SHARED_DATA();
    ASSERT_FALSE(VxWarningDialog::haveDisplay());
    // -1024..64511 spans exactly 65535: adjusted, every value moves up by 1024,
    // which undoes the intercept; the stored values stay.
    OneImageStack s({"--set", "Modality=OT", "--set", "PixelRepresentation=0", "--set",
                     "RescaleIntercept=-1024", "--set", "RescaleSlope=1"},
                    "0,1024,2048,65535");
    VxMessageCapture capture;
    std::unique_ptr<VxField3> field(createField3(*s.stack));
    ASSERT_TRUE(field);
    EXPECT_NE(capture.text().find(std::string(kQuestion) +
                                  "\n-> Adjust scaling (no display; default answer)"),
              std::string::npos)
        << capture.text();
    ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
    const std::vector<unsigned short> v = samples<unsigned short>(*field);
    EXPECT_EQ(v[0], 0);
    EXPECT_EQ(v[1], 1024);
    EXPECT_EQ(v[2], 2048);
    EXPECT_EQ(v[3], 65535);
    EXPECT_EQ(param(*field, "DataWindowScale"), "(absent)") << "scale 1 is not recorded";
    EXPECT_EQ(param(*field, "DataWindowBias"), "-1024");
    // Read lazily, the image learnt its range with its samples.
    EXPECT_EQ(s.stack->images[0]->minValue, 0);
    EXPECT_EQ(s.stack->images[0]->maxValue, 65535);
    EXPECT_EQ(param(*field, "DataWindow"), "0 65535");
}

TEST(DicomFieldCreation, AdjustedScalingMapsTheRescaledRangeOntoTheType)
{
    VX_REQUIRE_SHARED_DATA();
    // Slope 2: 0..80000 onto 0..65535, scale 65535/80000; each value becomes
    // floor(s x 2 x 0.8191875 + 0.5): 100 -> 164, 40000 -> 65535.
    OneImageStack s({"--set", "Modality=OT", "--set", "PixelRepresentation=0", "--set",
                     "RescaleSlope=2", "--set", "RescaleIntercept=0"},
                    "0,100,40000,20000");
    VxMessageCapture capture;
    std::unique_ptr<VxField3> field(createField3(*s.stack));
    ASSERT_TRUE(field);
    const std::vector<unsigned short> v = samples<unsigned short>(*field);
    EXPECT_EQ(v[0], 0);
    EXPECT_EQ(v[1], 164);
    EXPECT_EQ(v[2], 65535);
    EXPECT_EQ(v[3], 32768); // 20000 x 1.638375 = 32767.5, + 0.5
    const VxParameter *scale = field->parameters().parameter("DataWindowScale");
    ASSERT_TRUE(scale);
    EXPECT_NEAR(scale->floatValue(), 80000.0 / 65535.0, 1e-6);
    EXPECT_EQ(param(*field, "DataWindowBias"), "(absent)");
}

TEST(DicomFieldCreation, OverflowAnswersFromTheWarningDialog)
{
    VX_REQUIRE_SHARED_DATA();
    VxWarningDialog::setDisplayOverride(1);
    const struct
    {
        const char *button;
        unsigned short values[4];
        const char *bias;
    } cases[] = {
        {"Clamp data", {0, 0, 1024, 64511}, "-1024"},
        {"Ignore scaling", {0, 1024, 2048, 65535}, "(absent)"},
        {"Adjust scaling", {0, 1024, 2048, 65535}, "-1024"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.button);
        OneImageStack s({"--set", "Modality=OT", "--set", "PixelRepresentation=0", "--set",
                         "RescaleIntercept=-1024"},
                        "0,1024,2048,65535");
        MessageBoxClicker clicker(c.button);
        std::unique_ptr<VxField3> field(createField3(*s.stack));
        ASSERT_TRUE(field);
        EXPECT_TRUE(clicker.clicked);
        EXPECT_EQ(clicker.text.toStdString(), kQuestion);
        EXPECT_EQ(clicker.buttons, (QStringList{"Ignore scaling", "Clamp data", "Adjust scaling"}));
        EXPECT_EQ(clicker.defaultButton, "Adjust scaling");
        const std::vector<unsigned short> v = samples<unsigned short>(*field);
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(v[k], c.values[k]) << k;
        EXPECT_EQ(param(*field, "DataWindowBias"), c.bias);
        EXPECT_EQ(param(*field, "DataWindowScale"), "(absent)");
    }
    VxWarningDialog::setDisplayOverride(-1);
}

// Two images of one stack, both copies of a real signed MR file.
struct TwoImageStack
{
    vxtest::TempDir dir;
    OpenedFiles files;
    std::unique_ptr<VxDicomImageStack> stack;

    TwoImageStack(const std::vector<std::string> &a, const std::vector<std::string> &b)
    {
        editCopy(vxtest::sharedPath(kMrFile), dir.file("a.dcm"), a);
        editCopy(vxtest::sharedPath(kMrFile), dir.file("b.dcm"), b);
        files.add(dir.file("a.dcm"));
        files.add(dir.file("b.dcm"));
        stack = stackOf(files.images());
    }
};

// A slice whose plain intercept fits the stack's type is rescaled while it is
// read; when the stack as a whole needs another type or scaling, that early
// rescale must be taken back before the final one.
TEST(DicomFieldCreation, EarlyRescaleIsTakenBackWhenTheStackNeedsAnotherFit)
{
    VX_REQUIRE_SHARED_DATA();
    {
        SCOPED_TRACE("second image reaches 33000: unsigned without rescaling");
        TwoImageStack s(
            {"--set", "RescaleIntercept=1000", "--set", "RescaleSlope=1", "--pixels=0,500,1000"},
            {"--set", "RescaleIntercept=1000", "--set", "RescaleSlope=1", "--pixels=0,32000"});
        ASSERT_EQ(s.stack->primType, KcPrimType::Int16);
        std::unique_ptr<VxField3> field(createField3(*s.stack));
        ASSERT_TRUE(field);
        ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
        const std::vector<unsigned short> v = samples<unsigned short>(*field);
        const size_t slice = 256 * 256;
        EXPECT_EQ(v[0], 1000);
        EXPECT_EQ(v[1], 1500);
        EXPECT_EQ(v[2], 2000);
        EXPECT_EQ(v[slice], 1000);
        EXPECT_EQ(v[slice + 1], 33000);
    }
    {
        SCOPED_TRACE("second image reaches 98301: adjusted into 0..65535");
        // scale = 65535 / 98301 = 0.66667684, offset 0. First image:
        // floor(s x 0.66667684 + 1000 x 0.66667684 + 0.5): 0 -> 667, 500 -> 1000,
        // 1000 -> 1333. Second: floor(s x 3 x 0.66667684 + 0.5): 1 -> 2,
        // 10000 -> 20000, 32767 -> 65535.
        TwoImageStack s(
            {"--set", "RescaleIntercept=1000", "--set", "RescaleSlope=1", "--pixels=0,500,1000"},
            {"--set", "RescaleIntercept=0", "--set", "RescaleSlope=3", "--pixels=0,1,10000,32767"});
        VxMessageCapture capture;
        std::unique_ptr<VxField3> field(createField3(*s.stack));
        ASSERT_TRUE(field);
        ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
        const std::vector<unsigned short> v = samples<unsigned short>(*field);
        const size_t slice = 256 * 256;
        EXPECT_EQ(v[0], 667);
        EXPECT_EQ(v[1], 1000);
        EXPECT_EQ(v[2], 1333);
        EXPECT_EQ(v[slice + 0], 0);
        EXPECT_EQ(v[slice + 1], 2);
        EXPECT_EQ(v[slice + 2], 20000);
        EXPECT_EQ(v[slice + 3], 65535);
    }
}

TEST(DicomFieldCreation, ImagesWithoutPositionAreCentredWithTheirSliceLocations)
{
    vxtest::TempDir dir;
    // Axial, centred in plane; Slice Location 0, 2, 4, 6 mm.
    makeSeries(dir.file("s"), {"--rows", "7", "--columns", "5", "--slices", "4", "--spacing", "0.8",
                               "--row-spacing", "1.1", "--thickness", "2.0"});
    std::vector<std::string> names;
    for (const std::string &f : filesIn(dir.file("s"))) {
        names.push_back(f + ".nopos");
        editCopy(f, names.back(), {"--delete", "ImagePositionPatient"});
    }
    OpenedFiles files(names);
    auto stack = stackOf(files.images());
    ASSERT_EQ(stack->images[0]->hasPosition, 0);
    std::unique_ptr<VxField3> field(createField3(*stack));
    ASSERT_TRUE(field);
    flipField3(field.get(), *stack);
    float box[6];
    field->getBoundingBox(box);
    // Pixel Spacing is 1.1\0.8: rows 1.1 mm apart, columns 0.8 mm apart:
    // x (5 - 1) x 0.08 cm / 2 = 0.16; y (7 - 1) x 0.11 cm / 2 = 0.33; 0 .. 0.6 cm.
    const float expected[6] = {-0.16f, 0.16f, -0.33f, 0.33f, 0.0f, 0.6f};
    for (int k = 0; k < 6; ++k)
        EXPECT_NEAR(box[k], expected[k], 1e-6) << k;
    EXPECT_FALSE(field->hasTransform());
}

TEST(DicomFieldCreation, GapMakesAStackedFieldWithTheExactSliceCoordinates)
{
    vxtest::TempDir dir;
    makeSeries(dir.file("u"),
               {"--rows", "6", "--columns", "5", "--slices", "4", "--thickness", "1.5"});
    makeSeries(dir.file("g"), {"--rows", "6", "--columns", "5", "--slices", "4", "--thickness",
                               "1.5", "--gaps", "1"});
    OpenedFiles uniform(filesIn(dir.file("u"))), gap(filesIn(dir.file("g")));
    auto us = stackOf(uniform.images());
    auto gs = stackOf(gap.images());
    EXPECT_EQ(us->spacingState, 1);
    EXPECT_EQ(gs->spacingState, 2);

    std::unique_ptr<VxField3> u(createField3(*us));
    std::unique_ptr<VxField3> g(createField3(*gs));
    ASSERT_TRUE(u && g);
    EXPECT_STREQ(u->typeName(), "VxUniformScalarField3");
    EXPECT_STREQ(g->typeName(), "VxStackedScalarField3");
    float box[6];
    u->getBoundingBox(box);
    for (int k = 0; k < 6; ++k)
        EXPECT_FLOAT_EQ(box[k], us->bbox[k]);
    const KcDArray<float> &z = g->lattice()->sliceCoords();
    ASSERT_EQ(z.size(), 4);
    // Slices 1.5 mm apart with one extra distance after slice 1: 0, 0.15, 0.45, 0.6 cm
    // above the first slice, as the stack holds them.
    for (int k = 0; k < 4; ++k)
        EXPECT_FLOAT_EQ(z[k], gs->sliceLocations[k]);
    EXPECT_NEAR(z[1] - z[0], 0.15, 1e-5);
    EXPECT_NEAR(z[2] - z[1], 0.30, 1e-5);
    EXPECT_NEAR(z[3] - z[2], 0.15, 1e-5);
    // Signed CT with intercept -1024 keeps its type and loses the intercept.
    EXPECT_EQ(g->lattice()->primType(), KcPrimType::Int16);
}

TEST(DicomFieldCreation, FileGoneBeforeItsPixelsAreReadGivesNoField)
{
    vxtest::TempDir dir;
    makeSeries(dir.file("s"), {"--rows", "4", "--columns", "4", "--slices", "3"});
    const std::vector<std::string> names = filesIn(dir.file("s"));
    OpenedFiles files(names);
    auto stack = stackOf(files.images());
    fs::remove(names[1]);
    VxMessageCapture capture;
    std::unique_ptr<VxField3> field(createField3(*stack));
    EXPECT_FALSE(field);
    EXPECT_NE(capture.text().find("reading " + names[1] + " failed: cannot open: " + names[1]),
              std::string::npos)
        << capture.text();
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress());
}

TEST(DicomFieldCreation, ProgressOnlyForMoreThanOneSlice)
{
    vxtest::TempDir dir;
    makeSeries(dir.file("s"), {"--rows", "4", "--columns", "4", "--slices", "3"});
    OpenedFiles files(filesIn(dir.file("s")));
    std::vector<std::string> statuses;
    // Status changes only (progress fractions repeat the current status).
    VxWorkArea::instance()->setObserver([&](const std::string &status, float) {
        if (statuses.empty() || statuses.back() != status)
            statuses.push_back(status);
    });
    KcDArray<VxDicomImage *> first;
    first.append(files.images()[0]);
    auto one = stackOf(first);
    std::unique_ptr<VxField3> a(createField3(*one));
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), "loading image data..."), 0);
    auto three = stackOf(files.images());
    std::unique_ptr<VxField3> b(createField3(*three));
    VxWorkArea::instance()->setObserver(nullptr);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), "loading image data..."), 1);
    ASSERT_TRUE(a && b);
}

TEST(DicomFieldCreation, ParametersAreCleanedAndCarryUnitAndWindow)
{
    VX_REQUIRE_SHARED_DATA();
    OneImageStack s({"--set", "SpecificCharacterSet=ISO_IR 192", "--set",
                     "PatientName=Doe\"^J\xc3\xb6rg", "--set", "Modality=MR"},
                    "1,2,3");
    std::unique_ptr<VxField3> field(createField3(*s.stack));
    ASSERT_TRUE(field);
    VxParamBundle *dicomBundle = field->parameters().bundle("DICOM");
    ASSERT_TRUE(dicomBundle);
    ASSERT_TRUE(dicomBundle->bundle("All"));
    ASSERT_TRUE(dicomBundle->bundle("Slice000"));
    const KcString name = dicomBundle->bundle("All")->getString("G0010-0010");
    EXPECT_NE(name.find("Doe ^J rg"), std::string::npos) << name;
    EXPECT_EQ(name.find('"'), std::string::npos);
    // The stack's own bundle keeps the text as read.
    EXPECT_NE(s.stack->parameters.bundle("All")->getString("G0010-0010").find('"'),
              std::string::npos);
    EXPECT_EQ(param(*field, "DataWindow"), "0 1000");
    EXPECT_EQ(param(*field, "Modality"), "MR");

    setDicomUnitFactor(1.0f);
    VxSkin::instance()->setDataWindowOption(true);
    OneImageStack mm({"--set", "Modality=PT"}, "1,2,3");
    std::unique_ptr<VxField3> f2(createField3(*mm.stack));
    setDicomUnitFactor(0.1f);
    VxSkin::instance()->setDataWindowOption(false);
    ASSERT_TRUE(f2);
    EXPECT_EQ(param(*f2, "UnitLength"), "0.001");
    EXPECT_EQ(param(*f2, "DataWindow"), "(absent)") << "the host keeps its own window";
    EXPECT_EQ(param(*f2, "Modality"), "Unknown");
}

TEST(DicomFieldCreation, PlanarColourIsInterleavedIntoPixelOrder)
{
    VX_REQUIRE_SHARED_DATA();
    const std::vector<std::string> rgb = {"--set", "Rows=2",
                                          "--set", "Columns=2",
                                          "--set", "SamplesPerPixel=3",
                                          "--set", "PhotometricInterpretation=RGB",
                                          "--set", "BitsAllocated=8",
                                          "--set", "BitsStored=8",
                                          "--set", "HighBit=7",
                                          "--set", "PixelRepresentation=0"};
    const std::string pixels = "1,2,3,4,11,12,13,14,21,22,23,24";
    for (int planar : {0, 1}) {
        SCOPED_TRACE(planar);
        std::vector<std::string> edits = rgb;
        edits.push_back("--set");
        edits.push_back("PlanarConfiguration=" + std::to_string(planar));
        OneImageStack s(edits, pixels);
        ASSERT_EQ(s.stack->images[0]->samplesPerPixel, 3);
        std::unique_ptr<VxField3> field(createField3(*s.stack));
        ASSERT_TRUE(field);
        EXPECT_STREQ(field->typeName(), "VxRegColorField3");
        EXPECT_EQ(field->lattice()->nComponents(), 3);
        const std::vector<unsigned char> v = samples<unsigned char>(*field);
        const std::vector<unsigned char> byPlane = {1, 11, 21, 2, 12, 22, 3, 13, 23, 4, 14, 24};
        const std::vector<unsigned char> byPixel = {1, 2, 3, 4, 11, 12, 13, 14, 21, 22, 23, 24};
        EXPECT_EQ(v, planar ? byPlane : byPixel);
    }

    // YBR_FULL (PS3.3 C.7.6.3.1.2) becomes RGB: Y 128, Cb 128, Cr 128 is grey 128;
    // Y 76, Cb 85, Cr 255: R = 76 + 1.402 x 127 = 254.05, G = 76 + 0.344136 x 43
    // - 0.714136 x 127 = 0.10, B = 76 - 1.772 x 43 = -0.20 -> (254, 0, 0).
    std::vector<std::string> edits = rgb;
    edits.insert(edits.end(),
                 {"--set", "PhotometricInterpretation=YBR_FULL", "--set", "PlanarConfiguration=0"});
    OneImageStack ybr(edits, "128,128,128,76,85,255");
    std::unique_ptr<VxField3> field(createField3(*ybr.stack));
    ASSERT_TRUE(field);
    const std::vector<unsigned char> v = samples<unsigned char>(*field);
    EXPECT_EQ(v, (std::vector<unsigned char>{128, 128, 128, 254, 0, 0, 128, 128, 128, 254, 0, 0}));
}

class DicomFieldRegistration : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override
    {
        VxObjectPool::instance()->clear();
        useDynamicSeriesCtrl = false;
    }
};

TEST_F(DicomFieldRegistration, LoadCommandNamesEachFileOnceAndQuotesBlanks)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    makeSeries(dir.file("two words"), {"--rows", "4", "--columns", "4", "--slices", "2"});
    std::vector<std::string> names = filesIn(dir.file("two words"));
    const std::string plain = dir.file("plain.dcm");
    fs::copy_file(names[1], plain);
    names[1] = plain;
    OpenedFiles files(names);
    auto stack = stackOf(files.images());
    VxField3 *field = createField3(*stack);
    ASSERT_TRUE(field);
    registerField3(field, *stack);
    EXPECT_EQ(VxObjectPool::instance()->size(), 1);
    EXPECT_EQ(field->label(), "Synthetic^Series");
    EXPECT_EQ(field->loadCommand(), "load -dicom \"" + names[0] + "\" " + plain);

    // The frames of one file stand there once.
    const std::string multi = vxtest::sharedDicomFiles(kEnhanced6)[0];
    OpenedFiles frames({multi}, 0);
    ASSERT_EQ(frames.images().size(), 6);
    auto frameStack = stackOf(frames.images());
    VxField3 *framesField = createField3(*frameStack);
    ASSERT_TRUE(framesField);
    registerField3(framesField, *frameStack);
    EXPECT_EQ(framesField->loadCommand(), "load -dicom " + multi);
    EXPECT_EQ(framesField->lattice()->dim(2), 6);
    registerField3(nullptr, *frameStack);
    EXPECT_EQ(VxObjectPool::instance()->size(), 2);
}

TEST_F(DicomFieldRegistration, TimeSeriesCollectsTheFieldInsteadOfRegisteringIt)
{
    vxtest::TempDir dir;
    makeSeries(dir.file("s"), {"--rows", "4", "--columns", "4", "--slices", "2"});
    OpenedFiles files(filesIn(dir.file("s")));
    auto stack = stackOf(files.images());
    std::unique_ptr<VxField3> field(createField3(*stack));
    ASSERT_TRUE(field);
    useDynamicSeriesCtrl = true;
    const int before = timeSteps.size();
    registerField3(field.get(), *stack);
    EXPECT_EQ(VxObjectPool::instance()->size(), 0);
    ASSERT_EQ(timeSteps.size(), before + 1);
    ASSERT_EQ(timeSteps.last().size(), 1);
    EXPECT_EQ(timeSteps.last()[0], field.get());
    timeSteps.remove(timeSteps.size() - 1);
}

TEST(DicomFieldCreation, NoRescaledValueIsLost)
{
    // Stored values 0, 1, 2, 3, 30000, 12345 (unsigned), as dcm2niix -p n and
    // the standard rescale them: a fraction in the rescale gives a
    // floating-point field of exactly stored x slope + intercept in single
    // precision; a constant image keeps its one value.
    VX_REQUIRE_SHARED_DATA();
    const struct
    {
        const char *name;
        std::vector<std::string> edits;
        const char *pixels;
        KcPrimType type;
        double slope, intercept;
    } cases[] = {
        {"PET slope 0.0001",
         {"--set", "Modality=PT", "--set", "RescaleSlope=0.0001", "--set", "RescaleIntercept=0"},
         "0,1,2,3,30000,12345",
         KcPrimType::Float,
         0.0001,
         0},
        {"MR slope 2.36, intercept 0.5",
         {"--set", "RescaleSlope=2.36", "--set", "RescaleIntercept=0.5"},
         "0,1,2,3,30000,12345",
         KcPrimType::Float,
         2.36,
         0.5},
        {"constant unsigned image, intercept -4096",
         {"--set", "PixelRepresentation=0", "--set", "RescaleSlope=1", "--set",
          "RescaleIntercept=-4096"},
         "7",
         KcPrimType::Int16,
         1,
         -4096},
    };
    for (const auto &c : cases)
        for (const int delayed : {1, 0}) {
            SCOPED_TRACE(std::string(c.name) +
                         (delayed ? ", pixels read later" : ", with the header"));
            OneImageStack s(c.edits, c.pixels, delayed);
            std::unique_ptr<VxField3> field(createField3(*s.stack));
            ASSERT_TRUE(field);
            ASSERT_EQ(field->lattice()->primType(), c.type);
            const QStringList stored = QString(c.pixels).split(',');
            for (int k = 0; k < 256 * 256; k += 4099) {
                const double expected =
                    stored[k % stored.size()].toDouble() * c.slope + c.intercept;
                const double value = c.type == KcPrimType::Float ? samples<float>(*field)[k]
                                                                 : samples<short>(*field)[k];
                EXPECT_NEAR(value, expected, 1e-6 * std::max(1.0, std::fabs(expected))) << k;
            }
        }
}

TEST(DicomFieldCreation, ThirtyTwoBitDoseGridsStackByTheirFrameOffsets)
{
    // make_32bit.py dose: 3 frames of 4 x 3 samples holding 1000000 k + 1000 r + c
    // (unsigned: plus 3000000000), frames 0, 2.5 and 5 mm along the normal
    // from -10\-20\30; columns 3 mm and rows 2 mm apart. Unsigned with Dose
    // Grid Scaling 0.0001: doses in floats; signed without scaling: the
    // 32-bit values themselves.
    vxtest::TempDir dir;
    for (const bool isSigned : {false, true}) {
        SCOPED_TRACE(isSigned ? "signed, no scaling" : "unsigned, Dose Grid Scaling");
        const std::string path = dir.file(isSigned ? "signed.dcm" : "dose.dcm");
        std::string out;
        std::vector<std::string> args = {"dose", path};
        if (isSigned)
            args.push_back("--signed");
        ASSERT_EQ(runScript(scriptPath("make_32bit.py").c_str(), args, &out, true), 0) << out;
        OpenedFiles files({path});
        ASSERT_EQ(files.images().size(), 3);
        auto stack = stackOf(files.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field);
        flipField3(field.get(), *stack);
        const VxLattice3 *lat = field->lattice();
        ASSERT_EQ(lat->dim(0) * lat->dim(1) * lat->dim(2), 36);
        ASSERT_EQ(lat->primType(), isSigned ? KcPrimType::Int32 : KcPrimType::Float);
        for (const auto &[i, j, k] : {std::array<int, 3>{0, 0, 0}, std::array<int, 3>{3, 2, 2},
                                      std::array<int, 3>{1, 2, 1}}) {
            float w[3];
            field->voxelToWorld(i, j, k, w);
            const float mm[3] = {-10.0f + 3 * i, -20.0f + 2 * j, 30.0f + 2.5f * k};
            for (int a = 0; a < 3; ++a)
                EXPECT_NEAR(w[a] * 10, mm[a], 1e-4) << i << j << k;
            const size_t at = i + 4 * (j + 3 * static_cast<size_t>(k));
            const double stored = 1000000.0 * k + 1000 * j + i;
            if (isSigned)
                EXPECT_EQ(samples<int>(*field)[at], stored - 2000000);
            else
                EXPECT_NEAR(samples<float>(*field)[at], (stored + 3e9) * 1e-4, 3e9 * 1e-4 * 1e-6);
        }
    }
}

TEST(DicomFieldCreation, ThirtyTwoBitColourKeepsItsTopSixteenBitsAndSaysSo)
{
    // make_32bit.py rgb: component s of pixel p holds (p + 1) * 4096 + s in its
    // top 16 stored bits; the RLE file is DCMTK's encoding of the first.
    if (!vxtest::haveProgram("dcmcrle"))
        GTEST_SKIP() << "dcmcrle (Debian dcmtk) is needed";
    vxtest::TempDir dir;
    const struct
    {
        const char *name;
        int stored, planar;
        bool rle;
    } cases[] = {{"32 stored", 32, 0, false},
                 {"20 stored, planar", 20, 1, false},
                 {"16 stored", 16, 0, false},
                 {"32 stored, RLE", 32, 0, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file(std::string(c.name) + ".dcm");
        std::string out;
        ASSERT_EQ(runScript(scriptPath("make_32bit.py").c_str(),
                            {"rgb", path, std::to_string(c.stored), std::to_string(c.planar)}, &out,
                            true),
                  0)
            << out;
        std::string read = path;
        if (c.rle) {
            read = path + ".rle";
            ASSERT_EQ(vxtest::runCommand("dcmcrle " + vxtest::shellQuote(path) + " " +
                                             vxtest::shellQuote(read),
                                         &out, true),
                      0)
                << out;
        }
        VxMessageCapture messages;
        OpenedFiles files({read});
        ASSERT_EQ(files.images().size(), 1);
        auto stack = stackOf(files.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field) << messages.text();
        ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
        ASSERT_EQ(field->lattice()->nComponents(), 3);
        const std::vector<unsigned short> v = samples<unsigned short>(*field);
        ASSERT_EQ(v.size(), 18u);
        for (int p = 0; p < 6; ++p)
            for (int s = 0; s < 3; ++s)
                EXPECT_EQ(v[p * 3 + s], (p + 1) * 4096 + s) << p << " " << s;
        const std::string said = "its colour components have " + std::to_string(c.stored) +
                                 " stored bits; the colour field holds 16 bits per component, "
                                 "so the lowest " +
                                 std::to_string(c.stored - 16) + " bits of each are dropped";
        EXPECT_EQ(messages.contains(said), c.stored > 16) << messages.text();
    }
}

// ------------------------------------------------------ decoding threads

namespace {

// A real CT series: 54 slices of 512 x 512, stored uncompressed.
const char *const kCtSeries = "dcm_qa_ct/In/Philips/S21610/S2010";

std::string quoted(const std::string &s)
{
    return vxtest::shellQuote(s);
}

// The CT series' images stored by `tool` (another program's encoder) into
// folder; empty after a failure, which the test reports.
std::vector<std::string> compressSeries(const std::string &tool, const std::string &folder)
{
    fs::create_directories(folder);
    std::vector<std::string> made;
    for (const std::string &source : vxtest::sharedDicomFiles(kCtSeries)) {
        const std::string name = fs::path(source).filename().string();
        if (name == "DIRFILE")
            continue;
        const std::string target = folder + "/" + name;
        std::string log;
        if (vxtest::runCommand(tool + " " + quoted(source) + " " + quoted(target), &log, true) !=
            0) {
            ADD_FAILURE() << tool << " " << source << ": " << log;
            return {};
        }
        made.push_back(target);
    }
    return made;
}

struct LoadRun
{
    int status = -1;
    std::string out, err;
    std::vector<std::string> saved; ///< names in the output folder
    std::vector<unsigned char> nifti;
};

// `vxdicom load -nodialog --format nii -o OUT SERIES` as a user runs it, with
// VXDICOM_DECODE_THREADS set; OUT is made anew for every run, so that the
// console texts of two runs can be compared as they are.
LoadRun loadAsUser(const std::string &series, const std::string &out, const char *threads)
{
    fs::remove_all(out);
    const vxtest::CommandOutcome r = vxtest::runCapturing(
        std::string("VXDICOM_DECODE_THREADS=") + threads + " " + quoted(VXDICOM_BINARY) +
        " load -nodialog --format nii -o " + quoted(out) + " " + quoted(series));
    LoadRun run;
    run.status = r.status;
    run.out = r.out;
    run.err = r.err;
    if (fs::exists(out))
        for (const auto &entry : fs::directory_iterator(out)) {
            run.saved.push_back(entry.path().filename().string());
            if (entry.path().extension() == ".nii")
                run.nifti = vxtest::readFileBytes(entry.path().string());
        }
    return run;
}

size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// Damages the JPEG codestream inside a DICOM file: "zeros" blanks 2,000 bytes
// of the entropy-coded data (the decoder warns and goes on), "no-scan"
// breaks the start-of-scan marker (it warns, then fails).
void damageJpeg(const std::string &path, const std::string &how)
{
    std::vector<unsigned char> b = vxtest::readFileBytes(path);
    const unsigned char soi[3] = {0xFF, 0xD8, 0xFF}, sos[2] = {0xFF, 0xDA};
    const auto start = std::search(b.begin(), b.end(), soi, soi + 3);
    const auto scan = std::search(start, b.end(), sos, sos + 2);
    ASSERT_NE(scan, b.end()) << path;
    if (how == "zeros") {
        const auto middle = scan + (b.end() - scan) / 2;
        ASSERT_GT(b.end() - middle, 2000);
        std::fill(middle, middle + 2000, 0);
    } else {
        scan[1] = 0x01;
    }
    vxtest::writeFileBytes(path, b);
}

struct CompressedSeries
{
    const char *name;
    const char *tool; ///< the command that stores a file compressed: TOOL IN OUT
};

class DecodingThreads : public ::testing::TestWithParam<CompressedSeries>
{
};

} // namespace

// The CT series stored compressed by another program loads with the same
// samples as the uncompressed series, and a pool of decoding threads gives
// the same file and the same console text as decoding on the loading thread.
TEST_P(DecodingThreads, PoolGivesTheSamplesAndTheConsoleOfOneThread)
{
    VX_REQUIRE_SHARED_DATA();
    const CompressedSeries c = GetParam();
    const std::string program = std::string(c.tool).substr(0, std::string(c.tool).find(' '));
    if (!vxtest::haveProgram(program))
        GTEST_SKIP() << program << " is needed for this test";
    vxtest::TempDir dir;
    const std::string series = dir.file("series");
    ASSERT_EQ(compressSeries(c.tool, series).size(), 54u);

    const LoadRun reference = loadAsUser(vxtest::sharedPath(kCtSeries), dir.file("ref"), "1");
    ASSERT_EQ(reference.status, 0) << reference.err;
    ASSERT_GT(reference.nifti.size(), 54u * 512 * 512 * 2);
    const LoadRun one = loadAsUser(series, dir.file("out"), "1");
    const LoadRun pool = loadAsUser(series, dir.file("out"), "4");
    EXPECT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(pool.status, 0) << pool.err;
    EXPECT_EQ(pool.out, one.out);
    EXPECT_EQ(pool.err, one.err);
    EXPECT_EQ(count(one.out, "+ " + series + "/I"), 54u) << one.out;
    EXPECT_TRUE(one.nifti == reference.nifti) << "decoded samples differ from the stored ones";
    EXPECT_TRUE(pool.nifti == one.nifti) << "the pool's samples differ";
}

INSTANTIATE_TEST_SUITE_P(Codecs, DecodingThreads,
                         ::testing::Values(CompressedSeries{"JpegLossless", "dcmcjpeg"},
                                           CompressedSeries{"JpegLs", "dcmcjpls"},
                                           CompressedSeries{"Jpeg2000", "gdcmconv --j2k"},
                                           CompressedSeries{"Rle", "dcmcrle"}),
                         [](const auto &info) { return std::string(info.param.name); });

// Frames whose decoder complains are reported when the loading thread
// reaches them, in slice order; a frame that fails stops the load with its
// file named, and what helpers said about later frames is never shown.
TEST(DecodingThreads, DamagedFramesAreReportedInSliceOrderAsByOneThread)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmcjpeg"))
        GTEST_SKIP() << "dcmcjpeg (Debian dcmtk) is needed for this test";
    vxtest::TempDir dir;
    const std::string series = dir.file("series");
    ASSERT_EQ(compressSeries("dcmcjpeg", series).size(), 54u);
    // Slices are ordered I10, I20, ... I540 along the table.
    damageJpeg(series + "/I200", "zeros");
    damageJpeg(series + "/I400", "zeros");
    const LoadRun warnedOne = loadAsUser(series, dir.file("out"), "1");
    const LoadRun warnedPool = loadAsUser(series, dir.file("out"), "4");
    EXPECT_EQ(warnedOne.status, 0) << warnedOne.err;
    EXPECT_EQ(count(warnedOne.err, "Warning: DCMTK: Corrupt JPEG data"), 2u) << warnedOne.err;
    EXPECT_EQ(warnedPool.status, warnedOne.status);
    EXPECT_EQ(warnedPool.err, warnedOne.err);
    EXPECT_EQ(warnedPool.out, warnedOne.out);
    EXPECT_TRUE(warnedPool.nifti == warnedOne.nifti);
    EXPECT_FALSE(warnedOne.nifti.empty());

    damageJpeg(series + "/I270", "no-scan");
    damageJpeg(series + "/I290", "zeros");
    const LoadRun failedOne = loadAsUser(series, dir.file("out"), "1");
    const LoadRun failedPool = loadAsUser(series, dir.file("out"), "4");
    EXPECT_EQ(failedOne.status, 1);
    EXPECT_NE(failedOne.err.find("reading " + series +
                                 "/I270 failed: Error: unable to load image "
                                 "data."),
              std::string::npos)
        << failedOne.err;
    // I200's warning and I270's own, none of I290 or I400.
    EXPECT_EQ(count(failedOne.err, "Warning: DCMTK: Corrupt JPEG data"), 2u) << failedOne.err;
    EXPECT_EQ(failedPool.status, failedOne.status);
    EXPECT_EQ(failedPool.err, failedOne.err);
    EXPECT_EQ(failedPool.out, failedOne.out);
    EXPECT_TRUE(failedOne.saved.empty());
    EXPECT_TRUE(failedPool.saved.empty());
}

// Ctrl-C while compressed frames are decoded ahead: the load stops, and no
// decoding thread outlives it.
TEST(DecodingThreads, InterruptStopsTheLoadAndLeavesNoThread)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmcjpls"))
        GTEST_SKIP() << "dcmcjpls (Debian dcmtk) is needed for this test";
    vxtest::TempDir dir;
    const std::vector<std::string> names = compressSeries("dcmcjpls", dir.file("series"));
    ASSERT_EQ(names.size(), 54u);
    ScopedEnv threads("VXDICOM_DECODE_THREADS", "4");
    OpenedFiles files(names);
    auto stack = stackOf(files.images());
    const auto threadsNow = [] {
        size_t n = 0;
        for ([[maybe_unused]] const auto &t : fs::directory_iterator("/proc/self/task"))
            ++n;
        return n;
    };
    const size_t before = threadsNow();
    VxWorkArea *work = VxWorkArea::instance();
    float stoppedAt = -1;
    work->setObserver([&](const std::string &status, float fraction) {
        if (status == "loading image data..." && fraction > 0.25f && stoppedAt < 0) {
            stoppedAt = fraction;
            work->interrupt();
        }
    });
    VxMessageCapture capture;
    std::unique_ptr<VxField3> field(createField3(*stack));
    work->setObserver(nullptr);
    EXPECT_FALSE(field);
    EXPECT_GT(stoppedAt, 0.25f);
    EXPECT_LT(stoppedAt, 0.5f);
    EXPECT_TRUE(capture.contains(": loading interrupted")) << capture.text();
    EXPECT_EQ(threadsNow(), before);
    EXPECT_FALSE(work->isShowingProgress());
}
