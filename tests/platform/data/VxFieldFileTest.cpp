#include "platform/data/VxFieldFile.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"

#include "tests/support/TestSupport.h"

#include <Inventor/SbVec3f.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;
using Field = std::unique_ptr<VxRegScalarField3>;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string(text).find(part), std::string::npos) << (text)
#define REQUIRE_NIBABEL()                                                                          \
    if (!vxtest::havePythonModules({"nibabel", "numpy"}))                                          \
    GTEST_SKIP() << "nibabel and numpy for " VX_PYTHON " are needed for this test"

struct Outside
{
    QJsonObject json;
    std::vector<std::array<double, 4>> samples; // x, y, z (LPS, mm), value
};

// nifti_probe.py's answer (nibabel or pydicom) for the given arguments.
Outside python(const std::string &args)
{
    std::string out;
    EXPECT_EQ(vxtest::runCommand(VX_PYTHON " " VX_DATA_TEST_DIR "/nifti_probe.py " + args, &out), 0)
        << out;
    Outside o{QJsonDocument::fromJson(QByteArray::fromStdString(out)).object(), {}};
    for (const QJsonValue &v : o.json["samples"].toArray()) {
        const QJsonArray a = v.toArray();
        o.samples.push_back({a[0].toDouble(), a[1].toDouble(), a[2].toDouble(), a[3].toDouble()});
    }
    return o;
}

// Runs a command that must succeed; its output, with what it printed to stderr.
std::string sh(const std::string &command)
{
    std::string out;
    EXPECT_EQ(vxtest::runCommand(command, &out, true), 0) << command << "\n" << out;
    return out;
}

Outside probe(const std::string &path, const std::string &points = "")
{
    return python("probe " + vxtest::shellQuote(path) + " 60 " + points);
}

// A field whose sample at (i, j, k) is i + 10 j + 100 k.
template <typename T, typename F = VxUniformScalarField3>
std::unique_ptr<F> indexField(int n0, int n1, int n2)
{
    const int dims[3] = {n0, n1, n2};
    const size_t count = size_t(n0) * n1 * n2;
    T *data = static_cast<T *>(std::malloc(sizeof(T) * count));
    for (size_t n = 0; n < count; ++n)
        data[n] = static_cast<T>(n % n0 + 10 * (n / n0 % n1) + 100 * (n / n0 / n1));
    const KcPrimType::Id type = std::is_same_v<T, uint8_t>    ? KcPrimType::UInt8
                                : std::is_same_v<T, uint16_t> ? KcPrimType::UInt16
                                : std::is_same_v<T, int32_t>  ? KcPrimType::Int32
                                : std::is_same_v<T, float>    ? KcPrimType::Float
                                                              : KcPrimType::Int16;
    return std::make_unique<F>(dims, type, data);
}

// The sample as a number; RGB as r * 65536 + g * 256 + b, as nifti_probe.py gives it.
double valueAt(const VxField3 &f, int i, int j, int k)
{
    const VxLattice3 *lat = f.lattice();
    const size_t n = ((size_t(k) * lat->dim(1) + j) * lat->dim(0) + i) * lat->nComponents();
    const auto *p = static_cast<const uint8_t *>(lat->data());
    switch (lat->primType().id()) {
    case KcPrimType::UInt8:
        return lat->nComponents() == 3 ? p[n] * 65536.0 + p[n + 1] * 256.0 + p[n + 2] : p[n];
    case KcPrimType::Int16:
        return reinterpret_cast<const int16_t *>(p)[n];
    case KcPrimType::UInt16:
        return reinterpret_cast<const uint16_t *>(p)[n];
    case KcPrimType::Int32:
        return reinterpret_cast<const int32_t *>(p)[n];
    default:
        return reinterpret_cast<const float *>(p)[n];
    }
}

void expectWorld(const VxField3 &f, int i, int j, int k, double x, double y, double z, double tol)
{
    float w[3];
    f.voxelToWorld(i, j, k, w);
    EXPECT_TRUE(std::fabs(w[0] - x) < tol && std::fabs(w[1] - y) < tol && std::fabs(w[2] - z) < tol)
        << "voxel " << i << "," << j << "," << k << " is at (" << w[0] << ", " << w[1] << ", "
        << w[2] << "), not (" << x << ", " << y << ", " << z << ")";
}

// The one voxel holding `value` lies at world (x, y, z).
void expectValueAt(const VxField3 &f, double value, double x, double y, double z)
{
    int found = 0;
    const VxLattice3 *lat = f.lattice();
    for (int k = 0; k < lat->dim(2); ++k)
        for (int j = 0; j < lat->dim(1); ++j)
            for (int i = 0; i < lat->dim(0); ++i)
                if (valueAt(f, i, j, k) == value && ++found)
                    expectWorld(f, i, j, k, x, y, z, 1e-4);
    EXPECT_EQ(found, 1) << "value " << value;
}

// Every voxel of `original` (all values different) is in `copy` at the same place.
void expectSamePlaces(const VxField3 &original, const VxField3 &copy)
{
    const VxLattice3 *lat = original.lattice();
    float w[3];
    for (int k = 0; k < lat->dim(2); ++k)
        for (int j = 0; j < lat->dim(1); ++j)
            for (int i = 0; i < lat->dim(0); ++i) {
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
        SbVec3f local(float(s[0] * toField), float(s[1] * toField), float(s[2] * toField));
        if (f.hasTransform())
            f.transform().inverse().multVecMatrix(SbVec3f(local), local);
        int ijk[3];
        for (int a = 0; a < 3; ++a) {
            const int n = f.lattice()->dim(a);
            ijk[a] = int(std::lround(
                n > 1 ? (local[a] - box[2 * a]) * (n - 1) / (box[2 * a + 1] - box[2 * a]) : 0));
            ASSERT_TRUE(ijk[a] >= 0 && ijk[a] < n)
                << s[0] << ", " << s[1] << ", " << s[2] << " is outside";
        }
        expectWorld(f, ijk[0], ijk[1], ijk[2], s[0] * toField, s[1] * toField, s[2] * toField,
                    0.01 * toField);
        EXPECT_NEAR(valueAt(f, ijk[0], ijk[1], ijk[2]), s[3],
                    1e-3 * std::max(1.0, std::fabs(s[3])));
        ++checked;
    }
    EXPECT_GT(checked, 10);
}

// Loads `path` into `var`, or fails the test with the reader's reason.
#define LOAD(var, path)                                                                            \
    KcString var##Error;                                                                           \
    const Field var = VxFieldFile::load(std::string(path).c_str(), &var##Error);                   \
    ASSERT_TRUE(var) << var##Error

Bytes bytesOf(const std::string &text, const Bytes &tail = {})
{
    Bytes b(text.begin(), text.end());
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
}

} // namespace

// Each field saved as NIfTI, read by nibabel: every sampled voxel is where our
// field has it, with its value, and our reader gives the same back. Slices
// that are not evenly spaced are saved with their mean spacing, and said so.
// Series are 4D files; nibabel's own files load where nibabel puts their voxels.
TEST(VxFieldFileNifti, NibabelAndWePlaceEveryVoxelAlike)
{
    REQUIRE_NIBABEL();
    auto axial = indexField<int16_t>(4, 3, 2);
    const float axialBox[6] = {10, 13, 20, 24, -5, -2};
    axial->setBoundingBox(axialBox);
    axial->setLabel("axial test");
    auto sagittal = indexField<uint16_t>(3, 4, 2); // by transformation, in cm
    const float sagittalBox[6] = {0, 1.0f, 0, 1.5f, 0, 0.2f};
    sagittal->setBoundingBox(sagittalBox);
    sagittal->parameters().setFloat("UnitLength", 0.01);
    sagittal->setTransform(SbMatrix(0, 1, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 1, 2, 3, 1));
    auto oblique = indexField<float>(2, 2, 2); // 30 degrees about z
    const float c = std::cos(float(M_PI) / 6), s = std::sin(float(M_PI) / 6);
    const float obliqueBox[6] = {0, 2, 0, 3, 0, 4};
    oblique->setBoundingBox(obliqueBox);
    oblique->setTransform(SbMatrix(c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 100, -50, 25, 1));
    auto stacked = indexField<uint8_t, VxStackedScalarField3>(2, 2, 3);
    const float even[3] = {-4.0f, -3.0f, -2.0f}, uneven[3] = {-4.0f, -3.0f, -1.0f};
    ASSERT_TRUE(stacked->lattice()->setSliceCoords(even, 3));
    const int dims[3] = {2, 1, 1};
    const uint8_t rgb[6] = {255, 0, 10, 1, 2, 3};
    VxRegColorField3 colour(dims, VX_COORD_UNIFORM, 3, std::memcpy(std::malloc(6), rgb, 6));
    const std::tuple<const char *, const VxField3 *, const char *> rows[] = {
        {"axial.nii", axial.get(), "int16"},
        {"sagittal.nii.gz", sagittal.get(), "uint16"},
        {"oblique.nii", oblique.get(), "float32"},
        {"stacked.nii", stacked.get(), "uint8"},
        {"colour.nii", &colour, "rgb"}};
    vxtest::TempDir dir;
    KcString error;
    for (const auto &[name, field, dtype] : rows) {
        SCOPED_TRACE(name);
        VxMessageCapture console;
        ASSERT_TRUE(VxFieldFile::saveNifti(*field, dir.file(name).c_str(), &error)) << error;
        EXPECT_FALSE(console.contains("not evenly spaced")) << console.text();
        const Outside nb = probe(dir.file(name));
        EXPECT_EQ(nb.json["dtype"].toString().toStdString(), dtype);
        EXPECT_EQ(nb.json["sform_code"].toInt() * 10 + nb.json["qform_code"].toInt(), 21);
        EXPECT_TRUE(nb.json["qform_is_sform"].toBool());
        EXPECT_EQ(nb.json["units"].toArray()[0].toString(), "mm");
        EXPECT_EQ(nb.json["descrip"].toString().toStdString(), field->label());
        expectSamplesInField(*field, nb.samples);
        LOAD(back, dir.file(name));
        expectSamplesInField(*back, nb.samples);
    }
    ASSERT_TRUE(stacked->lattice()->setSliceCoords(uneven, 3));
    const std::string path = dir.file("uneven.nii");
    VxMessageCapture console;
    ASSERT_TRUE(VxFieldFile::saveNifti(*stacked, path.c_str(), &error)) << error;
    EXPECT_HAS(console.text(), "not evenly spaced");
    EXPECT_HAS(console.text(), "1.5 mm");
    EXPECT_HAS(console.text(), path);
    EXPECT_NEAR(probe(path).json["zooms"].toArray()[2].toDouble(), 1.5, 1e-6);

    // A series of fields is one 4D file; fields that do not match are refused.
    std::vector<std::unique_ptr<VxUniformScalarField3>> steps;
    KcDArray<const VxField3 *> list;
    for (int t = 0; t < 3; ++t) {
        steps.push_back(indexField<int32_t>(3, 3, 3));
        for (int n = 0; n < 27; ++n)
            static_cast<int32_t *>(steps.back()->lattice()->data())[n] += 1000 * t;
        list.append(steps.back().get());
    }
    const std::string series = dir.file("series.nii"), bad = dir.file("bad.nii");
    ASSERT_TRUE(VxFieldFile::saveNiftiSeries(list, series.c_str(), &error, 2.5)) << error;
    const QJsonObject j = probe(series, "1,2,0,2 0,0,0,0").json;
    EXPECT_EQ(j["shape"].toArray(), QJsonArray({3, 3, 3, 3}));
    EXPECT_EQ(j["values"].toArray(), QJsonArray({2021, 0}));
    EXPECT_NEAR(j["zooms"].toArray()[3].toDouble(), 2.5, 1e-6);
    EXPECT_EQ(j["units"].toArray()[1].toString(), "sec");
    VxMessageCapture console4d; // loading a 4D file gives its first volume, with a warning
    LOAD(first, series);
    EXPECT_HAS(console4d.text(), "first of 3 volumes");
    EXPECT_EQ(valueAt(*first, 2, 2, 2), 222);

    auto b = indexField<int16_t>(2, 2, 3);
    auto u = indexField<uint16_t>(3, 3, 3);
    auto d = indexField<int32_t>(3, 3, 3);
    const float shifted[6] = {0, 2, 0, 2, 0.5f, 2.5f};
    d->setBoundingBox(shifted);
    const std::pair<KcDArray<const VxField3 *>, const char *> refused[] = {
        {{list[0], b.get()}, "step 1 has dimensions 2 x 2 x 3"},
        {{list[0], list[1], u.get()}, "step 2 has 1 x uint16"},
        {{list[0], d.get()}, "step 1 lies elsewhere"},
        {{}, ""}};
    for (const auto &[fields, reason] : refused) {
        EXPECT_FALSE(VxFieldFile::saveNiftiSeries(fields, bad.c_str(), &error)) << reason;
        EXPECT_HAS(error, bad);
        EXPECT_HAS(error, reason);
    }
    EXPECT_FALSE(fs::exists(bad));

    // Files written by nibabel load with every voxel where nibabel puts it.
    const std::tuple<const char *, bool, KcPrimType::Id> made[] = {
        {"ras-diag", false, KcPrimType::Int16},
        {"oblique-qform", true, KcPrimType::Int16},
        {"scaled", false, KcPrimType::Float}};
    for (const auto &[kind, transform, type] : made) {
        SCOPED_TRACE(kind);
        const std::string file = dir.file(std::string(kind) + ".nii");
        python("make " + file + " " + kind);
        LOAD(f, file);
        EXPECT_EQ(f->label(), kind);
        EXPECT_EQ(f->hasTransform(), transform);
        EXPECT_EQ(f->primType(), type);
        expectSamplesInField(*f, probe(file).samples);
    }
}

// dcm2niix converts real series; in our loading of its NIfTI every checked
// pixel sits where the DICOM header puts it (for a 4D series, where nibabel
// puts dcm2niix's first volume). Saved again, nibabel finds the same voxels.
TEST(VxFieldFileNifti, Dcm2niixOutputOfRealSeriesLoadsInPatientSpace)
{
    VX_REQUIRE_SHARED_DATA();
    REQUIRE_NIBABEL();
    if (!vxtest::haveProgram("dcm2niix") || !vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "dcm2niix and pydicom are needed for this test";
    // Folder; pixels placed by pydicom, else nibabel's reading of dcm2niix's
    // file; stored values above this are masked by dcm2niix.
    const std::tuple<const char *, bool, double> rows[] = {
        // Sagittal, 42 x 64 x 5; stored 0xFFFF markers become 4095 in dcm2niix.
        {"dcm_qa_sag/In/2_gre_field_mapping", true, 4095},
        // Sagittal, head first decubitus right, 256 x 256 x 35.
        {"dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag", true, 1e30},
        // Oblique axial diffusion, 256 x 256 x 2 x 7, scaled to float by dcm2niix.
        {"dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2", false, 1e30}};
    for (const auto &[folder, dicomTruth, maxValue] : rows) {
        SCOPED_TRACE(folder);
        vxtest::TempDir dir;
        std::string files;
        sh("dcm2niix -z n -b n -f out -o " + vxtest::shellQuote(dir.path()) + " " +
           vxtest::shellQuote(vxtest::sharedPath(folder)));
        VxMessageCapture console; // a 4D series warns that only its first volume is loaded
        LOAD(f, dir.file("out.nii"));
        for (const std::string &p : vxtest::sharedDicomFiles(folder))
            files += " " + vxtest::shellQuote(p);
        expectSamplesInField(
            *f, (dicomTruth ? python("dicom" + files) : probe(dir.file("out.nii"))).samples,
            maxValue);
        KcString error;
        ASSERT_TRUE(VxFieldFile::saveNifti(*f, dir.file("ours.nii.gz").c_str(), &error)) << error;
        expectSamplesInField(*f, probe(dir.file("ours.nii.gz")).samples);
    }
}

TEST(VxFieldFile, BrokenFilesAndImpossibleSavesFailWithAReason)
{
    vxtest::TempDir dir;
    KcString error;
    auto f = indexField<int16_t>(8, 8, 8);
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, dir.file("cut.nii").c_str(), &error)) << error;
    Bytes bytes = vxtest::readFileBytes(dir.file("cut.nii"));
    bytes.resize(bytes.size() - 100);
    vxtest::writeFileBytes(dir.file("cut.nii"), bytes);
    vxtest::writeFileBytes(dir.file("junk.nii"), Bytes(400, 'x'));
    const std::pair<const char *, const char *> loads[] = {
        {"missing.nii", "No such file"},
        {"junk.nii", "failed: not a NIfTI-1 file"},
        {"cut.nii", ""}};
    for (const auto &[name, reason] : loads) {
        EXPECT_FALSE(VxFieldFile::load(dir.file(name).c_str(), &error)) << name;
        EXPECT_HAS(error, dir.file(name));
        EXPECT_HAS(error, reason);
    }

    const int one[3] = {1, 1, 1};
    VxRegColorField3 deep(one, VX_COORD_UNIFORM, 3, nullptr, KcPrimType::UInt16);
    auto lost = indexField<int16_t>(4, 3, 2);
    const float nanBox[6] = {10, 13, 20, std::nanf(""), -5, -2};
    lost->setBoundingBox(nanBox);
    lost->setLabel("lost");
    const std::tuple<const VxField3 *, std::string, const char *> saves[] = {
        {f.get(), "no/such/dir/a.nii", "failed: cannot open for writing"},
        {&deep, "deep.nii", "save as NRRD"},
        {f.get(), "a.tiff", "unknown file type"},
        {f.get(), "noext", "not a NIfTI file name"},
        {lost.get(), "lost.nii", "field \"lost\": its geometry is not finite"},
        {lost.get(), "lost.nrrd", "field \"lost\": its geometry is not finite"}};
    for (const auto &[field, name, reason] : saves) {
        const std::string path = dir.file(name);
        EXPECT_FALSE(name == "noext" || name == "deep.nii"
                         ? VxFieldFile::saveNifti(*field, path.c_str(), &error)
                         : VxFieldFile::save(*field, path.c_str(), &error))
            << name;
        EXPECT_HAS(error, reason);
        EXPECT_FALSE(fs::exists(path)) << name;
    }
    EXPECT_HAS(error, dir.file("lost.nrrd"));

    // NRRD headers and samples that teem or we refuse.
    const std::string head = "NRRD0004\ntype: uchar\ndimension: 3\n",
                      le = "encoding: raw\nendian: little\n\n";
    const std::string lps =
        head + "sizes: 1 1 1\nspace: left-posterior-superior\nspace directions: ";
    const std::pair<std::string, const char *> cases[] = {
        {"P5\n", "no NRRD magic"},
        {"NRRD0004\ntype: int64\ndimension: 1\nsizes: 1\n" + le + "12345678",
         "sample type \"long long int\" is not supported"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2\n" + le,
         "parsed 2 values, but dimension is 3"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2 -1\n" + le, "sizes"},
        {head + "sizes: 2 2 2\n\n12345678", "encoding"}, // teem refuses a header without one
        {head + "sizes: 2 2 2\nencoding: raw\n\n1234", "holds 4 bytes of samples, 8 are needed"},
        {head + "sizes: 2 2 2\nencoding: gzip\n\nnot gzip", "gzip magic"}, // teem would take it raw
        {head + "sizes: 2 2 2\nencoding: gzip\n\n\x1f\x8b\x08", "gzip"},
        {head + "sizes: 2 2 2\nencoding: bzip2\n\nxx", "DATA_ERROR_MAGIC"},
        {head + "sizes: 1 1 1\nspace: right-anterior-superior-time\n"
                "space directions: (1,0,0,0) (0,1,0,0) (0,0,1,0)\nencoding: raw\n\nx",
         "not supported"},
        {lps + "(1,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx",
         "parsed 2 values, but space dimension is 3"},
        {head + "sizes: 1 1 1\nencoding: raw\ndata file: nothere.raw\n", "nothere.raw"},
        {lps + "(nan,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx", "space vector"},
        {lps + "(inf,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx", "space vector"},
        // Sizes far beyond the file fail before anything is allocated.
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 100000 100000 100000\n" + le + "x",
         "4000000000000000 are needed"},
    };
    for (const auto &[text, reason] : cases) {
        const std::string path = dir.file("broken.nrrd");
        vxtest::writeFileBytes(path, bytesOf(text));
        KcString error;
        EXPECT_FALSE(VxFieldFile::load(path.c_str(), &error)) << text;
        EXPECT_HAS(error, "loading " + path + " failed: ");
        EXPECT_HAS(error, reason);
    }

    // Upper-case endings are NIfTI too, and the file keeps its name.
    ASSERT_TRUE(VxFieldFile::save(*f, dir.file("UPPER.NII.GZ").c_str(), &error)) << error;
    EXPECT_EQ(vxtest::readFileBytes(dir.file("UPPER.NII.GZ"))[0], 0x1f) << "gzip magic";
    LOAD(back, dir.file("UPPER.NII.GZ"));
    EXPECT_EQ(valueAt(*back, 7, 7, 7), 777);
}

// 17 MB of samples: the .nii.gz is written in gzip members (1 MiB each after a
// first one of 64 KiB with the header), the .nii puts its samples at byte 4096
// and is saved twice, over itself. gzip, nibabel and nifticlib read the same
// samples from both, also on both sides of every member's end.
TEST(VxFieldFileNifti, LargeFilesReadTheSameInEveryReader)
{
    REQUIRE_NIBABEL();
    const int n0 = 523, n1 = 401, n2 = 41;
    auto f = indexField<int16_t>(n0, n1, n2);
    const size_t sampleBytes = size_t(n0) * n1 * n2 * 2;
    ASSERT_NE(sampleBytes % 4096, 0u);
    vxtest::TempDir dir;
    // Other base names: given a.nii.gz, nifticlib reads a.nii when there is one.
    const std::string plain = dir.file("plain.nii"), packed = dir.file("packed.nii.gz");
    KcString error;
    for (const std::string &path : {packed, plain, plain})
        ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
    const Bytes bytes = vxtest::readFileBytes(plain);
    ASSERT_EQ(bytes.size(), 4096u + sampleBytes);
    float voxOffset;
    std::memcpy(&voxOffset, bytes.data() + 108, sizeof voxOffset);
    EXPECT_EQ(voxOffset, 4096.0f);

    const std::string unpacked = dir.file("unpacked.nii");
    sh("gzip -t " + vxtest::shellQuote(packed));
    sh("gzip -dc " + vxtest::shellQuote(packed) + " > " + unpacked);
    const Bytes reference = vxtest::readFileBytes(unpacked);
    ASSERT_EQ(reference.size(), 352u + sampleBytes);
    EXPECT_TRUE(std::equal(bytes.begin() + 4096, bytes.end(), reference.begin() + 352));

    std::string points;
    QJsonArray expected;
    std::vector<long> voxels = {0, long(sampleBytes / 2) - 1};
    for (long end = 65184; end < long(sampleBytes); end += 1L << 20)
        voxels.insert(voxels.end(), {end / 2 - 1, end / 2});
    for (long v : voxels) {
        points += KcString::format(" %ld,%ld,%ld", v % n0, v / n0 % n1, v / n0 / n1);
        expected.append(int(v % n0 + 10 * (v / n0 % n1) + 100 * (v / n0 / n1)));
    }
    for (const std::string &file : {plain, packed})
        EXPECT_EQ(probe(file, points).json["values"].toArray(), expected) << file;
    LOAD(back, plain);
    EXPECT_EQ(valueAt(*back, 522, 400, 40), 522 + 4000 + 4000);

    if (!vxtest::haveProgram("nifti_tool"))
        GTEST_SKIP() << "nifti_tool (Debian nifti-bin) is needed for the nifticlib check";
    const std::string out = sh("nifti_tool -check_hdr -check_nim -infiles " + plain);
    EXPECT_EQ(out.find("BAD"), std::string::npos) << out;
    const std::string copy = dir.file("copy.nii");
    sh("nifti_tool -copy_im -prefix " + copy + " -infiles " + packed);
    const Bytes copied = vxtest::readFileBytes(copy);
    ASSERT_EQ(copied.size(), reference.size());
    EXPECT_TRUE(std::equal(copied.begin() + 352, copied.end(), reference.begin() + 352))
        << "nifticlib reads other samples";
}

// Saving again replaces the file whatever it had been, and a name that is a
// link gets a file of its own: the file it pointed to, or shared with another
// name, keeps its contents. Ctrl-C during a save leaves no file, whole or
// partial, and no compression thread; a previous result of that name is gone
// (it was being rewritten).
TEST(VxFieldFileNifti, SavesLeaveOneWholeFileOrNothing)
{
    auto big = indexField<int16_t>(512, 512, 24); // 12 MiB
    auto small = indexField<uint8_t>(5, 4, 3);
    auto threads = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
    const auto threadsBefore = threads();
    VxWorkArea *work = VxWorkArea::instance();
    KcString error;
    for (const std::string name : {"a.nii", "a.nii.gz"}) {
        SCOPED_TRACE(name);
        vxtest::TempDir dir;
        const std::string path = dir.file(name);
        for (const VxField3 *f : {big.get(), small.get(), big.get(), small.get()}) {
            ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
            LOAD(back, path);
            const VxLattice3 *lat = f->lattice();
            EXPECT_EQ(back->primType(), lat->primType());
            EXPECT_EQ(valueAt(*back, lat->dim(0) - 1, lat->dim(1) - 1, lat->dim(2) - 1),
                      valueAt(*f, lat->dim(0) - 1, lat->dim(1) - 1, lat->dim(2) - 1));
        }
        EXPECT_LT(fs::file_size(path), size_t(1000)) << "cut to the new length";
        EXPECT_EQ(vxtest::namesIn(dir.path()), std::vector<std::string>{name});

        for (bool existing : {false, true}) {
            SCOPED_TRACE(existing ? "over a previous result" : "new file");
            fs::remove(path);
            if (existing) {
                ASSERT_TRUE(VxFieldFile::saveNifti(*big, path.c_str(), &error)) << error;
            }
            float stoppedAt = -1;
            work->setObserver([&](const std::string &status, float fraction) {
                if (status.rfind("saving", 0) == 0 && fraction > 0.2f && stoppedAt < 0) {
                    stoppedAt = fraction;
                    work->interrupt();
                }
            });
            EXPECT_FALSE(VxFieldFile::saveNifti(*big, path.c_str(), &error));
            work->setObserver(nullptr);
            EXPECT_TRUE(stoppedAt > 0.2f && stoppedAt < 1.0f) << stoppedAt;
            EXPECT_HAS(error, "saving " + path + " failed: interrupted");
            EXPECT_TRUE(vxtest::namesIn(dir.path()).empty());
            EXPECT_EQ(threads(), threadsBefore);
        }
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
    EXPECT_EQ(vxtest::namesIn(dir.path()),
              (std::vector<std::string>{"hard.nii", "link.nii", "other.nii", "target.nii"}));
}

// teem 1.12 does not free its gzip and bzip2 decoder state when compressed
// samples fail to decode (about 24 KB and 70 KB per failed load); the broken
// NRRD files take those paths. Only those allocations (teem's and libbz2's,
// which only teem uses) are exempted.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:_nrrdGzOpen\nleak:BZ2_bzReadOpen\nleak:BZ2_bzDecompressInit\n";
}

// Files of the earlier writer, byte for byte as it wrote them before teem
// formatted the headers, for the fields saved below.
const std::string kEarlierHeader = "NRRD0004\n# NRRD file format, as teem reads it:\n"
                                   "# http://teem.sourceforge.net/nrrd/format.html\n";
const std::string kEarlierTail = "kinds: domain domain domain\nendian: little\nencoding: raw\n";

// A transformed field with typed and nested parameters and a stacked field,
// saved raw and with gzip, and as the earlier writer saved them: samples,
// places, parameters and slice positions come back; other tools see the
// stacked field's mean spacing.
TEST(VxFieldFileNrrd, SavedFieldsKeepSamplesPlacesAndParameters)
{
    auto f = indexField<int16_t>(3, 2, 2);
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
    auto s = indexField<uint8_t, VxStackedScalarField3>(2, 2, 4);
    const float z[4] = {10.0f, 10.5f, 12.0f, 15.0f};
    ASSERT_TRUE(s->lattice()->setSliceCoords(z, 4));
    const float sbox[6] = {1, 2, 3, 4, 0, 0};
    s->lattice()->setBoundingBox(sbox);

    vxtest::TempDir dir;
    vxtest::writeFileBytes(
        dir.file("f-earlier.nrrd"),
        bytesOf(kEarlierHeader +
                    "type: int16\ndimension: 3\nspace: left-posterior-superior\nsizes: 3 2 2\n"
                    "space directions: (0,5,0) (-5,0,0) (0,0,20)\n" +
                    kEarlierTail +
                    "space origin: (30,45,140)\nspace units: \"mm\" \"mm\" \"mm\"\n"
                    "content: old format\nvx:ParameterTypes:=UnitLength=f Count=i\n"
                    "UnitLength:=0.01\nCount:=-7\nModality:=CT\n"
                    "DICOM/All/G0008-103E:=series description [LO]: a\\\\b\\nline two\n"
                    "DICOM/Empty/:=\nDICOM/odd%2Fname%3Ax%3Dy%20z%25:=kept\n\n",
                {0,   0, 1,   0, 2,   0, 10,  0, 11,  0, 12,  0,
                 100, 0, 101, 0, 102, 0, 110, 0, 111, 0, 112, 0}));
    vxtest::writeFileBytes(
        dir.file("s-earlier.nrrd"),
        bytesOf(kEarlierHeader +
                    "type: uint8\ndimension: 3\nspace: left-posterior-superior\nsizes: 2 2 4\n"
                    "space directions: (1,0,0) (0,1,0) (0,0,1.66666666667)\n" +
                    kEarlierTail +
                    "space origin: (1,3,10)\nspace units: \"mm\" \"mm\" \"mm\"\n"
                    "vx:SliceOffsets:=0 0.5 2 5\n\n",
                {0, 1, 10, 11, 100, 101, 110, 111, 200, 201, 210, 211, 44, 45, 54, 55}));
    KcString error;
    for (const std::string name :
         {"f.nrrd", "f-gz.nrrd", "f-earlier.nrrd", "s.nrrd", "s-gz.nrrd", "s-earlier.nrrd"}) {
        SCOPED_TRACE(name);
        const VxField3 &saved = name[0] == 'f' ? static_cast<const VxField3 &>(*f) : *s;
        if (name.find("earlier") == std::string::npos) {
            ASSERT_TRUE(VxFieldFile::saveNrrd(saved, dir.file(name).c_str(),
                                              name.find("gz") != std::string::npos, &error))
                << error;
        }
        const Bytes raw = vxtest::readFileBytes(dir.file(name));
        const std::string header(raw.begin(), raw.end());
        EXPECT_HAS(header, "space: left-posterior-superior\n");
        LOAD(back, dir.file(name));
        expectSamePlaces(saved, *back);
        if (&saved == s.get()) {
            EXPECT_HAS(header, name == "s-earlier.nrrd" ? "(0,0,1.66666666667)"
                                                        : "(0,0,1.6666666666666667)");
            EXPECT_HAS(header, "vx:SliceOffsets:=0 0.5 2 5\n");
            ASSERT_EQ(back->coordType(), VX_COORD_STACKED);
            EXPECT_FALSE(back->hasTransform());
            for (int k = 0; k < 4; ++k)
                EXPECT_FLOAT_EQ(back->lattice()->sliceCoords()[k], z[k]);
            continue;
        }
        EXPECT_DOUBLE_EQ(back->unitLength(), 0.01);
        EXPECT_EQ(back->parameters().parameter("Count")->type(), VxParameter::Int);
        EXPECT_EQ(back->parameters().parameter("UnitLength")->type(), VxParameter::Float);
        EXPECT_EQ(back->parameters().dump(), f->parameters().dump());
    }

    // A volume of several gzip members (one per MiB of samples) reads whole.
    auto big = indexField<int16_t>(256, 256, 12);
    ASSERT_TRUE(VxFieldFile::saveNrrd(*big, dir.file("big.nrrd").c_str(), true, &error)) << error;
    LOAD(back, dir.file("big.nrrd"));
    ASSERT_EQ(back->lattice()->numBytes(), big->lattice()->numBytes());
    EXPECT_EQ(
        std::memcmp(back->lattice()->data(), big->lattice()->data(), big->lattice()->numBytes()),
        0);
}

// Headers as other writers and hands make them: each file's voxels (found by
// their unique values) sit where the header puts them, in LPS.
TEST(VxFieldFileNrrd, HeadersOfOtherWritersArePlacedAsTheySay)
{
    vxtest::TempDir dir;
    Bytes samples;
    for (int n = 0; n < 12; ++n) // uint16 i + 10 j + 100 k of 2 x 3 x 2, little endian
        samples.insert(samples.end(),
                       {static_cast<unsigned char>(n % 2 + 10 * (n / 2 % 3) + 100 * (n / 6)), 0});
    vxtest::writeFileBytes(dir.file("samples.raw"), samples);
    sh("gzip -n " + dir.file("samples.raw"));
    // Big-endian int32 after 3 junk bytes in a separate file.
    vxtest::writeFileBytes(dir.file("data.raw"), {9, 9, 9, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xfe});
    // Name, bytes, dimensions, sample type, values and where they lie.
    const std::tuple<const char *, Bytes, std::array<int, 3>, KcPrimType::Id,
                     std::vector<std::array<double, 4>>>
        rows[] = {
            // Comments, blanks around values, RAS space, the axes of a coronal
            // acquisition, gzip: voxel (i, j, k) is at LPS (3 - 2i, -4 - 3k, 5 - j).
            {"hand.nrrd",
             bytesOf("NRRD0005\n# written by hand\ntype:   unsigned short\ndimension: 3\n"
                     "space:  right-anterior-superior\nsizes: 2  3 2\n"
                     "space directions: (2, 0,0) ( 0,0,-1) (0,3,0)\n# a comment between fields\n"
                     "kinds: domain domain domain\nendian: little\nencoding: gzip\n"
                     "space origin: (-3,4,5)\nModality:=MR\n\n",
                     vxtest::readFileBytes(dir.file("samples.raw.gz"))),
             {2, 2, 3},
             KcPrimType::UInt16,
             {{121, 1, -7, 3}, {0, 3, -4, 5}, {10, 3, -4, 4}, {101, 1, -7, 5}}},
            {"detached.nhdr",
             bytesOf("NRRD0004\ntype: int\ndimension: 3\nsizes: 2 1 1\nspacings: 0.5 1 1\n"
                     "axis mins: 4 0 0\nendian: big\nencoding: raw\nbyte skip: 3\ndata file: "
                     "data.raw\n"),
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
             bytesOf(
                 kEarlierHeader +
                     "type: uint8\ndimension: 4\nspace: left-posterior-superior\nsizes: 3 2 1 1\n"
                     "space directions: none (1,0,0) (0,1,0) (0,0,1)\n"
                     "kinds: RGB-color domain domain domain\nendian: little\nencoding: raw\n"
                     "space origin: (0,0,0)\nspace units: \"mm\" \"mm\" \"mm\"\n\n",
                 {0, 40, 80, 120, 160, 200}),
             {2, 1, 1},
             KcPrimType::UInt8,
             {{40 * 256 + 80, 0, 0, 0}, {120 * 65536 + 160 * 256 + 200, 1, 0, 0}}},
        };
    for (const auto &[name, bytes, dims, type, valueAndPlace] : rows) {
        SCOPED_TRACE(name);
        vxtest::writeFileBytes(dir.file(name), bytes);
        LOAD(f, dir.file(name));
        EXPECT_FALSE(f->hasTransform());
        EXPECT_EQ(f->primType(), type);
        for (int a = 0; a < 3; ++a)
            EXPECT_EQ(f->lattice()->dim(a), dims[a]) << "axis " << a;
        for (const auto &[value, x, y, z] : valueAndPlace)
            expectValueAt(*f, value, x, y, z);
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
    const std::string out = sh("teem-unu save -i " + ours + " -f nrrd -e ascii -o -");
    for (const char *line :
         {"sizes: 3 2 2 1", "kinds: RGB-color domain domain domain",
          "Note:=back\\\\slash\\nnewline", "0 20 40 60 80 100 120 140 160 180 200 220"})
        EXPECT_HAS(out, line);

    // unu writes a gzip file of an ascii volume; file voxel (i, j, k) is at (1 + j, 2 + k, 3 + 2i).
    vxtest::writeFileBytes(
        dir.file("in.nrrd"),
        bytesOf("NRRD0004\ntype: short\ndimension: 3\nsizes: 2 2 2\n"
                "space: left-posterior-superior\nspace directions: (0,0,2) (1,0,0) (0,1,0)\n"
                "space origin: (1,2,3)\nencoding: ascii\n\n0 1 10 11 100 101 110 -111\n"));
    sh("teem-unu save -i " + dir.file("in.nrrd") + " -f nrrd -e gzip -o " + dir.file("teem.nrrd"));
    LOAD(f, dir.file("teem.nrrd"));
    EXPECT_FALSE(f->hasTransform());
    expectValueAt(*f, -111, 2, 3, 5);
    expectValueAt(*f, 10, 2, 2, 3);
    expectValueAt(*f, 1, 1, 2, 5);
}
