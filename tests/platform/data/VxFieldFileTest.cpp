#include "platform/data/VxFieldFile.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"

#include "tests/support/TestSupport.h"

#include <Inventor/SbVec3f.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/fsuid.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

#define REQUIRE_NIBABEL()                                                                          \
    do {                                                                                           \
        if (!vxtest::havePythonModules({"nibabel", "numpy"}))                                      \
            GTEST_SKIP() << "nibabel and numpy for " VX_PYTHON " are needed for this test";        \
    } while (0)

struct Outside
{
    QJsonObject json;
    std::vector<std::array<double, 4>> samples; // x, y, z (LPS, mm), value
};

// nifti_probe.py's answer (nibabel or pydicom) for the given arguments.
Outside python(const std::string &args)
{
    std::string out;
    EXPECT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + VX_DATA_TEST_DIR +
                                     "/nifti_probe.py " + args,
                                 &out),
              0)
        << out;
    Outside o{QJsonDocument::fromJson(QByteArray::fromStdString(out)).object(), {}};
    for (const QJsonValue &v : o.json["samples"].toArray()) {
        const QJsonArray a = v.toArray();
        o.samples.push_back({a[0].toDouble(), a[1].toDouble(), a[2].toDouble(), a[3].toDouble()});
    }
    return o;
}

Outside probe(const std::string &path, const std::string &points = "")
{
    return python("probe " + vxtest::shellQuote(path) + " 60 " + points);
}

// A field whose sample at (i, j, k) is i + 10 j + 100 k.
template <typename T, typename Field> std::unique_ptr<Field> indexField(int n0, int n1, int n2)
{
    const int dims[3] = {n0, n1, n2};
    T *data = static_cast<T *>(std::malloc(sizeof(T) * n0 * n1 * n2));
    size_t n = 0;
    for (int k = 0; k < n2; ++k)
        for (int j = 0; j < n1; ++j)
            for (int i = 0; i < n0; ++i)
                data[n++] = static_cast<T>(i + 10 * j + 100 * k);
    KcPrimType type = KcPrimType::Int16;
    if (std::is_same_v<T, uint8_t>)
        type = KcPrimType::UInt8;
    else if (std::is_same_v<T, uint16_t>)
        type = KcPrimType::UInt16;
    else if (std::is_same_v<T, int32_t>)
        type = KcPrimType::Int32;
    else if (std::is_same_v<T, float>)
        type = KcPrimType::Float;
    return std::make_unique<Field>(dims, type, data);
}

template <typename T> T sampleAt(const VxField3 &f, int i, int j, int k, int component = 0)
{
    const VxLattice3 *lat = f.lattice();
    const size_t index =
        (static_cast<size_t>(k) * lat->dim(1) + j) * lat->dim(0) + static_cast<size_t>(i);
    return static_cast<const T *>(lat->data())[index * lat->nComponents() + component];
}

// The sample as a number; RGB as r * 65536 + g * 256 + b, as nifti_probe.py gives it.
double valueAt(const VxField3 &f, int i, int j, int k)
{
    if (f.lattice()->nComponents() == 3)
        return sampleAt<uint8_t>(f, i, j, k, 0) * 65536.0 +
               sampleAt<uint8_t>(f, i, j, k, 1) * 256.0 + sampleAt<uint8_t>(f, i, j, k, 2);
    switch (f.lattice()->primType().id()) {
    case KcPrimType::UInt8:
        return sampleAt<uint8_t>(f, i, j, k);
    case KcPrimType::Int16:
        return sampleAt<int16_t>(f, i, j, k);
    case KcPrimType::UInt16:
        return sampleAt<uint16_t>(f, i, j, k);
    case KcPrimType::Int32:
        return sampleAt<int32_t>(f, i, j, k);
    case KcPrimType::Float:
        return sampleAt<float>(f, i, j, k);
    }
    return NAN;
}

void expectWorld(const VxField3 &f, int i, int j, int k, double x, double y, double z,
                 double tol = 1e-3)
{
    float w[3];
    f.voxelToWorld(i, j, k, w);
    EXPECT_NEAR(w[0], x, tol) << "voxel " << i << "," << j << "," << k;
    EXPECT_NEAR(w[1], y, tol) << "voxel " << i << "," << j << "," << k;
    EXPECT_NEAR(w[2], z, tol) << "voxel " << i << "," << j << "," << k;
}

// The one voxel holding `value` lies at world (x, y, z).
void expectValueAt(const VxField3 &f, double value, double x, double y, double z)
{
    int found = 0;
    const VxLattice3 *lat = f.lattice();
    for (int k = 0; k < lat->dim(2); ++k)
        for (int j = 0; j < lat->dim(1); ++j)
            for (int i = 0; i < lat->dim(0); ++i)
                if (valueAt(f, i, j, k) == value) {
                    expectWorld(f, i, j, k, x, y, z, 1e-4);
                    ++found;
                }
    EXPECT_EQ(found, 1) << "value " << value;
}

// Every voxel of `original` (all values different) is in `copy` at the same place.
void expectSamePlaces(const VxField3 &original, const VxField3 &copy)
{
    const VxLattice3 *lat = original.lattice();
    for (int k = 0; k < lat->dim(2); ++k)
        for (int j = 0; j < lat->dim(1); ++j)
            for (int i = 0; i < lat->dim(0); ++i) {
                float w[3];
                original.voxelToWorld(i, j, k, w);
                expectValueAt(copy, valueAt(original, i, j, k), w[0], w[1], w[2]);
            }
}

// Every sample (LPS mm) must land within 0.01 mm on a voxel of the field that
// holds its value. Samples above maxValue are skipped.
void expectSamplesInField(const VxField3 &f, const std::vector<std::array<double, 4>> &samples,
                          double maxValue = 1e30)
{
    const double toField = 0.001 / f.unitLength();
    float box[6];
    f.getBoundingBox(box);
    int checked = 0;
    for (const auto &s : samples) {
        if (s[3] > maxValue)
            continue;
        SbVec3f local(static_cast<float>(s[0] * toField), static_cast<float>(s[1] * toField),
                      static_cast<float>(s[2] * toField));
        if (f.hasTransform())
            f.transform().inverse().multVecMatrix(SbVec3f(local), local);
        int ijk[3];
        for (int a = 0; a < 3; ++a) {
            const int n = f.lattice()->dim(a);
            const double step = n > 1 ? (box[2 * a + 1] - box[2 * a]) / (n - 1) : 1.0;
            ijk[a] = static_cast<int>(std::lround((local[a] - box[2 * a]) / step));
            ASSERT_TRUE(ijk[a] >= 0 && ijk[a] < n)
                << "(" << s[0] << ", " << s[1] << ", " << s[2] << ") is outside the field";
        }
        expectWorld(f, ijk[0], ijk[1], ijk[2], s[0] * toField, s[1] * toField, s[2] * toField,
                    0.01 * toField);
        EXPECT_NEAR(valueAt(f, ijk[0], ijk[1], ijk[2]), s[3], 1e-3 * std::max(1.0, std::fabs(s[3])))
            << "voxel " << ijk[0] << "," << ijk[1] << "," << ijk[2];
        ++checked;
    }
    EXPECT_GT(checked, 10);
}

Bytes gzipBytes(const void *data, size_t n)
{
    z_stream zs{};
    deflateInit2(&zs, 6, Z_DEFLATED, 16 + 15, 8, Z_DEFAULT_STRATEGY);
    Bytes out(compressBound(n) + 64);
    zs.next_in = static_cast<Bytef *>(const_cast<void *>(data));
    zs.avail_in = static_cast<uInt>(n);
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    deflate(&zs, Z_FINISH);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}

Bytes bytesOf(const std::string &text, const Bytes &tail = {})
{
    Bytes b(text.begin(), text.end());
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
}

std::vector<std::string> namesIn(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

// --------------------------------------------------------------- NIfTI

// Each field saved as NIfTI, read by nibabel: every sampled voxel is where our
// field has it, with its value, and our reader gives the same back.
TEST(VxFieldFileNifti, SavedFieldsAreWhereNibabelFindsThem)
{
    REQUIRE_NIBABEL();
    using Make = std::function<std::unique_ptr<VxField3>()>;
    const float c = std::cos(static_cast<float>(M_PI) / 6),
                s = std::sin(static_cast<float>(M_PI) / 6);
    struct Row
    {
        const char *name;
        Make make;
        const char *dtype;
    };
    const Row rows[] = {
        {"axial.nii",
         [] {
             auto f = indexField<int16_t, VxUniformScalarField3>(4, 3, 2);
             const float box[6] = {10, 13, 20, 24, -5, -2};
             f->setBoundingBox(box);
             f->setLabel("axial test");
             return f;
         },
         "int16"},
        // Sagittal slices by transformation, lengths in cm.
        {"sagittal.nii.gz",
         [] {
             auto f = indexField<uint16_t, VxUniformScalarField3>(3, 4, 2);
             const float box[6] = {0, 1.0f, 0, 1.5f, 0, 0.2f};
             f->setBoundingBox(box);
             f->parameters().setFloat("UnitLength", 0.01);
             f->setTransform(SbMatrix(0, 1, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 1, 2, 3, 1));
             return f;
         },
         "uint16"},
        // 30 degrees about z.
        {"oblique.nii",
         [&] {
             auto f = indexField<float, VxUniformScalarField3>(2, 2, 2);
             const float box[6] = {0, 2, 0, 3, 0, 4};
             f->setBoundingBox(box);
             f->setTransform(SbMatrix(c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 100, -50, 25, 1));
             return f;
         },
         "float32"},
        {"stacked.nii",
         [] {
             auto f = indexField<uint8_t, VxStackedScalarField3>(2, 2, 3);
             const float z[3] = {-4.0f, -3.0f, -2.0f};
             EXPECT_TRUE(f->lattice()->setSliceCoords(z, 3));
             const float box[6] = {0, 1, 0, 1, 0, 0};
             f->lattice()->setBoundingBox(box);
             return f;
         },
         "uint8"},
        {"colour.nii",
         [] {
             const int dims[3] = {2, 1, 1};
             auto *rgb = static_cast<uint8_t *>(std::malloc(6));
             const uint8_t values[6] = {255, 0, 10, 1, 2, 3};
             std::memcpy(rgb, values, 6);
             return std::make_unique<VxRegColorField3>(dims, VX_COORD_UNIFORM, 3, rgb);
         },
         "rgb"},
    };
    vxtest::TempDir dir;
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        auto f = r.make();
        const std::string path = dir.file(r.name);
        KcString error;
        VxMessageCapture console;
        ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
        EXPECT_FALSE(console.contains("not evenly spaced")) << console.text();
        const Outside nb = probe(path);
        EXPECT_EQ(nb.json["dtype"].toString().toStdString(), r.dtype);
        EXPECT_EQ(nb.json["sform_code"].toInt(), 2);
        EXPECT_EQ(nb.json["qform_code"].toInt(), 1);
        EXPECT_TRUE(nb.json["qform_is_sform"].toBool());
        EXPECT_EQ(nb.json["units"].toArray()[0].toString(), "mm");
        EXPECT_EQ(nb.json["descrip"].toString().toStdString(), f->label());
        expectSamplesInField(*f, nb.samples);
        auto back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        expectSamplesInField(*back, nb.samples);
    }

    // Unevenly spaced slices are saved with their mean spacing, and the console says so.
    auto f = indexField<uint8_t, VxStackedScalarField3>(2, 2, 3);
    const float z[3] = {-4.0f, -3.0f, -1.0f};
    ASSERT_TRUE(f->lattice()->setSliceCoords(z, 3));
    const std::string path = dir.file("uneven.nii");
    KcString error;
    VxMessageCapture console;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
    EXPECT_TRUE(console.contains("not evenly spaced")) << console.text();
    EXPECT_TRUE(console.contains("1.5 mm")) << console.text();
    EXPECT_TRUE(console.contains(path)) << console.text();
    EXPECT_NEAR(probe(path).json["zooms"].toArray()[2].toDouble(), 1.5, 1e-6);
}

TEST(VxFieldFileNifti, SeriesOfFieldsIsOne4DFileAndMismatchesAreRefused)
{
    REQUIRE_NIBABEL();
    std::vector<std::unique_ptr<VxUniformScalarField3>> steps;
    KcDArray<const VxField3 *> list;
    for (int t = 0; t < 3; ++t) {
        steps.push_back(indexField<int32_t, VxUniformScalarField3>(3, 3, 3));
        int32_t *d = static_cast<int32_t *>(steps.back()->lattice()->data());
        for (int n = 0; n < 27; ++n)
            d[n] += 1000 * t;
        list.append(steps.back().get());
    }
    vxtest::TempDir dir;
    const std::string path = dir.file("series.nii");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNiftiSeries(list, path.c_str(), &error, 2.5)) << error;
    const QJsonObject j = probe(path, "1,2,0,2 0,0,0,0").json;
    EXPECT_EQ(j["shape"].toArray(), QJsonArray({3, 3, 3, 3}));
    EXPECT_EQ(j["values"].toArray(), QJsonArray({2021, 0}));
    EXPECT_NEAR(j["zooms"].toArray()[3].toDouble(), 2.5, 1e-6);
    EXPECT_EQ(j["units"].toArray()[1].toString(), "sec");
    // Loading a 4D file gives its first volume, with a warning.
    VxMessageCapture console;
    auto first = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(first) << error;
    EXPECT_TRUE(console.contains("first of 3 volumes")) << console.text();
    EXPECT_EQ(sampleAt<int32_t>(*first, 2, 2, 2), 222);

    auto b = indexField<int16_t, VxUniformScalarField3>(2, 2, 3);
    auto c = indexField<uint16_t, VxUniformScalarField3>(3, 3, 3);
    auto d = indexField<int32_t, VxUniformScalarField3>(3, 3, 3);
    const float shifted[6] = {0, 2, 0, 2, 0.5f, 2.5f};
    d->setBoundingBox(shifted);
    const std::string bad = dir.file("bad.nii");
    const std::pair<KcDArray<const VxField3 *>, const char *> refused[] = {
        {{list[0], b.get()}, "step 1 has dimensions 2 x 2 x 3"},
        {{list[0], list[1], c.get()}, "step 2 has 1 x uint16"},
        {{list[0], d.get()}, "step 1 lies elsewhere"},
        {{}, ""},
    };
    for (const auto &[fields, reason] : refused) {
        EXPECT_FALSE(VxFieldFile::saveNiftiSeries(fields, bad.c_str(), &error)) << reason;
        EXPECT_NE(error.find(bad), std::string::npos) << error;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
    EXPECT_FALSE(fs::exists(bad));
}

// Files written by nibabel load with every voxel where nibabel puts it.
TEST(VxFieldFileNifti, NibabelFilesLoadWhereNibabelPutsTheirVoxels)
{
    REQUIRE_NIBABEL();
    struct Row
    {
        const char *kind;
        bool transform;
        KcPrimType type;
    };
    vxtest::TempDir dir;
    for (const Row &r :
         {Row{"ras-diag", false, KcPrimType::Int16}, Row{"oblique-qform", true, KcPrimType::Int16},
          Row{"scaled", false, KcPrimType::Float}}) {
        SCOPED_TRACE(r.kind);
        const std::string path = dir.file(std::string(r.kind) + ".nii");
        ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + VX_DATA_TEST_DIR +
                                     "/nifti_probe.py make " + path + " " + r.kind),
                  0);
        KcString error;
        auto f = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(f) << error;
        EXPECT_EQ(f->label(), r.kind);
        EXPECT_EQ(f->hasTransform(), r.transform);
        EXPECT_EQ(f->primType(), r.type);
        EXPECT_DOUBLE_EQ(f->unitLength(), 0.001);
        expectSamplesInField(*f, probe(path).samples);
        // A transformation is a rotation: the voxel sizes stay in the box.
        for (int row = 0; row < 3 && r.transform; ++row) {
            const SbMatrix &m = f->transform();
            EXPECT_NEAR(m[row][0] * m[row][0] + m[row][1] * m[row][1] + m[row][2] * m[row][2], 1.0,
                        1e-5);
        }
    }
}

struct ScannerSeries
{
    const char *name;
    const char *folder;
    bool dicomTruth; // pixels placed by pydicom; else nibabel's reading of dcm2niix's file
    double maxValue; // stored values above this are masked by dcm2niix
};

class VxFieldFileScanner : public ::testing::TestWithParam<ScannerSeries>
{
};

// dcm2niix converts a real series; in our loading of its NIfTI every checked
// pixel sits where the DICOM header puts it (for a 4D series, where nibabel
// puts dcm2niix's first volume). Saved again, nibabel finds the same voxels.
TEST_P(VxFieldFileScanner, Dcm2niixOutputLoadsInPatientSpace)
{
    VX_REQUIRE_SHARED_DATA();
    REQUIRE_NIBABEL();
    if (!vxtest::haveProgram("dcm2niix") || !vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "dcm2niix and pydicom are needed for this test";
    const ScannerSeries &series = GetParam();
    vxtest::TempDir dir;
    std::string log;
    ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -b n -f out -o " + vxtest::shellQuote(dir.path()) +
                                     " " + vxtest::shellQuote(vxtest::sharedPath(series.folder)),
                                 &log, true),
              0)
        << log;
    const std::string nii = dir.file("out.nii");
    KcString error;
    VxMessageCapture console; // a 4D series warns that only its first volume is loaded
    auto f = VxFieldFile::load(nii.c_str(), &error);
    ASSERT_TRUE(f) << error;
    std::string files;
    for (const std::string &p : vxtest::sharedDicomFiles(series.folder))
        files += " " + vxtest::shellQuote(p);
    expectSamplesInField(*f,
                         series.dicomTruth ? python("dicom" + files).samples : probe(nii).samples,
                         series.maxValue);
    const std::string ours = dir.file("ours.nii.gz");
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, ours.c_str(), &error)) << error;
    expectSamplesInField(*f, probe(ours).samples);
}

INSTANTIATE_TEST_SUITE_P(
    RealSeries, VxFieldFileScanner,
    ::testing::Values(
        // Sagittal, 42 x 64 x 5; stored 0xFFFF markers become 4095 in dcm2niix.
        ScannerSeries{"SagittalFieldMap", "dcm_qa_sag/In/2_gre_field_mapping", true, 4095},
        // Sagittal, head first decubitus right, 256 x 256 x 35.
        ScannerSeries{"SagittalDecubitus", "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag", true, 1e30},
        // Oblique axial diffusion, 256 x 256 x 2 x 7, scaled to float by dcm2niix.
        ScannerSeries{"ObliqueDiffusion4D", "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2", false, 1e30}),
    [](const ::testing::TestParamInfo<ScannerSeries> &info) {
        return std::string(info.param.name);
    });

TEST(VxFieldFileNifti, BrokenFilesAndImpossibleSavesFailWithAReason)
{
    vxtest::TempDir dir;
    KcString error;
    auto f = indexField<int16_t, VxUniformScalarField3>(8, 8, 8);
    const std::string cut = dir.file("cut.nii");
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, cut.c_str(), &error)) << error;
    Bytes bytes = vxtest::readFileBytes(cut);
    bytes.resize(bytes.size() - 100);
    vxtest::writeFileBytes(cut, bytes);
    vxtest::writeFileBytes(dir.file("junk.nii"), Bytes(400, 'x'));
    const std::pair<const char *, const char *> loads[] = {
        {"missing.nii", "No such file"},
        {"junk.nii", "junk.nii failed: not a NIfTI-1 file"},
        {"cut.nii", "cut.nii"}};
    for (const auto &[name, reason] : loads) {
        EXPECT_FALSE(VxFieldFile::load(dir.file(name).c_str(), &error)) << name;
        EXPECT_NE(error.find(dir.file(name)), std::string::npos) << error;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }

    const int one[3] = {1, 1, 1};
    VxRegColorField3 deep(one, VX_COORD_UNIFORM, 3, nullptr, KcPrimType::UInt16);
    auto lost = indexField<int16_t, VxUniformScalarField3>(4, 3, 2);
    const float nanBox[6] = {10, 13, 20, std::nanf(""), -5, -2};
    lost->setBoundingBox(nanBox);
    lost->setLabel("lost");
    const std::string nowhere = dir.file("no/such/dir/a.nii");
    struct Save
    {
        const VxField3 *field;
        std::string name;
        const char *reason;
    };
    const Save saves[] = {
        {f.get(), nowhere, "failed: cannot open for writing"},
        {&deep, "deep.nii", "save as NRRD"},
        {f.get(), "a.tiff", "unknown file type"},
        {f.get(), "noext", "not a NIfTI file name"},
        {lost.get(), "lost.nii", "field \"lost\": its geometry is not finite"},
        {lost.get(), "lost.nrrd", "field \"lost\": its geometry is not finite"},
    };
    for (const Save &s : saves) {
        const std::string path = s.name == nowhere ? nowhere : dir.file(s.name);
        const bool saved = s.name == "noext" || s.name == "deep.nii"
                               ? VxFieldFile::saveNifti(*s.field, path.c_str(), &error)
                               : VxFieldFile::save(*s.field, path.c_str(), &error);
        EXPECT_FALSE(saved) << s.name;
        EXPECT_NE(error.find(s.reason), std::string::npos) << error;
        EXPECT_FALSE(fs::exists(path)) << s.name;
    }
    EXPECT_NE(error.find(dir.file("lost.nrrd")), std::string::npos) << error;

    // Upper-case endings are NIfTI too, and the file keeps its name.
    const std::string upper = dir.file("UPPER.NII.GZ");
    ASSERT_TRUE(VxFieldFile::save(*f, upper.c_str(), &error)) << error;
    EXPECT_EQ(vxtest::readFileBytes(upper)[0], 0x1f) << "gzip magic";
    auto back = VxFieldFile::load(upper.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(sampleAt<int16_t>(*back, 7, 7, 7), 777);
}

// 17 MB of samples: the .nii.gz is written in gzip members (1 MiB each after a
// first one of 64 KiB with the header), the .nii puts its samples at byte 4096
// and is saved twice, over itself. gzip, nibabel and nifticlib read the same
// samples from both, also on both sides of every member's end.
TEST(VxFieldFileNifti, LargeFilesReadTheSameInEveryReader)
{
    REQUIRE_NIBABEL();
    const int n0 = 523, n1 = 401, n2 = 41;
    auto f = indexField<int16_t, VxUniformScalarField3>(n0, n1, n2);
    const size_t sampleBytes = size_t(n0) * n1 * n2 * 2;
    ASSERT_NE(sampleBytes % 4096, 0u);
    vxtest::TempDir dir;
    // Other base names: given a.nii.gz, nifticlib reads a.nii when there is one.
    const std::string plain = dir.file("plain.nii"), packed = dir.file("packed.nii.gz");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, packed.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, plain.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, plain.c_str(), &error)) << error;
    const Bytes bytes = vxtest::readFileBytes(plain);
    ASSERT_EQ(bytes.size(), 4096u + sampleBytes);
    float voxOffset;
    std::memcpy(&voxOffset, bytes.data() + 108, sizeof voxOffset);
    EXPECT_EQ(voxOffset, 4096.0f);
    EXPECT_TRUE(std::all_of(bytes.begin() + 348, bytes.begin() + 4096,
                            [](unsigned char b) { return b == 0; }));

    std::string out;
    EXPECT_EQ(vxtest::runCommand("gzip -t " + vxtest::shellQuote(packed), &out, true), 0) << out;
    const std::string unpacked = dir.file("unpacked.nii");
    ASSERT_EQ(vxtest::runCommand("gzip -dc " + vxtest::shellQuote(packed) + " > " +
                                 vxtest::shellQuote(unpacked)),
              0);
    const Bytes reference = vxtest::readFileBytes(unpacked);
    ASSERT_EQ(reference.size(), 352u + sampleBytes);
    EXPECT_TRUE(std::equal(bytes.begin() + 4096, bytes.end(), reference.begin() + 352));

    std::string points;
    QJsonArray expected;
    auto add = [&](long voxel) {
        const int i = static_cast<int>(voxel % n0), j = static_cast<int>(voxel / n0 % n1),
                  k = static_cast<int>(voxel / (n0 * n1));
        points += KcString::format(" %d,%d,%d", i, j, k);
        expected.append(i + 10 * j + 100 * k);
    };
    add(0);
    add(long(n0) * n1 * n2 - 1);
    for (long end = 65184; end < static_cast<long>(sampleBytes); end += 1L << 20) {
        add(end / 2 - 1);
        add(end / 2);
    }
    for (const std::string &file : {plain, packed}) {
        const QJsonObject j = probe(file, points).json;
        EXPECT_EQ(j["values"].toArray(), expected) << file;
        EXPECT_EQ(j["shape"].toArray(), QJsonArray({n0, n1, n2})) << file;
    }
    auto back = VxFieldFile::load(plain.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(sampleAt<int16_t>(*back, 522, 400, 40), 522 + 4000 + 4000);

    if (!vxtest::haveProgram("nifti_tool"))
        GTEST_SKIP() << "nifti_tool (Debian nifti-bin) is needed for the nifticlib check";
    EXPECT_EQ(
        vxtest::runCommand("nifti_tool -check_hdr -check_nim -infiles " + vxtest::shellQuote(plain),
                           &out, true),
        0)
        << out;
    EXPECT_EQ(out.find("BAD"), std::string::npos) << out;
    const std::string copy = dir.file("copy.nii");
    ASSERT_EQ(vxtest::runCommand("nifti_tool -copy_im -prefix " + vxtest::shellQuote(copy) +
                                     " -infiles " + vxtest::shellQuote(packed),
                                 &out, true),
              0)
        << out;
    const Bytes copied = vxtest::readFileBytes(copy);
    ASSERT_EQ(copied.size(), reference.size());
    EXPECT_TRUE(std::equal(copied.begin() + 352, copied.end(), reference.begin() + 352))
        << "nifticlib reads other samples";
}

// Saving again replaces the file whatever it had been; a name that is a link
// gets a file of its own, and the file it pointed to, or shared with another
// name, keeps its contents.
TEST(VxFieldFileNifti, SavingAgainReplacesTheFileAndLeavesNothingElse)
{
    auto big = indexField<int16_t, VxUniformScalarField3>(300, 200, 12);
    auto small = indexField<uint8_t, VxUniformScalarField3>(5, 4, 3);
    KcString error;
    for (const char *name : {"again.nii", "again.nii.gz"}) {
        SCOPED_TRACE(name);
        vxtest::TempDir dir;
        const std::string path = dir.file(name);
        ASSERT_TRUE(VxFieldFile::saveNifti(*big, path.c_str(), &error)) << error;
        const auto bigSize = fs::file_size(path);
        ASSERT_TRUE(VxFieldFile::saveNifti(*small, path.c_str(), &error)) << error;
        EXPECT_LT(fs::file_size(path), bigSize / 10) << "cut to the new length";
        auto back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_EQ(back->lattice()->primType(), KcPrimType::UInt8);
        EXPECT_EQ(sampleAt<uint8_t>(*back, 4, 3, 2), 234);
        ASSERT_TRUE(VxFieldFile::saveNifti(*big, path.c_str(), &error)) << error;
        back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_EQ(sampleAt<int16_t>(*back, 299, 199, 11), 299 + 1990 + 1100);
        EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{name});
    }

    vxtest::TempDir dir;
    const std::string target = dir.file("target.nii"), link = dir.file("link.nii");
    const std::string hard = dir.file("hard.nii"), other = dir.file("other.nii");
    ASSERT_TRUE(VxFieldFile::saveNifti(*big, target.c_str(), &error)) << error;
    fs::create_symlink("target.nii", link);
    fs::copy_file(target, hard);
    fs::create_hard_link(hard, other);
    const Bytes before = vxtest::readFileBytes(target);
    ASSERT_TRUE(VxFieldFile::saveNifti(*small, link.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*small, hard.c_str(), &error)) << error;
    EXPECT_FALSE(fs::is_symlink(link));
    EXPECT_TRUE(vxtest::readFileBytes(target) == before) << "the link's target changed";
    EXPECT_TRUE(vxtest::readFileBytes(other) == before) << "the other hard link changed";
    EXPECT_TRUE(vxtest::readFileBytes(link) == vxtest::readFileBytes(hard));
    EXPECT_EQ(namesIn(dir.path()),
              (std::vector<std::string>{"hard.nii", "link.nii", "other.nii", "target.nii"}));
}

// A folder the user may not write into, and Ctrl-C during a save: the save
// fails naming the file, and no file, whole or partial, and no compression
// thread is left; a previous result of that name is gone (it was being
// rewritten). As root, permissions are checked for "nobody" (setfsuid on this
// thread drops root's right to override them).
TEST(VxFieldFileNifti, FailedSavesLeaveNoFileAndNoThread)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(512, 512, 24); // 12 MiB
    auto threads = [] {
        return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
    };
    const auto threadsBefore = threads();
    VxWorkArea *work = VxWorkArea::instance();
    for (const char *name : {"a.nii", "a.nii.gz"}) {
        SCOPED_TRACE(name);
        vxtest::TempDir dir;
        fs::permissions(dir.path(), fs::perms(0755));
        const std::string folder = dir.file("readonly"), path = folder + "/" + name;
        fs::create_directory(folder);
        fs::permissions(folder, fs::perms(0555));
        KcString error;
        const bool root = geteuid() == 0;
        if (root)
            setfsuid(65534);
        const bool saved = VxFieldFile::saveNifti(*f, path.c_str(), &error);
        if (root)
            setfsuid(0);
        EXPECT_FALSE(saved);
        EXPECT_NE(error.find("saving " + path +
                             " failed: cannot open for writing: Permission "
                             "denied"),
                  std::string::npos)
            << error;
        EXPECT_TRUE(namesIn(folder).empty());

        for (bool existing : {false, true}) {
            SCOPED_TRACE(existing ? "over a previous result" : "new file");
            const std::string stop = dir.file(name);
            if (existing) {
                ASSERT_TRUE(VxFieldFile::saveNifti(*f, stop.c_str(), &error)) << error;
            }
            float stoppedAt = -1;
            work->setObserver([&](const std::string &status, float fraction) {
                if (status.rfind("saving", 0) == 0 && fraction > 0.2f && stoppedAt < 0) {
                    stoppedAt = fraction;
                    work->interrupt();
                }
            });
            const bool done = VxFieldFile::saveNifti(*f, stop.c_str(), &error);
            work->setObserver(nullptr);
            EXPECT_FALSE(done);
            EXPECT_GT(stoppedAt, 0.2f);
            EXPECT_LT(stoppedAt, 1.0f) << "interrupted before the last piece";
            EXPECT_NE(error.find("saving " + stop + " failed: interrupted"), std::string::npos)
                << error;
            EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"readonly"});
            EXPECT_EQ(threads(), threadsBefore);
        }
    }
}

// ------------------------------------------------------------------- NRRD

// teem 1.12 does not free its gzip and bzip2 decoder state when compressed
// samples fail to decode (about 24 KB and 70 KB per failed load); the broken
// files below take those paths. Only those allocations (teem's and libbz2's,
// which only teem uses) are exempted.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:_nrrdGzOpen\nleak:BZ2_bzReadOpen\nleak:BZ2_bzDecompressInit\n";
}

// Files of the earlier writer (byte for byte as it wrote them, before teem
// formatted the headers) of the fields saved here.
const std::string kEarlierHeader = "NRRD0004\n"
                                   "# NRRD file format, as teem reads it:\n"
                                   "# http://teem.sourceforge.net/nrrd/format.html\n";
const std::string kEarlierTail = "kinds: domain domain domain\nendian: little\nencoding: raw\n";

// A transformed field with typed and nested parameters, saved raw, with gzip,
// and as the earlier writer saved it: samples, places and parameters come back.
TEST(VxFieldFileNrrd, SavedFieldsKeepSamplesPlaceAndParameters)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(3, 2, 2);
    const float box[6] = {-1.5f, -0.5f, 2, 2.5f, 7, 9};
    f->setBoundingBox(box);
    f->parameters().setFloat("UnitLength", 0.01);
    f->parameters().setInt("Count", -7);
    f->parameters().setString("Modality", "CT");
    auto *dicom = new VxParamBundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0008-103E", "series description [LO]: a\\b\nline two");
    dicom->insert(all);
    dicom->insert(new VxParamBundle("Empty"));
    dicom->setString("odd/name:x=y z%", "kept");
    f->parameters().insert(dicom);
    f->setTransform(SbMatrix(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 5, 6, 7, 1));

    vxtest::TempDir dir;
    const std::string earlier =
        kEarlierHeader +
        "type: int16\ndimension: 3\nspace: left-posterior-superior\nsizes: 3 2 2\n"
        "space directions: (0,5,0) (-5,0,0) (0,0,20)\n" +
        kEarlierTail +
        "space origin: (30,45,140)\nspace units: \"mm\" \"mm\" \"mm\"\ncontent: old format\n"
        "vx:ParameterTypes:=UnitLength=f Count=i\nUnitLength:=0.01\nCount:=-7\nModality:=CT\n"
        "DICOM/All/G0008-103E:=series description [LO]: a\\\\b\\nline two\n"
        "DICOM/Empty/:=\nDICOM/odd%2Fname%3Ax%3Dy%20z%25:=kept\n\n";
    vxtest::writeFileBytes(dir.file("earlier.nrrd"),
                           bytesOf(earlier, {0,   0, 1,   0, 2,   0, 10,  0, 11,  0, 12,  0,
                                             100, 0, 101, 0, 102, 0, 110, 0, 111, 0, 112, 0}));
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(*f, dir.file("f.nrrd").c_str(), false, &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(*f, dir.file("f.gz.nrrd").c_str(), true, &error)) << error;
    for (const char *name : {"f.nrrd", "f.gz.nrrd", "earlier.nrrd"}) {
        SCOPED_TRACE(name);
        const Bytes raw = vxtest::readFileBytes(dir.file(name));
        const std::string header(raw.begin(), raw.end());
        EXPECT_NE(header.find("space: left-posterior-superior\n"), std::string::npos);
        EXPECT_NE(header.find("DICOM/All/G0008-103E:=series description [LO]: a\\\\b\\nline two\n"),
                  std::string::npos);
        auto back = VxFieldFile::load(dir.file(name).c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_DOUBLE_EQ(back->unitLength(), 0.01);
        expectSamePlaces(*f, *back);
        const VxParamBundle &p = back->parameters();
        EXPECT_EQ(p.parameter("Count")->type(), VxParameter::Int);
        EXPECT_EQ(p.parameter("Count")->intValue(), -7);
        EXPECT_EQ(p.parameter("UnitLength")->type(), VxParameter::Float);
        EXPECT_EQ(p.getString("Modality"), "CT");
        ASSERT_NE(p.bundle("DICOM"), nullptr);
        ASSERT_NE(p.bundle("DICOM")->bundle("All"), nullptr);
        EXPECT_EQ(p.bundle("DICOM")->bundle("All")->getString("G0008-103E"),
                  "series description [LO]: a\\b\nline two");
        EXPECT_NE(p.bundle("DICOM")->bundle("Empty"), nullptr);
        EXPECT_EQ(p.bundle("DICOM")->getString("odd/name:x=y z%"), "kept");
    }

    // A volume of several gzip members (one per MiB of samples) reads whole.
    auto big = indexField<int16_t, VxUniformScalarField3>(256, 256, 12);
    const std::string path = dir.file("big.nrrd");
    ASSERT_TRUE(VxFieldFile::saveNrrd(*big, path.c_str(), true, &error)) << error;
    auto back = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(back) << error;
    ASSERT_EQ(back->lattice()->numBytes(), big->lattice()->numBytes());
    EXPECT_EQ(
        std::memcmp(back->lattice()->data(), big->lattice()->data(), big->lattice()->numBytes()),
        0);
}

// Stacked slices: other tools see the mean spacing, we read the slice
// positions back, from our file and from the earlier writer's.
TEST(VxFieldFileNrrd, StackedFieldKeepsItsSlicePositions)
{
    auto f = indexField<uint8_t, VxStackedScalarField3>(2, 2, 4);
    const float z[4] = {10.0f, 10.5f, 12.0f, 15.0f};
    ASSERT_TRUE(f->lattice()->setSliceCoords(z, 4));
    const float box[6] = {1, 2, 3, 4, 0, 0};
    f->lattice()->setBoundingBox(box);
    vxtest::TempDir dir;
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(*f, dir.file("ours.nrrd").c_str(), false, &error)) << error;
    const Bytes raw = vxtest::readFileBytes(dir.file("ours.nrrd"));
    const std::string text(raw.begin(), raw.end());
    EXPECT_NE(text.find("(0,0,1.6666666666666667)"), std::string::npos) << text;
    EXPECT_NE(text.find("vx:SliceOffsets:=0 0.5 2 5\n"), std::string::npos) << text;
    const std::string earlier =
        kEarlierHeader +
        "type: uint8\ndimension: 3\nspace: left-posterior-superior\n"
        "sizes: 2 2 4\nspace directions: (1,0,0) (0,1,0) (0,0,1.66666666667)\n" +
        kEarlierTail +
        "space origin: (1,3,10)\nspace units: \"mm\" \"mm\" \"mm\"\n"
        "vx:SliceOffsets:=0 0.5 2 5\n\n";
    vxtest::writeFileBytes(
        dir.file("earlier.nrrd"),
        bytesOf(earlier, {0, 1, 10, 11, 100, 101, 110, 111, 200, 201, 210, 211, 44, 45, 54, 55}));
    for (const char *name : {"ours.nrrd", "earlier.nrrd"}) {
        SCOPED_TRACE(name);
        auto back = VxFieldFile::load(dir.file(name).c_str(), &error);
        ASSERT_TRUE(back) << error;
        ASSERT_EQ(back->coordType(), VX_COORD_STACKED);
        EXPECT_FALSE(back->hasTransform());
        const KcDArray<float> &s = back->lattice()->sliceCoords();
        ASSERT_EQ(s.size(), 4);
        for (int k = 0; k < 4; ++k)
            EXPECT_FLOAT_EQ(s[k], z[k]);
        expectSamePlaces(*f, *back);
    }
}

// Headers as other writers and hands make them: each file's voxels (found by
// their unique values) must sit where the header puts them, in LPS.
TEST(VxFieldFileNrrd, HeadersOfOtherWritersArePlacedAsTheySay)
{
    struct Probe
    {
        double value, x, y, z;
    };
    struct Row
    {
        const char *name;
        Bytes bytes;
        int dims[3];
        KcPrimType type;
        std::vector<Probe> probes;
    };
    std::vector<uint16_t> samples;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 2; ++i)
                samples.push_back(static_cast<uint16_t>(i + 10 * j + 100 * k));
    vxtest::TempDir dir;
    // Big-endian int32 after 3 junk bytes in a separate file.
    vxtest::writeFileBytes(dir.file("data.raw"), {9, 9, 9, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xfe});
    const Row rows[] = {
        // Comments, blanks around values, RAS space, the axes of a coronal
        // acquisition, gzip: voxel (i, j, k) is at LPS (3 - 2i, -4 - 3k, 5 - j).
        {"hand.nrrd",
         bytesOf("NRRD0005\n# written by hand\ntype:   unsigned short\ndimension: 3\n"
                 "space:  right-anterior-superior\nsizes: 2  3 2\n"
                 "space directions: (2, 0,0) ( 0,0,-1) (0,3,0)\n# a comment between fields\n"
                 "kinds: domain domain domain\nendian: little\nencoding: gzip\n"
                 "space origin: (-3,4,5)\nModality:=MR\n\n",
                 gzipBytes(samples.data(), samples.size() * 2)),
         {2, 2, 3},
         KcPrimType::UInt16,
         {{121, 1, -7, 3}, {0, 3, -4, 5}, {10, 3, -4, 4}, {101, 1, -7, 5}}},
        {"detached.nhdr",
         bytesOf("NRRD0004\ntype: int\ndimension: 3\nsizes: 2 1 1\nspacings: 0.5 1 1\n"
                 "axis mins: 4 0 0\nendian: big\nencoding: raw\nbyte skip: 3\n"
                 "data file: data.raw\n"),
         {2, 1, 1},
         KcPrimType::Int32,
         {{1, 4, 0, 0}, {-2, 4.5, 0, 0}}},
        {"ascii.nrrd",
         bytesOf("NRRD0004\ntype: float\ndimension: 2\nsizes: 3 2\nencoding: ascii\n\n"
                 "1.5 2\n-3, 4e2\n5 6\n"),
         {3, 2, 1},
         KcPrimType::Float,
         {{400, 0, 1, 0}, {6, 2, 1, 0}, {1.5, 0, 0, 0}}},
        // The earlier writer's colour field.
        {"rgb.nrrd",
         bytesOf(kEarlierHeader + "type: uint8\ndimension: 4\nspace: left-posterior-superior\n"
                                  "sizes: 3 2 1 1\nspace directions: none (1,0,0) (0,1,0) (0,0,1)\n"
                                  "kinds: RGB-color domain domain domain\nendian: little\n"
                                  "encoding: raw\nspace origin: (0,0,0)\n"
                                  "space units: \"mm\" \"mm\" \"mm\"\n\n",
                 {0, 40, 80, 120, 160, 200}),
         {2, 1, 1},
         KcPrimType::UInt8,
         {{40 * 256 + 80, 0, 0, 0}, {120 * 65536 + 160 * 256 + 200, 1, 0, 0}}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        vxtest::writeFileBytes(dir.file(r.name), r.bytes);
        KcString error;
        auto f = VxFieldFile::load(dir.file(r.name).c_str(), &error);
        ASSERT_TRUE(f) << error;
        EXPECT_FALSE(f->hasTransform());
        EXPECT_EQ(f->primType(), r.type);
        for (int a = 0; a < 3; ++a)
            EXPECT_EQ(f->lattice()->dim(a), r.dims[a]) << "axis " << a;
        for (const Probe &p : r.probes)
            expectValueAt(*f, p.value, p.x, p.y, p.z);
    }
}

TEST(VxFieldFileNrrd, BrokenFilesFailWithAReason)
{
    vxtest::TempDir dir;
    const std::string head = "NRRD0004\ntype: uchar\ndimension: 3\n";
    const std::string lps = head + "sizes: 1 1 1\nspace: left-posterior-superior\n";
    const std::pair<std::string, const char *> cases[] = {
        {"P5\n", "no NRRD magic"},
        {"NRRD0004\ntype: int64\ndimension: 1\nsizes: 1\nencoding: raw\nendian: little\n\n12345678",
         "sample type \"long long int\" is not supported"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2\nencoding: raw\nendian: little\n\n",
         "parsed 2 values, but dimension is 3"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2 -1\nencoding: raw\nendian: little\n\n",
         "sizes"},
        // The format requires an encoding; teem refuses a header without one.
        {head + "sizes: 2 2 2\n\n12345678", "encoding"},
        {head + "sizes: 2 2 2\nencoding: raw\n\n1234", "holds 4 bytes of samples, 8 are needed"},
        // teem would take data without the gzip magic as raw bytes.
        {head + "sizes: 2 2 2\nencoding: gzip\n\nnot gzip", "gzip magic"},
        {head + "sizes: 2 2 2\nencoding: gzip\n\n\x1f\x8b\x08", "gzip"},
        {head + "sizes: 2 2 2\nencoding: bzip2\n\nxx", "DATA_ERROR_MAGIC"},
        {head + "sizes: 1 1 1\nspace: right-anterior-superior-time\n"
                "space directions: (1,0,0,0) (0,1,0,0) (0,0,1,0)\nencoding: raw\n\nx",
         "not supported"},
        {lps + "space directions: (1,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx",
         "parsed 2 values, but space dimension is 3"},
        {head + "sizes: 1 1 1\nencoding: raw\ndata file: nothere.raw\n", "nothere.raw"},
        {lps + "space directions: (nan,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx", "space vector"},
        {lps + "space directions: (inf,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx", "space vector"},
        // Sizes far beyond the file fail before anything is allocated.
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 100000 100000 100000\nencoding: raw\n"
         "endian: little\n\nx",
         "4000000000000000 are needed"},
    };
    for (const auto &[text, reason] : cases) {
        const std::string path = dir.file("broken.nrrd");
        vxtest::writeFileBytes(path, bytesOf(text));
        KcString error;
        EXPECT_FALSE(VxFieldFile::load(path.c_str(), &error)) << text;
        EXPECT_NE(error.find("loading " + path + " failed: "), std::string::npos) << error;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
}

// teem's unu is the reference NRRD implementation: it must read what we
// write, and we what it writes.
TEST(VxFieldFileNrrd, TeemReadsOursAndWeReadTeems)
{
    if (!vxtest::haveProgram("teem-unu"))
        GTEST_SKIP() << "teem-unu (Debian teem-apps) is needed for this test";
    vxtest::TempDir dir;
    const int dims[3] = {2, 2, 1};
    auto *rgb = static_cast<uint8_t *>(std::malloc(12));
    for (int n = 0; n < 12; ++n)
        rgb[n] = static_cast<uint8_t>(n * 20);
    VxRegColorField3 colour(dims, VX_COORD_UNIFORM, 3, rgb);
    colour.parameters().setString("Note", "back\\slash\nnewline");
    const std::string ours = dir.file("ours.nrrd");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(colour, ours.c_str(), true, &error)) << error;
    std::string out;
    ASSERT_EQ(vxtest::runCommand("teem-unu save -i " + ours + " -f nrrd -e ascii -o -", &out, true),
              0)
        << out;
    for (const char *line :
         {"sizes: 3 2 2 1", "kinds: RGB-color domain domain domain",
          "Note:=back\\\\slash\\nnewline", "0 20 40 60 80 100 120 140 160 180 200 220"})
        EXPECT_NE(out.find(line), std::string::npos) << out;

    // unu writes a gzip file of a hand-made ascii volume; file voxel (i, j, k)
    // is at (1 + j, 2 + k, 3 + 2i).
    vxtest::writeFileBytes(
        dir.file("in.nrrd"),
        bytesOf("NRRD0004\ntype: short\ndimension: 3\nsizes: 2 2 2\n"
                "space: left-posterior-superior\n"
                "space directions: (0,0,2) (1,0,0) (0,1,0)\nspace origin: (1,2,3)\n"
                "encoding: ascii\n\n0 1 10 11 100 101 110 -111\n"));
    const std::string teems = dir.file("teem.nrrd");
    ASSERT_EQ(vxtest::runCommand("teem-unu save -i " + dir.file("in.nrrd") +
                                 " -f nrrd -e gzip -o " + teems),
              0);
    auto f = VxFieldFile::load(teems.c_str(), &error);
    ASSERT_TRUE(f) << error;
    EXPECT_FALSE(f->hasTransform());
    expectValueAt(*f, -111, 2, 3, 5);
    expectValueAt(*f, 10, 2, 2, 3);
    expectValueAt(*f, 1, 1, 2, 5);
}
