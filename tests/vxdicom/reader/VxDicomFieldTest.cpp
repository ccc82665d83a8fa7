// Fields made from stacks: samples, rescaling, the overflow question, voxel places, threads.

#include "vxdicom/reader/VxDicomField.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "platform/data/VxParameter.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomPixelKernels.h"
#include "vxdicom/reader/DicomReaderSettings.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <tuple>

using namespace readertest;

namespace {

double sample(const VxField3 &field, size_t k)
{
    const void *p = field.lattice()->data();
    // clang-format off
    switch (field.lattice()->primType()) {
    case KcPrimType::Int16: return static_cast<const short *>(p)[k];
    case KcPrimType::UInt16: return static_cast<const unsigned short *>(p)[k];
    case KcPrimType::Float: return static_cast<const float *>(p)[k];
    default: ADD_FAILURE() << "unexpected sample type"; return NAN;
    }
    // clang-format on
}

std::unique_ptr<VxField3> fieldOf(const std::vector<std::string> &paths, int delayed = 1)
{
    OpenedFiles files(paths, delayed);
    auto stack = stackOf(files.images());
    std::unique_ptr<VxField3> field(createField3(*stack));
    return field ? (flipField3(field.get(), *stack), std::move(field)) : nullptr;
}

const char *const kQuestion =
    "According to the DICOM header the pixel values should be linearly scaled.\n"
    "However, after applying the scaling an overflow would occur. You can either\n"
    "completely ignore the scaling, apply the scaling and clamp the data values,\n"
    "or use adjusted scaling parameters, so that no data overflow occurs.";

} // namespace

// Edited copies of the real MR file made into fields: samples, window, console, overflow question.
TEST(DicomFieldCreation, SamplesAreTheRescaledValuesInTheirType)
{
    VX_REQUIRE_SHARED_DATA();
    using Params = std::vector<std::pair<const char *, const char *>>;
    const std::string ot = "Modality=OT PixelRepresentation=0 ";
    // clang-format off
    const struct {
        std::string set; const char *pixels; KcPrimType type; std::vector<double> values;
        Params params = {}; std::string said = ""; const char *button = nullptr;
        std::string set2 = ""; const char *pixels2 = ""; std::vector<double> values2 = {};
    } cases[] = {
        {"Modality=CT PixelRepresentation=0 RescaleIntercept=-1024 RescaleSlope=1",
         "0,1,1023,1024,2000,4095,30000,33791", KcPrimType::Int16, {-1024, -1023, -1, 0, 976, 3071, 28976, 32767},
         {{"DataWindow", "-200 200"}, {"DataWindowBias", "(absent)"}, {"UnitLength", "0.01"}}},
        {ot + "RescaleIntercept=-1024 RescaleSlope=1", "0,1024,2048,65535", KcPrimType::UInt16, {0, 1024, 2048, 65535},
         {{"DataWindow", "0 65535"}, {"DataWindowBias", "-1024"}, {"DataWindowScale", "(absent)"}},
         kQuestion + std::string("\n-> Adjust scaling (no display; default answer)")},
        {ot + "RescaleIntercept=-1024", "0,1024,2048,65535", KcPrimType::UInt16, {0, 0, 1024, 64511},
         {{"DataWindowBias", "-1024"}}, "", "Clamp data"},
        // Slope 2: 0..80000 onto 0..65535: floor(s x 2 x 0.8191875 + 0.5).
        {ot + "RescaleSlope=2 RescaleIntercept=0", "0,100,40000,20000", KcPrimType::UInt16, {0, 164, 65535, 32768},
         {{"DataWindowBias", "(absent)"}, {"DataWindowScale", "1.22072"}}},
        {"RescaleSlope=2.36 RescaleIntercept=0.5", "0,1,2,3,30000,12345", KcPrimType::Float,
         {0.5, 2.86, 5.22, 7.58, 70800.5, 29134.7}},
        // A slice rescaled early is taken back when the stack needs another fit.
        {"RescaleIntercept=1000 RescaleSlope=1", "0,500,1000", KcPrimType::UInt16, {1000, 1500, 2000}, {}, "",
         nullptr, "RescaleIntercept=1000 RescaleSlope=1", "0,32000", {1000, 33000}},
        {"RescaleIntercept=1000 RescaleSlope=1", "0,500,1000", KcPrimType::UInt16, {667, 1000, 1333}, {}, "",
         nullptr, "RescaleIntercept=0 RescaleSlope=3", "0,1,10000,32767", {0, 2, 20000, 65535}},
    };
    // clang-format on
    for (const auto &c : cases)
        for (const int delayed : {1, 0}) {
            SCOPED_TRACE(c.set + " " + (c.button ? c.button : "") + c.set2 +
                         (delayed ? ", later" : ""));
            vxtest::TempDir dir;
            const auto copy = [&](const char *name, const std::string &set, const char *pixels) {
                editCopy(vxtest::sharedPath(kMrFile), dir.file(name),
                         "--pixels=" + std::string(pixels) + " --set " + set);
                return dir.file(name);
            };
            std::vector<std::string> paths = {copy("a", c.set, c.pixels)};
            if (*c.pixels2)
                paths.push_back(copy("b", c.set2, c.pixels2));
            VxWarningDialog::setDisplayOverride(c.button ? 1 : -1);
            QString shown;
            QTimer clicker;
            QObject::connect(&clicker, &QTimer::timeout, [&] {
                auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
                if (!box || !shown.isEmpty())
                    return;
                shown = box->text() + "\ndefault: " + box->defaultButton()->text();
                for (QAbstractButton *b : box->buttons())
                    shown += "\n[" + b->text() + "]";
                for (QAbstractButton *b : box->buttons())
                    if (b->text() == c.button)
                        return b->click();
            });
            clicker.start(10);
            VxMessageCapture console;
            OpenedFiles files(paths, delayed);
            auto stack = stackOf(files.images());
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
            const std::string asked = std::string(kQuestion) +
                                      "\ndefault: Adjust scaling\n"
                                      "[Ignore scaling]\n[Clamp data]\n[Adjust scaling]";
            EXPECT_EQ(shown.toStdString(), c.button ? asked : "")
                << "the question shows only with a display";
        }
}

// The word rescale kernel against its formula for every stored value, bounds and tail.
TEST(DicomFieldCreation, WordRescaleKernelGivesItsFormulaForEveryValue)
{
    std::vector<short> src(65536 + 5), dst(src.size());
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = static_cast<short>(static_cast<int>(i % 65536) - 32768);
    for (const auto &[offset, low, high] :
         {std::tuple{-1024.0f, -32768, 32767}, std::tuple{1024.0f, -32768, 32767},
          std::tuple{32767.0f, -32768, 32767}, std::tuple{-1024.0f, -2000, 2000},
          std::tuple{0.5f, -32768, 32767}}) {
        dicomRescale(dst.data(), src.data(), long(src.size()), 1.0f, offset, low, high);
        for (size_t i = 0; i < src.size(); ++i)
            ASSERT_EQ(dst[i], std::clamp(int(std::floor(src[i] + double(offset) + 0.5)), low, high))
                << src[i] << " + " << offset;
    }
}

// An RT Dose grid: 32-bit samples scaled by Dose Grid Scaling, placed by the frame offsets.
TEST(DicomFieldCreation, RtDoseGridIsScaledAndPlacedByItsFrameOffsets)
{
    vxtest::TempDir dir;
    std::string out;
    ASSERT_EQ(runScript("make_32bit.py", {dir.file("dose"), "dose"}, &out), 0) << out;
    auto field = fieldOf({dir.file("dose")});
    ASSERT_TRUE(field);
    ASSERT_EQ(field->lattice()->primType(), KcPrimType::Float);
    ASSERT_EQ(field->lattice()->numVoxels(), 36u);
    for (const auto &[i, j, k] : {std::tuple{0, 0, 0}, std::tuple{3, 2, 2}, std::tuple{1, 2, 1}}) {
        float w[3];
        field->voxelToWorld(i, j, k, w);
        const float mm[3] = {-10.0f + 3 * i, -20.0f + 2 * j, 30.0f + 2.5f * k};
        for (int a = 0; a < 3; ++a)
            EXPECT_NEAR(w[a] * 10, mm[a], 1e-4) << i << j << k;
        EXPECT_NEAR(sample(*field, i + 4 * (j + 3 * k)), (3e9 + 1e6 * k + 1e3 * j + i) * 1e-4, 0.3);
    }
}

// 32-bit colour (also RLE by DCMTK): the top 16 stored bits are kept and the loss said.
TEST(DicomFieldCreation, ThirtyTwoBitColourKeepsTheTopSixteenBits)
{
    VX_REQUIRE(vxtest::haveProgram("dcmcrle"), "dcmcrle (Debian dcmtk)");
    vxtest::TempDir dir;
    for (const auto &[stored, planar, rle] : {std::tuple{20, 1, false}, std::tuple{32, 0, true}}) {
        const std::string bits = std::to_string(stored);
        std::string path = dir.file("rgb" + bits), out;
        ASSERT_EQ(runScript("make_32bit.py", {path, bits, std::to_string(planar)}, &out), 0) << out;
        if (rle) {
            ASSERT_EQ(vxtest::runCommand("dcmcrle " + path + " " + path + ".rle"), 0);
            path += ".rle";
        }
        SCOPED_TRACE(path);
        VxMessageCapture messages;
        auto field = fieldOf({path});
        ASSERT_TRUE(field) << messages.text();
        ASSERT_EQ(field->lattice()->primType(), KcPrimType::UInt16);
        ASSERT_EQ(field->lattice()->nComponents() * field->lattice()->numVoxels(), 18u);
        for (int p = 0; p < 18; ++p)
            EXPECT_EQ(sample(*field, p), (p / 3 + 1) * 4096 + p % 3) << p;
        EXPECT_TRUE(messages.contains("its colour components have " + std::to_string(stored) +
                                      " stored bits; the colour field holds 16 bits per component, "
                                      "so the lowest " +
                                      std::to_string(stored - 16) + " bits of each are dropped"))
            << messages.text();
    }
}

// Made series in every layout: each voxel lies on its own source pixel and holds its value.
TEST(DicomFieldGeometry, EveryVoxelSitsOnItsSourcePixel)
{
    // clang-format off
    const std::pair<std::string, float> cases[] = {
        {"oblique", 0.1f}, {"axial-rev", 0.1f}, {"sagittal --name-order reverse", 0.1f}, {"coronal", 1.0f},
        {"oblique --gaps 1", 0.1f}, {"sagittal-rev --gaps 1", 0.1f}, {"axial-rot --gaps 1 --name-order reverse", 1.0f},
        {"axial --slices 1", 0.1f}, {"oblique --slices 1", 0.1f}};
    // clang-format on
    using Vec = std::array<double, 3>;
    const std::string layout =
        "--rows 7 --columns 5 --spacing 0.8 --row-spacing 1.1 --thickness 2.0 "
        "--origin 12.5,-30.25,47 --slices 4 --orientation ";
    for (const auto &[orientation, unit] : cases) {
        SCOPED_TRACE(orientation + ", unit " + std::to_string(unit));
        vxtest::TempDir dir;
        const auto names = makeSeries(dir.file("s"), layout + orientation);
        const QJsonArray slices = pydicomReference(names);
        setDicomUnitFactor(unit);
        auto field = fieldOf(names);
        setDicomUnitFactor(0.1f);
        ASSERT_TRUE(field);
        EXPECT_STREQ(field->typeName(), orientation.find("gaps") != std::string::npos
                                            ? "VxStackedScalarField3"
                                            : "VxUniformScalarField3");
        const VxLattice3 *lat = field->lattice();
        ASSERT_EQ(lat->numVoxels(), 7u * 5u * slices.size());
        std::set<std::array<int, 3>> seen;
        int off = 0, wrongValue = 0;
        for (size_t v = 0; v < lat->numVoxels(); ++v) {
            const int i = v % lat->dim(0), j = v / lat->dim(0) % lat->dim(1),
                      k = v / (lat->dim(0) * lat->dim(1));
            float w[3];
            field->voxelToWorld(i, j, k, w);
            double error = 1e30;
            std::array<int, 3> pixel{};
            Vec at{};
            for (int s = 0; s < slices.size(); ++s) {
                const QJsonObject r = slices[s]["record"].toObject();
                const auto x = [&](const char *name, int a) {
                    return r[name + QString::number(a)].toDouble();
                };
                const double dc = r["columnSpacing"].toDouble(), dr = r["rowSpacing"].toDouble();
                double along = 0, down = 0, e = 0;
                for (int a = 0; a < 3; ++a)
                    along += (w[a] / unit - x("position", a)) * x("row", a),
                        down += (w[a] / unit - x("position", a)) * x("column", a);
                const double cn = std::round(along / dc), rn = std::round(down / dr);
                Vec p;
                for (int a = 0; a < 3; ++a)
                    p[a] = x("position", a) + cn * dc * x("row", a) + rn * dr * x("column", a),
                    e += (w[a] / unit - p[a]) * (w[a] / unit - p[a]);
                if (std::sqrt(e) < error && cn >= 0 && cn < 5 && rn >= 0 && rn < 7)
                    error = std::sqrt(e), pixel = {s, int(cn), int(rn)}, at = p;
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

// The real CT, as it is and as JPEG, with broken files and a warned-about one among it, loads
// alike on one thread and on four: frames read on helpers, what they say told in order.
TEST(DecodingThreads, CompressedSeriesLoadAsByOneThread)
{
    VX_REQUIRE_SHARED_DATA();
    VX_REQUIRE(vxtest::haveProgram("dcmcjpeg") && vxtest::havePythonModules({"pydicom", "numpy"}),
               "dcmcjpeg (Debian dcmtk), pydicom and numpy");
    vxtest::TempDir dir;
    const auto load = [&](const char *threads, const std::string &folder) {
        fs::remove_all(dir.file("out"));
        fs::create_directory(dir.file("out"));
        const vxtest::CommandOutcome r = vxtest::runVxdicom(
            "load -nodialog --format nii -o " + vxtest::shellQuote(dir.file("out")) + " " +
                vxtest::shellQuote(dir.file(folder)),
            {}, std::string("VXDICOM_DECODE_THREADS=") + threads);
        std::vector<unsigned char> nifti; // the largest: the CT's volume
        for (const std::string &name : vxtest::namesIn(dir.file("out")))
            if (auto bytes = vxtest::readFileBytes(dir.file("out/" + name));
                bytes.size() > nifti.size())
                nifti = std::move(bytes);
        return std::tuple(r.status, r.out, r.err, nifti);
    };
    std::vector<std::string> broken;
    int n = 0;
    for (const char *folder : {"jpeg", "plain"})
        fs::create_directories(dir.file(folder));
    for (const std::string &source : vxtest::sharedDicomFiles(kCtSeries))
        if (source.find("DIRFILE") == std::string::npos) {
            const std::string name = fs::path(source).filename().string();
            ASSERT_EQ(vxtest::runCommand("dcmcjpeg " + source + " " + dir.file("jpeg/" + name)), 0);
            fs::copy_file(source, dir.file("plain/" + name));
            // Every 13th file gets a namesake cut inside its header.
            if (++n % 13 == 0) {
                std::vector<unsigned char> bytes = vxtest::readFileBytes(source);
                bytes.resize(std::min<size_t>(bytes.size(), 700));
                broken.push_back(name + "_cut");
                for (const char *folder : {"jpeg/", "plain/"})
                    vxtest::writeFileBytes(dir.file(folder + broken.back()), bytes);
            }
        }
    ASSERT_GE(broken.size(), 3u);
    // A copy whose directions are not perpendicular: its header parse warns.
    for (const char *folder : {"jpeg/", "plain/"})
        editCopy(vxtest::sharedPath(kCtSeries) + "/I10",
                 dir.file(folder + std::string("I10_skewed")),
                 "--set ImageOrientationPatient=1\\0\\0\\0.5\\0.866\\0");
    for (const char *folder : {"jpeg", "plain"}) {
        const auto one = load("1", folder), pool = load("4", folder);
        EXPECT_EQ(std::get<0>(one), 1) << folder << ": broken files fail the command";
        EXPECT_NE(std::get<2>(one).find("I10_skewed: Image Orientation"), std::string::npos)
            << folder << ": the skewed copy is not warned about";
        for (const std::string &name : broken)
            EXPECT_NE(std::get<2>(one).find(name), std::string::npos) << name << " is not named";
        EXPECT_TRUE(one == pool) << folder << ", one thread:\n"
                                 << std::get<2>(one) << "four:\n"
                                 << std::get<2>(pool);
        EXPECT_GT(std::get<3>(one).size(), 54u * 512 * 512 * 2) << folder;
    }
}
