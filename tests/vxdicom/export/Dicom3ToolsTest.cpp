// Files of every builder and sample type, read by tools that no one here
// wrote: GDCM (gdcminfo, gdcmdump), DCMTK (dcmdump, dcmftest) and pydicom.

#include "Dicom3TestUtil.h"

#include "platform/data/VxParameter.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <sstream>
#include <string>

using namespace dicom3test;
namespace fs = std::filesystem;

namespace {

const char *const checkScript = VX_EXPORT_TEST_DIR "/dicom3_check.py";

std::string joinQuoted(const QStringList &files)
{
    std::string all;
    for (const QString &f : files)
        all += " " + vxtest::shellQuote(f.toStdString());
    return all;
}

/// Runs pydicom over the files; returns one JSON object per file, or fails.
std::vector<QJsonObject> pydicomCheck(const std::string &dtype, const std::string &raw,
                                      const QStringList &files)
{
    std::string out;
    const int rc = vxtest::runCommand(std::string(VX_PYTHON) + " " +
                                          vxtest::shellQuote(checkScript) + " check " + dtype +
                                          " " + vxtest::shellQuote(raw) + joinQuoted(files),
                                      &out, true);
    EXPECT_EQ(rc, 0) << out;
    std::vector<QJsonObject> objects;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line))
        if (!line.empty() && line[0] == '{')
            objects.push_back(QJsonDocument::fromJson(QByteArray::fromStdString(line)).object());
    EXPECT_EQ(objects.size(), static_cast<size_t>(files.size())) << out;
    return objects;
}

/// Every file must be read without an error by GDCM and DCMTK.
void expectToolsReadEveryFile(const QStringList &files)
{
    for (const QString &file : files) {
        const std::string path = vxtest::shellQuote(file.toStdString());
        SCOPED_TRACE(file.toStdString());
        std::string out;
        EXPECT_EQ(vxtest::runCommand("gdcminfo " + path, &out, true), 0) << out;
        EXPECT_EQ(out.find("rror"), std::string::npos) << out;
        out.clear();
        EXPECT_EQ(vxtest::runCommand("gdcmdump " + path + " >/dev/null", &out, true), 0) << out;
        EXPECT_TRUE(out.empty()) << "gdcmdump complains: " << out;
        out.clear();
        EXPECT_EQ(vxtest::runCommand("dcmdump +E " + path + " >/dev/null", &out, true), 0) << out;
        EXPECT_TRUE(out.empty()) << "dcmdump complains: " << out;
        out.clear();
        EXPECT_EQ(vxtest::runCommand("dcmftest " + path, &out, true), 0) << out;
        EXPECT_EQ(out.rfind("yes: ", 0), 0u) << out;
    }
}

bool haveTools(std::string *missing)
{
    for (const char *tool : {"gdcminfo", "gdcmdump", "dcmdump", "dcmftest"})
        if (!vxtest::haveProgram(tool)) {
            *missing = tool;
            return false;
        }
    if (!vxtest::havePythonModules({"pydicom", "numpy"})) {
        *missing = "pydicom and numpy for /usr/bin/python3";
        return false;
    }
    return true;
}

struct Case
{
    int sopClassIndex;
    const char *builder;
    KcPrimType type;
    const char *dtype;
};

void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.builder << " " << c.dtype;
}

std::string caseName(const testing::TestParamInfo<Case> &info)
{
    return std::string(info.param.builder) + "_" + info.param.dtype;
}

/// 7 x 5 x 3 samples with values that use the whole type: signed values go
/// below zero, unsigned words above 32767, and the odd slice of bytes
/// needs a pad byte.
std::vector<unsigned char> volumeBytes(KcPrimType type)
{
    const int n = 7 * 5 * 3;
    std::vector<unsigned char> bytes(static_cast<size_t>(n * type.size()));
    for (int i = 0; i < n; ++i) {
        switch (type.id()) {
        case KcPrimType::UInt8:
            bytes[static_cast<size_t>(i)] = static_cast<unsigned char>((i * 7) % 256);
            break;
        case KcPrimType::Int16: {
            const short v = static_cast<short>(i * 37 - 1000);
            std::memcpy(&bytes[static_cast<size_t>(2 * i)], &v, 2);
            break;
        }
        default: {
            const unsigned short v = static_cast<unsigned short>(i * 600);
            std::memcpy(&bytes[static_cast<size_t>(2 * i)], &v, 2);
            break;
        }
        }
    }
    return bytes;
}

class Dicom3Tools : public testing::TestWithParam<Case>
{
};

} // namespace

TEST_P(Dicom3Tools, EveryToolReadsEveryFileAndPydicomSeesTheSlices)
{
    std::string missing;
    if (!haveTools(&missing))
        GTEST_SKIP() << missing << " is not installed";
    const Case &c = GetParam();

    // DICOM3_TOOLS_KEEP=dir keeps the files (for dciodvfy and the like).
    vxtest::TempDir temp;
    std::string dir = temp.path().string();
    if (const char *keep = std::getenv("DICOM3_TOOLS_KEEP"))
        dir = std::string(keep) + "/" + c.builder + "_" + c.dtype;

    const std::vector<unsigned char> bytes = volumeBytes(c.type);
    const int dims[3] = {7, 5, 3};
    const float bbox[6] = {-3.f, 3.f, -2.f, 2.f, 10.f, 14.f};
    void *data = std::malloc(bytes.size());
    std::memcpy(data, bytes.data(), bytes.size());
    VxUniformScalarField3 field(dims, c.type, data);
    field.setBoundingBox(bbox);
    Dicom3Object object(&field);
    object.setSOPClassIndex(c.sopClassIndex);
    ASSERT_EQ(object.generate(), 1);
    QStringList files;
    ASSERT_EQ(writeDicom3Slices(object, QString::fromStdString(dir), "IM", &files), 3);

    expectToolsReadEveryFile(files);

    const std::string raw = temp.file("expected.raw");
    vxtest::writeFileBytes(raw, bytes);
    const std::vector<QJsonObject> seen = pydicomCheck(c.dtype, raw, files);
    ASSERT_EQ(seen.size(), 3u);
    std::set<QString> instances;
    for (int k = 0; k < 3; ++k) {
        const QJsonObject &o = seen[static_cast<size_t>(k)];
        SCOPED_TRACE(o["file"].toString().toStdString());
        EXPECT_EQ(o["transferSyntax"].toString(), "1.2.840.10008.1.2.1");
        EXPECT_EQ(o["sopClass"].toString(), Dicom3Object::theSOPClass[c.sopClassIndex]);
        EXPECT_EQ(o["mediaClass"].toString(), Dicom3Object::theSOPClass[c.sopClassIndex]);
        EXPECT_EQ(o["modality"].toString(), Dicom3Object::theModality[c.sopClassIndex]);
        EXPECT_EQ(o["mediaInstance"].toString(), o["sopInstance"].toString());
        EXPECT_EQ(o["series"].toString(), seen[0]["series"].toString());
        EXPECT_EQ(o["study"].toString(), seen[0]["study"].toString());
        EXPECT_EQ(o["instance"].toString(), QString::number(k));
        EXPECT_EQ(o["shape"].toArray().size(), 2) << "5 rows of 7 columns";
        EXPECT_EQ(o["shape"].toArray()[0].toInt(), 5);
        EXPECT_EQ(o["shape"].toArray()[1].toInt(), 7);
        instances.insert(o["sopInstance"].toString());
    }
    EXPECT_EQ(instances.size(), 3u) << "each slice has its own SOP instance UID";
}

INSTANTIATE_TEST_SUITE_P(AllBuildersAndSampleTypes, Dicom3Tools, testing::ValuesIn([] {
                             std::vector<Case> cases;
                             const std::pair<int, const char *> builders[] = {
                                 {0, "CR"}, {1, "CT"}, {2, "MR"},           {3, "NM"},
                                 {4, "SC"}, {9, "US"}, {10, "USMultiFrame"}};
                             const std::pair<KcPrimType::Id, const char *> types[] = {
                                 {KcPrimType::UInt8, "uint8"},
                                 {KcPrimType::Int16, "int16"},
                                 {KcPrimType::UInt16, "uint16"}};
                             for (const auto &[index, name] : builders)
                                 for (const auto &[type, dtype] : types)
                                     cases.push_back({index, name, KcPrimType(type), dtype});
                             return cases;
                         }()),
                         caseName);

TEST(Dicom3ToolsRealData, RealCTSlicesSurviveExportUnchanged)
{
    VX_REQUIRE_SHARED_DATA();
    std::string missing;
    if (!haveTools(&missing))
        GTEST_SKIP() << missing << " is not installed";
    const std::string series = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010");
    QStringList sources;
    for (const char *name : {"I10", "I20", "I30"})
        sources << QString::fromStdString(series + "/" + name);

    // pydicom reads the scanner's stored values; they become a field.
    vxtest::TempDir temp;
    const std::string raw = temp.file("ct.raw");
    std::string out;
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + vxtest::shellQuote(checkScript) +
                                     " extract " + vxtest::shellQuote(raw) + joinQuoted(sources),
                                 &out, true),
              0)
        << out;
    const QJsonObject info = QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
    ASSERT_EQ(info["dtype"].toString(), "uint16") << out;
    const int dims[3] = {info["columns"].toInt(), info["rows"].toInt(), 3};
    ASSERT_EQ(dims[0], 512);
    const std::vector<unsigned char> bytes = vxtest::readFileBytes(raw);
    ASSERT_EQ(bytes.size(), 512u * 512u * 3u * 2u);
    void *data = std::malloc(bytes.size());
    std::memcpy(data, bytes.data(), bytes.size());
    VxUniformScalarField3 field(dims, KcPrimType::UInt16, data);
    const float bbox[6] = {0.f, 511.f * 0.48828f, 0.f, 511.f * 0.48828f, 742.345f, 747.345f};
    field.setBoundingBox(bbox);

    Dicom3Object object(&field);
    object.setSOPClassIndex(1);
    ASSERT_EQ(object.generate(), 1);
    QStringList files;
    ASSERT_EQ(writeDicom3Slices(object, QString::fromStdString(temp.file("out")), "CT", &files), 3);
    expectToolsReadEveryFile(files);
    const std::vector<QJsonObject> seen = pydicomCheck("uint16", raw, files);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0]["dtype"].toString(), "uint16");
    EXPECT_EQ(seen[2]["modality"].toString(), "CT");
}

TEST(Dicom3ToolsColour, RGBImageWithUserPlanarConfigurationIsReadAsInterleavedColour)
{
    std::string missing;
    if (!haveTools(&missing))
        GTEST_SKIP() << missing << " is not installed";
    // 5 x 3 pixels of 3 bytes: an odd slice length (45) that needs the pad.
    std::vector<unsigned char> rgb(45);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<unsigned char>(i * 5 + 1);
    const int dims[3] = {5, 3, 3};
    Dicom3Object object(dims, rgb.data());
    ASSERT_EQ(object.generate(), 1);
    // The image pixel module writes no Planar Configuration, which DICOM
    // requires for colour; pydicom refuses such a file. The attribute comes
    // from the user's table, as here.
    EXPECT_EQ(object.findElement(0x0028, 0x0006), nullptr);
    VxParameter planar("G0028-0006", "planar configuration [US]: 0");
    ASSERT_EQ(object.insertParamAsElement(&planar), 1);
    vxtest::TempDir temp;
    QStringList files;
    ASSERT_EQ(writeDicom3Slices(object, QString::fromStdString(temp.file("rgb")), "SC", &files), 1);
    expectToolsReadEveryFile(files);
    const std::string raw = temp.file("rgb.raw");
    vxtest::writeFileBytes(raw, rgb);
    const std::vector<QJsonObject> seen = pydicomCheck("uint8", raw, files);
    ASSERT_EQ(seen.size(), 1u);
    const QJsonArray shape = seen[0]["shape"].toArray();
    ASSERT_EQ(shape.size(), 3);
    EXPECT_EQ(shape[0].toInt(), 3);
    EXPECT_EQ(shape[1].toInt(), 5);
    EXPECT_EQ(shape[2].toInt(), 3);
    EXPECT_EQ(seen[0]["sopClass"].toString(), "1.2.840.10008.5.1.4.1.1.7");
    EXPECT_EQ(seen[0]["modality"].toString(), "SC");
}

TEST(Dicom3ToolsGeometry, Dcm2niixRebuildsTheVolumeWithItsVoxelSizeAndPosition)
{
    std::string missing;
    if (!haveTools(&missing))
        GTEST_SKIP() << missing << " is not installed";
    if (!vxtest::haveProgram("dcm2niix") || !vxtest::havePythonModules({"nibabel"}))
        GTEST_SKIP() << "dcm2niix and nibabel are needed";

    // 7 x 5 x 4 signed words, voxel 0.5 x 0.5 x 2 mm, first voxel at (-3, -1, 10).
    // Square pixels: Pixel Spacing is written as x then y, where DICOM reads
    // row spacing (y) first, so other readers swap unequal in-plane sizes.
    const int dims[3] = {7, 5, 4};
    std::vector<short> values(7 * 5 * 4);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<short>(static_cast<int>(i) * 13 - 500);
    const float bbox[6] = {-3.f, 0.f, -1.f, 1.f, 10.f, 16.f};
    auto field = uniformField(dims, KcPrimType::Int16, values, bbox);
    Dicom3Object object(field.get());
    object.setSOPClassIndex(1);
    ASSERT_EQ(object.generate(), 1);
    vxtest::TempDir temp;
    ASSERT_EQ(writeDicom3Slices(object, QString::fromStdString(temp.file("dcm"))), 4);

    fs::create_directory(temp.path() / "nii");
    std::string out;
    ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -f volume -o " +
                                     vxtest::shellQuote(temp.file("nii")) + " " +
                                     vxtest::shellQuote(temp.file("dcm")),
                                 &out, true),
              0)
        << out;
    const std::string raw = temp.file("volume.raw");
    vxtest::writeFileBytes(raw, Bytes(reinterpret_cast<const unsigned char *>(values.data()),
                                      reinterpret_cast<const unsigned char *>(values.data()) +
                                          values.size() * sizeof(short)));
    out.clear();
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + vxtest::shellQuote(checkScript) +
                                     " nifti " + vxtest::shellQuote(temp.file("nii/volume.nii")) +
                                     " int16 " + vxtest::shellQuote(raw) + " 7 5 4",
                                 &out, true),
              0)
        << out;
    const QJsonObject nii = QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
    EXPECT_EQ(nii["shape"].toArray(), QJsonArray({7, 5, 4})) << out;
    EXPECT_EQ(nii["zooms"].toArray(), QJsonArray({0.5, 0.5, 2.0})) << out;
    EXPECT_TRUE(nii["samplesEqual"].toBool()) << "one volume, no slice lost or reordered";
    // DICOM's patient frame (LPS) becomes RAS: x and y change sign, and the
    // rows are stored bottom-up, so y starts at the last row: -(-1 + 4 * 0.5).
    const QJsonArray expectedAffine = {QJsonArray({-0.5, 0.0, 0.0, 3.0}),
                                       QJsonArray({0.0, 0.5, 0.0, -1.0}),
                                       QJsonArray({0.0, 0.0, 2.0, 10.0})};
    const QJsonArray affine = nii["affine"].toArray();
    ASSERT_EQ(affine.size(), 3) << out;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(affine[r].toArray()[c].toDouble(),
                        expectedAffine[r].toArray()[c].toDouble(), 1e-5)
                << "affine[" << r << "][" << c << "] in " << out;
}
