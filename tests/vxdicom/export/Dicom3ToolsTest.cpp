// The writer's files read by GDCM, DCMTK, pydicom, and dcm2niix with nibabel.

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
#include <numeric>

namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

// Files of every builder and sample type and of a colour image; dcm2niix rebuilds the CT volume.
TEST(Dicom3Tools, EveryWrittenFileIsReadByGdcmDcmtkPydicomAndDcm2niix)
{
    for (const char *tool : {"gdcminfo", "gdcmdump", "dcmdump", "dcmftest"})
        VX_REQUIRE(vxtest::haveProgram(tool), tool);
    VX_REQUIRE(vxtest::havePythonModules({"pydicom", "numpy"}), "pydicom and numpy");
    vxtest::TempDir temp;
    QJsonArray manifest; // what dicom3_check.py must see in each case
    QStringList files;
    auto write = [&](Dicom3Object &object, const std::string &name, const char *dtype, int sop,
                     const QJsonArray &shape, const Bytes &samples) {
        vxtest::writeFileBytes(temp.file(name + ".raw"), samples);
        ASSERT_EQ(object.generate(), 1) << name;
        QStringList written;
        EXPECT_GT(
            writeDicom3Slices(object, QString::fromStdString(temp.file(name)), "IM", &written), 0);
        EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress()) << "progress ends with the write";
        files += written;
        manifest.append(QJsonObject{{"dtype", dtype},
                                    {"raw", QString::fromStdString(temp.file(name + ".raw"))},
                                    {"files", QJsonArray::fromStringList(written)},
                                    {"shape", shape},
                                    {"sopClass", Dicom3Object::theSOPClass[sop]},
                                    {"modality", Dicom3Object::theModality[sop]}});
    };

    // 7 x 5 x 3 samples over the whole type; the odd slice of bytes needs a pad byte.
    const std::pair<int, const char *> builders[] = {
        {0, "CR"}, {1, "CT"}, {2, "MR"}, {3, "NM"}, {4, "SC"}, {9, "US"}, {10, "USMultiFrame"}};
    for (const auto &[index, builder] : builders)
        for (const auto &[dtype, type, sample] :
             {std::tuple{"uint8", KcPrimType::UInt8, +[](int i) { return i * 7 % 256; }},
              std::tuple{"int16", KcPrimType::Int16, +[](int i) { return i * 37 - 1000; }},
              std::tuple{"uint16", KcPrimType::UInt16, +[](int i) { return i * 600; }}}) {
            const size_t size = static_cast<size_t>(KcPrimType(type).size());
            auto *data = static_cast<unsigned char *>(std::malloc(105 * size));
            for (int i = 0, v; i < 105; ++i)
                v = sample(i), std::memcpy(data + i * size, &v, size); // little endian
            const int dims[3] = {7, 5, 3};
            const float bbox[6] = {-3.f, 3.f, -2.f, 3.f, 10.f, 14.f}; // voxel 1 x 1.25 x 2
            VxUniformScalarField3 field(dims, type, data);
            field.setBoundingBox(bbox);
            Dicom3Object object(&field);
            object.setSOPClassIndex(index);
            write(object, std::string(builder) + "_" + dtype, dtype, index, {5, 7},
                  Bytes(data, data + 105 * size));
        }

    // Colour, odd slice length: pydicom needs Planar Configuration, given as a user's table does.
    Bytes rgb(45);
    std::iota(rgb.begin(), rgb.end(), 1);
    const int rgbDims[3] = {5, 3, 3};
    Dicom3Object colour(rgbDims, rgb.data());
    VxParameter planar("G0028-0006", "planar configuration [US]: 0");
    ASSERT_EQ(colour.insertParamAsElement(&planar), 1);
    write(colour, "rgb", "uint8", 4, {3, 5, 3}, rgb);

    // GDCM and DCMTK read every file without a complaint.
    for (const QString &file : files) {
        const std::string p = vxtest::shellQuote(file.toStdString());
        std::string out;
        vxtest::runCommand("(gdcminfo " + p + " | grep -i rror; gdcmdump " + p + " >/dev/null; " +
                               "dcmdump +E " + p + " >/dev/null; dcmftest " + p + ") 2>&1",
                           &out);
        EXPECT_EQ(out, "yes: " + file.toStdString() + "\n") << "what GDCM and DCMTK say";
    }

    // dcm2niix's volume of the CT words: LPS becomes RAS, rows bottom-up so y starts at the last.
    std::string out;
    if (vxtest::haveProgram("dcm2niix") && vxtest::havePythonModules({"nibabel"})) {
        fs::create_directory(temp.path() / "nii");
        const std::string command =
            "dcm2niix -z n -f volume -o " + temp.file("nii") + " " + temp.file("CT_int16");
        ASSERT_EQ(vxtest::runCommand(command, &out, true), 0) << out;
        // clang-format off
        manifest.append(QJsonObject{
            {"nifti", QString::fromStdString(temp.file("nii/volume.nii"))}, {"dtype", "int16"},
            {"raw", QString::fromStdString(temp.file("CT_int16.raw"))},
            {"shape", QJsonArray{7, 5, 3}}, {"zooms", QJsonArray{1.0, 1.25, 2.0}},
            {"affine", QJsonArray{QJsonArray{-1, 0, 0, 3}, QJsonArray{0, 1.25, 0, -3},
                                  QJsonArray{0, 0, 2, 10}}}});
        // clang-format on
    } else
        std::cout << "dcm2niix or nibabel is missing: the volume is not rebuilt\n";
    std::ofstream(temp.file("manifest.json")) << QJsonDocument(manifest).toJson().toStdString();
    out.clear();
    EXPECT_EQ(vxtest::runPython(VX_TEST_DIR "/dicom3_check.py", {temp.file("manifest.json")}, &out),
              0)
        << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), manifest.size())
        << "one line a case: " << out;
}
