// The file and image records on real scanner files, checked against pydicom,
// and on copies of real files with one attribute changed.

#include "vxdicom/reader/VxDicomFile.h"
#include "platform/core/VxMessage.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <climits>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;
using namespace readertest;

namespace {

const char *const kCtFile = "dcm_qa_ct/In/Philips/S21610/S2010/I10";
const char *const kMrFile = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2/i22.MRDC.1";
const char *const k12BitSigned = "dcm_qa_12bit/In/12bitSigned_0x0F0F.dcm";
const char *const kFieldMap = "dcm_qa_sag/In/2_gre_field_mapping";
const char *const kEnhanced6 = "dcm_qa_enh/In/Siemens/XA10";

double num(const QJsonValue &v, double fallback = 0)
{
    return v.isDouble() ? v.toDouble() : fallback;
}

// Single precision carries about seven digits; positions reach 800 mm.
void expectClose(double actual, double expected, const std::string &what)
{
    EXPECT_NEAR(actual, expected, 2e-6 * std::max(1.0, std::fabs(expected))) << what;
}

std::unique_ptr<VxDicomFile> readOrFail(const std::string &path, int delayed)
{
    try {
        return std::make_unique<VxDicomFile>(path.c_str(), 0, delayed);
    } catch (const char *text) {
        ADD_FAILURE() << path << ": " << text;
    }
    return nullptr;
}

// The text thrown by reading a file, or "" when it reads.
std::string thrownBy(const std::string &path, int delayed = 1)
{
    try {
        VxDicomFile file(path.c_str(), 0, delayed);
    } catch (const char *text) {
        return text;
    }
    return "";
}

// One image of a copy of `src` edited with dicom_edit.py.
struct EditedImage
{
    vxtest::TempDir dir;
    std::unique_ptr<VxDicomFile> file;
    VxDicomImage *image = nullptr;

    EditedImage(const std::string &src, const std::vector<std::string> &edits, int delayed = 1)
    {
        const std::string path = dir.file("edited.dcm");
        editCopy(src, path, edits);
        file = readOrFail(path, delayed);
        if (file && file->images.size() == 1)
            image = file->images[0];
        else
            ADD_FAILURE() << "the edited copy of " << src << " gave no single image";
    }
};

} // namespace

TEST(DicomImageRecord, EverySingleFrameSharedFileAgreesWithPydicom)
{
    VX_REQUIRE_SHARED_DATA();
    const QJsonArray reference = pydicomReference(vxtest::sharedDicomFiles());
    int checked = 0;
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject();
        if (r["frames"].toInt() != 1 || r["mosaic"].toBool())
            continue; // mosaics become their tiles (checked below)
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        auto file = readOrFail(path, 1);
        if (!file)
            continue;
        ASSERT_EQ(file->images.size(), 1);
        const VxDicomImage &im = *file->images[0];
        ++checked;

        EXPECT_EQ(im.width, r["columns"].toInt());
        EXPECT_EQ(im.height, r["rows"].toInt());
        EXPECT_EQ(im.bitsStored, r["bitsStored"].toInt());
        EXPECT_EQ(im.samplesPerPixel, r["samplesPerPixel"].toInt());
        EXPECT_EQ(im.bytesPerSample, (r["bitsAllocated"].toInt() + 7) / 8);
        EXPECT_EQ(im.isSigned, r["signed"].toBool());
        EXPECT_EQ(im.imageNumber, r["instanceNumber"].toInt());
        EXPECT_EQ(im.dataSize, r["rows"].toInt() * r["columns"].toInt() *
                                   r["samplesPerPixel"].toInt() *
                                   ((r["bitsAllocated"].toInt() + 7) / 8));
        EXPECT_FALSE(im.hasPixels()) << "a delayed read keeps the pixels in the file";

        const QJsonArray spacing = r["pixelSpacing"].toArray();
        ASSERT_EQ(spacing.size(), 2);
        expectClose(im.pixelSpacing[0], spacing[0].toDouble(), "pixel spacing (rows)");
        expectClose(im.pixelSpacing[1], spacing[1].toDouble(), "pixel spacing (columns)");
        expectClose(im.sliceThickness, num(r["sliceThickness"], 10), "slice thickness");

        const QJsonArray position = r["position"].toArray();
        EXPECT_EQ(im.hasPosition, position.size() == 3 ? 1 : 0);
        for (int k = 0; k < position.size(); ++k)
            expectClose(im.position[k], position[k].toDouble(), "position");

        const QJsonArray row = r["rowDirection"].toArray(), col = r["columnDirection"].toArray(),
                         normal = r["normal"].toArray();
        ASSERT_EQ(row.size(), 3) << "every single-frame shared file has an orientation";
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(im.rowDirection[k], row[k].toDouble(), 1e-6);
            EXPECT_NEAR(im.columnDirection[k], col[k].toDouble(), 1e-6);
            EXPECT_NEAR(im.normal[k], normal[k].toDouble(), 1e-6);
        }
        EXPECT_EQ(im.oblique, r["obliqueAt003"].toBool() ? 1 : 0);
        // With a position and an orientation the location is the distance along the normal.
        expectClose(im.sliceLocation, r["slicePosition"].toDouble(), "slice location");

        const double slope = num(r["slope"], 1), intercept = num(r["intercept"], 0);
        expectClose(im.rescaleSlope, slope, "rescale slope");
        const bool ctRule = QString(r["modality"].toString()).left(2).toUpper() == "CT" &&
                            !r["signed"].toBool() && r["bitsStored"].toInt() == 12 &&
                            intercept == 0 && slope == 1;
        expectClose(im.rescaleIntercept, ctRule ? -1000 : intercept, "rescale intercept");
        EXPECT_GT(im.minValue, im.maxValue) << "no value range before the pixels are read";
    }
    EXPECT_GT(checked, 300);
}

TEST(DicomImageRecord, ObliqueFlagFollowsTheOrientationTolerance)
{
    VX_REQUIRE_SHARED_DATA();
    ScopedEnv eps("DICOM_EPS_ORIENTATION", "0.2");
    const QJsonArray reference = pydicomReference(vxtest::sharedDicomFiles());
    int obliqueAt003 = 0, differ = 0;
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject();
        if (r["frames"].toInt() != 1)
            continue;
        const std::string path = r["file"].toString().toStdString();
        auto file = readOrFail(path, 1);
        if (!file)
            continue;
        EXPECT_EQ(file->images[0]->oblique, r["obliqueAt020"].toBool() ? 1 : 0) << path;
        obliqueAt003 += r["obliqueAt003"].toBool();
        differ += r["obliqueAt003"].toBool() != r["obliqueAt020"].toBool();
    }
    // The shared files hold series that only the wider tolerance calls straight.
    EXPECT_GT(differ, 0);
    EXPECT_GT(obliqueAt003, 0);
}

TEST(DicomImageRecord, NearlyAxialRowIsObliqueOnlyBelowTheTolerance)
{
    VX_REQUIRE_SHARED_DATA();
    // Row (0.99, 0.14, 0) lies 0.139 from +x: oblique at the default 0.03, not at 0.2.
    EditedImage tilted(vxtest::sharedPath(kMrFile),
                       {"--set", "ImageOrientationPatient=0.99\\0.14\\0\\-0.14\\0.99\\0"});
    ASSERT_TRUE(tilted.image);
    EXPECT_EQ(tilted.image->oblique, 1);
    EXPECT_NEAR(tilted.image->normal[2], 1.0, 1e-6);
    {
        ScopedEnv eps("DICOM_EPS_ORIENTATION", "0.2");
        auto again = readOrFail(tilted.file->fileName, 1);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->images[0]->oblique, 0);
    }

    EditedImage axial(vxtest::sharedPath(kMrFile),
                      {"--set", "ImageOrientationPatient=1\\0\\0\\0\\1\\0"});
    ASSERT_TRUE(axial.image);
    EXPECT_EQ(axial.image->oblique, 0);
    EXPECT_FLOAT_EQ(axial.image->normal[0], 0);
    EXPECT_FLOAT_EQ(axial.image->normal[1], 0);
    EXPECT_FLOAT_EQ(axial.image->normal[2], 1);
}

TEST(DicomImageRecord, SliceLocationFallsBackWhenPositionOrOrientationIsMissing)
{
    VX_REQUIRE_SHARED_DATA();
    // I10: Slice Location 748.49... is not the distance along the tilted normal.
    const std::string src = vxtest::sharedPath(kCtFile);
    const QJsonObject r = pydicomReference({src})[0].toObject();

    EditedImage noOrientation(src, {"--delete", "ImageOrientationPatient"});
    ASSERT_TRUE(noOrientation.image);
    EXPECT_FLOAT_EQ(noOrientation.image->sliceLocation, r["sliceLocationElement"].toDouble());
    EXPECT_EQ(noOrientation.image->hasPosition, 1);
    EXPECT_EQ(noOrientation.image->oblique, 0);
    EXPECT_FALSE(noOrientation.image->hasRowDirection());

    EditedImage positionOnly(src,
                             {"--delete", "ImageOrientationPatient", "--delete", "SliceLocation"});
    ASSERT_TRUE(positionOnly.image);
    EXPECT_FLOAT_EQ(positionOnly.image->sliceLocation, r["position"].toArray()[2].toDouble());

    // The retired Image Position (0020,0030) stands in for (0020,0032).
    EditedImage retired(src,
                        {"--delete", "ImagePositionPatient", "--set", "(0020,0030)=1.5\\-2\\3.25"});
    ASSERT_TRUE(retired.image);
    EXPECT_EQ(retired.image->hasPosition, 1);
    EXPECT_FLOAT_EQ(retired.image->position[0], 1.5f);
    EXPECT_FLOAT_EQ(retired.image->position[1], -2.0f);
    EXPECT_FLOAT_EQ(retired.image->position[2], 3.25f);

    EditedImage nothing(src, {"--delete", "ImagePositionPatient", "--delete", "SliceLocation",
                              "--delete", "ImageOrientationPatient"});
    ASSERT_TRUE(nothing.image);
    EXPECT_EQ(nothing.image->hasPosition, 0);
    EXPECT_FLOAT_EQ(nothing.image->sliceLocation, 0);
}

TEST(DicomImageRecord, PixelSpacingWithOneZeroValueIsSquare)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string src = vxtest::sharedPath(kMrFile);
    const struct
    {
        const char *value; // empty: element removed
        float row, column;
        const char *why;
        bool warned;
    } cases[] = {
        {"0\\0.5", 0.5f, 0.5f, "a zero row spacing takes the column spacing", true},
        {"0.5\\0", 0.5f, 0.5f, "a zero column spacing takes the row spacing", true},
        {"0\\0", 0.0f, 0.0f, "two zeros stay", true},
        {"1.1\\0.8", 1.1f, 0.8f, "non-square pixels: rows 1.1 apart, columns 0.8 apart", false},
        {"", 0.0f, 0.0f, "no Pixel Spacing: 0 x 0", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        VxMessageCapture console;
        EditedImage e(
            src, *c.value
                     ? std::vector<std::string>{"--set", std::string("PixelSpacing=") + c.value}
                     : std::vector<std::string>{"--delete", "PixelSpacing"});
        ASSERT_TRUE(e.image);
        // A step along a row crosses columns; a step down a column crosses rows.
        EXPECT_FLOAT_EQ(e.image->pixelSpacing[0], c.column);
        EXPECT_FLOAT_EQ(e.image->pixelSpacing[1], c.row);
        // A zero distance is a fault of the file, said with its name.
        EXPECT_EQ(console.contains(e.file->fileName + ": Pixel Spacing"), c.warned)
            << console.text();
    }
}

TEST(DicomImageRecord, UnsignedTwelveBitCtWithoutRescaleGetsInterceptMinus1000)
{
    VX_REQUIRE_SHARED_DATA();
    // The Philips CT is unsigned with 12 bits stored and intercept -1024.
    const std::string src = vxtest::sharedPath(kCtFile);
    const struct
    {
        std::vector<std::string> edits;
        float intercept;
        const char *why;
    } cases[] = {
        {{}, -1024, "a real intercept is kept"},
        {{"--set", "RescaleIntercept=0"}, -1000, "intercept 0, slope 1: HU + 1000 stored"},
        {{"--delete", "RescaleIntercept", "--delete", "RescaleSlope"}, -1000, "no rescale at all"},
        {{"--set", "RescaleIntercept=0", "--set", "Modality=ct"},
         -1000,
         "modality compared case-insensitively"},
        {{"--set", "RescaleIntercept=0", "--set", "BitsStored=16", "--set", "HighBit=15"},
         0,
         "16 bits stored"},
        {{"--set", "RescaleIntercept=0", "--set", "PixelRepresentation=1"}, 0, "signed data"},
        {{"--set", "RescaleIntercept=0", "--set", "RescaleSlope=2"}, 0, "slope 2"},
        {{"--set", "RescaleIntercept=0", "--set", "Modality=MR"}, 0, "not CT"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        EditedImage e(src, c.edits);
        ASSERT_TRUE(e.image);
        EXPECT_FLOAT_EQ(e.image->rescaleIntercept, c.intercept);
    }
}

TEST(DicomImageRecord, MultiFrameFilesPlaceEveryFrameAndReadItLazily)
{
    // Enhanced objects place each frame by its functional groups (pydicom's
    // per-frame, else shared, Plane Position); read lazily, frame by frame,
    // a frame's samples equal those of the read with the header.
    VX_REQUIRE_SHARED_DATA();
    const QJsonArray reference = pydicomReference(vxtest::sharedDicomFiles());
    int multi = 0;
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject();
        const int frames = r["frames"].toInt();
        if (frames == 1)
            continue;
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        auto file = readOrFail(path, 1);
        if (!file)
            continue;
        ++multi;
        ASSERT_EQ(file->images.size(), frames);
        const QJsonArray positions = r["framePositions"].toArray();
        ASSERT_EQ(positions.size(), frames);
        for (int k = 0; k < frames; ++k) {
            const VxDicomImage &im = *file->images[k];
            EXPECT_EQ(im.frame, k);
            const QJsonArray p = positions[k].toArray();
            ASSERT_EQ(p.size(), 3) << "frame " << k;
            for (int i = 0; i < 3; ++i)
                expectClose(im.position[i], p[i].toDouble(), "frame position");
        }
        if (multi > 3)
            continue; // the samples of a few files suffice
        auto full = readOrFail(path, 0);
        ASSERT_TRUE(full);
        for (int k : {0, frames / 2, frames - 1}) {
            std::vector<unsigned char> lazy(static_cast<size_t>(file->images[k]->dataSize));
            file->images[k]->loadToMemory(lazy.data());
            EXPECT_EQ(std::memcmp(lazy.data(), full->images[k]->pixels, lazy.size()), 0)
                << "frame " << k;
        }
    }
    EXPECT_GE(multi, 19) << "agfa, canon, enh and sag multi-frame files";
}

TEST(DicomImageRecord, PerFrameGroupsOverrideSharedOnesAndTheTopLevelIsTheLastResort)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string path = dir.file("edited.dcm");
    std::string out;
    ASSERT_EQ(runScript(scriptPath("functional_groups_edit.py").c_str(),
                        {vxtest::sharedDicomFiles(kEnhanced6)[0], path}, &out, true),
              0)
        << out;
    auto file = readOrFail(path, 1);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->images.size(), 6);
    // Frame 2's own Pixel Measures win over the shared 3.375 mm.
    EXPECT_FLOAT_EQ(file->images[1]->pixelSpacing[0], 1.5f);
    EXPECT_FLOAT_EQ(file->images[0]->pixelSpacing[0], 3.375f);
    EXPECT_FLOAT_EQ(file->images[2]->pixelSpacing[0], 3.375f);
    // Frame 3 has no Plane Position in its groups: the top level's.
    const float top[3] = {10, 20, 30};
    for (int i = 0; i < 3; ++i)
        EXPECT_FLOAT_EQ(file->images[2]->position[i], top[i]);
    EXPECT_NE(file->images[3]->position[2], 30.0f) << "the other frames keep their own";
}

TEST(DicomImageRecord, MultiFrameWithoutFunctionalGroupsSpacesFramesByIndex)
{
    // Without functional groups the frames share the top level's place and
    // lie Spacing Between Slices apart, or one apart without it.
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string src = vxtest::sharedDicomFiles(kEnhanced6)[0];
    for (const bool spacing : {true, false}) {
        const std::string path = dir.file(spacing ? "spaced.dcm" : "unspaced.dcm");
        std::vector<std::string> edits = {"--delete", "PerFrameFunctionalGroupsSequence",
                                          "--delete", "SharedFunctionalGroupsSequence"};
        if (spacing)
            edits.insert(edits.end(), {"--set", "SpacingBetweenSlices=2.5"});
        else
            edits.insert(edits.end(), {"--delete", "SpacingBetweenSlices"});
        editCopy(src, path, edits);
        auto file = readOrFail(path, 1);
        ASSERT_TRUE(file);
        ASSERT_EQ(file->images.size(), 6);
        for (int k = 0; k < 6; ++k)
            EXPECT_FLOAT_EQ(file->images[k]->sliceLocation, spacing ? 2.5f * k : float(k));
    }
}

TEST(DicomImageRecord, HeaderReadKeepsEveryFrameInMemory)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string path = vxtest::sharedDicomFiles(kEnhanced6)[0];
    auto lazy = readOrFail(path, 1);
    auto full = readOrFail(path, 0);
    ASSERT_TRUE(lazy && full);
    ASSERT_EQ(full->images.size(), lazy->images.size());
    const QJsonObject r = pydicomReference({path}, true)[0].toObject();
    for (int k = 0; k < full->images.size(); ++k) {
        VxDicomImage &im = *full->images[k];
        EXPECT_TRUE(im.hasPixels());
        EXPECT_EQ(im.pixels,
                  full->data->pixelData + static_cast<size_t>(k) * full->data->frameSize);
        EXPECT_LE(im.minValue, im.maxValue) << "frame " << k << " knows its range";
    }
    const QJsonArray masked = r["pixels"].toObject()["masked"].toArray();
    EXPECT_EQ(full->images[0]->minValue, masked[0].toInt());
    EXPECT_EQ(full->images[0]->maxValue, masked[1].toInt());
}

TEST(DicomImageRecord, DelayedReadSwitchFollowsTheEnvironment)
{
    const struct
    {
        const char *value;
        bool delayed;
    } cases[] = {{nullptr, true}, {"1", true},  {"0", false},  {"00", false},
                 {"7", true},     {"-1", true}, {"no", false}, {"", false}};
    for (const auto &c : cases) {
        ScopedEnv env("DICOM_DELAYED_READ", c.value);
        EXPECT_EQ(dicomDelayedReadEnabled(), c.delayed) << (c.value ? c.value : "(unset)");
    }
}

// Stored bits: samples read with the header are masked below High Bit;
// samples read later are masked too and, when signed, sign-extended.
TEST(DicomImageRecord, StoredBitsAreMaskedAndSignedLazyValuesSignExtended)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<std::string> files = {
        vxtest::sharedPath(k12BitSigned),
        vxtest::sharedPath("dcm_qa_12bit/In/12bitUnsigned_0x0F0F.dcm")};
    for (const std::string &f : vxtest::sharedDicomFiles(kFieldMap))
        files.push_back(f);
    const QJsonArray reference = pydicomReference(files, true);
    ASSERT_EQ(reference.size(), static_cast<int>(files.size()));
    // The range over every image of a file (the tiles of a mosaic).
    auto rangeOf = [](VxDicomFile &file, int &lo, int &hi) {
        lo = INT_MAX;
        hi = INT_MIN;
        for (VxDicomImage *im : file.images) {
            int a = 0, b = 0;
            im->pixelData();
            if (!im->dataRange(&a, &b))
                return false;
            lo = std::min(lo, a);
            hi = std::max(hi, b);
        }
        return true;
    };
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject();
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        const QJsonObject px = r["pixels"].toObject();
        const QJsonArray masked = px["masked"].toArray();

        auto full = readOrFail(path, 0);
        ASSERT_TRUE(full);
        int lo = 0, hi = 0;
        ASSERT_TRUE(rangeOf(*full, lo, hi));
        EXPECT_EQ(lo, masked[0].toInt());
        EXPECT_EQ(hi, masked[1].toInt());

        auto lazy = readOrFail(path, 1);
        ASSERT_TRUE(lazy);
        EXPECT_EQ(lazy->images[0]->dataRange(&lo, &hi), 0) << "no range without pixels";
        ASSERT_TRUE(rangeOf(*lazy, lo, hi));
        const QJsonArray expected = r["signed"].toBool() ? px["signExtended"].toArray() : masked;
        EXPECT_EQ(lo, expected[0].toInt());
        EXPECT_EQ(hi, expected[1].toInt());
    }
}

TEST(DicomImageRecord, GzipCopyReadsTheSameAndLeavesNoTemporaryFile)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("gzip"))
        GTEST_SKIP() << "gzip is not installed";
    vxtest::TempDir dir;
    vxtest::TempDir tmp;
    const std::string src = vxtest::sharedPath(kCtFile);
    const std::string gz = dir.file("I10.gz");
    ASSERT_EQ(vxtest::runCommand("gzip -c '" + src + "' > '" + gz + "'"), 0);

    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    auto plain = readOrFail(src, 1);
    auto packed = readOrFail(gz, 1);
    ASSERT_TRUE(plain && packed);
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "the unpacked header copy was removed";
    ASSERT_EQ(packed->images.size(), 1);
    const VxDicomImage &a = *plain->images[0];
    VxDicomImage &b = *packed->images[0];
    EXPECT_EQ(b.width, a.width);
    EXPECT_EQ(b.height, a.height);
    EXPECT_EQ(b.sliceLocation, a.sliceLocation);
    EXPECT_EQ(b.rescaleIntercept, a.rescaleIntercept);
    EXPECT_EQ(std::string(packed->loadName), gz) << "the load command names the packed file";

    std::vector<unsigned char> lazyPlain(a.dataSize + 1), lazyPacked(b.dataSize + 1);
    a.loadToMemory(lazyPlain.data());
    b.loadToMemory(lazyPacked.data());
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "the unpacked pixel copy was removed";
    EXPECT_EQ(std::memcmp(lazyPlain.data(), lazyPacked.data(), a.dataSize), 0);

    auto packedFull = readOrFail(gz, 0);
    ASSERT_TRUE(packedFull);
    EXPECT_EQ(std::memcmp(packedFull->images[0]->pixels, lazyPlain.data(), a.dataSize), 0);
    EXPECT_TRUE(fs::is_empty(tmp.path()));

    // A broken archive fails as a file that cannot be opened, and leaves nothing.
    const std::string broken = dir.file("broken.gz");
    auto bytes = vxtest::readFileBytes(gz);
    bytes.resize(bytes.size() / 2);
    vxtest::writeFileBytes(broken, bytes);
    EXPECT_EQ(thrownBy(broken).rfind("cannot open: " + broken, 0), 0u) << thrownBy(broken);
    EXPECT_TRUE(fs::is_empty(tmp.path()));
}

TEST(DicomFileFailures, BrokenFilesThrowTheDocumentedTexts)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string mr = vxtest::sharedPath(kMrFile);
    const std::string j2k = vxtest::sharedPath("dcm_qa_ts/In/9.dcm");
    const struct
    {
        const char *name;
        std::string src;
        std::vector<std::string> edits;
        std::string prefix; // the name is appended for the file texts
        bool withName;
    } cases[] = {
        {"no-columns", mr, {"--set", "Columns=0"}, "cannot extract DICOM information from: ", true},
        {"two-samples",
         mr,
         {"--set", "SamplesPerPixel=2", "--pixels", "1,2,3"},
         "unsupported number of samples.",
         false},
        {"32-bit YBR",
         mr,
         {"--set", "BitsAllocated=32", "--set", "BitsStored=32", "--set", "HighBit=31", "--set",
          "SamplesPerPixel=3", "--set", "PhotometricInterpretation=YBR_FULL", "--pixels", "1,2"},
         "32-bit YBR_FULL with 3 components is not supported: 32-bit colour is read as RGB only.",
         false},
        {"mpeg2",
         j2k,
         {"--transfer-syntax", "1.2.840.10008.1.2.4.100"},
         "unsupported data compression.",
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        if (!fs::exists(c.src))
            GTEST_SKIP() << c.src << " is missing";
        const std::string path = dir.file(c.name);
        editCopy(c.src, path, c.edits);
        const std::string text = thrownBy(path);
        if (c.withName)
            EXPECT_EQ(text.rfind(c.prefix + path, 0), 0u) << text;
        else
            EXPECT_EQ(text, c.prefix);
    }

    const std::string missing = dir.file("missing.dcm");
    EXPECT_EQ(thrownBy(missing).rfind("cannot open: " + missing, 0), 0u) << thrownBy(missing);
    const std::string notDicom = vxtest::sharedPath("dcm_qa_ct/README.md");
    EXPECT_EQ(thrownBy(notDicom).rfind("cannot extract DICOM information from: " + notDicom, 0),
              0u);
    const std::string truncated = dir.file("truncated.dcm");
    auto bytes = vxtest::readFileBytes(mr);
    bytes.resize(bytes.size() - 1000);
    vxtest::writeFileBytes(truncated, bytes);
    EXPECT_EQ(thrownBy(truncated).rfind("cannot extract DICOM information from: " + truncated, 0),
              0u)
        << thrownBy(truncated);
    EXPECT_EQ(
        thrownBy(truncated, 0).rfind("cannot extract DICOM information from: " + truncated, 0), 0u);

    // No pixel data: a file without images, which is no failure of the file.
    const std::string noPixels = dir.file("nopixels.dcm");
    editCopy(mr, noPixels, {"--delete", "PixelData"});
    EXPECT_EQ(thrownBy(noPixels), "");
    VxDicomFile file(noPixels.c_str(), 3, 1);
    EXPECT_EQ(file.images.size(), 0);
    EXPECT_EQ(file.index, 3);
}

// The record's own checks, reached by changing what the parser reported.
TEST(DicomFileFailures, ImageRecordChecksTheParsedDescription)
{
    VX_REQUIRE_SHARED_DATA();
    auto file = readOrFail(vxtest::sharedPath(kMrFile), 1);
    ASSERT_TRUE(file);
    dicom::dicomStruct &d = *file->data;
    const dicom::dicomStruct saved = d;
    const struct
    {
        std::function<void(dicom::dicomStruct &)> change;
        const char *text;
    } cases[] = {
        {[](dicom::dicomStruct &s) { s.columns = 0; }, "image width unknown."},
        {[](dicom::dicomStruct &s) { s.rows = 0; }, "image height unknown."},
        {[](dicom::dicomStruct &s) {
             s.bytesPerSample = 3;
             s.bitsAllocated = 24;
         },
         "24 bits allocated per sample are not supported: 8, 16 and 32 are."},
        {[](dicom::dicomStruct &s) { s.samplesPerPixel = 2; }, "unsupported number of samples."},
        {[](dicom::dicomStruct &s) { s.frameSize -= 2; },
         "image size doesn't match its specification.\n"},
        {[](dicom::dicomStruct &s) { s.frameSize = 0; },
         "image size doesn't match its specification.\n"},
        {[](dicom::dicomStruct &s) { s.pixelsInFile = false; }, "no image data found."},
        {[](dicom::dicomStruct &s) { s.compression = dicom::COMPRESSION_UNSUPPORTED; },
         "unsupported data compression."},
    };
    for (const auto &c : cases) {
        c.change(d);
        std::string text;
        try {
            VxDicomImage image(file.get(), nullptr);
        } catch (const char *t) {
            text = t;
        }
        d = saved;
        EXPECT_EQ(text, c.text);
    }
}

TEST(DicomImageRecord, BrokenGeometryIsNamedAndLeftOut)
{
    // Geometry that cannot place an image is reported with the file and the
    // reason, and the image goes on without it (placed by its slice location).
    VX_REQUIRE_SHARED_DATA();
    const struct
    {
        const char *edit, *warning;
        bool position, orientation;
    } cases[] = {
        {"ImageOrientationPatient=nan\\0\\0\\0\\1\\0", "is not finite", true, false},
        {"ImageOrientationPatient=0\\0\\0\\0\\1\\0", "has a direction of length zero", true, false},
        {"ImageOrientationPatient=1\\0\\0\\0.5\\0.866\\0", "are not perpendicular", true, false},
        {"ImagePositionPatient=1\\inf\\3", "Image Position \"1\\inf\\3\" is not finite", false,
         true},
        {"PixelSpacing=-1\\1", "Pixel Spacing \"-1\\1\" is not two distances", true, true},
        {"PixelSpacing=0\\0", "Pixel Spacing \"0\\0\" has no distance", true, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.edit);
        VxMessageCapture console;
        EditedImage e(vxtest::sharedPath(kMrFile), {"--set", c.edit});
        ASSERT_TRUE(e.image);
        EXPECT_TRUE(console.contains("Warning: " + e.file->fileName + ": ")) << console.text();
        EXPECT_TRUE(console.contains(c.warning)) << console.text();
        EXPECT_EQ(e.image->hasPosition != 0, c.position);
        EXPECT_EQ(e.image->hasRowDirection(), c.orientation);
        for (float v : e.image->position)
            EXPECT_TRUE(std::isfinite(v));
        EXPECT_GE(e.image->pixelSpacing[0], 0);
        EXPECT_EQ(e.image->pixelSpacing[0] == 0, c.edit[0] == 'P');
    }
}
