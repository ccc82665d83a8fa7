// Fields made from stacks: samples, rescaling and the overflow question; every
// voxel's place against pydicom's positions; the volume prefault helper;
// compressed series loaded from the command line.

#include "vxdicom/reader/VxDicomField.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "platform/data/VxParameter.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VolumePrefault.h"
#include "vxdicom/reader/VxDicom.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <array>
#include <cmath>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

using namespace readertest;

namespace {

// Sample k of a field, whatever its type.
double sample(const VxField3 &field, size_t k)
{
    const void *p = field.lattice()->data();
    // clang-format off
    switch (field.lattice()->primType()) {
    case KcPrimType::UInt8: return static_cast<const unsigned char *>(p)[k];
    case KcPrimType::Int16: return static_cast<const short *>(p)[k];
    case KcPrimType::UInt16: return static_cast<const unsigned short *>(p)[k];
    case KcPrimType::Int32: return static_cast<const int *>(p)[k];
    case KcPrimType::Float: return static_cast<const float *>(p)[k];
    default: ADD_FAILURE() << "unexpected sample type"; return NAN;
    }
    // clang-format on
}

// "--set KEY=VALUE" for each word of `set`, then the pixel values.
std::vector<std::string> edits(const std::string &set, const std::string &pixels)
{
    std::vector<std::string> out;
    std::istringstream words(set);
    for (std::string w; words >> w;)
        out.insert(out.end(), {"--set", w});
    out.push_back("--pixels=" + pixels);
    return out;
}

const char *const kQuestion =
    "According to the DICOM header the pixel values should be linearly scaled.\n"
    "However, after applying the scaling an overflow would occur. You can either\n"
    "completely ignore the scaling, apply the scaling and clamp the data values,\n"
    "or use adjusted scaling parameters, so that no data overflow occurs.";

} // namespace

// Copies of the real MR file (256 x 256) with other attributes and samples
// (repeated to fill the image), one or two of them made into a field, the
// pixels read with the header or later: the sample type, the samples of both
// images (no rescaled value lost), the display window parameters, the console
// and, with a display, the overflow question and the button pressed.
TEST(DicomFieldCreation, SamplesAreTheRescaledValuesInTheirType)
{
    VX_REQUIRE_SHARED_DATA();
    using Params = std::vector<std::pair<const char *, const char *>>;
    const std::string ot = "Modality=OT PixelRepresentation=0 ",
                      rgb = "Rows=2 Columns=2 SamplesPerPixel=3 PhotometricInterpretation=RGB "
                            "BitsAllocated=8 BitsStored=8 HighBit=7 PixelRepresentation=0 ";
    const std::string noDisplay =
        kQuestion + std::string("\n-> Adjust scaling (no display; default answer)");
    // clang-format off
    const struct {
        std::string set; const char *pixels; KcPrimType type; std::vector<double> values;
        Params params = {};
        std::string said = "";
        const char *button = nullptr; // pressed in the overflow question
        std::string set2 = ""; const char *pixels2 = ""; std::vector<double> values2 = {};
    } cases[] = {
        {"Modality=CT PixelRepresentation=0 RescaleIntercept=-1024 RescaleSlope=1",
         "0,1,1023,1024,2000,4095,30000,33791", KcPrimType::Int16, {-1024, -1023, -1, 0, 976, 3071, 28976, 32767},
         {{"DataWindow", "-200 200"}, {"DataWindowBias", "(absent)"}, {"UnitLength", "0.01"}}},
        // -1024..64511 overflows; without a display adjusted: the stored values kept.
        {ot + "RescaleIntercept=-1024 RescaleSlope=1", "0,1024,2048,65535", KcPrimType::UInt16, {0, 1024, 2048, 65535},
         {{"DataWindow", "0 65535"}, {"DataWindowBias", "-1024"}, {"DataWindowScale", "(absent)"}}, noDisplay},
        {ot + "RescaleIntercept=-1024", "0,1024,2048,65535", KcPrimType::UInt16, {0, 0, 1024, 64511},
         {{"DataWindowBias", "-1024"}}, "", "Clamp data"},
        {ot + "RescaleIntercept=-1024", "0,1024,2048,65535", KcPrimType::UInt16, {0, 1024, 2048, 65535},
         {{"DataWindowBias", "(absent)"}}, "", "Ignore scaling"},
        {ot + "RescaleIntercept=-1024", "0,1024,2048,65535", KcPrimType::UInt16, {0, 1024, 2048, 65535},
         {{"DataWindowBias", "-1024"}}, "", "Adjust scaling"},
        // Slope 2: 0..80000 onto 0..65535: floor(s x 2 x 0.8191875 + 0.5).
        {ot + "RescaleSlope=2 RescaleIntercept=0", "0,100,40000,20000", KcPrimType::UInt16, {0, 164, 65535, 32768},
         {{"DataWindowBias", "(absent)"}, {"DataWindowScale", "1.22072"}}},
        {"Modality=PT RescaleSlope=0.0001 RescaleIntercept=0", "0,1,2,3,30000,12345", KcPrimType::Float,
         {0, 1e-4, 2e-4, 3e-4, 3, 1.2345}},
        {"RescaleSlope=2.36 RescaleIntercept=0.5", "0,1,2,3,30000,12345", KcPrimType::Float,
         {0.5, 2.86, 5.22, 7.58, 70800.5, 29134.7}},
        {"PixelRepresentation=0 RescaleSlope=1 RescaleIntercept=-4096", "7", KcPrimType::Int16, {-4089, -4089}},
        // A slice rescaled early, as its intercept fits, is taken back when the
        // stack needs another fit: 0..33000 unsigned; 0..98301 scaled by
        // 65535 / 98301 = 0.66667684, floor(value x scale + 0.5).
        {"RescaleIntercept=1000 RescaleSlope=1", "0,500,1000", KcPrimType::UInt16, {1000, 1500, 2000}, {}, "",
         nullptr, "RescaleIntercept=1000 RescaleSlope=1", "0,32000", {1000, 33000}},
        {"RescaleIntercept=1000 RescaleSlope=1", "0,500,1000", KcPrimType::UInt16, {667, 1000, 1333}, {}, "",
         nullptr, "RescaleIntercept=0 RescaleSlope=3", "0,1,10000,32767", {0, 2, 20000, 65535}},
        {rgb + "PlanarConfiguration=0", "1,2,3,4,11,12,13,14,21,22,23,24", KcPrimType::UInt8,
         {1, 2, 3, 4, 11, 12, 13, 14, 21, 22, 23, 24}},
        {rgb + "PlanarConfiguration=1", "1,2,3,4,11,12,13,14,21,22,23,24", KcPrimType::UInt8,
         {1, 11, 21, 2, 12, 22, 3, 13, 23, 4, 14, 24}},
        // YBR_FULL: Y 76, Cb 85, Cr 255 is R 254.05, G 0.10, B -0.20.
        {rgb + "PlanarConfiguration=0 PhotometricInterpretation=YBR_FULL", "128,128,128,76,85,255",
         KcPrimType::UInt8, {128, 128, 128, 254, 0, 0, 128, 128, 128}},
    };
    // clang-format on
    for (const auto &c : cases)
        for (const int delayed : {1, 0}) {
            SCOPED_TRACE(c.set + " " + (c.button ? c.button : "") + c.set2 +
                         (delayed ? ", read later" : ", with the header"));
            vxtest::TempDir dir;
            OpenedFiles files;
            editCopy(vxtest::sharedPath(kMrFile), dir.file("a"), edits(c.set, c.pixels));
            files.add(dir.file("a"), delayed);
            if (*c.pixels2) {
                editCopy(vxtest::sharedPath(kMrFile), dir.file("b"), edits(c.set2, c.pixels2));
                files.add(dir.file("b"), delayed);
            }
            auto stack = stackOf(files.images());
            VxWarningDialog::setDisplayOverride(c.button ? 1 : -1);
            ASSERT_EQ(VxWarningDialog::haveDisplay(), c.button != nullptr);
            // Clicks the button of the question the GUI shows; keeps what it showed.
            QString question, defaultButton;
            QStringList buttons;
            QTimer clicker;
            QObject::connect(&clicker, &QTimer::timeout, [&] {
                auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
                if (!box || !question.isEmpty())
                    return;
                question = box->text();
                defaultButton = box->defaultButton() ? box->defaultButton()->text() : "";
                for (QAbstractButton *b : box->buttons())
                    buttons << b->text();
                for (QAbstractButton *b : box->buttons())
                    if (b->text() == c.button)
                        b->click();
            });
            clicker.start(10);
            VxMessageCapture console;
            std::unique_ptr<VxField3> field(createField3(*stack));
            VxWarningDialog::setDisplayOverride(-1);
            ASSERT_TRUE(field);
            ASSERT_EQ(field->lattice()->primType(), c.type);
            for (size_t k = 0; k < c.values.size(); ++k)
                EXPECT_NEAR(sample(*field, k), c.values[k],
                            1e-6 * std::max(1.0, std::fabs(c.values[k])))
                    << k;
            for (size_t k = 0; k < c.values2.size(); ++k)
                EXPECT_EQ(sample(*field, 256 * 256 + k), c.values2[k]) << k;
            for (const auto &[name, value] : c.params) {
                const VxParameter *p = field->parameters().parameter(name);
                EXPECT_EQ(p ? p->stringValue() : KcString("(absent)"), value) << name;
            }
            EXPECT_NE(console.text().find(c.said), std::string::npos) << console.text();
            if (c.button) {
                EXPECT_EQ(question.toStdString(), kQuestion);
                EXPECT_EQ(buttons, (QStringList{"Ignore scaling", "Clamp data", "Adjust scaling"}));
                EXPECT_EQ(defaultButton, "Adjust scaling");
            }
        }
}

TEST(DicomFieldCreation, ImagesWithoutPositionAreCentredWithTheirSliceLocations)
{
    vxtest::TempDir dir;
    // Axial; Slice Location 0, 2, 4, 6 mm; rows 1.1 mm apart, columns 0.8 mm.
    makeSeries(dir.file("s"), {"--rows", "7", "--columns", "5", "--slices", "4", "--spacing", "0.8",
                               "--row-spacing", "1.1", "--thickness", "2.0"});
    std::vector<std::string> names;
    for (const std::string &f : filesIn(dir.file("s"))) {
        names.push_back(f + ".nopos");
        editCopy(f, names.back(), {"--delete", "ImagePositionPatient"});
    }
    OpenedFiles files(names);
    auto stack = stackOf(files.images());
    std::unique_ptr<VxField3> field(createField3(*stack));
    ASSERT_TRUE(field);
    flipField3(field.get(), *stack);
    EXPECT_FALSE(field->hasTransform());
    float box[6];
    field->getBoundingBox(box);
    // x: (5 - 1) x 0.08 cm / 2; y: (7 - 1) x 0.11 cm / 2; z: 0 .. 0.6 cm.
    const float expected[6] = {-0.16f, 0.16f, -0.33f, 0.33f, 0.0f, 0.6f};
    for (int k = 0; k < 6; ++k)
        EXPECT_NEAR(box[k], expected[k], 1e-6) << k;
}

// 32-bit files of make_32bit.py. Dose: 3 frames of 4 x 3 samples holding
// 1000000 k + 1000 r + c (unsigned: plus 3e9), 0, 2.5 and 5 mm apart from
// -10\-20\30, columns 3 mm and rows 2 mm apart; unsigned with Dose Grid
// Scaling 0.0001 gives floats, signed without it the values. Colour: component
// s of pixel p holds (p + 1) * 4096 + s in its top 16 stored bits, which are
// kept (and the loss said); the RLE file is DCMTK's encoding.
TEST(DicomFieldCreation, ThirtyTwoBitDoseGridsAndColour)
{
    if (!vxtest::haveProgram("dcmcrle"))
        GTEST_SKIP() << "dcmcrle (Debian dcmtk) is needed";
    vxtest::TempDir dir;
    const auto make = [&](std::vector<std::string> args) {
        args.insert(args.begin() + 1, dir.file(args[0] + args.back()));
        std::string out;
        EXPECT_EQ(runScript("make_32bit.py", args, &out), 0) << out;
        return args[1];
    };
    for (const bool isSigned : {false, true}) {
        OpenedFiles files({make({"dose", isSigned ? "--signed" : ""})});
        auto stack = stackOf(files.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field);
        flipField3(field.get(), *stack);
        ASSERT_EQ(field->lattice()->numVoxels(), 36u);
        ASSERT_EQ(field->lattice()->primType(), isSigned ? KcPrimType::Int32 : KcPrimType::Float);
        for (const auto &[i, j, k] : {std::array<int, 3>{0, 0, 0}, std::array<int, 3>{3, 2, 2},
                                      std::array<int, 3>{1, 2, 1}}) {
            float w[3];
            field->voxelToWorld(i, j, k, w);
            const float mm[3] = {-10.0f + 3 * i, -20.0f + 2 * j, 30.0f + 2.5f * k};
            for (int a = 0; a < 3; ++a)
                EXPECT_NEAR(w[a] * 10, mm[a], 1e-4) << i << j << k;
            const double stored = 1000000.0 * k + 1000 * j + i;
            EXPECT_NEAR(sample(*field, i + 4 * (j + 3 * k)),
                        isSigned ? stored - 2000000 : (stored + 3e9) * 1e-4, isSigned ? 0 : 0.3);
        }
    }
    for (const auto &[stored, planar, rle] : {std::tuple{32, 0, false}, std::tuple{20, 1, false},
                                              std::tuple{16, 0, false}, std::tuple{32, 0, true}}) {
        std::string path = make({"rgb", std::to_string(stored), std::to_string(planar)}), out;
        SCOPED_TRACE(path + (rle ? " RLE" : ""));
        if (rle) {
            ASSERT_EQ(vxtest::runCommand("dcmcrle " + path + " " + path + ".rle", &out, true), 0);
            path += ".rle";
        }
        VxMessageCapture messages;
        OpenedFiles files({path});
        auto stack = stackOf(files.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field) << messages.text();
        ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
        ASSERT_EQ(field->lattice()->nComponents() * field->lattice()->numVoxels(), 18u);
        for (int p = 0; p < 18; ++p)
            EXPECT_EQ(sample(*field, p), (p / 3 + 1) * 4096 + p % 3) << p;
        EXPECT_EQ(messages.contains("its colour components have " + std::to_string(stored) +
                                    " stored bits; the colour field holds 16 bits per component, "
                                    "so the lowest " +
                                    std::to_string(stored - 16) + " bits of each are dropped"),
                  stored > 16)
            << messages.text();
    }
}

// For every orientation make_series.py offers, uniform and with a gap, in mm
// and cm, in both name orders and as one slice: every voxel lies on its own
// source pixel (positions from pydicom; a step along a row crosses columns)
// and holds its value (the CT series stores round(signal + 1024) with
// intercept -1024).
TEST(DicomFieldGeometry, EveryVoxelSitsOnItsSourcePixel)
{
    // clang-format off
    const struct { const char *orientation; bool gap, reversedNames; float unit; int slices; } cases[] = {
        {"axial", false, false, 0.1f, 4}, {"coronal", false, false, 0.1f, 4}, {"sagittal", false, false, 0.1f, 4},
        {"axial-rev", false, false, 0.1f, 4}, {"coronal-rev", false, false, 0.1f, 4},
        {"sagittal-rev", false, false, 0.1f, 4}, {"axial-rot", false, false, 0.1f, 4},
        {"oblique", false, false, 0.1f, 4}, {"axial", false, true, 0.1f, 4}, {"sagittal", false, true, 0.1f, 4},
        {"oblique", false, false, 1.0f, 4}, {"coronal", false, false, 1.0f, 4}, {"axial", true, false, 0.1f, 4},
        {"coronal", true, false, 0.1f, 4}, {"sagittal", true, false, 0.1f, 4}, {"axial-rev", true, false, 0.1f, 4},
        {"coronal-rev", true, false, 0.1f, 4}, {"sagittal-rev", true, false, 0.1f, 4},
        {"axial-rot", true, false, 0.1f, 4}, {"oblique", true, false, 0.1f, 4}, {"axial-rot", true, true, 1.0f, 4},
        {"axial", false, false, 0.1f, 1}, {"coronal", false, false, 0.1f, 1}, {"sagittal", false, false, 0.1f, 1},
        {"axial-rev", false, false, 0.1f, 1}, {"oblique", false, false, 0.1f, 1},
    };
    // clang-format on
    using Vec = std::array<double, 3>;
    const auto dot = [](const Vec &a, const Vec &b) {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.orientation) + (c.gap ? ", gap" : "") +
                     (c.reversedNames ? ", names reversed" : "") + ", unit " +
                     std::to_string(c.unit) + ", slices " + std::to_string(c.slices));
        vxtest::TempDir dir;
        std::vector<std::string> args = {"--rows",        "7",
                                         "--columns",     "5",
                                         "--slices",      std::to_string(c.slices),
                                         "--orientation", c.orientation,
                                         "--spacing",     "0.8",
                                         "--row-spacing", "1.1",
                                         "--thickness",   "2.0",
                                         "--origin",      "12.5,-30.25,47"};
        if (c.gap)
            args.insert(args.end(), {"--gaps", "1"});
        if (c.reversedNames)
            args.insert(args.end(), {"--name-order", "reverse"});
        makeSeries(dir.file("s"), args);
        const std::vector<std::string> names = filesIn(dir.file("s"));
        struct Slice
        {
            Vec position, row, column;
            double rowSpacing, columnSpacing;
        };
        std::vector<Slice> slices;
        for (const QJsonValue &v : pydicomReference(names)) {
            const QJsonObject r = v.toObject();
            Slice s;
            for (int k = 0; k < 3; ++k) {
                s.position[k] = r["position"].toArray()[k].toDouble();
                s.row[k] = r["rowDirection"].toArray()[k].toDouble();
                s.column[k] = r["columnDirection"].toArray()[k].toDouble();
            }
            s.rowSpacing = r["pixelSpacing"].toArray()[0].toDouble();
            s.columnSpacing = r["pixelSpacing"].toArray()[1].toDouble();
            slices.push_back(s);
        }
        ASSERT_EQ(slices.size(), static_cast<size_t>(c.slices));

        setDicomUnitFactor(c.unit);
        struct Restore
        {
            ~Restore() { setDicomUnitFactor(0.1f); }
        } restoreUnit;
        OpenedFiles opened(names);
        auto stack = stackOf(opened.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field);
        EXPECT_STREQ(field->typeName(), c.gap ? "VxStackedScalarField3" : "VxUniformScalarField3");
        flipField3(field.get(), *stack);
        const VxLattice3 *lat = field->lattice();
        ASSERT_EQ(lat->numVoxels(), 7u * 5u * c.slices);
        std::set<std::array<int, 3>> seen;
        int off = 0, wrongValue = 0;
        for (size_t v = 0; v < lat->numVoxels(); ++v) {
            const int d0 = lat->dim(0), d1 = lat->dim(1);
            const int i = v % d0, j = v / d0 % d1, k = v / (d0 * d1);
            float w[3];
            field->voxelToWorld(i, j, k, w);
            // The nearest source pixel: column, row and how far off it is.
            double error = 1e30;
            std::array<int, 3> pixel{};
            Vec at{};
            for (size_t s = 0; s < slices.size(); ++s) {
                const Slice &sl = slices[s];
                const Vec d = {w[0] / c.unit - sl.position[0], w[1] / c.unit - sl.position[1],
                               w[2] / c.unit - sl.position[2]};
                const double col = std::round(dot(d, sl.row) / sl.columnSpacing),
                             row = std::round(dot(d, sl.column) / sl.rowSpacing);
                Vec p;
                for (int a = 0; a < 3; ++a)
                    p[a] = sl.position[a] + col * sl.columnSpacing * sl.row[a] +
                           row * sl.rowSpacing * sl.column[a];
                const double e =
                    std::hypot(d[0] + sl.position[0] - p[0], d[1] + sl.position[1] - p[1],
                               d[2] + sl.position[2] - p[2]);
                if (e < error && col >= 0 && col < 5 && row >= 0 && row < 7)
                    error = e, pixel = {int(s), int(col), int(row)}, at = p;
            }
            if (error > 2e-3) {
                if (off++ == 0)
                    ADD_FAILURE() << "voxel (" << i << "," << j << "," << k << ") is " << error
                                  << " mm off every source pixel";
                continue;
            }
            seen.insert(pixel);
            const double signal =
                300.0 * std::sin(at[0] / 13.0) + 200.0 * std::cos(at[1] / 17.0) + 2.0 * at[2];
            wrongValue += std::fabs(sample(*field, v) - std::round(signal)) > 1;
        }
        EXPECT_EQ(off, 0);
        EXPECT_EQ(seen.size(), lat->numVoxels()) << "each voxel has its own source pixel";
        EXPECT_EQ(wrongValue, 0);
    }
}

// The prefault helper never changes a byte the reading loop wrote, wherever
// the two meet; it ends when asked, or by itself once it reaches the reader.
TEST(VolumePrefault, NeverChangesAByteAndEndsWhenStoppedOrDone)
{
    const auto pattern = [](size_t i) {
        return static_cast<unsigned char>((i * 2654435761u) >> 13);
    };
    // 200 slices, not a whole number of pages, on a 2 MiB boundary as volumes are.
    const size_t slice = 512 * 512 * 2 + 6, bytes = slice * 200;
    void *p = nullptr;
    ASSERT_EQ(posix_memalign(&p, size_t(2) << 20, bytes), 0);
    const std::unique_ptr<unsigned char, decltype(&std::free)> volume(
        static_cast<unsigned char *>(p), &std::free);
    const auto changed = [&] {
        size_t n = 0;
        for (size_t i = 0; i < bytes; ++i)
            n += volume.get()[i] != pattern(i);
        return n;
    };
    {
        VolumePrefault prefault(volume.get(), bytes, 0);
        for (size_t i = 0; i < bytes; ++i) {
            volume.get()[i] = pattern(i);
            if ((i + 1) % slice == 0)
                prefault.readerAt(i + 1);
        }
        prefault.stop();
        prefault.stop(); // a second stop is harmless
    }
    EXPECT_EQ(changed(), 0u);
    {
        // The reader stays at the front: the helper comes down to it and ends.
        VolumePrefault prefault(volume.get(), bytes, 0);
        while (!prefault.finished())
            std::this_thread::yield();
        EXPECT_LT(prefault.populatedFrom(), bytes / 2);
    }
    EXPECT_EQ(changed(), 0u);
    const size_t small = size_t(48) << 20; // under the default minimum size
    VolumePrefault below(volume.get(), small);
    EXPECT_EQ(below.populatedFrom(), small);
    EXPECT_FALSE(below.finished()) << "no thread was started";
    VolumePrefault none(nullptr, bytes, 0);
    EXPECT_FALSE(none.finished());
}

// ------------------------------------ compressed series, several threads

namespace {

struct LoadRun
{
    int status = -1;
    std::string out, err;
    bool saved = false;
    std::vector<unsigned char> nifti;
};

// `vxdicom load -nodialog --format nii -o OUT SERIES` as a user runs it, with
// VXDICOM_DECODE_THREADS set; OUT is made anew for every run.
LoadRun loadAsUser(const std::string &series, const std::string &out, const char *threads)
{
    fs::remove_all(out);
    const vxtest::CommandOutcome r = vxtest::runCapturing(
        std::string("VXDICOM_DECODE_THREADS=") + threads + " " +
        vxtest::shellQuote(VXDICOM_BINARY) + " load -nodialog --format nii -o " +
        vxtest::shellQuote(out) + " " + vxtest::shellQuote(series));
    LoadRun run;
    run.status = r.status;
    run.out = r.out;
    run.err = r.err;
    if (fs::exists(out))
        for (const auto &entry : fs::directory_iterator(out)) {
            run.saved = true;
            if (entry.path().extension() == ".nii")
                run.nifti = vxtest::readFileBytes(entry.path().string());
        }
    return run;
}

// Loads with one decoding thread and with four; both must say and save the same.
LoadRun loadTwice(const std::string &series, const std::string &out)
{
    const LoadRun one = loadAsUser(series, out, "1"), pool = loadAsUser(series, out, "4");
    EXPECT_EQ(pool.status, one.status);
    EXPECT_EQ(pool.out, one.out);
    EXPECT_EQ(pool.err, one.err);
    EXPECT_EQ(pool.saved, one.saved);
    EXPECT_TRUE(pool.nifti == one.nifti) << "the pool's samples differ";
    return one;
}

size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// Damages the JPEG codestream of a file: "zeros" blanks 2,000 bytes of the
// entropy-coded data (the decoder warns and goes on), otherwise the
// start-of-scan marker is broken (it warns, then fails).
void damageJpeg(const std::string &path, const std::string &how)
{
    std::vector<unsigned char> b = vxtest::readFileBytes(path);
    const unsigned char soi[3] = {0xFF, 0xD8, 0xFF}, sos[2] = {0xFF, 0xDA};
    const auto scan =
        std::search(std::search(b.begin(), b.end(), soi, soi + 3), b.end(), sos, sos + 2);
    ASSERT_GT(b.end() - scan, 4000) << path;
    if (how == "zeros")
        std::fill(scan + (b.end() - scan) / 2, scan + (b.end() - scan) / 2 + 2000, 0);
    else
        scan[1] = 0x01;
    vxtest::writeFileBytes(path, b);
}

} // namespace

// The real CT series (54 slices of 512 x 512) stored compressed by other
// programs loads from the command line with the samples of the uncompressed
// one; a pool of decoding threads gives the same file and console text as one
// thread, also when frames are damaged (reported in slice order, a failing
// frame named, nothing of later frames shown); an interrupt stops decoding
// and leaves no thread.
TEST(DecodingThreads, CompressedSeriesLoadAsByOneThread)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const LoadRun reference = loadAsUser(vxtest::sharedPath(kCtSeries), dir.file("ref"), "1");
    ASSERT_EQ(reference.status, 0) << reference.err;
    ASSERT_GT(reference.nifti.size(), 54u * 512 * 512 * 2);
    int ran = 0;
    for (const std::string tool : {"dcmcjpeg", "dcmcjpls", "gdcmconv --j2k", "dcmcrle"}) {
        SCOPED_TRACE(tool);
        if (!vxtest::haveProgram(tool.substr(0, tool.find(' '))))
            continue;
        const std::string series = dir.file(std::to_string(++ran));
        fs::create_directories(series);
        std::vector<std::string> names;
        for (const std::string &source : vxtest::sharedDicomFiles(kCtSeries)) {
            if (source.find("DIRFILE") != std::string::npos)
                continue;
            names.push_back(series + "/" + fs::path(source).filename().string());
            ASSERT_EQ(vxtest::runCommand(tool + " " + source + " " + names.back()), 0);
        }
        ASSERT_EQ(names.size(), 54u);
        const LoadRun one = loadTwice(series, dir.file("out"));
        EXPECT_EQ(one.status, 0) << one.err;
        EXPECT_EQ(count(one.out, "+ " + series + "/I"), 54u) << one.out;
        EXPECT_TRUE(one.nifti == reference.nifti) << "decoded samples differ from the stored ones";
        if (tool == "dcmcjpls") {
            ScopedEnv threads("VXDICOM_DECODE_THREADS", "4");
            OpenedFiles files(names);
            auto stack = stackOf(files.images());
            const auto threadsNow = [] {
                return std::distance(fs::directory_iterator("/proc/self/task"), {});
            };
            const auto before = threadsNow();
            VxWorkArea *work = VxWorkArea::instance();
            work->setObserver([&](const std::string &status, float fraction) {
                if (status == "loading image data..." && fraction > 0.25f)
                    work->interrupt();
            });
            VxMessageCapture capture;
            std::unique_ptr<VxField3> field(createField3(*stack));
            work->setObserver(nullptr);
            EXPECT_FALSE(field);
            EXPECT_TRUE(capture.contains(": loading interrupted")) << capture.text();
            EXPECT_EQ(threadsNow(), before);
            EXPECT_FALSE(work->isShowingProgress());
        }
        if (tool != "dcmcjpeg")
            continue;
        // Slices are ordered I10, I20, ... I540 along the table.
        damageJpeg(series + "/I200", "zeros");
        damageJpeg(series + "/I400", "zeros");
        const LoadRun warned = loadTwice(series, dir.file("out"));
        EXPECT_EQ(warned.status, 0) << warned.err;
        EXPECT_EQ(count(warned.err, "Warning: DCMTK: Corrupt JPEG data"), 2u) << warned.err;
        EXPECT_FALSE(warned.nifti.empty());
        damageJpeg(series + "/I270", "no-scan");
        damageJpeg(series + "/I290", "zeros");
        const LoadRun failed = loadTwice(series, dir.file("out"));
        EXPECT_EQ(failed.status, 1);
        EXPECT_NE(failed.err.find("reading " + series +
                                  "/I270 failed: Error: unable to load image data."),
                  std::string::npos)
            << failed.err;
        // I200's warning and I270's own, none of I290 or I400.
        EXPECT_EQ(count(failed.err, "Warning: DCMTK: Corrupt JPEG data"), 2u) << failed.err;
        EXPECT_FALSE(failed.saved);
    }
    if (ran == 0)
        GTEST_SKIP() << "dcmcjpeg, dcmcjpls, gdcmconv or dcmcrle is needed";
}
