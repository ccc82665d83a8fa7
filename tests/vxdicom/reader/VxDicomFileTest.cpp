// File and image records of real scanner files against pydicom and of edited
// copies of them (including broken ones), and the reading loop.

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/VxDicom.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>

using namespace readertest;
using namespace std::string_literals;

namespace {

std::unique_ptr<VxDicomFile> readOrFail(const std::string &path, int delayed = 1)
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

// Single precision carries about seven digits; positions reach 800 mm.
void expectClose(double actual, double expected, const char *what)
{
    EXPECT_NEAR(actual, expected, 2e-6 * std::max(1.0, std::fabs(expected))) << what;
}

} // namespace

// Every shared file as pydicom reads it: each single frame's record, the
// oblique flag at the default and a wider tolerance, the place of every frame
// of a multi-frame file, and lazily read frames equal to the header read's.
TEST(DicomImageRecord, EverySharedFileAgreesWithPydicom)
{
    VX_REQUIRE_SHARED_DATA();
    int single = 0, multi = 0, wideDiffers = 0;
    for (const QJsonValue &v : pydicomReference(vxtest::sharedDicomFiles())) {
        const QJsonObject r = v.toObject();
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        const int frames = r["frames"].toInt();
        auto file = readOrFail(path);
        if (!file)
            continue;
        if (frames == 1) {
            ScopedEnv eps("DICOM_EPS_ORIENTATION", "0.2");
            auto wide = readOrFail(path);
            ASSERT_TRUE(wide);
            EXPECT_EQ(wide->images[0]->oblique, r["obliqueAt020"].toBool() ? 1 : 0);
            wideDiffers += r["obliqueAt003"].toBool() != r["obliqueAt020"].toBool();
        }
        if (frames > 1) {
            ASSERT_EQ(file->images.size(), frames);
            const QJsonArray positions = r["framePositions"].toArray();
            for (int k = 0; k < frames; ++k)
                for (int i = 0; i < 3; ++i)
                    expectClose(file->images[k]->position[i], positions[k].toArray()[i].toDouble(),
                                "frame position");
            if (++multi > 3)
                continue; // the samples of a few files suffice
            auto full = readOrFail(path, 0);
            ASSERT_TRUE(full);
            for (int k : {0, frames / 2, frames - 1}) {
                std::vector<unsigned char> lazy(file->images[k]->dataSize);
                file->images[k]->loadToMemory(lazy.data());
                EXPECT_TRUE(full->images[k]->hasPixels());
                EXPECT_EQ(std::memcmp(lazy.data(), full->images[k]->pixels, lazy.size()), 0) << k;
            }
            continue;
        }
        if (r["mosaic"].toBool())
            continue; // mosaics become their tiles
        ASSERT_EQ(file->images.size(), 1);
        const VxDicomImage &im = *file->images[0];
        ++single;
        const int bytes = (r["bitsAllocated"].toInt() + 7) / 8;
        EXPECT_EQ(im.width, r["columns"].toInt());
        EXPECT_EQ(im.height, r["rows"].toInt());
        EXPECT_EQ(im.bitsStored, r["bitsStored"].toInt());
        EXPECT_EQ(im.samplesPerPixel, r["samplesPerPixel"].toInt());
        EXPECT_EQ(im.bytesPerSample, bytes);
        EXPECT_EQ(im.isSigned, r["signed"].toBool());
        EXPECT_EQ(im.imageNumber, r["instanceNumber"].toInt());
        EXPECT_EQ(im.dataSize, im.width * im.height * im.samplesPerPixel * bytes);
        EXPECT_FALSE(im.hasPixels()) << "a delayed read keeps the pixels in the file";
        EXPECT_GT(im.minValue, im.maxValue) << "no value range before the pixels are read";
        const QJsonArray spacing = r["pixelSpacing"].toArray();
        ASSERT_EQ(spacing.size(), 2);
        // A step along a row crosses columns: the second value.
        expectClose(im.pixelSpacing[0], spacing[1].toDouble(), "pixel spacing (columns)");
        expectClose(im.pixelSpacing[1], spacing[0].toDouble(), "pixel spacing (rows)");
        expectClose(im.sliceThickness, r["sliceThickness"].toDouble(10), "slice thickness");
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
        expectClose(im.sliceLocation, r["slicePosition"].toDouble(), "distance along the normal");
        const double slope = r["slope"].toDouble(1), intercept = r["intercept"].toDouble(0);
        expectClose(im.rescaleSlope, slope, "rescale slope");
        // Unsigned 12-bit CT without a rescale stores HU + 1000.
        const bool ctRule = r["modality"].toString().toUpper() == "CT" && !r["signed"].toBool() &&
                            r["bitsStored"].toInt() == 12 && intercept == 0 && slope == 1;
        expectClose(im.rescaleIntercept, ctRule ? -1000 : intercept, "rescale intercept");
    }
    EXPECT_GT(single, 300);
    EXPECT_GE(multi, 19) << "agfa, canon, enh and sag multi-frame files";
    EXPECT_GT(wideDiffers, 0) << "some series only the wider tolerance calls straight";
}

// Copies of real files with attributes changed or removed: what the record
// makes of them (key=value: the record's fields; columnSpacing is the step
// along a row), the warning that names the file, or the text thrown.
TEST(DicomImageRecord, EditedCopiesAreReadOrRefusedByName)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string mr = vxtest::sharedPath(kMrFile),
                      ct = vxtest::sharedPath(kCtSeries + "/I10"s),
                      enhanced = vxtest::sharedDicomFiles(kEnhanced6)[0],
                      j2k = vxtest::sharedPath("dcm_qa_ts/In/9.dcm");
    const std::string noGroups = "--delete PerFrameFunctionalGroupsSequence --delete "
                                 "SharedFunctionalGroupsSequence --set SpacingBetweenSlices=2.5";
    // clang-format off
    const struct { const std::string &src; std::string edits, expected, said; } cases[] = {
        // Row 0.139 from +x: oblique at the default tolerance 0.03.
        {mr, "--set ImageOrientationPatient=0.99\\0.14\\0\\-0.14\\0.99\\0", "oblique=1 normalZ=1", ""},
        // The CT's Slice Location 698.49 is not the distance along its tilted normal.
        {ct, "--delete ImageOrientationPatient", "location=698.49 hasPosition=1 oblique=0 orientation=0", ""},
        {ct, "--delete ImageOrientationPatient --delete SliceLocation", "location=742.345191756896", ""},
        {ct, "--delete ImagePositionPatient --set (0020,0030)=1.5\\-2\\3.25", "hasPosition=1 x=1.5 y=-2 z=3.25", ""},
        {ct, "--delete ImagePositionPatient --delete SliceLocation --delete ImageOrientationPatient",
         "hasPosition=0 location=0", ""},
        {mr, "--set PixelSpacing=0\\0.5", "columnSpacing=0.5 rowSpacing=0.5", "Pixel Spacing"},
        {mr, "--set PixelSpacing=0.5\\0", "columnSpacing=0.5 rowSpacing=0.5", "Pixel Spacing"},
        {mr, "--set PixelSpacing=1.1\\0.8", "columnSpacing=0.8 rowSpacing=1.1", ""},
        {mr, "--delete PixelSpacing", "columnSpacing=0 rowSpacing=0", ""},
        // Unsigned 12-bit CT with intercept 0 and slope 1 (or none) stores HU + 1000.
        {ct, "", "intercept=-1024", ""},
        {ct, "--set RescaleIntercept=0", "intercept=-1000", ""},
        {ct, "--delete RescaleIntercept --delete RescaleSlope", "intercept=-1000", ""},
        {ct, "--set RescaleIntercept=0 --set Modality=ct", "intercept=-1000", ""},
        {ct, "--set RescaleIntercept=0 --set BitsStored=16 --set HighBit=15", "intercept=0", ""},
        {ct, "--set RescaleIntercept=0 --set PixelRepresentation=1", "intercept=0", ""},
        {ct, "--set RescaleIntercept=0 --set Modality=MR", "intercept=0", ""},
        // Geometry that cannot place an image is named and left out.
        {mr, "--set ImageOrientationPatient=nan\\0\\0\\0\\1\\0", "hasPosition=1 orientation=0", "is not finite"},
        {mr, "--set ImageOrientationPatient=0\\0\\0\\0\\1\\0", "orientation=0", "has a direction of length zero"},
        {mr, "--set ImageOrientationPatient=1\\0\\0\\0.5\\0.866\\0", "orientation=0", "are not perpendicular"},
        {mr, "--set ImagePositionPatient=1\\inf\\3", "hasPosition=0 orientation=1 x=0 y=0 z=0",
         "Image Position \"1\\inf\\3\" is not finite"},
        {mr, "--set PixelSpacing=-1\\1", "columnSpacing=0 hasPosition=1", "Pixel Spacing \"-1\\1\" is not two distances"},
        // Frames without functional groups lie Spacing Between Slices apart.
        {enhanced, noGroups, "images=6 frame5=12.5", ""},
        {mr, "--delete PixelData", "images=0", ""},
        {mr, "--set Columns=0", "", "cannot extract DICOM information from: "},
        {mr, "--set SamplesPerPixel=2 --pixels 1,2,3", "", "unsupported number of samples."},
        {mr, "--set BitsAllocated=32 --set BitsStored=32 --set HighBit=31 --set SamplesPerPixel=3 "
             "--set PhotometricInterpretation=YBR_FULL --pixels 1,2", "",
         "32-bit YBR_FULL with 3 components is not supported: 32-bit colour is read as RGB only."},
        {j2k, "--transfer-syntax 1.2.840.10008.1.2.4.100", "", "unsupported data compression."},
    };
    // clang-format on
    vxtest::TempDir dir;
    int n = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.edits);
        const std::string path = dir.file(std::to_string(++n) + ".dcm");
        std::vector<std::string> edits;
        std::istringstream words(c.edits);
        for (std::string w; words >> w;)
            edits.push_back(w);
        editCopy(c.src, path, edits);
        VxMessageCapture console;
        const std::string thrown = thrownBy(path);
        if (c.expected.empty()) {
            // Texts about the file end in ": " and its name follows.
            EXPECT_EQ(thrown.rfind(c.said.back() == ' ' ? c.said + path : c.said, 0), 0u) << thrown;
            continue;
        }
        ASSERT_EQ(thrown, "");
        auto file = readOrFail(path);
        ASSERT_TRUE(file);
        const VxDicomImage *im = file->images.isEmpty() ? nullptr : file->images[0];
        std::istringstream expected(c.expected);
        for (std::string pair; expected >> pair;) {
            const std::string key = pair.substr(0, pair.find('='));
            const double want = std::stod(pair.substr(key.size() + 1));
            const std::map<std::string, double> got = {
                {"images", file->images.size()},
                {"oblique", im ? im->oblique : NAN},
                {"normalZ", im ? im->normal[2] : NAN},
                {"orientation", im ? im->hasRowDirection() : NAN},
                {"hasPosition", im ? im->hasPosition : NAN},
                {"location", im ? im->sliceLocation : NAN},
                {"x", im ? im->position[0] : NAN},
                {"y", im ? im->position[1] : NAN},
                {"z", im ? im->position[2] : NAN},
                {"columnSpacing", im ? im->pixelSpacing[0] : NAN},
                {"rowSpacing", im ? im->pixelSpacing[1] : NAN},
                {"intercept", im ? im->rescaleIntercept : NAN},
                {"frame5", file->images.size() > 5 ? file->images[5]->sliceLocation : NAN}};
            EXPECT_FLOAT_EQ(got.at(key), want) << key;
        }
        // A warning names the file; no warning without a reason.
        const bool named = console.contains(file->fileName + ": ");
        EXPECT_EQ(named, !c.said.empty()) << console.text();
        EXPECT_TRUE(console.contains(c.said)) << console.text();
    }
}

// Files that do not read at all: missing, not DICOM, truncated.
TEST(DicomFileFailures, UnreadableFilesThrowTheirTextsWithTheName)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string missing = dir.file("missing.dcm"), truncated = dir.file("truncated.dcm"),
                      notDicom = vxtest::sharedPath("dcm_qa_ct/README.md");
    auto bytes = vxtest::readFileBytes(vxtest::sharedPath(kMrFile));
    bytes.resize(bytes.size() - 1000);
    vxtest::writeFileBytes(truncated, bytes);
    EXPECT_EQ(thrownBy(missing).rfind("cannot open: " + missing, 0), 0u) << thrownBy(missing);
    for (const std::string &path : {notDicom, truncated})
        for (int delayed : {1, 0})
            EXPECT_EQ(
                thrownBy(path, delayed).rfind("cannot extract DICOM information from: " + path, 0),
                0u)
                << thrownBy(path, delayed);
}

// Stored bits: samples read with the header are masked below High Bit;
// samples read later are masked too and, when signed, sign-extended.
TEST(DicomImageRecord, StoredBitsAreMaskedAndSignedLazyValuesSignExtended)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_sag/In/2_gre_field_mapping");
    files.push_back(vxtest::sharedPath("dcm_qa_12bit/In/12bitSigned_0x0F0F.dcm"));
    files.push_back(vxtest::sharedPath("dcm_qa_12bit/In/12bitUnsigned_0x0F0F.dcm"));
    const QJsonArray reference = pydicomReference(files, true);
    ASSERT_EQ(reference.size(), static_cast<int>(files.size()));
    // The range over every image of a file (the tiles of a mosaic).
    const auto rangeOf = [](VxDicomFile &file) {
        std::pair<int, int> range(INT_MAX, INT_MIN);
        for (VxDicomImage *im : file.images) {
            int a = 0, b = 0;
            im->pixelData();
            EXPECT_TRUE(im->dataRange(&a, &b));
            range = {std::min(range.first, a), std::max(range.second, b)};
        }
        return range;
    };
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject(), px = r["pixels"].toObject();
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        const QJsonArray masked = px["masked"].toArray();
        const QJsonArray extended = r["signed"].toBool() ? px["signExtended"].toArray() : masked;
        auto full = readOrFail(path, 0);
        auto lazy = readOrFail(path, 1);
        ASSERT_TRUE(full && lazy);
        int lo, hi;
        EXPECT_EQ(lazy->images[0]->dataRange(&lo, &hi), 0) << "no range without pixels";
        EXPECT_EQ(rangeOf(*full), std::make_pair(masked[0].toInt(), masked[1].toInt()));
        EXPECT_EQ(rangeOf(*lazy), std::make_pair(extended[0].toInt(), extended[1].toInt()));
    }
}

TEST(DicomImageRecord, GzipCopyReadsTheSameAndLeavesNoTemporaryFile)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("gzip"))
        GTEST_SKIP() << "gzip is not installed";
    vxtest::TempDir dir, tmp;
    const std::string src = vxtest::sharedPath(kCtSeries + "/I10"s), gz = dir.file("I10.gz");
    ASSERT_EQ(vxtest::runCommand("gzip -c " + vxtest::shellQuote(src) + " > " + gz), 0);
    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    auto plain = readOrFail(src), packed = readOrFail(gz), packedFull = readOrFail(gz, 0);
    ASSERT_TRUE(plain && packed && packedFull);
    ASSERT_EQ(packed->images.size(), 1);
    const VxDicomImage &a = *plain->images[0];
    VxDicomImage &b = *packed->images[0];
    EXPECT_EQ(b.width, a.width);
    EXPECT_EQ(b.sliceLocation, a.sliceLocation);
    EXPECT_EQ(b.rescaleIntercept, a.rescaleIntercept);
    EXPECT_EQ(std::string(packed->loadName), gz) << "the load command names the packed file";
    std::vector<unsigned char> lazyPlain(a.dataSize + 1), lazyPacked(b.dataSize + 1);
    a.loadToMemory(lazyPlain.data());
    b.loadToMemory(lazyPacked.data());
    EXPECT_EQ(std::memcmp(lazyPlain.data(), lazyPacked.data(), a.dataSize), 0);
    EXPECT_EQ(std::memcmp(packedFull->images[0]->pixels, lazyPlain.data(), a.dataSize), 0);
    // A damaged archive fails as a file that cannot be opened.
    const std::string broken = dir.file("broken.gz");
    auto bytes = vxtest::readFileBytes(gz);
    bytes.resize(bytes.size() / 2);
    vxtest::writeFileBytes(broken, bytes);
    EXPECT_EQ(thrownBy(broken).rfind("cannot open: " + broken, 0), 0u) << thrownBy(broken);
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "every unpacked copy was removed";
}

// ------------------------------------------------------------ reading loop

namespace {

struct LoopResult
{
    std::string console;
    KcDArray<KcString> names;
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    std::vector<std::pair<std::string, float>> progress;
    bool showingAfter = false;
    ~LoopResult()
    {
        for (VxDicomFile *f : files)
            delete f;
    }
};

// readDicomFiles on the names; the user interrupts at the status `interruptAt`.
void readLoop(LoopResult &out, const std::vector<std::string> &names, int delayed, bool verbose,
              const std::string &interruptAt = "")
{
    for (const std::string &n : names)
        out.names.append(n);
    std::mutex m;
    VxWorkArea *work = VxWorkArea::instance();
    work->setObserver([&](const std::string &status, float fraction) {
        std::lock_guard<std::mutex> lock(m);
        out.progress.emplace_back(status, fraction);
        if (status == interruptAt)
            work->interrupt();
    });
    VxMessageCapture capture;
    readDicomFiles(out.names, delayed, verbose, out.files, out.images);
    out.console = capture.text();
    work->setObserver(nullptr);
    out.showingAfter = work->isShowingProgress();
}

std::vector<std::string> geFiles(size_t n)
{
    std::vector<std::string> all = vxtest::sharedDicomFiles("dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2");
    all.resize(std::min(all.size(), n));
    return all;
}

} // namespace

TEST(DicomReadLoop, OneLinePerFileFailuresWhenQuietAndTheSummary)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    std::vector<std::string> names = geFiles(3);
    const std::string missing = dir.file("missing.dcm"),
                      readme = vxtest::sharedPath("dcm_qa_ge/README.md");
    names.insert(names.begin() + 1, missing);
    names.push_back(readme);
    const std::string failed[] = {
        "reading " + missing + " failed: cannot open: " + missing + " (No such file or directory)",
        "reading " + readme + " failed: cannot extract DICOM information from: " + readme +
            " (not a DICOM file)"};
    LoopResult r;
    readLoop(r, names, 1, true);
    EXPECT_EQ(lines(r.console), (std::vector<std::string>{
                                    "+ " + names[0], failed[0], "+ " + names[2], "+ " + names[3],
                                    failed[1], "3 headers loaded from 5 files"}));
    ASSERT_EQ(r.files.size(), 3);
    // The load index is the position in the name list, failed names included.
    EXPECT_EQ(r.files[1]->index, 2);
    EXPECT_EQ(r.files[2]->index, 3);
    EXPECT_TRUE(r.progress.empty()) << "five names show no progress";
    LoopResult quiet;
    readLoop(quiet, names, 1, false);
    EXPECT_EQ(lines(quiet.console), (std::vector<std::string>{failed[0], failed[1]}));
    EXPECT_EQ(quiet.images.size(), 3);

    const std::string multi = vxtest::sharedDicomFiles(kEnhanced6)[0];
    const struct
    {
        std::vector<std::string> names;
        int delayed;
        const char *summary;
    } cases[] = {{geFiles(1), 1, "1 header loaded from 1 file"},
                 {geFiles(2), 0, "2 images loaded from 2 files"},
                 {{multi}, 1, "6 headers loaded from 1 file"},
                 {{multi}, 0, "6 images loaded from 1 file"}};
    for (const auto &c : cases) {
        LoopResult s;
        readLoop(s, c.names, c.delayed, true);
        EXPECT_EQ(lines(s.console).back(), c.summary);
        EXPECT_EQ(s.images[0]->hasPixels(), c.delayed == 0) << c.summary;
    }
}

TEST(DicomReadLoop, ProgressFromTenFilesAndInterruptKeepsWhatWasRead)
{
    VX_REQUIRE_SHARED_DATA();
    LoopResult nine, ten, stopped;
    readLoop(nine, geFiles(9), 1, false);
    EXPECT_TRUE(nine.progress.empty());
    readLoop(ten, geFiles(10), 1, false);
    ASSERT_FALSE(ten.progress.empty());
    EXPECT_EQ(ten.progress.front().first, "loading files...");
    // Each count is shown with the fraction of the files done before it.
    std::vector<std::pair<std::string, float>> counts;
    for (const auto &p : ten.progress)
        if (p.first.find(". of ") != std::string::npos &&
            (counts.empty() || counts.back().first != p.first))
            counts.push_back(p);
    ASSERT_EQ(counts.size(), 10u);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(counts[i].first, (i < 9 ? "  " : " ") + std::to_string(i + 1) + ". of 10.");
        EXPECT_FLOAT_EQ(counts[i].second, i / 10.0f);
    }
    EXPECT_FALSE(ten.showingAfter) << "the progress display ends with the loop";

    readLoop(stopped, geFiles(12), 1, true, "  3. of 12.");
    EXPECT_EQ(stopped.files.size(), 3);
    EXPECT_EQ(stopped.progress.back().first, "interrupted.");
    EXPECT_EQ(lines(stopped.console).size(), 4u);
    EXPECT_EQ(lines(stopped.console).back(), "3 headers loaded from 12 files");
    EXPECT_FALSE(stopped.showingAfter);
}

TEST(DicomReadLoop, DicomDirAddsItsFilesAndSwitchesProgressOn)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (dcmtk) is not installed";
    vxtest::TempDir dir;
    fs::create_directory(dir.path() / "IMAGES");
    const std::vector<std::string> sources = geFiles(3);
    for (size_t k = 0; k < sources.size(); ++k)
        fs::copy_file(sources[k], dir.path() / "IMAGES" / ("IM" + std::to_string(k + 1)));
    std::string out;
    ASSERT_EQ(vxtest::runCommand("cd " + vxtest::shellQuote(dir.path().string()) +
                                     " && dcmmkdir --general-purpose --invent -q +r IMAGES",
                                 &out, true),
              0)
        << out;
    LoopResult r;
    readLoop(r, {dir.file("DICOMDIR")}, 1, true);
    ASSERT_FALSE(r.progress.empty()) << "a DICOMDIR switches progress on with one name";
    EXPECT_EQ(r.progress.front().first, "processing DICOMDIR...");
    ASSERT_EQ(r.names.size(), 4);
    EXPECT_EQ(r.files.size(), 3) << "the DICOMDIR itself is not kept";
    for (int k = 1; k < 4; ++k)
        EXPECT_EQ(fs::path(r.names[k].c_str()).parent_path().filename(), "IMAGES");
    EXPECT_EQ(lines(r.console).back(), "3 headers loaded from 4 files");
}
