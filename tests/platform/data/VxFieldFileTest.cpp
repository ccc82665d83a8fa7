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
#include <string>
#include <vector>

#include <sys/fsuid.h>
#include <unistd.h>

namespace {

const std::string kProbe = std::string(VX_DATA_TEST_DIR) + "/nifti_probe.py";

#define REQUIRE_NIBABEL()                                                                          \
    do {                                                                                           \
        if (!vxtest::havePythonModules({"nibabel", "numpy"}))                                      \
            GTEST_SKIP() << "nibabel and numpy for " VX_PYTHON " are needed for this test";        \
    } while (0)

// nifti_probe.py's JSON for a file, with the values at the given indexes.
QJsonObject probe(const std::string &path, const std::string &points)
{
    std::string out;
    const int rc = vxtest::runCommand(
        std::string(VX_PYTHON) + " " + kProbe + " probe '" + path + "' " + points, &out, true);
    EXPECT_EQ(rc, 0) << out;
    return QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
}

void expectMatrix(const QJsonValue &m, const double expected[4][4], const char *what)
{
    ASSERT_TRUE(m.isArray()) << what;
    const QJsonArray rows = m.toArray();
    ASSERT_EQ(rows.size(), 4) << what;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(rows[r].toArray()[c].toDouble(), expected[r][c], 1e-4)
                << what << " [" << r << "][" << c << "]";
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

void expectWorld(const VxField3 &f, int i, int j, int k, double x, double y, double z,
                 double tol = 1e-3)
{
    float w[3];
    f.voxelToWorld(i, j, k, w);
    EXPECT_NEAR(w[0], x, tol) << "voxel " << i << "," << j << "," << k;
    EXPECT_NEAR(w[1], y, tol) << "voxel " << i << "," << j << "," << k;
    EXPECT_NEAR(w[2], z, tol) << "voxel " << i << "," << j << "," << k;
}

std::string readText(const std::string &path)
{
    const std::vector<unsigned char> b = vxtest::readFileBytes(path);
    return std::string(b.begin(), b.end());
}

std::vector<unsigned char> gzipBytes(const void *data, size_t n)
{
    z_stream zs{};
    deflateInit2(&zs, 6, Z_DEFLATED, 16 + 15, 8, Z_DEFAULT_STRATEGY);
    std::vector<unsigned char> out(compressBound(n) + 64);
    zs.next_in = static_cast<Bytef *>(const_cast<void *>(data));
    zs.avail_in = static_cast<uInt>(n);
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    deflate(&zs, Z_FINISH);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}

} // namespace

// --------------------------------------------------------------- NIfTI out

// Axial, 4 x 3 x 2, voxel 1 x 2 x 3 mm, first voxel at LPS (10, 20, -5):
// RAS affine diag(-1, -2, 3) with offset (-10, -20, -5).
TEST(VxFieldFileNifti, AxialFieldIsPlacedAsNibabelReadsIt)
{
    REQUIRE_NIBABEL();
    auto f = indexField<int16_t, VxUniformScalarField3>(4, 3, 2);
    const float box[6] = {10, 13, 20, 24, -5, -2};
    f->setBoundingBox(box);
    f->setLabel("axial test");
    vxtest::TempDir dir;
    const std::string path = dir.file("axial.nii");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;

    const QJsonObject j = probe(path, "3,2,1 1,0,0 0,2,1");
    const double expected[4][4] = {{-1, 0, 0, -10}, {0, -2, 0, -20}, {0, 0, 3, -5}, {0, 0, 0, 1}};
    expectMatrix(j["sform"], expected, "sform");
    expectMatrix(j["qform"], expected, "qform");
    EXPECT_EQ(j["sform_code"].toInt(), 2);
    EXPECT_EQ(j["qform_code"].toInt(), 1);
    EXPECT_EQ(j["dtype"].toString(), "int16");
    EXPECT_EQ(j["shape"].toArray(), QJsonArray({4, 3, 2}));
    EXPECT_EQ(j["values"].toArray(), QJsonArray({123, 1, 120}));
    EXPECT_EQ(j["xyzt_units"].toArray()[0].toString(), "mm");
    EXPECT_EQ(j["descrip"].toString(), "axial test");
}

// Sagittal slices by transformation, lengths in cm. Local x runs to
// posterior (world +y), local y downward (world -z), local z to the left
// (world +x); voxel 5 x 5 x 2 mm; translation (1, 2, 3) cm. Voxel (i, j, k)
// is at LPS (10 + 2k, 20 + 5i, 30 - 5j) mm, so the RAS affine has columns
// (0, -5, 0), (0, 0, -5), (-2, 0, 0) and offset (-10, -20, 30).
TEST(VxFieldFileNifti, SagittalFieldByTransformIsPlacedAsNibabelReadsIt)
{
    REQUIRE_NIBABEL();
    auto f = indexField<uint16_t, VxUniformScalarField3>(3, 4, 2);
    const float box[6] = {0, 1.0f, 0, 1.5f, 0, 0.2f};
    f->setBoundingBox(box);
    f->parameters().setFloat("UnitLength", 0.01);
    f->setTransform(SbMatrix(0, 1, 0, 0,  //
                             0, 0, -1, 0, //
                             1, 0, 0, 0,  //
                             1, 2, 3, 1));
    vxtest::TempDir dir;
    const std::string path = dir.file("sagittal.nii.gz");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
    EXPECT_EQ(vxtest::readFileBytes(path)[0], 0x1f) << "gzip magic";

    const QJsonObject j = probe(path, "2,3,1");
    const double expected[4][4] = {{0, 0, -2, -10}, {-5, 0, 0, -20}, {0, -5, 0, 30}, {0, 0, 0, 1}};
    expectMatrix(j["sform"], expected, "sform");
    expectMatrix(j["qform"], expected, "qform");
    EXPECT_EQ(j["dtype"].toString(), "uint16");
    EXPECT_EQ(j["values"].toArray(), QJsonArray({132}));
    EXPECT_NEAR(j["zooms"].toArray()[0].toDouble(), 5.0, 1e-5);
    EXPECT_NEAR(j["zooms"].toArray()[2].toDouble(), 2.0, 1e-5);
}

// Oblique: 30 degrees about z, voxel 2 x 3 x 4 mm, translation (100, -50, 25)
// mm. LPS columns 2 (cos 30, sin 30, 0) = (1.7320508, 1, 0) and
// 3 (-sin 30, cos 30, 0) = (-1.5, 2.5980762, 0); RAS negates their x and y.
TEST(VxFieldFileNifti, ObliqueFieldIsPlacedAsNibabelReadsIt)
{
    REQUIRE_NIBABEL();
    auto f = indexField<float, VxUniformScalarField3>(2, 2, 2);
    const float box[6] = {0, 2, 0, 3, 0, 4};
    f->setBoundingBox(box);
    const float c = std::cos(static_cast<float>(M_PI) / 6);
    const float s = std::sin(static_cast<float>(M_PI) / 6);
    f->setTransform(SbMatrix(c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 100, -50, 25, 1));
    vxtest::TempDir dir;
    const std::string path = dir.file("oblique.nii");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;

    const QJsonObject j = probe(path, "1,1,1");
    const double expected[4][4] = {
        {-1.7320508, 1.5, 0, -100}, {-1, -2.5980762, 0, 50}, {0, 0, 4, 25}, {0, 0, 0, 1}};
    expectMatrix(j["sform"], expected, "sform");
    expectMatrix(j["qform"], expected, "qform");
    EXPECT_EQ(j["dtype"].toString(), "float32");
    EXPECT_EQ(j["values"].toArray()[0].toDouble(), 111.0);

    // Our own reader gives the same voxel positions back, through a transform.
    auto back = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_TRUE(back->hasTransform());
    expectWorld(*back, 0, 0, 0, 100, -50, 25);
    expectWorld(*back, 1, 0, 0, 101.7320508, -49, 25);
    expectWorld(*back, 1, 1, 1, 100.2320508, -46.4019238, 29);
    EXPECT_EQ(sampleAt<float>(*back, 1, 1, 1), 111.0f);
}

TEST(VxFieldFileNifti, StackedFieldGetsTheMeanSpacingAndAWarning)
{
    REQUIRE_NIBABEL();
    auto f = indexField<uint8_t, VxStackedScalarField3>(2, 2, 3);
    const float z[3] = {-4.0f, -3.0f, -1.0f}; // spacing 1 then 2: mean 1.5
    ASSERT_TRUE(f->lattice()->setSliceCoords(z, 3));
    const float box[6] = {0, 1, 0, 1, 0, 0};
    f->lattice()->setBoundingBox(box);
    vxtest::TempDir dir;
    const std::string path = dir.file("stacked.nii");
    KcString error;
    VxMessageCapture console;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
    EXPECT_TRUE(console.contains("not evenly spaced")) << console.text();
    EXPECT_TRUE(console.contains("1.5 mm")) << console.text();
    EXPECT_TRUE(console.contains(path)) << console.text();

    const QJsonObject j = probe(path, "1,1,2");
    const double expected[4][4] = {{-1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, 1.5, -4}, {0, 0, 0, 1}};
    expectMatrix(j["sform"], expected, "sform");
    EXPECT_EQ(j["values"].toArray(), QJsonArray({211}));

    // Evenly spaced stacked slices are exact and need no warning.
    const float even[3] = {-4.0f, -3.0f, -2.0f};
    ASSERT_TRUE(f->lattice()->setSliceCoords(even, 3));
    console.clear();
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
    EXPECT_FALSE(console.contains("not evenly spaced")) << console.text();
}

TEST(VxFieldFileNifti, ColourFieldIsRgb24)
{
    REQUIRE_NIBABEL();
    const int dims[3] = {2, 1, 1};
    auto *rgb = static_cast<uint8_t *>(std::malloc(6));
    const uint8_t values[6] = {255, 0, 10, 1, 2, 3};
    std::memcpy(rgb, values, 6);
    VxRegColorField3 f(dims, VX_COORD_UNIFORM, 3, rgb);
    vxtest::TempDir dir;
    const std::string path = dir.file("colour.nii");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(f, path.c_str(), &error)) << error;
    const QJsonObject j = probe(path, "0,0,0 1,0,0");
    EXPECT_EQ(j["dtype"].toString(), "rgb");
    EXPECT_EQ(j["values"].toArray(), QJsonArray({QJsonArray({255, 0, 10}), QJsonArray({1, 2, 3})}));

    auto back = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_NE(dynamic_cast<VxRegColorField3 *>(back.get()), nullptr);
    EXPECT_EQ(back->lattice()->nComponents(), 3);
    EXPECT_EQ(sampleAt<uint8_t>(*back, 1, 0, 0, 2), 3);
}

TEST(VxFieldFileNifti, SeriesOfFieldsIsOne4DFile)
{
    REQUIRE_NIBABEL();
    std::vector<std::unique_ptr<VxUniformScalarField3>> steps;
    KcDArray<const VxField3 *> list;
    const float box[6] = {0, 2, 0, 2, 0, 2};
    for (int t = 0; t < 3; ++t) {
        steps.push_back(indexField<int32_t, VxUniformScalarField3>(3, 3, 3));
        int32_t *d = static_cast<int32_t *>(steps.back()->lattice()->data());
        for (int n = 0; n < 27; ++n)
            d[n] += 1000 * t;
        steps.back()->setBoundingBox(box);
        list.append(steps.back().get());
    }
    vxtest::TempDir dir;
    const std::string path = dir.file("series.nii");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNiftiSeries(list, path.c_str(), &error, 2.5)) << error;
    const QJsonObject j = probe(path, "1,2,0,2 0,0,0,0");
    EXPECT_EQ(j["shape"].toArray(), QJsonArray({3, 3, 3, 3}));
    EXPECT_EQ(j["values"].toArray(), QJsonArray({2021, 0}));
    EXPECT_NEAR(j["zooms"].toArray()[3].toDouble(), 2.5, 1e-6);
    EXPECT_EQ(j["xyzt_units"].toArray()[1].toString(), "sec");

    // Loading a 4D file gives its first volume, with a warning.
    VxMessageCapture console;
    auto first = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(first) << error;
    EXPECT_TRUE(console.contains("first of 3 volumes")) << console.text();
    EXPECT_EQ(sampleAt<int32_t>(*first, 2, 2, 2), 222);
}

TEST(VxFieldFileNifti, SeriesRefusesFieldsThatDoNotMatch)
{
    auto a = indexField<int16_t, VxUniformScalarField3>(2, 2, 2);
    auto b = indexField<int16_t, VxUniformScalarField3>(2, 2, 3);
    auto c = indexField<uint16_t, VxUniformScalarField3>(2, 2, 2);
    auto d = indexField<int16_t, VxUniformScalarField3>(2, 2, 2);
    const float shifted[6] = {0, 1, 0, 1, 0.5f, 1.5f};
    d->setBoundingBox(shifted);
    vxtest::TempDir dir;
    const std::string path = dir.file("bad.nii");
    KcString error;

    KcDArray<const VxField3 *> dims{a.get(), b.get()};
    EXPECT_FALSE(VxFieldFile::saveNiftiSeries(dims, path.c_str(), &error));
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find("step 1 has dimensions 2 x 2 x 3"), std::string::npos) << error;

    KcDArray<const VxField3 *> types{a.get(), a.get(), c.get()};
    EXPECT_FALSE(VxFieldFile::saveNiftiSeries(types, path.c_str(), &error));
    EXPECT_NE(error.find("step 2 has 1 x uint16"), std::string::npos) << error;

    KcDArray<const VxField3 *> place{a.get(), d.get()};
    EXPECT_FALSE(VxFieldFile::saveNiftiSeries(place, path.c_str(), &error));
    EXPECT_NE(error.find("step 1 lies elsewhere"), std::string::npos) << error;

    EXPECT_FALSE(VxFieldFile::saveNiftiSeries({}, path.c_str(), &error));
    EXPECT_FALSE(std::filesystem::exists(path));
}

// ---------------------------------------------------------------- NIfTI in

// nibabel's RAS diag(2, 3, 4) file, offset (-90, -126, -72). In LPS voxel
// (i, j, k) is at (90 - 2i, 126 - 3j, -72 + 4k): x and y run downward, so
// the loaded field is mirrored in both and its box starts at (86, 117, -72).
TEST(VxFieldFileNifti, NibabelFileLoadsInTheRightPlace)
{
    REQUIRE_NIBABEL();
    vxtest::TempDir dir;
    const std::string path = dir.file("ras.nii");
    ASSERT_EQ(
        vxtest::runCommand(std::string(VX_PYTHON) + " " + kProbe + " make " + path + " ras-diag"),
        0);
    KcString error;
    auto f = VxFieldFile::loadNifti(path.c_str(), &error);
    ASSERT_TRUE(f) << error;
    EXPECT_NE(dynamic_cast<VxUniformScalarField3 *>(f.get()), nullptr);
    EXPECT_FALSE(f->hasTransform());
    EXPECT_EQ(f->label(), "ras");
    EXPECT_DOUBLE_EQ(f->unitLength(), 0.001);
    float box[6];
    f->getBoundingBox(box);
    EXPECT_FLOAT_EQ(box[0], 86);
    EXPECT_FLOAT_EQ(box[1], 90);
    EXPECT_FLOAT_EQ(box[2], 117);
    EXPECT_FLOAT_EQ(box[3], 126);
    EXPECT_FLOAT_EQ(box[4], -72);
    EXPECT_FLOAT_EQ(box[5], -56);
    // Our voxel (0, 0, 0) is nibabel's (2, 3, 0): 2 + 30.
    EXPECT_EQ(sampleAt<int16_t>(*f, 0, 0, 0), 32);
    expectWorld(*f, 0, 0, 0, 86, 117, -72);
    // Our (2, 1, 4) is nibabel's (0, 2, 4) at LPS (90, 120, -56): 420.
    EXPECT_EQ(sampleAt<int16_t>(*f, 2, 1, 4), 420);
    expectWorld(*f, 2, 1, 4, 90, 120, -56);
}

// qform only, rotated 30 degrees about z in RAS. Voxel (1, 2, 1) is at
// RAS (10 + 1.5 cos30 - 4 sin30, 20 + 1.5 sin30 + 4 cos30, 32.5)
// = (9.299038, 24.214102, 32.5), LPS (-9.299038, -24.214102, 32.5).
TEST(VxFieldFileNifti, ObliqueQformOnlyFileLoadsWithATransform)
{
    REQUIRE_NIBABEL();
    vxtest::TempDir dir;
    const std::string path = dir.file("oblique.nii");
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + kProbe + " make " + path +
                                 " oblique-qform"),
              0);
    KcString error;
    auto f = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(f) << error;
    ASSERT_TRUE(f->hasTransform());
    // Find where file voxel (1, 2, 1) (value 121) went and check its place.
    bool found = false;
    for (int k = 0; k < f->lattice()->dim(2); ++k)
        for (int j = 0; j < f->lattice()->dim(1); ++j)
            for (int i = 0; i < f->lattice()->dim(0); ++i)
                if (sampleAt<int16_t>(*f, i, j, k) == 121) {
                    expectWorld(*f, i, j, k, -9.299038, -24.214102, 32.5);
                    found = true;
                }
    EXPECT_TRUE(found);
    // The transformation is a rotation (lengths are kept in the local box).
    const SbMatrix &m = f->transform();
    for (int r = 0; r < 3; ++r)
        EXPECT_NEAR(m[r][0] * m[r][0] + m[r][1] * m[r][1] + m[r][2] * m[r][2], 1.0, 1e-5);
}

// Identity RAS affine: in LPS x and y run downward, so our voxel (i, j, k) is
// the file's (1 - i, 1 - j, k).
TEST(VxFieldFileNifti, ScaledFileLoadsAsFloatValues)
{
    REQUIRE_NIBABEL();
    vxtest::TempDir dir;
    const std::string path = dir.file("scaled.nii");
    ASSERT_EQ(
        vxtest::runCommand(std::string(VX_PYTHON) + " " + kProbe + " make " + path + " scaled"), 0);
    const QJsonObject j = probe(path, "0,0,1 1,1,0");
    KcString error;
    auto f = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(f) << error;
    EXPECT_EQ(f->primType(), KcPrimType::Float);
    EXPECT_EQ(sampleAt<float>(*f, 1, 1, 1), j["values"].toArray()[0].toDouble());
    EXPECT_EQ(sampleAt<float>(*f, 0, 0, 0), j["values"].toArray()[1].toDouble());
    EXPECT_EQ(sampleAt<float>(*f, 1, 1, 1), 199.0f); // 2 * 100 - 1
    EXPECT_EQ(sampleAt<float>(*f, 0, 0, 0), 21.0f);  // 2 * 11 - 1
}

TEST(VxFieldFileNifti, BrokenFilesFailWithAReason)
{
    vxtest::TempDir dir;
    KcString error;
    EXPECT_FALSE(VxFieldFile::load(dir.file("missing.nii").c_str(), &error));
    EXPECT_NE(error.find("missing.nii"), std::string::npos) << error;
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;

    const std::string junk = dir.file("junk.nii");
    vxtest::writeFileBytes(junk, std::vector<unsigned char>(400, 'x'));
    EXPECT_FALSE(VxFieldFile::load(junk.c_str(), &error));
    EXPECT_NE(error.find("junk.nii failed: not a NIfTI-1 file"), std::string::npos) << error;

    // A valid file cut inside its samples.
    auto f = indexField<int16_t, VxUniformScalarField3>(8, 8, 8);
    const std::string cut = dir.file("cut.nii");
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, cut.c_str(), &error)) << error;
    std::vector<unsigned char> bytes = vxtest::readFileBytes(cut);
    bytes.resize(bytes.size() - 100);
    vxtest::writeFileBytes(cut, bytes);
    EXPECT_FALSE(VxFieldFile::load(cut.c_str(), &error));
    EXPECT_NE(error.find("cut.nii"), std::string::npos) << error;

    // Saving into a folder that does not exist, and what NIfTI cannot hold.
    const std::string nowhere = dir.file("no/such/dir/a.nii");
    EXPECT_FALSE(VxFieldFile::save(*f, nowhere.c_str(), &error));
    EXPECT_NE(error.find("saving " + nowhere + " failed: cannot open for writing"),
              std::string::npos)
        << error;
    const int dims[3] = {1, 1, 1};
    VxRegColorField3 deep(dims, VX_COORD_UNIFORM, 3, nullptr, KcPrimType::UInt16);
    EXPECT_FALSE(VxFieldFile::saveNifti(deep, dir.file("deep.nii").c_str(), &error));
    EXPECT_NE(error.find("save as NRRD"), std::string::npos) << error;
    EXPECT_FALSE(VxFieldFile::save(*f, dir.file("a.tiff").c_str(), &error));
    EXPECT_NE(error.find("unknown file type"), std::string::npos) << error;
    EXPECT_FALSE(VxFieldFile::saveNifti(*f, dir.file("noext").c_str(), &error));
    EXPECT_NE(error.find("not a NIfTI file name"), std::string::npos) << error;
    EXPECT_FALSE(std::filesystem::exists(dir.file("noext")));

    // Upper-case endings are NIfTI too, and the file keeps its name.
    const std::string upper = dir.file("UPPER.NII.GZ");
    ASSERT_TRUE(VxFieldFile::save(*f, upper.c_str(), &error)) << error;
    int named = 0;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        named += entry.path().filename().string().rfind("UPPER", 0) == 0;
    EXPECT_EQ(named, 1);
    EXPECT_EQ(vxtest::readFileBytes(upper)[0], 0x1f) << "gzip magic";
    auto back = VxFieldFile::load(upper.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(sampleAt<int16_t>(*back, 7, 7, 7), 777);
}

// A .nii.gz of several gzip members: 523 x 401 x 8 int16 is 3.2 MiB of
// samples, so the writer's 1 MiB members end inside the samples and the last
// one is short. Every reader must see one stream: gzip, nifticlib (through
// nifti_tool) and nibabel, with the same bytes as the plain .nii.
TEST(VxFieldFileNifti, GzipOfSeveralMembersIsOneStreamForEveryReader)
{
    REQUIRE_NIBABEL();
    auto f = indexField<int16_t, VxUniformScalarField3>(523, 401, 8);
    vxtest::TempDir dir;
    const std::string plain = dir.file("v.nii"), packed = dir.file("v.nii.gz");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, plain.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, packed.c_str(), &error)) << error;
    const std::vector<unsigned char> plainBytes = vxtest::readFileBytes(plain);
    ASSERT_EQ(plainBytes.size(), 352u + 523u * 401u * 8u * 2u);

    std::string out;
    EXPECT_EQ(vxtest::runCommand("gzip -t " + vxtest::shellQuote(packed), &out, true), 0) << out;
    const std::string unpacked = dir.file("gunzipped.nii");
    ASSERT_EQ(vxtest::runCommand("gzip -dc " + vxtest::shellQuote(packed) + " > " +
                                 vxtest::shellQuote(unpacked)),
              0);
    EXPECT_TRUE(vxtest::readFileBytes(unpacked) == plainBytes) << "gzip -dc differs from .nii";

    // nibabel at the corners and on both sides of the first member ends:
    // the first member holds the header and the first 65,184 sample bytes
    // (64 KiB in all), the following ones 1 MiB each.
    std::string points = "0,0,0 522,400,7";
    std::vector<std::array<int, 3>> expected = {{0, 0, 0}, {522, 400, 7}};
    for (long end = 65184; end < 523L * 401 * 8 * 2; end += 1L << 20)
        for (long voxel : {end / 2 - 1, end / 2}) {
            const int i = static_cast<int>(voxel % 523), j = static_cast<int>(voxel / 523 % 401),
                      k = static_cast<int>(voxel / (523 * 401));
            points += KcString::format(" %d,%d,%d", i, j, k);
            expected.push_back({i, j, k});
        }
    const QJsonObject j = probe(packed, points);
    const QJsonArray values = j["values"].toArray();
    ASSERT_EQ(values.size(), static_cast<int>(expected.size())) << points;
    for (size_t n = 0; n < expected.size(); ++n)
        EXPECT_EQ(values[static_cast<int>(n)].toInt(),
                  expected[n][0] + 10 * expected[n][1] + 100 * expected[n][2])
            << "voxel " << expected[n][0] << "," << expected[n][1] << "," << expected[n][2];
    EXPECT_EQ(j["shape"].toArray(), QJsonArray({523, 401, 8}));

    if (!vxtest::haveProgram("nifti_tool"))
        GTEST_SKIP() << "nifti_tool (Debian nifti-bin) is needed for the nifticlib check";
    const std::string copy = dir.file("copy.nii");
    ASSERT_EQ(vxtest::runCommand("nifti_tool -copy_im -prefix " + vxtest::shellQuote(copy) +
                                     " -infiles " + vxtest::shellQuote(packed),
                                 &out, true),
              0)
        << out;
    const std::vector<unsigned char> copied = vxtest::readFileBytes(copy);
    ASSERT_EQ(copied.size(), plainBytes.size());
    EXPECT_TRUE(std::equal(copied.begin() + 352, copied.end(), plainBytes.begin() + 352))
        << "nifticlib reads other samples";
}

// A large uncompressed file puts its samples at byte 4096, so that they are
// written from memory to the disk directly; the samples end off a block
// boundary. Saved twice (the second time over the first), it holds the same
// samples as the .nii.gz, as nibabel and nifticlib read them.
TEST(VxFieldFileNifti, LargeUncompressedFileStartsItsSamplesOnABlock)
{
    REQUIRE_NIBABEL();
    auto f = indexField<int16_t, VxUniformScalarField3>(523, 401, 41);
    const size_t sampleBytes = 523u * 401u * 41u * 2u;
    ASSERT_GE(sampleBytes, size_t(16) << 20);
    ASSERT_NE(sampleBytes % 4096, 0u);
    vxtest::TempDir dir;
    const std::string plain = dir.file("big.nii"), packed = dir.file("big.nii.gz");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, packed.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, plain.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, plain.c_str(), &error)) << error;
    const std::vector<unsigned char> bytes = vxtest::readFileBytes(plain);
    ASSERT_EQ(bytes.size(), 4096u + sampleBytes);
    float voxOffset;
    std::memcpy(&voxOffset, bytes.data() + 108, sizeof voxOffset);
    EXPECT_EQ(voxOffset, 4096.0f);
    EXPECT_TRUE(std::all_of(bytes.begin() + 348, bytes.begin() + 4096,
                            [](unsigned char b) { return b == 0; }));
    const std::string unpacked = dir.file("unpacked.nii");
    ASSERT_EQ(vxtest::runCommand("gzip -dc " + vxtest::shellQuote(packed) + " > " +
                                 vxtest::shellQuote(unpacked)),
              0);
    const std::vector<unsigned char> reference = vxtest::readFileBytes(unpacked);
    ASSERT_EQ(reference.size(), 352u + sampleBytes);
    EXPECT_TRUE(std::equal(bytes.begin() + 4096, bytes.end(), reference.begin() + 352));

    const QJsonObject j = probe(plain, "0,0,0 522,400,40 521,400,40 7,3,20");
    EXPECT_EQ(j["values"].toArray(), QJsonArray({0, 522 + 4000 + 4000, 521 + 4000 + 4000, 2037}));
    std::string out;
    if (vxtest::haveProgram("nifti_tool")) {
        EXPECT_EQ(vxtest::runCommand("nifti_tool -check_hdr -check_nim -infiles " +
                                         vxtest::shellQuote(plain),
                                     &out, true),
                  0)
            << out;
        EXPECT_EQ(out.find("BAD"), std::string::npos) << out;
    }
    auto back = VxFieldFile::load(plain.c_str(), &error);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(sampleAt<int16_t>(*back, 522, 400, 40), 522 + 4000 + 4000);
}

namespace {

std::vector<std::string> namesIn(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

size_t threadsOfThisProcess()
{
    size_t n = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator("/proc/self/task"))
        ++n;
    return n;
}

} // namespace

// Saving again under the same name replaces the file whatever it had been;
// a name that is a link gets a file of its own and the file it pointed to,
// or shared with another name, keeps its contents.
TEST(VxFieldFileNifti, SavingAgainReplacesTheFileAndLeavesNothingElse)
{
    auto big = indexField<int16_t, VxUniformScalarField3>(300, 200, 12);
    auto small = indexField<uint8_t, VxUniformScalarField3>(5, 4, 3);
    for (const char *name : {"again.nii", "again.nii.gz"}) {
        SCOPED_TRACE(name);
        vxtest::TempDir dir;
        const std::string path = dir.file(name);
        KcString error;
        ASSERT_TRUE(VxFieldFile::saveNifti(*big, path.c_str(), &error)) << error;
        const auto bigSize = std::filesystem::file_size(path);
        ASSERT_TRUE(VxFieldFile::saveNifti(*small, path.c_str(), &error)) << error;
        EXPECT_LT(std::filesystem::file_size(path), bigSize / 10) << "cut to the new length";
        auto back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_EQ(back->lattice()->dim(0), 5);
        EXPECT_EQ(back->lattice()->primType(), KcPrimType::UInt8);
        EXPECT_EQ(sampleAt<uint8_t>(*back, 4, 3, 2), 234);
        // And back to the larger one, over the smaller.
        ASSERT_TRUE(VxFieldFile::saveNifti(*big, path.c_str(), &error)) << error;
        back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_EQ(sampleAt<int16_t>(*back, 299, 199, 11), 299 + 1990 + 1100);
        EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{name});
    }

    vxtest::TempDir dir;
    KcString error;
    const std::string target = dir.file("target.nii"), link = dir.file("link.nii");
    const std::string hard = dir.file("hard.nii"), other = dir.file("other.nii");
    ASSERT_TRUE(VxFieldFile::saveNifti(*big, target.c_str(), &error)) << error;
    std::filesystem::create_symlink("target.nii", link);
    std::filesystem::copy_file(target, hard);
    std::filesystem::create_hard_link(hard, other);
    const std::vector<unsigned char> before = vxtest::readFileBytes(target);
    ASSERT_TRUE(VxFieldFile::saveNifti(*small, link.c_str(), &error)) << error;
    ASSERT_TRUE(VxFieldFile::saveNifti(*small, hard.c_str(), &error)) << error;
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(vxtest::readFileBytes(target) == before) << "the link's target changed";
    EXPECT_TRUE(vxtest::readFileBytes(other) == before) << "the other hard link changed";
    EXPECT_TRUE(vxtest::readFileBytes(link) == vxtest::readFileBytes(hard));
    EXPECT_EQ(namesIn(dir.path()),
              (std::vector<std::string>{"hard.nii", "link.nii", "other.nii", "target.nii"}));
}

// A folder the user may not write into: the save fails naming the file, and
// nothing is left there. As root, permissions are checked for "nobody"
// (setfsuid on this thread drops root's right to override them).
TEST(VxFieldFileNifti, ReadOnlyFolderFailsNamingTheFileAndLeavesNothing)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(300, 200, 12);
    vxtest::TempDir dir;
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    const std::string folder = dir.file("readonly");
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms(0555));
    struct AsNobody
    {
        const bool root = geteuid() == 0;
        AsNobody()
        {
            if (root)
                setfsuid(65534);
        }
        ~AsNobody()
        {
            if (root)
                setfsuid(0);
        }
    };
    for (const char *name : {"a.nii", "a.nii.gz"}) {
        const std::string path = folder + "/" + name;
        KcString error;
        bool saved;
        {
            AsNobody nobody;
            saved = VxFieldFile::saveNifti(*f, path.c_str(), &error);
        }
        EXPECT_FALSE(saved) << name;
        EXPECT_NE(error.find("saving " + path +
                             " failed: cannot open for writing: Permission "
                             "denied"),
                  std::string::npos)
            << error;
    }
    EXPECT_TRUE(namesIn(folder).empty());
}

// Ctrl-C while a file is written: the save stops with "interrupted", the
// compression threads are gone and no file, whole or partial, is left; a
// previous result of that name is gone too (it was being rewritten).
TEST(VxFieldFileNifti, InterruptedSaveLeavesNoFileAndNoThread)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(512, 512, 24); // 12 MiB
    VxWorkArea *work = VxWorkArea::instance();
    const size_t threadsBefore = threadsOfThisProcess();
    for (const char *name : {"stop.nii", "stop.nii.gz"})
        for (bool existing : {false, true}) {
            SCOPED_TRACE(std::string(name) + (existing ? " over a previous result" : ""));
            vxtest::TempDir dir;
            const std::string path = dir.file(name);
            KcString error;
            if (existing) {
                ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
            }
            float stoppedAt = -1;
            work->setObserver([&](const std::string &status, float fraction) {
                if (status.rfind("saving", 0) == 0 && fraction > 0.2f && stoppedAt < 0) {
                    stoppedAt = fraction;
                    work->interrupt();
                }
            });
            const bool saved = VxFieldFile::saveNifti(*f, path.c_str(), &error);
            work->setObserver(nullptr);
            EXPECT_FALSE(saved);
            EXPECT_GT(stoppedAt, 0.2f);
            EXPECT_LT(stoppedAt, 1.0f) << "interrupted before the last piece";
            EXPECT_NE(error.find("saving " + path + " failed: interrupted"), std::string::npos)
                << error;
            EXPECT_TRUE(namesIn(dir.path()).empty());
            EXPECT_EQ(threadsOfThisProcess(), threadsBefore);
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

TEST(VxFieldFileNrrd, RoundTripKeepsSamplesPlaceAndParameters)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(3, 2, 2);
    const float box[6] = {-1.5f, -0.5f, 2, 2.5f, 7, 9};
    f->setBoundingBox(box);
    f->parameters().setFloat("UnitLength", 0.01);
    f->parameters().setInt("Count", -7);
    f->parameters().setString("Modality", "CT");
    auto *dicom = new VxParamBundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name [PN]: Doe^John");
    all->setString("G0008-103E", "series description [LO]: a\\b\nline two");
    dicom->insert(all);
    dicom->insert(new VxParamBundle("Empty"));
    dicom->setString("odd/name:x=y z%", "kept");
    f->parameters().insert(dicom);
    f->setTransform(SbMatrix(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 5, 6, 7, 1));

    vxtest::TempDir dir;
    for (bool gzip : {false, true}) {
        const std::string path = dir.file(gzip ? "f.gz.nrrd" : "f.nrrd");
        KcString error;
        ASSERT_TRUE(VxFieldFile::saveNrrd(*f, path.c_str(), gzip, &error)) << error;
        const std::string text = readText(path);
        EXPECT_NE(text.find("space: left-posterior-superior\n"), std::string::npos);
        EXPECT_NE(text.find("DICOM/All/G0008-103E:=series description [LO]: a\\\\b\\nline two\n"),
                  std::string::npos);

        auto back = VxFieldFile::load(path.c_str(), &error);
        ASSERT_TRUE(back) << error;
        EXPECT_DOUBLE_EQ(back->unitLength(), 0.01);
        for (int k = 0; k < 2; ++k)
            for (int j = 0; j < 2; ++j)
                for (int i = 0; i < 3; ++i) {
                    float w[3];
                    f->voxelToWorld(i, j, k, w);
                    // Find the loaded voxel with the same value and compare places.
                    const int16_t v = static_cast<int16_t>(i + 10 * j + 100 * k);
                    int matches = 0;
                    const VxLattice3 *lat = back->lattice();
                    for (int c = 0; c < lat->dim(2); ++c)
                        for (int b = 0; b < lat->dim(1); ++b)
                            for (int a = 0; a < lat->dim(0); ++a)
                                if (sampleAt<int16_t>(*back, a, b, c) == v) {
                                    expectWorld(*back, a, b, c, w[0], w[1], w[2], 1e-5);
                                    ++matches;
                                }
                    EXPECT_EQ(matches, 1) << "value " << v;
                }
        const VxParamBundle &p = back->parameters();
        EXPECT_EQ(p.parameter("Count")->type(), VxParameter::Int);
        EXPECT_EQ(p.parameter("Count")->intValue(), -7);
        EXPECT_EQ(p.parameter("UnitLength")->type(), VxParameter::Float);
        EXPECT_EQ(p.getString("Modality"), "CT");
        ASSERT_NE(p.bundle("DICOM"), nullptr);
        ASSERT_NE(p.bundle("DICOM")->bundle("All"), nullptr);
        EXPECT_EQ(p.bundle("DICOM")->bundle("All")->getString("G0008-103E"),
                  "series description [LO]: a\\b\nline two");
        EXPECT_EQ(p.bundle("DICOM")->bundle("All")->getString("G0010-0010"),
                  "patient name [PN]: Doe^John");
        ASSERT_NE(p.bundle("DICOM")->bundle("Empty"), nullptr);
        EXPECT_EQ(p.bundle("DICOM")->getString("odd/name:x=y z%"), "kept");
    }

    // A volume of several gzip members (one per MiB of samples) reads whole.
    auto big = indexField<int16_t, VxUniformScalarField3>(256, 256, 12);
    const std::string path = dir.file("big.nrrd");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(*big, path.c_str(), true, &error)) << error;
    auto back = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(back) << error;
    ASSERT_EQ(back->lattice()->numBytes(), big->lattice()->numBytes());
    EXPECT_EQ(
        std::memcmp(back->lattice()->data(), big->lattice()->data(), big->lattice()->numBytes()),
        0);
}

TEST(VxFieldFileNrrd, StackedFieldKeepsItsSlicePositions)
{
    auto f = indexField<uint8_t, VxStackedScalarField3>(2, 2, 4);
    const float z[4] = {10.0f, 10.5f, 12.0f, 15.0f};
    ASSERT_TRUE(f->lattice()->setSliceCoords(z, 4));
    const float box[6] = {1, 2, 3, 4, 0, 0};
    f->lattice()->setBoundingBox(box);
    vxtest::TempDir dir;
    const std::string path = dir.file("stacked.nrrd");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(*f, path.c_str(), false, &error)) << error;
    // Other tools see the mean spacing (15 - 10) / 3 mm.
    EXPECT_NE(readText(path).find("(0,0,1.6666666666666667)"), std::string::npos) << readText(path);
    EXPECT_NE(readText(path).find("vx:SliceOffsets:=0 0.5 2 5\n"), std::string::npos);

    auto back = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(back) << error;
    ASSERT_EQ(back->coordType(), VX_COORD_STACKED);
    EXPECT_FALSE(back->hasTransform());
    const KcDArray<float> &s = back->lattice()->sliceCoords();
    ASSERT_EQ(s.size(), 4);
    for (int k = 0; k < 4; ++k)
        EXPECT_FLOAT_EQ(s[k], z[k]);
    expectWorld(*back, 1, 1, 2, 2, 4, 12);
    EXPECT_EQ(sampleAt<uint8_t>(*back, 1, 1, 2), 211);
}

// Files of the writer before teem formatted the headers (byte for byte as it
// wrote them) keep loading: a transformed field with typed and nested
// parameters, a stacked field and a colour field.
TEST(VxFieldFileNrrd, FilesOfTheEarlierWriterStillLoad)
{
    const std::string common = "NRRD0004\n"
                               "# NRRD file format, as teem reads it:\n"
                               "# http://teem.sourceforge.net/nrrd/format.html\n";
    const std::string tail = "kinds: domain domain domain\nendian: little\nencoding: raw\n";
    const std::string uniform =
        common +
        "type: int16\ndimension: 3\nspace: left-posterior-superior\nsizes: 3 2 2\n"
        "space directions: (0,5,0) (-5,0,0) (0,0,20)\n" +
        tail +
        "space origin: (30,45,140)\n"
        "space units: \"mm\" \"mm\" \"mm\"\n"
        "content: old format\n"
        "vx:ParameterTypes:=UnitLength=f Count=i\n"
        "UnitLength:=0.01\n"
        "Count:=-7\n"
        "Modality:=CT\n"
        "DICOM/All/G0008-103E:=series description [LO]: a\\\\b\\nline two\n"
        "DICOM/Empty/:=\n"
        "DICOM/odd%2Fname%3Ax%3Dy%20z%25:=kept\n"
        "\n";
    const std::string stacked =
        common +
        "type: uint8\ndimension: 3\nspace: left-posterior-superior\nsizes: 2 2 4\n"
        "space directions: (1,0,0) (0,1,0) (0,0,1.66666666667)\n" +
        tail +
        "space origin: (1,3,10)\nspace units: \"mm\" \"mm\" \"mm\"\n"
        "vx:SliceOffsets:=0 0.5 2 5\n\n";
    const std::string rgb = common + "type: uint8\ndimension: 4\nspace: left-posterior-superior\n"
                                     "sizes: 3 2 1 1\n"
                                     "space directions: none (1,0,0) (0,1,0) (0,0,1)\n"
                                     "kinds: RGB-color domain domain domain\n"
                                     "endian: little\nencoding: raw\nspace origin: (0,0,0)\n"
                                     "space units: \"mm\" \"mm\" \"mm\"\n\n";
    vxtest::TempDir dir;
    auto write = [&](const char *name, const std::string &header,
                     const std::vector<unsigned char> &samples) {
        std::vector<unsigned char> bytes(header.begin(), header.end());
        bytes.insert(bytes.end(), samples.begin(), samples.end());
        vxtest::writeFileBytes(dir.file(name), bytes);
        KcString error;
        auto f = VxFieldFile::load(dir.file(name).c_str(), &error);
        EXPECT_TRUE(f) << error;
        return f;
    };

    // Saved from the field of RoundTripKeepsSamplesPlaceAndParameters.
    auto u = write("uniform.nrrd", uniform, {0,   0, 1,   0, 2,   0, 10,  0, 11,  0, 12,  0,
                                             100, 0, 101, 0, 102, 0, 110, 0, 111, 0, 112, 0});
    ASSERT_TRUE(u);
    EXPECT_DOUBLE_EQ(u->unitLength(), 0.01);
    // File voxel (2, 1, 1) = 112 lies at (30 - 5, 45 + 10, 140 + 20) mm =
    // (2.5, 5.5, 16) cm, where the saved field had it.
    int found = 0;
    const VxLattice3 *lat = u->lattice();
    for (int c = 0; c < lat->dim(2); ++c)
        for (int b = 0; b < lat->dim(1); ++b)
            for (int a = 0; a < lat->dim(0); ++a)
                if (sampleAt<int16_t>(*u, a, b, c) == 112) {
                    expectWorld(*u, a, b, c, 2.5, 5.5, 16, 1e-5);
                    ++found;
                }
    EXPECT_EQ(found, 1);
    const VxParamBundle &p = u->parameters();
    EXPECT_EQ(p.parameter("Count")->type(), VxParameter::Int);
    EXPECT_EQ(p.parameter("Count")->intValue(), -7);
    EXPECT_EQ(p.getString("Modality"), "CT");
    ASSERT_NE(p.bundle("DICOM"), nullptr);
    EXPECT_EQ(p.bundle("DICOM")->bundle("All")->getString("G0008-103E"),
              "series description [LO]: a\\b\nline two");
    EXPECT_NE(p.bundle("DICOM")->bundle("Empty"), nullptr);
    EXPECT_EQ(p.bundle("DICOM")->getString("odd/name:x=y z%"), "kept");

    auto s = write("stacked.nrrd", stacked,
                   {0, 1, 10, 11, 100, 101, 110, 111, 200, 201, 210, 211, 44, 45, 54, 55});
    ASSERT_TRUE(s);
    ASSERT_EQ(s->coordType(), VX_COORD_STACKED);
    const float z[4] = {10.0f, 10.5f, 12.0f, 15.0f};
    for (int k = 0; k < 4; ++k)
        EXPECT_FLOAT_EQ(s->lattice()->sliceCoords()[k], z[k]);
    expectWorld(*s, 1, 1, 2, 2, 4, 12);
    EXPECT_EQ(sampleAt<uint8_t>(*s, 1, 1, 2), 211);

    auto c = write("rgb.nrrd", rgb, {0, 40, 80, 120, 160, 200});
    ASSERT_TRUE(c);
    ASSERT_EQ(c->lattice()->nComponents(), 3);
    EXPECT_EQ(sampleAt<uint8_t>(*c, 1, 0, 0, 2), 200);
}

// A header written by hand: comments, blanks around values, RAS space, the
// axes of a coronal acquisition, gzip data. Voxel (i, j, k) is at RAS
// (-3 + 2i, 4 + 3k, 5 - j) = LPS (3 - 2i, -4 - 3k, 5 - j).
TEST(VxFieldFileNrrd, HandWrittenGzipHeaderIsParsed)
{
    std::vector<uint16_t> samples;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 2; ++i)
                samples.push_back(static_cast<uint16_t>(i + 10 * j + 100 * k));
    const std::string header = "NRRD0005\n"
                               "# written by hand\n"
                               "type:   unsigned short\n"
                               "dimension: 3\n"
                               "space:  right-anterior-superior\n"
                               "sizes: 2  3 2\n"
                               "space directions: (2, 0,0) ( 0,0,-1) (0,3,0)\n"
                               "# a comment between fields\n"
                               "kinds: domain domain domain\n"
                               "endian: little\n"
                               "encoding: gzip\n"
                               "space origin: (-3,4,5)\n"
                               "Modality:=MR\n"
                               "\n";
    std::vector<unsigned char> bytes(header.begin(), header.end());
    const std::vector<unsigned char> gz = gzipBytes(samples.data(), samples.size() * 2);
    bytes.insert(bytes.end(), gz.begin(), gz.end());
    vxtest::TempDir dir;
    const std::string path = dir.file("hand.nrrd");
    vxtest::writeFileBytes(path, bytes);

    KcString error;
    auto f = VxFieldFile::load(path.c_str(), &error);
    ASSERT_TRUE(f) << error;
    EXPECT_EQ(f->primType(), KcPrimType::UInt16);
    EXPECT_FALSE(f->hasTransform());
    EXPECT_EQ(f->parameters().getString("Modality"), "MR");
    // File axis 1 runs along world z, axis 2 along world y: the loaded
    // lattice is 2 x 2 x 3 with x and y mirrored.
    EXPECT_EQ(f->lattice()->dim(0), 2);
    EXPECT_EQ(f->lattice()->dim(1), 2);
    EXPECT_EQ(f->lattice()->dim(2), 3);
    float box[6];
    f->getBoundingBox(box);
    EXPECT_FLOAT_EQ(box[0], 1);
    EXPECT_FLOAT_EQ(box[1], 3);
    EXPECT_FLOAT_EQ(box[2], -7);
    EXPECT_FLOAT_EQ(box[3], -4);
    EXPECT_FLOAT_EQ(box[4], 3);
    EXPECT_FLOAT_EQ(box[5], 5);
    // File voxel (1, 2, 1) = 121 is at LPS (1, -7, 3): our (0, 0, 0).
    EXPECT_EQ(sampleAt<uint16_t>(*f, 0, 0, 0), 121);
    // File voxel (0, 0, 0) = 0 is at LPS (3, -4, 5): our (1, 1, 2).
    EXPECT_EQ(sampleAt<uint16_t>(*f, 1, 1, 2), 0);
    expectWorld(*f, 1, 1, 2, 3, -4, 5);
}

TEST(VxFieldFileNrrd, DetachedBigEndianAndAsciiDataAreRead)
{
    vxtest::TempDir dir;
    // Big-endian int32 after 3 junk bytes in a separate file.
    const std::vector<unsigned char> raw = {9, 9, 9, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xfe};
    vxtest::writeFileBytes(dir.file("data.raw"), raw);
    const std::string nhdr = "NRRD0004\ntype: int\ndimension: 3\nsizes: 2 1 1\n"
                             "spacings: 0.5 1 1\naxis mins: 4 0 0\nendian: big\n"
                             "encoding: raw\nbyte skip: 3\ndata file: data.raw\n";
    vxtest::writeFileBytes(dir.file("d.nhdr"),
                           std::vector<unsigned char>(nhdr.begin(), nhdr.end()));
    KcString error;
    auto f = VxFieldFile::load(dir.file("d.nhdr").c_str(), &error);
    ASSERT_TRUE(f) << error;
    EXPECT_EQ(sampleAt<int32_t>(*f, 0, 0, 0), 1);
    EXPECT_EQ(sampleAt<int32_t>(*f, 1, 0, 0), -2);
    expectWorld(*f, 1, 0, 0, 4.5, 0, 0);

    const std::string ascii = "NRRD0004\ntype: float\ndimension: 2\nsizes: 3 2\n"
                              "encoding: ascii\n\n1.5 2\n-3, 4e2\n5 6\n";
    vxtest::writeFileBytes(dir.file("a.nrrd"),
                           std::vector<unsigned char>(ascii.begin(), ascii.end()));
    auto a = VxFieldFile::load(dir.file("a.nrrd").c_str(), &error);
    ASSERT_TRUE(a) << error;
    EXPECT_EQ(a->lattice()->dim(0), 3);
    EXPECT_EQ(a->lattice()->dim(1), 2);
    EXPECT_EQ(a->lattice()->dim(2), 1);
    EXPECT_EQ(sampleAt<float>(*a, 0, 1, 0), 400.0f);
    EXPECT_EQ(sampleAt<float>(*a, 2, 1, 0), 6.0f);
}

TEST(VxFieldFileNrrd, BrokenFilesFailWithAReason)
{
    vxtest::TempDir dir;
    struct Case
    {
        const char *text;
        const char *reason;
    };
    const Case cases[] = {
        {"P5\n", "no NRRD magic"},
        {"NRRD0004\ntype: int64\ndimension: 1\nsizes: 1\nencoding: raw\nendian: little\n\n12345678",
         "sample type \"long long int\" is not supported"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2\nencoding: raw\nendian: little\n\n",
         "parsed 2 values, but dimension is 3"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 2 2 -1\nencoding: raw\nendian: little\n\n",
         "sizes"},
        // The format requires an encoding; teem refuses a header without one.
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\n\n12345678", "encoding"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\nencoding: raw\n\n1234",
         "holds 4 bytes of samples, 8 are needed"},
        // teem would take data without the gzip magic as raw bytes.
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\nencoding: gzip\n\nnot gzip",
         "gzip magic"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\nencoding: gzip\n\n\x1f\x8b\x08",
         "gzip"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 2 2 2\nencoding: bzip2\n\nxx",
         "DATA_ERROR_MAGIC"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 1 1 1\nspace: right-anterior-superior-time\n"
         "space directions: (1,0,0,0) (0,1,0,0) (0,0,1,0)\nencoding: raw\n\nx",
         "not supported"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 1 1 1\nspace: left-posterior-superior\n"
         "space directions: (1,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx",
         "parsed 2 values, but space dimension is 3"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 1 1 1\nencoding: raw\ndata file: "
         "nothere.raw\n",
         "nothere.raw"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 1 1 1\nspace: left-posterior-superior\n"
         "space directions: (nan,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx",
         "space vector"},
        {"NRRD0004\ntype: uchar\ndimension: 3\nsizes: 1 1 1\nspace: left-posterior-superior\n"
         "space directions: (inf,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx",
         "space vector"},
        // Sizes far beyond the file fail before anything is allocated.
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 100000 100000 100000\nencoding: raw\n"
         "endian: little\n\nx",
         "4000000000000000 are needed"},
    };
    for (const Case &c : cases) {
        const std::string path = dir.file("broken.nrrd");
        const std::string text = c.text;
        vxtest::writeFileBytes(path, std::vector<unsigned char>(text.begin(), text.end()));
        KcString error;
        EXPECT_FALSE(VxFieldFile::load(path.c_str(), &error)) << c.text;
        EXPECT_NE(error.find("loading " + path + " failed: "), std::string::npos) << error;
        EXPECT_NE(error.find(c.reason), std::string::npos) << error;
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
    EXPECT_NE(out.find("sizes: 3 2 2 1"), std::string::npos) << out;
    EXPECT_NE(out.find("kinds: RGB-color domain domain domain"), std::string::npos) << out;
    EXPECT_NE(out.find("Note:=back\\\\slash\\nnewline"), std::string::npos) << out;
    EXPECT_NE(out.find("0 20 40 60 80 100 120 140 160 180 200 220"), std::string::npos) << out;

    // unu writes a gzip file of a hand-made ascii volume; we load it.
    const std::string ascii = "NRRD0004\ntype: short\ndimension: 3\nsizes: 2 2 2\n"
                              "space: left-posterior-superior\n"
                              "space directions: (0,0,2) (1,0,0) (0,1,0)\nspace origin: (1,2,3)\n"
                              "encoding: ascii\n\n0 1 10 11 100 101 110 -111\n";
    vxtest::writeFileBytes(dir.file("in.nrrd"),
                           std::vector<unsigned char>(ascii.begin(), ascii.end()));
    const std::string teems = dir.file("teem.nrrd");
    ASSERT_EQ(vxtest::runCommand("teem-unu save -i " + dir.file("in.nrrd") +
                                 " -f nrrd -e gzip -o " + teems),
              0);
    auto f = VxFieldFile::load(teems.c_str(), &error);
    ASSERT_TRUE(f) << error;
    // File axis 0 runs along z, 1 along x, 2 along y: swapped into x, y, z.
    // File voxel (i, j, k) is at (1 + j, 2 + k, 3 + 2i).
    EXPECT_FALSE(f->hasTransform());
    EXPECT_EQ(sampleAt<int16_t>(*f, 1, 1, 1), -111); // file (1, 1, 1)
    expectWorld(*f, 1, 1, 1, 2, 3, 5);
    EXPECT_EQ(sampleAt<int16_t>(*f, 1, 0, 0), 10); // file (0, 1, 0)
    expectWorld(*f, 1, 0, 0, 2, 2, 3);
}

// ------------------------------------------------ real scanner series

namespace {

struct WorldSample
{
    double pos[3];
    double value;
};

std::vector<WorldSample> runSamples(const std::string &args)
{
    std::string out;
    const int rc = vxtest::runCommand(std::string(VX_PYTHON) + " " + kProbe + " " + args, &out);
    EXPECT_EQ(rc, 0) << out;
    std::vector<WorldSample> samples;
    for (const QJsonValue &v : QJsonDocument::fromJson(QByteArray::fromStdString(out)).array()) {
        const QJsonArray a = v.toArray();
        samples.push_back({{a[0].toDouble(), a[1].toDouble(), a[2].toDouble()}, a[3].toDouble()});
    }
    return samples;
}

// The voxel of a uniform field nearest to a world position.
bool worldToVoxel(const VxField3 &f, const double world[3], int ijk[3])
{
    SbVec3f local(static_cast<float>(world[0]), static_cast<float>(world[1]),
                  static_cast<float>(world[2]));
    if (f.hasTransform())
        f.transform().inverse().multVecMatrix(SbVec3f(local), local);
    float box[6];
    f.getBoundingBox(box);
    for (int a = 0; a < 3; ++a) {
        const int n = f.lattice()->dim(a);
        const double step = n > 1 ? (box[2 * a + 1] - box[2 * a]) / (n - 1) : 1.0;
        ijk[a] = static_cast<int>(std::lround((local[a] - box[2 * a]) / step));
        if (ijk[a] < 0 || ijk[a] >= n)
            return false;
    }
    return true;
}

double valueAt(const VxField3 &f, const int ijk[3])
{
    switch (f.lattice()->primType().id()) {
    case KcPrimType::UInt8:
        return sampleAt<uint8_t>(f, ijk[0], ijk[1], ijk[2]);
    case KcPrimType::Int16:
        return sampleAt<int16_t>(f, ijk[0], ijk[1], ijk[2]);
    case KcPrimType::UInt16:
        return sampleAt<uint16_t>(f, ijk[0], ijk[1], ijk[2]);
    case KcPrimType::Int32:
        return sampleAt<int32_t>(f, ijk[0], ijk[1], ijk[2]);
    case KcPrimType::Float:
        return sampleAt<float>(f, ijk[0], ijk[1], ijk[2]);
    }
    return 0;
}

// Every sample must land on a voxel of the field (within 0.01 mm) that holds
// its value. Samples above maxValue are skipped.
void expectSamplesInField(const VxField3 &f, const std::vector<WorldSample> &samples,
                          double maxValue = 1e30)
{
    int checked = 0;
    for (const WorldSample &s : samples) {
        if (s.value > maxValue)
            continue;
        int ijk[3];
        ASSERT_TRUE(worldToVoxel(f, s.pos, ijk))
            << "(" << s.pos[0] << ", " << s.pos[1] << ", " << s.pos[2] << ") is outside the field";
        float w[3];
        f.voxelToWorld(ijk[0], ijk[1], ijk[2], w);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(w[c], s.pos[c], 0.01)
                << "voxel " << ijk[0] << "," << ijk[1] << "," << ijk[2];
        EXPECT_NEAR(valueAt(f, ijk), s.value, 1e-3 * std::max(1.0, std::fabs(s.value)))
            << "voxel " << ijk[0] << "," << ijk[1] << "," << ijk[2];
        ++checked;
    }
    EXPECT_GT(checked, 10);
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

} // namespace

// dcm2niix converts a real series; we load its NIfTI, and every checked
// pixel must sit where the DICOM header puts it (or, for a 4D series, where
// nibabel puts dcm2niix's first volume), with its value. Then we save the
// field and nibabel must find the same voxels in our file.
TEST_P(VxFieldFileScanner, Dcm2niixOutputLoadsInPatientSpace)
{
    VX_REQUIRE_SHARED_DATA();
    REQUIRE_NIBABEL();
    if (!vxtest::haveProgram("dcm2niix") || !vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "dcm2niix and pydicom are needed for this test";
    const ScannerSeries &series = GetParam();
    const std::string in = vxtest::sharedPath(series.folder);
    vxtest::TempDir dir;
    std::string log;
    ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -b n -f out -o '" + dir.path().string() + "' '" +
                                     in + "'",
                                 &log, true),
              0)
        << log;
    const std::string nii = dir.file("out.nii");
    KcString error;
    VxMessageCapture console; // a 4D series warns that only its first volume is loaded
    auto f = VxFieldFile::load(nii.c_str(), &error);
    ASSERT_TRUE(f) << error;

    std::vector<WorldSample> truth;
    if (series.dicomTruth) {
        std::string files;
        for (const std::string &p : vxtest::sharedDicomFiles(series.folder))
            files += " '" + p + "'";
        truth = runSamples("dicom-samples" + files);
    } else {
        truth = runSamples("samples '" + nii + "' 60");
    }
    expectSamplesInField(*f, truth, series.maxValue);

    const std::string ours = dir.file("ours.nii.gz");
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, ours.c_str(), &error)) << error;
    expectSamplesInField(*f, runSamples("samples '" + ours + "' 60"));
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

TEST(VxFieldFileNifti, FieldWithoutAFinitePlaceIsNotSaved)
{
    auto f = indexField<int16_t, VxUniformScalarField3>(4, 3, 2);
    const float box[6] = {10, 13, 20, std::nanf(""), -5, -2};
    f->setBoundingBox(box);
    f->setLabel("lost");
    vxtest::TempDir dir;
    for (const char *name : {"lost.nii", "lost.nrrd"}) {
        const std::string path = dir.file(name);
        KcString error;
        EXPECT_FALSE(VxFieldFile::save(*f, path.c_str(), &error)) << name;
        EXPECT_NE(error.find("field \"lost\": its geometry is not finite"), std::string::npos)
            << error;
        EXPECT_FALSE(std::filesystem::exists(path)) << name;
    }
}
