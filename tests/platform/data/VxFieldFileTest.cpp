#include "platform/data/VxFieldFile.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/WriteAhead.h"
#include "tests/support/TestSupport.h"

#include <Inventor/SbVec3f.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <cmath>
#include <cstring>

using namespace vxtest;
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string(text).find(part), std::string::npos) << (text)
#define REQUIRE_NIBABEL() VX_REQUIRE(havePythonModules({"nibabel", "numpy"}), "nibabel and numpy")
#define LOAD(var, path)                                                                            \
    KcString var##Error;                                                                           \
    const auto var = VxFieldFile::load(std::string(path).c_str(), &var##Error);                    \
    ASSERT_TRUE(var) << var##Error

QJsonObject python(const std::vector<std::string> &args)
{
    return pythonJson(VX_TEST_DIR "/nifti_probe.py", args).object();
}

std::string sh(const std::string &command)
{
    std::string out;
    EXPECT_EQ(runCommand(command, &out, true), 0) << command << "\n" << out;
    return out;
}

Bytes bytesOf(const std::string &text, const Bytes &tail = {})
{
    Bytes b(text.begin(), text.end());
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
}

// A field whose sample at (i, j, k) is i + 10 j + 100 k.
template <typename T, typename F = VxUniformScalarField3>
std::unique_ptr<F> indexField(int n0, int n1, int n2, const std::array<float, 6> *box = nullptr)
{
    const int dims[3] = {n0, n1, n2};
    const size_t count = size_t(n0) * n1 * n2;
    T *data = static_cast<T *>(std::malloc(sizeof(T) * count));
    for (size_t n = 0; n < count; ++n)
        data[n] = static_cast<T>(n % n0 + 10 * (n / n0 % n1) + 100 * (n / n0 / n1));
    using P = KcPrimType;
    auto f = std::make_unique<F>(dims,
                                 std::is_floating_point_v<T> ? P::Float
                                 : sizeof(T) == 1            ? P::UInt8
                                 : sizeof(T) == 4            ? P::Int32
                                 : std::is_signed_v<T>       ? P::Int16
                                                             : P::UInt16,
                                 data);
    if constexpr (std::is_same_v<F, VxUniformScalarField3>)
        if (box)
            f->setBoundingBox(box->data());
    return f;
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
        << "voxel " << i << "," << j << "," << k << " is at " << w[0] << " " << w[1] << " " << w[2];
}

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

// Each sample [x, y, z, value] (LPS mm, up to maxValue) is within 0.01 mm of a voxel of its value.
void expectSamplesInField(const VxField3 &f, const QJsonObject &answer, double maxValue = 1e30)
{
    const double toField = 0.001 / f.unitLength();
    float box[6];
    f.getBoundingBox(box);
    int checked = 0;
    for (const QJsonValue &v : answer["samples"].toArray()) {
        const double s[4] = {v[0].toDouble(), v[1].toDouble(), v[2].toDouble(), v[3].toDouble()};
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

} // namespace

// Our NIfTI as nibabel, nifticlib and we read it, uneven slices, and nibabel's own files.
TEST(VxFieldFileNifti, NibabelAndWePlaceEveryVoxelAlike)
{
    REQUIRE_NIBABEL();
    const std::array<float, 6> largeBox{10, 532, 20, 420, -5, 35},
        sagittalBox{0, 1, 0, 1.5f, 0, 0.2f}, obliqueBox{0, 2, 0, 3, 0, 4};
    auto sagittal = indexField<uint16_t>(3, 4, 2, &sagittalBox); // by transformation, in cm
    sagittal->parameters().setFloat("UnitLength", 0.01);
    sagittal->setTransform(SbMatrix(0, 1, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 1, 2, 3, 1));
    auto oblique = indexField<float>(2, 2, 2, &obliqueBox); // 30 degrees about z
    const float c = std::cos(float(M_PI) / 6), s = std::sin(float(M_PI) / 6);
    oblique->setTransform(SbMatrix(c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 100, -50, 25, 1));
    auto stacked = indexField<uint8_t, VxStackedScalarField3>(2, 2, 3);
    const float even[3] = {-4, -3, -2}, uneven[3] = {-4, -3, -1};
    ASSERT_TRUE(stacked->lattice()->setSliceCoords(even, 3));
    const int dims[3] = {2, 1, 1};
    const uint8_t rgb[6] = {255, 0, 10, 1, 2, 3};
    VxRegColorField3 colour(dims, VX_COORD_UNIFORM, 3, std::memcpy(std::malloc(6), rgb, 6));
    auto large = indexField<int16_t>(523, 401, 41, &largeBox);
    const std::tuple<const char *, const VxField3 *, const char *> rows[] = {
        {"sagittal.nii.gz", sagittal.get(), "uint16"},
        {"oblique.nii", oblique.get(), "float32"},
        {"stacked.nii", stacked.get(), "uint8"},
        {"colour.nii", &colour, "rgb"},
        {"large.nii.gz", large.get(), "int16"}};
    TempDir dir;
    KcString error;
    VxMessageCapture console;
    const bool nifticlib = haveProgram("nifti_tool");
    for (const auto &[name, field, dtype] : rows) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(VxFieldFile::saveNifti(*field, dir.file(name).c_str(), &error)) << error;
        const QJsonObject nb = python({"probe", dir.file(name)});
        EXPECT_EQ(nb["dtype"].toString().toStdString(), dtype);
        EXPECT_EQ(nb["sform_code"].toInt() * 10 + nb["qform_code"].toInt(), 21);
        EXPECT_TRUE(nb["qform_is_sform"].toBool());
        EXPECT_EQ(nb["units"].toArray()[0].toString(), "mm");
        expectSamplesInField(*field, nb);
        LOAD(back, dir.file(name));
        expectSamplesInField(*back, nb);
        if (!nifticlib)
            continue;
        EXPECT_EQ(sh("nifti_tool -check_hdr -check_nim -infiles " + dir.file(name)).find("BAD"),
                  std::string::npos);
        sh("nifti_tool -copy_im -prefix " + dir.file("copy.nii") + " -infiles " + dir.file(name));
        const Bytes copied = readFileBytes(dir.file("copy.nii"));
        EXPECT_TRUE(copied.size() == 352 + field->lattice()->numBytes() &&
                    std::equal(copied.begin() + 352, copied.end(),
                               static_cast<const unsigned char *>(field->lattice()->data())))
            << "nifticlib reads other samples";
        fs::remove(dir.file("copy.nii"));
    }
    EXPECT_FALSE(console.contains("not evenly spaced")) << console.text();
    ASSERT_TRUE(stacked->lattice()->setSliceCoords(uneven, 3));
    const std::string path = dir.file("uneven.nii");
    ASSERT_TRUE(VxFieldFile::saveNifti(*stacked, path.c_str(), &error)) << error;
    for (const std::string &part : {std::string("not evenly spaced"), std::string("1.5 mm"), path})
        EXPECT_HAS(console.text(), part);
    EXPECT_NEAR(python({"probe", path})["zooms"].toArray()[2].toDouble(), 1.5, 1e-6);

    for (const auto &[kind, transform, type] :
         {std::tuple{"ras-diag", false, KcPrimType::Int16},
          std::tuple{"oblique-qform", true, KcPrimType::Int16},
          std::tuple{"scaled", false, KcPrimType::Float}}) {
        SCOPED_TRACE(kind);
        const std::string file = dir.file(std::string(kind) + ".nii");
        python({"make", file, kind});
        LOAD(f, file);
        EXPECT_EQ(f->hasTransform(), transform);
        EXPECT_EQ(f->primType(), type);
        expectSamplesInField(*f, python({"probe", file}));
    }
    if (!nifticlib)
        GTEST_SKIP() << "nifti_tool (Debian nifti-bin) was not there for the nifticlib checks";
}

// dcm2niix's NIfTI of real series: each pixel where the DICOM header (or nibabel for 4D) puts it.
TEST(VxFieldFileNifti, Dcm2niixOutputOfRealSeriesLoadsInPatientSpace)
{
    VX_REQUIRE_SHARED_DATA();
    REQUIRE_NIBABEL();
    VX_REQUIRE(haveProgram("dcm2niix") && havePythonModules({"pydicom"}), "dcm2niix and pydicom");
    // Folder, pixels placed by pydicom (else nibabel), values above which dcm2niix masks.
    const std::tuple<const char *, bool, double> rows[] = {
        {"dcm_qa_sag/In/2_gre_field_mapping", true, 4095},  // sagittal, 42 x 64 x 5
        {"dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2", false, 1e30}}; // oblique axial, 4D, made float
    for (const auto &[folder, dicomTruth, maxValue] : rows) {
        SCOPED_TRACE(folder);
        TempDir dir;
        sh("dcm2niix -z n -b n -f out -o " + shellQuote(dir.path()) + " " +
           shellQuote(sharedPath(folder)));
        VxMessageCapture console; // a 4D series warns that only its first volume is loaded
        LOAD(f, dir.file("out.nii"));
        std::vector<std::string> args = sharedDicomFiles(folder);
        args.insert(args.begin(), "dicom");
        expectSamplesInField(
            *f, python(dicomTruth ? args : std::vector<std::string>{"probe", dir.file("out.nii")}),
            maxValue);
    }
}

TEST(VxFieldFile, BrokenFilesAndImpossibleSavesFailWithAReason)
{
    TempDir dir;
    KcString error;
    auto f = indexField<int16_t>(8, 8, 8);
    ASSERT_TRUE(VxFieldFile::saveNifti(*f, dir.file("cut.nii").c_str(), &error)) << error;
    fs::resize_file(dir.file("cut.nii"), fs::file_size(dir.file("cut.nii")) - 100);
    writeFileBytes(dir.file("junk.nii"), Bytes(400, 'x'));
    for (const auto &[name, reason] :
         {std::pair{"missing.nii", "No such file"}, std::pair{"junk.nii", "not a NIfTI-1 file"},
          std::pair{"cut.nii", ""}}) {
        EXPECT_FALSE(VxFieldFile::load(dir.file(name).c_str(), &error)) << name;
        EXPECT_HAS(error, dir.file(name) + " failed: ");
        EXPECT_HAS(error, reason);
    }

    const std::array<float, 6> nanBox{10, 13, 20, std::nanf(""), -5, -2};
    auto lost = indexField<int16_t>(4, 3, 2, &nanBox);
    lost->setLabel("lost");
    const std::tuple<const VxField3 *, std::string, const char *> saves[] = {
        {f.get(), "no/such/dir/a.nii", "failed: cannot open for writing"},
        {lost.get(), "lost.nrrd", "field \"lost\": its geometry is not finite"}};
    for (const auto &[field, name, reason] : saves) {
        const std::string path = dir.file(name);
        EXPECT_FALSE(VxFieldFile::save(*field, path.c_str(), &error)) << name;
        EXPECT_HAS(error, reason);
        EXPECT_FALSE(fs::exists(path)) << name;
    }
    EXPECT_HAS(error, dir.file("lost.nrrd"));

    const std::string head = "NRRD0004\ntype: uchar\ndimension: 3\n",
                      le = "encoding: raw\nendian: little\n\n",
                      lps =
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
        {head + "sizes: 1 1 1\nencoding: raw\ndata file: nothere.raw\n", "nothere.raw"},
        {lps + "(nan,0,0) (0,1,0) (0,0,1)\nencoding: raw\n\nx", "space vector"},
        {"NRRD0004\ntype: float\ndimension: 3\nsizes: 100000 100000 100000\n" + le + "x",
         "4000000000000000 are needed"},
    };
    const std::string path = dir.file("broken.nrrd");
    for (const auto &[text, reason] : cases) {
        writeFileBytes(path, bytesOf(text));
        EXPECT_FALSE(VxFieldFile::load(path.c_str(), &error)) << text;
        EXPECT_HAS(error, "loading " + path + " failed: ");
        EXPECT_HAS(error, reason);
    }
}

// A save replaces the file; Ctrl-C leaves no file and no compression thread.
TEST(VxFieldFileNifti, SavesLeaveOneWholeFileOrNothing)
{
    auto big = indexField<int16_t>(512, 512, 24); // 12 MiB
    auto small = indexField<uint8_t>(5, 4, 3);
    auto threads = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
    const auto threadsBefore = threads();
    VxWorkArea *work = VxWorkArea::instance();
    TempDir dir;
    KcString error;
    for (const std::string name : {"a.nii", "a.nii.gz"}) {
        SCOPED_TRACE(name);
        const std::string path = dir.file(name);
        for (const VxField3 *f : {big.get(), small.get()})
            ASSERT_TRUE(VxFieldFile::saveNifti(*f, path.c_str(), &error)) << error;
        EXPECT_LT(fs::file_size(path), size_t(1000)) << "cut to the new length";
        LOAD(back, path);
        EXPECT_EQ(valueAt(*back, 4, 3, 2), 234);
        float stoppedAt = -1;
        work->setObserver([&](const std::string &status, float fraction) {
            if (status.rfind("saving", 0) == 0 && fraction > 0.2f && stoppedAt < 0)
                stoppedAt = fraction, work->interrupt();
        });
        EXPECT_FALSE(VxFieldFile::saveNifti(*big, path.c_str(), &error));
        work->setObserver(nullptr);
        EXPECT_TRUE(stoppedAt > 0.2f && stoppedAt < 1.0f) << stoppedAt;
        EXPECT_HAS(error, "saving " + path + " failed: interrupted");
        EXPECT_TRUE(namesIn(dir.path()).empty());
        EXPECT_EQ(threads(), threadsBefore);
    }
}

// Samples read straight into the file they are saved in: the save adds the header and gives the
// name; the file is the ordinary save's, byte for byte, and stays so when the field changes after.
// Unfinished, changed or relabelled, nothing wrong is left.
TEST(VxFieldFileNifti, SamplesWrittenAheadMakeTheOrdinaryFileOrNone)
{
    using vxfield::WriteAhead;
    TempDir dir;
    const size_t slice = 512 * 512 * 2, n = 40 * slice; // 20 MiB of int16
    const auto field = [&](const char *label, bool keep) {
        auto ahead = WriteAhead::start(n, 1, label);
        EXPECT_EQ(!ahead, std::string(label) == "x") << label; // "x": before the namer is set
        auto *s = ahead ? ahead->samples() : static_cast<unsigned char *>(std::malloc(n + 1));
        for (size_t b = 0; b < n; ++b)
            s[b] = static_cast<unsigned char>(b * 7 + b / slice);
        s[n] = 0xff; // the spare byte a decoder may write, which the file does not keep
        if (keep)
            WriteAhead::keep(std::move(ahead));
        const int dims[3] = {512, 512, 40};
        return std::make_unique<VxUniformScalarField3>(dims, KcPrimType::Int16, s);
    };
    KcString error;
    const auto save = [&](const VxField3 &f, const std::string &name) {
        EXPECT_TRUE(VxFieldFile::saveNifti(f, dir.file(name).c_str(), &error)) << error;
        return readFileBytes(dir.file(name));
    };
    const Bytes ordinary = save(*field("x", false), "ordinary.nii"); // no namer: no write ahead
    fs::remove(dir.file("ordinary.nii"));
    const auto run = [&] { // as a load command does, each time
        WriteAhead::setNamer([&](const KcString &label) { return dir.file(label + ".nii"); });
    };
    run();
    auto a = field("a", true);
    EXPECT_EQ(save(*a, "a.nii"), ordinary) << "into a fresh folder";
    static_cast<unsigned char *>(a->lattice()->data())[0] ^= 1;
    EXPECT_EQ(readFileBytes(dir.file("a.nii")), ordinary) << "the field changed after the save";
    a.reset();
    EXPECT_FALSE(WriteAhead::start(n, 1, "a")) << "a namesake";
    run();
    EXPECT_EQ(save(*field("a", true), "a.nii"), ordinary) << "over the previous file, in place";
    EXPECT_EQ(save(*field("b", true), "renamed.nii"), ordinary) << "the label changed";
    run();
    field("a", false); // the load failed half way: the earlier a.nii is gone too
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"renamed.nii"});

    auto moved = field("m", true); // samples mirrored after the load, before the save
    moved->lattice()->mirror(0);
    const Bytes mirrored = save(*moved, "m.nii");
    EXPECT_EQ(mirrored, save(*moved, "m.nii"));
    EXPECT_NE(mirrored, ordinary);
    moved->lattice()->mirror(0);
    EXPECT_EQ(save(*moved, "m.nii"), ordinary);

    // Another field saved the ordinary way where a write ahead waits, in place over the earlier
    // file: the write ahead gives way and takes nothing with it when it is dropped.
    run();
    auto pending = field("m", true);
    const int dims[3] = {4, 4, 4};
    const Bytes small = save(VxUniformScalarField3(dims, KcPrimType::UInt8, nullptr), "m.nii");
    WriteAhead::setNamer(nullptr);
    EXPECT_EQ(readFileBytes(dir.file("m.nii")), small);

    // A field saved under the name that another's write ahead holds in place: the other gives
    // the name up without taking the new file with it.
    run();
    auto holder = field("m", true);
    EXPECT_EQ(save(*field("q", true), "m.nii"), ordinary);
    EXPECT_EQ(save(*holder, "r.nii"), ordinary);
    EXPECT_EQ(readFileBytes(dir.file("m.nii")), ordinary);
    WriteAhead::setNamer(nullptr);
}

// teem 1.12 leaks its gzip and bzip2 decoder state on samples that fail to decode.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:_nrrdGzOpen\nleak:BZ2_bzReadOpen\nleak:BZ2_bzDecompressInit\n";
}

// Transformed (gzip, parameters), stacked (raw) and multi-member gzip fields come back whole.
TEST(VxFieldFileNrrd, SavedFieldsKeepSamplesPlacesAndParameters)
{
    const std::array<float, 6> box{-1.5f, -0.5f, 2, 2.5f, 7, 9};
    auto f = indexField<int16_t>(3, 2, 2, &box);
    f->parameters().setFloat("UnitLength", 0.01);
    f->parameters().setInt("Count", -7);
    auto *dicom = new VxParamBundle("DICOM");
    dicom->setString("odd/name:x=y z%", "series description [LO]: a\\b\nline two");
    f->parameters().insert(dicom);
    f->setTransform(SbMatrix(0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 5, 6, 7, 1));
    auto s = indexField<uint8_t, VxStackedScalarField3>(2, 2, 4);
    const float z[4] = {10.0f, 10.5f, 12.0f, 15.0f}, sbox[6] = {1, 2, 3, 4, 0, 0};
    ASSERT_TRUE(s->lattice()->setSliceCoords(z, 4));
    s->lattice()->setBoundingBox(sbox);
    TempDir dir;
    KcString error;
    for (const std::string name : {"f-gz.nrrd", "s.nrrd"}) {
        SCOPED_TRACE(name);
        const VxField3 &saved = name[0] == 'f' ? static_cast<const VxField3 &>(*f) : *s;
        ASSERT_TRUE(
            VxFieldFile::saveNrrd(saved, dir.file(name).c_str(), name == "f-gz.nrrd", &error))
            << error;
        const Bytes raw = readFileBytes(dir.file(name));
        const std::string header(raw.begin(), raw.end());
        EXPECT_HAS(header, "space: left-posterior-superior\n");
        LOAD(back, dir.file(name));
        const VxLattice3 *lat = saved.lattice();
        float w[3];
        for (int k = 0; k < lat->dim(2); ++k)
            for (int j = 0; j < lat->dim(1); ++j)
                for (int i = 0; i < lat->dim(0); ++i) {
                    saved.voxelToWorld(i, j, k, w);
                    expectValueAt(*back, valueAt(saved, i, j, k), w[0], w[1], w[2]);
                }
        if (&saved == s.get()) {
            EXPECT_HAS(header, "(0,0,1.6666666666666667)");
            EXPECT_HAS(header, "vx:SliceOffsets:=0 0.5 2 5\n");
            EXPECT_TRUE(back->coordType() == VX_COORD_STACKED && !back->hasTransform());
            continue;
        }
        EXPECT_EQ(back->parameters().parameter("Count")->type(), VxParameter::Int);
        EXPECT_EQ(back->parameters().parameter("UnitLength")->type(), VxParameter::Float);
        EXPECT_EQ(back->parameters().dump(), f->parameters().dump());
    }
    auto big = indexField<int16_t>(256, 256, 12);
    ASSERT_TRUE(VxFieldFile::saveNrrd(*big, dir.file("big.nrrd").c_str(), true, &error)) << error;
    LOAD(back, dir.file("big.nrrd"));
    const size_t n = big->lattice()->numBytes();
    EXPECT_TRUE(back->lattice()->numBytes() == n &&
                std::memcmp(back->lattice()->data(), big->lattice()->data(), n) == 0);
}

// Headers of other writers and hands: each voxel (by its unique value) is where they put it.
TEST(VxFieldFileNrrd, HeadersOfOtherWritersArePlacedAsTheySay)
{
    TempDir dir;
    writeFileBytes(dir.file("data.raw"), {9, 9, 9, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xfe});
    const std::tuple<const char *, Bytes, KcPrimType::Id, std::vector<std::array<double, 4>>>
        rows[] = {
            // Voxel (i, j, k) is at LPS (3 - 2i, -4 - 3k, 5 - j).
            {"hand.nrrd",
             bytesOf("NRRD0005\n# written by hand\ntype:   unsigned short\ndimension: 3\n"
                     "space:  right-anterior-superior\nsizes: 2  3 2\n"
                     "space directions: (2, 0,0) ( 0,0,-1) (0,3,0)\n# a comment between fields\n"
                     "kinds: domain domain domain\nencoding: ascii\nspace origin: (-3,4,5)\n"
                     "Modality:=MR\n\n0 1 10 11 20 21 100 101 110 111 120 121\n"),
             KcPrimType::UInt16,
             {{121, 1, -7, 3}, {0, 3, -4, 5}, {10, 3, -4, 4}, {101, 1, -7, 5}}},
            {"detached.nhdr",
             bytesOf(
                 "NRRD0004\ntype: int\ndimension: 2\nsizes: 2 1\nspacings: 0.5 1\n"
                 "axis mins: 4 0\nendian: big\nencoding: raw\nbyte skip: 3\ndata file: data.raw\n"),
             KcPrimType::Int32,
             {{1, 4, 0, 0}, {-2, 4.5, 0, 0}}},
            {"rgb.nrrd",
             bytesOf(
                 "NRRD0004\ntype: uint8\ndimension: 4\nsizes: 3 2 1 1\n"
                 "space: left-posterior-superior\nspace directions: none (1,0,0) (0,1,0) (0,0,1)\n"
                 "kinds: RGB-color domain domain domain\nencoding: raw\n\n",
                 {0, 40, 80, 120, 160, 200}),
             KcPrimType::UInt8,
             {{40 * 256 + 80, 0, 0, 0}, {120 * 65536 + 160 * 256 + 200, 1, 0, 0}}},
        };
    for (const auto &[name, bytes, type, valueAndPlace] : rows) {
        SCOPED_TRACE(name);
        writeFileBytes(dir.file(name), bytes);
        LOAD(f, dir.file(name));
        EXPECT_FALSE(f->hasTransform());
        EXPECT_EQ(f->primType(), type);
        for (const auto &[value, x, y, z] : valueAndPlace)
            expectValueAt(*f, value, x, y, z);
    }
}

// teem's unu reads our colour field, and we its gzip volume (voxel i, j, k at 1+j, 2+k, 3+2i).
TEST(VxFieldFileNrrd, TeemReadsOursAndWeReadTeems)
{
    VX_REQUIRE(haveProgram("teem-unu"), "teem-unu (Debian teem-apps)");
    TempDir dir;
    const int dims[3] = {2, 2, 1};
    const uint8_t rgb[12] = {0, 20, 40, 60, 80, 100, 120, 140, 160, 180, 200, 220};
    VxRegColorField3 colour(dims, VX_COORD_UNIFORM, 3, std::memcpy(std::malloc(12), rgb, 12));
    colour.parameters().setString("Note", "back\\slash\nnewline");
    KcString error;
    ASSERT_TRUE(VxFieldFile::saveNrrd(colour, dir.file("ours.nrrd").c_str(), true, &error))
        << error;
    const std::string out =
        sh("teem-unu save -i " + dir.file("ours.nrrd") + " -f nrrd -e ascii -o -");
    for (const char *line :
         {"sizes: 3 2 2 1", "kinds: RGB-color domain domain domain",
          "Note:=back\\\\slash\\nnewline", "0 20 40 60 80 100 120 140 160 180 200 220"})
        EXPECT_HAS(out, line);
    writeFileBytes(
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
