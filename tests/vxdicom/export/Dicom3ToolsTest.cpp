// Files of every builder and sample type and of a colour image, written as
// the program writes them and read in one pass by tools that no one here
// wrote: GDCM (gdcminfo, gdcmdump), DCMTK (dcmdump, dcmftest), pydicom, and
// dcm2niix with nibabel. Real series go through the writer in tests/vxdicom/roundtrip.

#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParameter.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/Dicom3Writer.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;

/// What was written for one case, and what pydicom must see.
struct Written
{
    std::string name, dtype;
    int sopClassIndex;
    QJsonArray shape;
    QStringList files;
};

} // namespace

TEST(Dicom3Tools, EveryWrittenFileIsReadByGdcmDcmtkPydicomAndDcm2niix)
{
    for (const char *tool : {"gdcminfo", "gdcmdump", "dcmdump", "dcmftest"})
        if (!vxtest::haveProgram(tool))
            GTEST_SKIP() << tool << " is not installed";
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy for " << VX_PYTHON << " are needed";
    vxtest::TempDir temp;
    std::vector<Written> cases;
    std::string status;
    float fraction = 0.f;
    struct Reset
    {
        ~Reset() { VxWorkArea::instance()->setObserver({}); }
    } reset;
    VxWorkArea::instance()->setObserver([&](const std::string &s, float f) {
        status = s;
        fraction = f;
    });
    // Writes the slices into temp/name, the samples into temp/name.raw.
    auto write = [&](Dicom3Object &object, Written w, const Bytes &samples) {
        vxtest::writeFileBytes(temp.file(w.name + ".raw"), samples);
        ASSERT_EQ(object.generate(), 1) << w.name;
        EXPECT_GT(
            writeDicom3Slices(object, QString::fromStdString(temp.file(w.name)), "IM", &w.files),
            0);
        EXPECT_EQ(status + " " + std::to_string(fraction), "Writing DICOM files 1.000000");
        EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress()) << "progress ends with the write";
        cases.push_back(w);
    };

    // 7 x 5 x 3 samples that use the whole type: signed values go below zero,
    // unsigned words above 32767, and the odd slice of bytes needs a pad byte.
    const std::pair<int, const char *> builders[] = {
        {0, "CR"}, {1, "CT"}, {2, "MR"}, {3, "NM"}, {4, "SC"}, {9, "US"}, {10, "USMultiFrame"}};
    for (const auto &[index, builder] : builders)
        for (const char *dtype : {"uint8", "int16", "uint16"}) {
            const KcPrimType type(dtype[0] == 'i'   ? KcPrimType::Int16
                                  : dtype[4] == '8' ? KcPrimType::UInt8
                                                    : KcPrimType::UInt16);
            Bytes bytes(105 * static_cast<size_t>(type.size()));
            for (int i = 0; i < 105; ++i) {
                const int v = type.size() == 1  ? i * 7 % 256
                              : dtype[0] == 'i' ? i * 37 - 1000
                                                : i * 600;
                std::memcpy(&bytes[static_cast<size_t>(i * type.size())], &v,
                            type.size()); // little endian
            }
            const int dims[3] = {7, 5, 3};
            const float bbox[6] = {-3.f, 3.f, -2.f, 3.f, 10.f, 14.f}; // voxel 1 x 1.25 x 2
            void *data = std::malloc(bytes.size());
            std::memcpy(data, bytes.data(), bytes.size());
            VxUniformScalarField3 field(dims, type, data);
            field.setBoundingBox(bbox);
            Dicom3Object object(&field);
            object.setSOPClassIndex(index);
            write(object, {std::string(builder) + "_" + dtype, dtype, index, {5, 7}, {}}, bytes);
        }

    // Colour: the image pixel module writes no Planar Configuration, which
    // pydicom needs; it comes from the user's table, as here. An odd slice
    // length (45) needs the pad.
    Bytes rgb(45);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<unsigned char>(i * 5 + 1);
    const int rgbDims[3] = {5, 3, 3};
    Dicom3Object colour(rgbDims, rgb.data());
    VxParameter planar("G0028-0006", "planar configuration [US]: 0");
    ASSERT_EQ(colour.insertParamAsElement(&planar), 1);
    write(colour, {"rgb", "uint8", 4, {3, 5, 3}, {}}, rgb);

    // GDCM and DCMTK read every file without a complaint.
    for (const Written &w : cases)
        for (const QString &file : w.files) {
            const std::string path = vxtest::shellQuote(file.toStdString());
            std::string out;
            EXPECT_EQ(vxtest::runCommand("gdcminfo " + path, &out, true), 0) << out;
            EXPECT_EQ(out.find("rror"), std::string::npos) << out;
            for (const char *quiet : {"gdcmdump ", "dcmdump +E "}) {
                out.clear();
                EXPECT_EQ(vxtest::runCommand(quiet + path + " >/dev/null", &out, true), 0) << out;
                EXPECT_TRUE(out.empty()) << quiet << path << " complains: " << out;
            }
            EXPECT_EQ(vxtest::runCommand("dcmftest " + path, &out, true), 0) << out;
            EXPECT_EQ(out.rfind("yes: ", 0), 0u) << out;
        }

    // dcm2niix makes one volume of the CT signed words; pydicom reads the rest.
    QJsonArray manifest;
    const bool niix = vxtest::haveProgram("dcm2niix") && vxtest::havePythonModules({"nibabel"});
    std::string out;
    if (niix) {
        fs::create_directory(temp.path() / "nii");
        ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -f volume -o " + temp.file("nii") + " " +
                                         temp.file("CT_int16"),
                                     &out, true),
                  0)
            << out;
        manifest.append(QJsonObject{{"nifti", QString::fromStdString(temp.file("nii/volume.nii"))},
                                    {"dtype", "int16"},
                                    {"raw", QString::fromStdString(temp.file("CT_int16.raw"))},
                                    {"dims", QJsonArray{7, 5, 3}}});
    } else {
        std::cout << "dcm2niix or nibabel is missing: the volume is not rebuilt\n";
    }
    for (const Written &w : cases)
        manifest.append(QJsonObject{{"dtype", QString::fromStdString(w.dtype)},
                                    {"raw", QString::fromStdString(temp.file(w.name + ".raw"))},
                                    {"files", QJsonArray::fromStringList(w.files)}});
    std::ofstream(temp.file("manifest.json")) << QJsonDocument(manifest).toJson().toStdString();
    out.clear();
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) +
                                     " " VX_EXPORT_TEST_DIR "/dicom3_check.py " +
                                     temp.file("manifest.json"),
                                 &out), // its complaints go to the test's log

              0)
        << out;
    std::istringstream lines(out);
    std::vector<QJsonObject> seen;
    for (std::string line; std::getline(lines, line);)
        seen.push_back(QJsonDocument::fromJson(QByteArray::fromStdString(line)).object());
    size_t next = 0;
    if (niix) {
        ASSERT_FALSE(seen.empty());
        const QJsonObject nii = seen[next++];
        EXPECT_EQ(nii["shape"].toArray(), QJsonArray({7, 5, 3})) << out;
        EXPECT_EQ(nii["zooms"].toArray(), QJsonArray({1.0, 1.25, 2.0})) << out;
        EXPECT_TRUE(nii["samplesEqual"].toBool()) << "one volume, no slice lost or reordered";
        // DICOM's patient frame (LPS) becomes RAS: x and y change sign, and the
        // rows are stored bottom-up, so y starts at the last row: -(-2 + 4 * 1.25).
        const double expected[3][4] = {{-1, 0, 0, 3}, {0, 1.25, 0, -3}, {0, 0, 2, 10}};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 4; ++c)
                EXPECT_NEAR(nii["affine"][r][c].toDouble(), expected[r][c], 1e-5)
                    << "affine[" << r << "][" << c << "] in " << out;
    }
    for (const Written &w : cases) {
        std::set<QString> instances;
        for (int k = 0; k < w.files.size(); ++k) {
            ASSERT_LT(next, seen.size()) << out;
            QJsonObject o = seen[next++];
            const QJsonObject &first = seen[next - 1 - static_cast<size_t>(k)];
            EXPECT_TRUE(w.files[k].endsWith(QString::asprintf("IM%05d.dcm", k + 1)))
                << "sorted names";
            EXPECT_EQ(o["mediaInstance"].toString(), o["sopInstance"].toString());
            EXPECT_EQ(o["series"].toString() + o["study"].toString(),
                      first["series"].toString() + first["study"].toString());
            instances.insert(o["sopInstance"].toString());
            for (const char *varying : {"file", "mediaInstance", "sopInstance", "series", "study"})
                o.remove(varying);
            const QString sop = Dicom3Object::theSOPClass[w.sopClassIndex];
            EXPECT_EQ(o, (QJsonObject{{"transferSyntax", "1.2.840.10008.1.2.1"},
                                      {"sopClass", sop},
                                      {"mediaClass", sop},
                                      {"modality", Dicom3Object::theModality[w.sopClassIndex]},
                                      {"instance", QString::number(k)}, // instances count from 0
                                      {"shape", w.shape},
                                      {"dtype", QString::fromStdString(w.dtype)}}))
                << w.files[k].toStdString();
        }
        EXPECT_EQ(instances.size(), static_cast<size_t>(w.files.size())) << "own SOP instance UIDs";
    }
    EXPECT_EQ(next, seen.size()) << out;
}
