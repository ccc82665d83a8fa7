// Files of every builder and sample type, of a real CT series and of a colour
// image, read in one pass by tools that no one here wrote: GDCM (gdcminfo,
// gdcmdump), DCMTK (dcmdump, dcmftest), pydicom, and dcm2niix with nibabel.

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

const std::string checkScript = std::string(VX_PYTHON) + " " VX_EXPORT_TEST_DIR "/dicom3_check.py";

std::string quoted(const QStringList &files)
{
    std::string all;
    for (const QString &f : files)
        all += " " + vxtest::shellQuote(f.toStdString());
    return all;
}

/// What was written for one case, and what pydicom must see.
struct Written
{
    std::string name, dtype, raw;
    int sopClassIndex;
    QJsonArray shape;
    QStringList files;
};

/// 7 x 5 x 3 samples that use the whole type: signed values go below zero,
/// unsigned words above 32767, and the odd slice of bytes needs a pad byte.
Bytes volumeBytes(KcPrimType type)
{
    Bytes bytes(static_cast<size_t>(105 * type.size()));
    for (int i = 0; i < 105; ++i) {
        if (type.id() == KcPrimType::UInt8) {
            bytes[static_cast<size_t>(i)] = static_cast<unsigned char>((i * 7) % 256);
        } else {
            const int v = type.id() == KcPrimType::Int16 ? i * 37 - 1000 : i * 600;
            const auto word = static_cast<unsigned short>(v);
            std::memcpy(&bytes[static_cast<size_t>(2 * i)], &word, 2);
        }
    }
    return bytes;
}

std::unique_ptr<VxUniformScalarField3> field(const int dims[3], KcPrimType type,
                                             const Bytes &samples, const float bbox[6])
{
    void *data = std::malloc(samples.size());
    std::memcpy(data, samples.data(), samples.size());
    auto f = std::make_unique<VxUniformScalarField3>(dims, type, data);
    f->setBoundingBox(bbox);
    return f;
}

/// Writes the object's slices into dir/name with the samples in dir/name.raw.
void write(Dicom3Object &object, const vxtest::TempDir &dir, Written w, const Bytes &samples,
           std::vector<Written> &cases)
{
    w.raw = dir.file(w.name + ".raw");
    vxtest::writeFileBytes(w.raw, samples);
    ASSERT_EQ(object.generate(), 1) << w.name;
    EXPECT_GT(writeDicom3Slices(object, QString::fromStdString(dir.file(w.name)), "IM", &w.files),
              0);
    cases.push_back(w);
}

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

    const std::pair<int, const char *> builders[] = {
        {0, "CR"}, {1, "CT"}, {2, "MR"}, {3, "NM"}, {4, "SC"}, {9, "US"}, {10, "USMultiFrame"}};
    const std::pair<KcPrimType::Id, const char *> types[] = {
        {KcPrimType::UInt8, "uint8"}, {KcPrimType::Int16, "int16"}, {KcPrimType::UInt16, "uint16"}};
    for (const auto &[index, builder] : builders)
        for (const auto &[type, dtype] : types) {
            const Bytes bytes = volumeBytes(KcPrimType(type));
            const int dims[3] = {7, 5, 3};
            const float bbox[6] = {-3.f, 3.f, -2.f, 3.f, 10.f, 14.f}; // voxel 1 x 1.25 x 2
            auto f = field(dims, KcPrimType(type), bytes, bbox);
            Dicom3Object object(f.get());
            object.setSOPClassIndex(index);
            write(object, temp, {std::string(builder) + "_" + dtype, dtype, "", index, {5, 7}, {}},
                  bytes, cases);
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
    write(colour, temp, {"rgb", "uint8", "", 4, {3, 5, 3}, {}}, rgb, cases);

    // Three slices of a real CT series: pydicom reads the scanner's stored
    // values, which become the field written.
    if (!vxtest::sharedDataDir().empty()) {
        const std::string series = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/");
        const std::string raw = temp.file("source.raw");
        std::string out;
        ASSERT_EQ(vxtest::runCommand(checkScript + " extract " + raw +
                                         quoted({QString::fromStdString(series + "I10"),
                                                 QString::fromStdString(series + "I20"),
                                                 QString::fromStdString(series + "I30")}),
                                     &out, true),
                  0)
            << out;
        const QJsonObject info = QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
        ASSERT_EQ(info["dtype"].toString(), "uint16") << out;
        const int dims[3] = {info["columns"].toInt(), info["rows"].toInt(), 3};
        ASSERT_EQ(dims[0], 512);
        const Bytes bytes = vxtest::readFileBytes(raw);
        const float bbox[6] = {0.f, 511.f * 0.48828f, 0.f, 511.f * 0.48828f, 742.345f, 747.345f};
        auto f = field(dims, KcPrimType::UInt16, bytes, bbox);
        Dicom3Object object(f.get());
        object.setSOPClassIndex(1);
        write(object, temp, {"realCT", "uint16", "", 1, {512, 512}, {}}, bytes, cases);
    } else {
        std::cout << "../shared/data is missing: the real CT series is left out\n";
    }

    // GDCM and DCMTK read every file without a complaint.
    for (const Written &w : cases)
        for (const QString &file : w.files) {
            const std::string path = vxtest::shellQuote(file.toStdString());
            SCOPED_TRACE(file.toStdString());
            std::string out;
            EXPECT_EQ(vxtest::runCommand("gdcminfo " + path, &out, true), 0) << out;
            EXPECT_EQ(out.find("rror"), std::string::npos) << out;
            for (const char *quiet : {"gdcmdump ", "dcmdump +E "}) {
                out.clear();
                EXPECT_EQ(vxtest::runCommand(quiet + path + " >/dev/null", &out, true), 0) << out;
                EXPECT_TRUE(out.empty()) << quiet << "complains: " << out;
            }
            out.clear();
            EXPECT_EQ(vxtest::runCommand("dcmftest " + path, &out, true), 0) << out;
            EXPECT_EQ(out.rfind("yes: ", 0), 0u) << out;
        }

    // dcm2niix makes one volume of the CT signed words.
    QJsonArray manifest;
    const bool niix = vxtest::haveProgram("dcm2niix") && vxtest::havePythonModules({"nibabel"});
    if (niix) {
        fs::create_directory(temp.path() / "nii");
        std::string out;
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
                                    {"raw", QString::fromStdString(w.raw)},
                                    {"files", QJsonArray::fromStringList(w.files)}});
    std::ofstream(temp.file("manifest.json")) << QJsonDocument(manifest).toJson().toStdString();
    std::string out;
    ASSERT_EQ(vxtest::runCommand(checkScript + " check " + temp.file("manifest.json"), &out, true),
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
            const QJsonObject &o = seen[next++];
            const QJsonObject &first = seen[next - 1 - static_cast<size_t>(k)];
            SCOPED_TRACE(o["file"].toString().toStdString());
            EXPECT_EQ(o["file"].toString(), w.files[k]);
            EXPECT_EQ(o["transferSyntax"].toString(), "1.2.840.10008.1.2.1");
            EXPECT_EQ(o["sopClass"].toString(), Dicom3Object::theSOPClass[w.sopClassIndex]);
            EXPECT_EQ(o["mediaClass"].toString(), Dicom3Object::theSOPClass[w.sopClassIndex]);
            EXPECT_EQ(o["modality"].toString(), Dicom3Object::theModality[w.sopClassIndex]);
            EXPECT_EQ(o["mediaInstance"].toString(), o["sopInstance"].toString());
            EXPECT_EQ(o["series"].toString(), first["series"].toString());
            EXPECT_EQ(o["study"].toString(), first["study"].toString());
            EXPECT_EQ(o["instance"].toString(), QString::number(k));
            EXPECT_EQ(o["shape"].toArray(), w.shape) << "rows, columns (and samples)";
            EXPECT_EQ(o["dtype"].toString(), QString::fromStdString(w.dtype));
            instances.insert(o["sopInstance"].toString());
        }
        EXPECT_EQ(instances.size(), static_cast<size_t>(w.files.size())) << "own SOP instance UIDs";
    }
    EXPECT_EQ(next, seen.size()) << out;
}
