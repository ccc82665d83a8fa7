// File and image records of real files against pydicom, of edited copies, and the reading loop.

#include "platform/core/VxMessage.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"

#include <QApplication>

#include <climits>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

using namespace readertest;

namespace {

std::unique_ptr<VxDicomFile> readOrFail(const std::string &path, int delayed = 1)
{
    OpenedFiles opened({path}, delayed);
    return opened.files.empty() ? nullptr : std::move(opened.files[0]);
}

std::string thrownBy(const std::string &path) // "" when it reads
{
    try {
        VxDicomFile file(path.c_str(), 0, 1);
    } catch (const char *text) {
        return text;
    }
    return "";
}

} // namespace

// Every shared file as pydicom reads it: single frames' records, 16-bit ranges, frame places.
TEST(DicomImageRecord, EverySharedFileAgreesWithPydicom)
{
    VX_REQUIRE_SHARED_DATA();
    int single = 0, multi = 0;
    // Single precision carries about seven digits; positions reach 800 mm.
    const auto expectClose = [](double actual, double expected, const char *what) {
        EXPECT_NEAR(actual, expected, 2e-6 * std::max(1.0, std::fabs(expected))) << what;
    };
    std::set<fs::path> rangeFolders;
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
    for (const QJsonValue &v : pydicomReference(vxtest::sharedDicomFiles())) {
        const QJsonObject r = v.toObject(), rec = r["record"].toObject();
        const std::string path = r["file"].toString().toStdString();
        SCOPED_TRACE(path);
        const int frames = r["frames"].toInt();
        auto file = readOrFail(path);
        ASSERT_TRUE(file);
        if (frames > 1) {
            ASSERT_EQ(file->images.size(), frames);
            const QJsonArray positions = r["framePositions"].toArray();
            for (int k = 0; k < frames; ++k)
                for (int i = 0; i < 3; ++i)
                    expectClose(file->images[k]->position[i], positions[k][i].toDouble(),
                                "frame position");
            ++multi;
            continue;
        }
        const bool isSigned = rec["isSigned"].toInt();
        if (r["pixels"].isObject() &&
            rangeFolders.insert(fs::path(path).parent_path() / (isSigned ? "signed" : "")).second) {
            const QJsonObject px = r["pixels"].toObject();
            int lo, hi;
            EXPECT_EQ(file->images[0]->dataRange(&lo, &hi), 0) << "no range before the pixels";
            auto full = readOrFail(path, 0);
            ASSERT_TRUE(full);
            const auto pair = [&](const char *key) {
                return std::pair(px[key][0].toInt(), px[key][1].toInt());
            };
            EXPECT_EQ(rangeOf(*full), pair("masked"));
            EXPECT_EQ(rangeOf(*file), pair(isSigned ? "signExtended" : "masked"));
        }
        if (r["mosaic"].toBool())
            continue; // mosaics become their tiles
        ASSERT_EQ(file->images.size(), 1);
        const VxDicomImage &im = *file->images[0];
        ++single;
        // clang-format off
        std::map<QString, double> ours = {
            {"width", im.width}, {"height", im.height}, {"bitsStored", im.bitsStored},
            {"samplesPerPixel", im.samplesPerPixel}, {"bytesPerSample", im.bytesPerSample},
            {"isSigned", im.isSigned}, {"imageNumber", im.imageNumber}, {"dataSize", im.dataSize},
            {"columnSpacing", im.pixelSpacing[0]}, {"rowSpacing", im.pixelSpacing[1]},
            {"sliceThickness", im.sliceThickness}, {"hasPosition", im.hasPosition}, {"oblique", im.oblique},
            {"sliceLocation", im.sliceLocation}, {"rescaleSlope", im.rescaleSlope},
            {"rescaleIntercept", im.rescaleIntercept}};
        // clang-format on
        for (int k = 0; k < 3; ++k)
            for (const auto &[name, values] : {std::pair("position", im.position),
                                               {"row", im.rowDirection},
                                               {"column", im.columnDirection},
                                               {"normal", im.normal}})
                ours[name + QString::number(k)] = values[k];
        EXPECT_TRUE(rec.contains("normal0")) << "every single-frame shared file has an orientation";
        for (const QString &key : rec.keys())
            expectClose(ours.at(key), rec[key].toDouble(), key.toUtf8().constData());
    }
    EXPECT_GT(single, 300);
    EXPECT_GE(multi, 19) << "agfa, canon, enh and sag multi-frame files";
    EXPECT_GE(rangeFolders.size(), 15u);
}

// Edited copies of real files: the record's fields, the warning naming the file, or the throw.
TEST(DicomImageRecord, EditedCopiesAreReadOrRefusedByName)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string mr = vxtest::sharedPath(kMrFile), ct = vxtest::sharedPath(kCtSeries) + "/I10",
                      enhanced = vxtest::sharedDicomFiles("dcm_qa_enh/In/Siemens/XA10")[0];
    // clang-format off
    const struct { const std::string &src; std::string edits, expected, said; } cases[] = {
        // Row 0.139 from +x: oblique at the default tolerance 0.03.
        {mr, "--set ImageOrientationPatient=0.99\\0.14\\0\\-0.14\\0.99\\0", "oblique=1 normalZ=1", ""},
        // The CT's Slice Location 698.49 is not the distance along its tilted normal.
        {ct, "--delete ImageOrientationPatient", "location=698.49 hasPosition=1 oblique=0 orientation=0", ""},
        {ct, "--delete ImagePositionPatient --set (0020,0030)=1.5\\-2\\3.25", "hasPosition=1 x=1.5 y=-2 z=3.25", ""},
        {ct, "--delete ImagePositionPatient --delete SliceLocation --delete ImageOrientationPatient",
         "hasPosition=0 location=0", ""},
        {mr, "--set PixelSpacing=0\\0.5", "columnSpacing=0.5 rowSpacing=0.5", "Pixel Spacing"},
        {mr, "--set PixelSpacing=1.1\\0.8", "columnSpacing=0.8 rowSpacing=1.1", ""},
        // Unsigned 12-bit CT with intercept 0 and slope 1 (or none) stores HU + 1000.
        {ct, "", "intercept=-1024", ""},
        {ct, "--delete RescaleIntercept --delete RescaleSlope", "intercept=-1000", ""},
        {ct, "--set RescaleIntercept=0 --set Modality=MR", "intercept=0", ""},
        // Geometry that cannot place an image is named and left out.
        {mr, "--set ImageOrientationPatient=nan\\0\\0\\0\\1\\0", "hasPosition=1 orientation=0", "is not finite"},
        {mr, "--set ImageOrientationPatient=0\\0\\0\\0\\1\\0", "orientation=0", "has a direction of length zero"},
        {mr, "--set ImageOrientationPatient=1\\0\\0\\0.5\\0.866\\0", "orientation=0", "are not perpendicular"},
        {mr, "--set ImagePositionPatient=1\\inf\\3", "hasPosition=0 orientation=1 x=0 y=0 z=0",
         "Image Position \"1\\inf\\3\" is not finite"},
        {mr, "--set PixelSpacing=-1\\1", "columnSpacing=0 hasPosition=1", "Pixel Spacing \"-1\\1\" is not two distances"},
        // Frames without functional groups lie Spacing Between Slices apart.
        {enhanced, "--delete PerFrameFunctionalGroupsSequence --delete SharedFunctionalGroupsSequence "
                   "--set SpacingBetweenSlices=2.5", "images=6 frame5=12.5", ""},
        {mr, "--set Columns=0", "", "cannot extract DICOM information from: "},
        {mr, "--set BitsAllocated=32 BitsStored=32 HighBit=31 SamplesPerPixel=3 PhotometricInterpretation=YBR_FULL "
             "--pixels 1,2", "", "32-bit YBR_FULL with 3 components is not supported: 32-bit colour is read as RGB only."},
        {vxtest::sharedPath("dcm_qa_ts/In/9.dcm"), "--transfer-syntax 1.2.840.10008.1.2.4.100", "",
         "unsupported data compression."},
    };
    // clang-format on
    vxtest::TempDir dir;
    int n = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.edits);
        const std::string path = dir.file(std::to_string(++n) + ".dcm");
        editCopy(c.src, path, c.edits);
        VxMessageCapture console;
        const std::string thrown = thrownBy(path);
        if (c.expected.empty()) {
            EXPECT_EQ(thrown.rfind(c.said.back() == ' ' ? c.said + path : c.said, 0), 0u) << thrown;
            continue;
        }
        ASSERT_EQ(thrown, "");
        auto file = readOrFail(path);
        ASSERT_TRUE(file);
        std::map<std::string, double> got = {{"images", file->images.size()}};
        if (const VxDicomImage *im = file->images.isEmpty() ? nullptr : file->images[0])
            // clang-format off
            got.insert({{"oblique", im->oblique}, {"normalZ", im->normal[2]}, {"orientation", im->hasRowDirection()},
                        {"hasPosition", im->hasPosition}, {"location", im->sliceLocation}, {"x", im->position[0]},
                        {"y", im->position[1]}, {"z", im->position[2]}, {"columnSpacing", im->pixelSpacing[0]},
                        {"rowSpacing", im->pixelSpacing[1]}, {"intercept", im->rescaleIntercept}});
        // clang-format on
        if (file->images.size() > 5)
            got["frame5"] = file->images[5]->sliceLocation;
        for (const std::string &pair : words(c.expected)) {
            const std::string key = pair.substr(0, pair.find('='));
            EXPECT_FLOAT_EQ(got.at(key), std::stod(pair.substr(key.size() + 1))) << key;
        }
        EXPECT_EQ(console.contains(file->fileName + ": "), !c.said.empty()) << console.text();
        EXPECT_TRUE(console.contains(c.said)) << console.text();
    }
}

TEST(DicomImageRecord, GzipCopyReadsTheSameAndLeavesNoTemporaryFile)
{
    VX_REQUIRE_SHARED_DATA();
    VX_REQUIRE(vxtest::haveProgram("gzip"), "gzip");
    vxtest::TempDir dir, tmp;
    const std::string src = vxtest::sharedPath(kCtSeries) + "/I10", gz = dir.file("I10.gz");
    ASSERT_EQ(vxtest::runCommand("gzip -c " + vxtest::shellQuote(src) + " > " + gz), 0);
    vxtest::ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    auto plain = readOrFail(src, 0), packed = readOrFail(gz); // the packed one read later
    ASSERT_TRUE(plain && packed && packed->images.size() == 1);
    EXPECT_EQ(std::string(packed->loadName), gz) << "the load command names the packed file";
    std::vector<unsigned char> lazy(plain->images[0]->dataSize);
    packed->images[0]->loadToMemory(lazy.data());
    EXPECT_EQ(std::memcmp(plain->images[0]->pixels, lazy.data(), lazy.size()), 0);
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "every unpacked copy was removed";
}

int main(int argc, char **argv)
{
    const vxtest::IsolatedEnvironment environment;
    setDicomUnitFactor(0.1f);
    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
