// Sample layouts and encodings the scanner files lack, made by other tools:
// pydicom writes small native images with known samples; DCMTK's and GDCM's
// command-line tools convert them (and real files) to other syntaxes;
// pydicom re-fragments compressed frames.

#include "tests/platform/dicom/DicomTestSupport.h"
#include "tests/support/TestSupport.h"

#include <QJsonObject>

#include <cstdlib>
#include <map>

namespace {

using dicomtest::DicomPtr;

struct Made
{
    const char *name;     ///< file made in the fixture directory
    const char *command;  ///< how it is made from its source ("" for pydicom's own files)
    const char *tool;     ///< the program the command needs
    const char *expected; ///< file with the bytes a decoder must produce
    dicom::Compression compression;
    const char *photometric;
    int planar;
    int tolerance; ///< largest sample difference allowed (lossy codecs)
    const char *why;
};

// %S is the shared data directory, %D the fixture directory.
const Made kMade[] = {
    {"rgb8", "", "", "rgb8.expected", dicom::COMPRESSION_NONE, "RGB", 0, 0,
     "colour by pixel, 45-byte frames (odd)"},
    {"rgb8_planar", "", "", "rgb8_planar.expected", dicom::COMPRESSION_NONE, "RGB", 1, 0,
     "colour by plane is kept"},
    {"mono1", "", "", "mono1.expected", dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0,
     "1-bit frames of 15 pixels packed without gaps, unpacked to bytes"},
    {"mono8", "", "", "mono8.expected", dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0,
     "8-bit frames of 9 bytes"},
    {"signed16", "", "", "signed16.expected", dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0,
     "signed 16-bit samples"},
    {"mono32", "", "", "mono32.expected", dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0,
     "32-bit samples"},
    {"ybr422", "", "", "ybr422.expected", dicom::COMPRESSION_NONE, "YBR_FULL", 0, 0,
     "native YBR_FULL_422 widened to YBR_FULL"},
    {"rgb8_be", "dcmconv +tb %D/rgb8.dcm %O", "dcmconv", "rgb8.expected", dicom::COMPRESSION_NONE,
     "RGB", 0, 0, "8-bit colour, big endian"},
    {"mono32_be", "dcmconv +tb %D/mono32.dcm %O", "dcmconv", "mono32.expected",
     dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0, "32-bit samples swapped from big endian"},
    {"signed16_be", "dcmconv +tb %D/signed16.dcm %O", "dcmconv", "signed16.expected",
     dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0, "16-bit samples swapped from big endian"},
    {"mono1_be", "dcmconv +tb %D/mono1.dcm %O", "dcmconv", "mono1.expected",
     dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0, "1-bit data in big endian"},
    {"mono1_implicit", "dcmconv +ti %D/mono1.dcm %O", "dcmconv", "mono1.expected",
     dicom::COMPRESSION_NONE, "MONOCHROME2", 0, 0, "1-bit data in implicit VR"},
    {"rgb8_planar_deflated", "dcmconv +td %D/rgb8_planar.dcm %O", "dcmconv", "rgb8_planar.expected",
     dicom::COMPRESSION_DEFLATE, "RGB", 1, 0, "deflated data set"},
    {"mono8_deflated", "dcmconv +td %D/mono8.dcm %O", "dcmconv", "mono8.expected",
     dicom::COMPRESSION_DEFLATE, "MONOCHROME2", 0, 0, "deflated odd frames"},
    {"rgb8_rle", "gdcmconv --rle %D/rgb8.dcm %O", "gdcmconv", "rgb8.planes", dicom::COMPRESSION_RLE,
     "RGB", 1, 0, "RLE colour comes back by plane"},
    {"rgb8_rle_dcmtk", "dcmcrle %D/rgb8.dcm %O", "dcmcrle", "rgb8.planes", dicom::COMPRESSION_RLE,
     "RGB", 1, 0, "RLE colour that says Planar Configuration 0 comes back by plane too"},
    {"mono8_rle", "gdcmconv --rle %D/mono8.dcm %O", "gdcmconv", "mono8.expected",
     dicom::COMPRESSION_RLE, "MONOCHROME2", 0, 0, "RLE frames of odd size"},
    {"rgb8_jpegls", "dcmcjpls %D/rgb8.dcm %O", "dcmcjpls", "rgb8.expected",
     dicom::COMPRESSION_JPEGLS, "RGB", 0, 0, "JPEG-LS colour (DCMTK's encoder)"},
    {"rgb8_jpegls_gdcm", "gdcmconv --jpegls %D/rgb8.dcm %O", "gdcmconv", "rgb8.expected",
     dicom::COMPRESSION_JPEGLS, "RGB", 0, 0, "JPEG-LS colour (GDCM's encoder)"},
    {"rgb8_jpeg_lossless", "dcmcjpeg +e1 %D/rgb8.dcm %O", "dcmcjpeg", "rgb8.expected",
     dicom::COMPRESSION_JPEG, "RGB", 0, 0, "lossless JPEG colour"},
    {"mono8_jpeg_gdcm", "gdcmconv --jpeg %D/mono8.dcm %O", "gdcmconv", "mono8.expected",
     dicom::COMPRESSION_JPEG, "MONOCHROME2", 0, 0, "lossless JPEG, odd frames (GDCM)"},
    {"smooth_jpeg_baseline", "dcmcjpeg +eb %D/rgb8_smooth.dcm %O", "dcmcjpeg",
     "rgb8_smooth.expected", dicom::COMPRESSION_JPEG, "RGB", 0, 8,
     "baseline JPEG stored as YBR_FULL_422 comes back as RGB"},
    {"smooth_j2k", "gdcmconv --j2k %D/rgb8_smooth.dcm %O", "gdcmconv", "rgb8_smooth.expected",
     dicom::COMPRESSION_JPEG2000, "RGB", 0, 0, "JPEG 2000 colour"},
    {"signed16_j2k", "gdcmconv --j2k %D/signed16.dcm %O", "gdcmconv", "signed16.expected",
     dicom::COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0, "JPEG 2000 signed samples"},
    {"enh_j2k", "gdcmconv --j2k %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O", "gdcmconv",
     "enh.expected", dicom::COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0,
     "multi-frame JPEG 2000, one fragment a frame, empty offset table"},
    {"enh_j2k_3fragments", "REFRAGMENT %D/enh_j2k.dcm %O 3 0", "gdcmconv", "enh.expected",
     dicom::COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0,
     "three fragments a frame, no offset table: frames found by their codestream starts"},
    {"enh_j2k_2fragments_bot", "REFRAGMENT %D/enh_j2k.dcm %O 2 1", "gdcmconv", "enh.expected",
     dicom::COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0, "two fragments a frame, offset table"},
    {"enh_jpeg_fragments", "dcmcjpeg +e1 +fs 1 -ot %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O",
     "dcmcjpeg", "enh.expected", dicom::COMPRESSION_JPEG, "MONOCHROME2", 0, 0,
     "multi-frame lossless JPEG in 1 kB fragments, empty offset table"},
    {"enh_jpegls_fragments", "dcmcjpls +fs 1 -ot %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O",
     "dcmcjpls", "enh.expected", dicom::COMPRESSION_JPEGLS, "MONOCHROME2", 0, 0,
     "multi-frame JPEG-LS in 1 kB fragments, empty offset table"},
    {"enh_rle", "gdcmconv --rle %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O", "gdcmconv",
     "enh.expected", dicom::COMPRESSION_RLE, "MONOCHROME2", 0, 0, "multi-frame RLE"},
    {"ts_j2k_fragments", "gdcmconv --split 20000 %S/dcm_qa_ts/In/9.dcm %O", "gdcmconv",
     "ts.expected", dicom::COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0,
     "one JPEG 2000 frame in 20 kB fragments"},
};

std::string substitute(std::string text, const std::string &key, const std::string &value)
{
    for (size_t at = text.find(key); at != std::string::npos;
         at = text.find(key, at + value.size()))
        text.replace(at, key.size(), value);
    return text;
}

class MadeFile : public ::testing::TestWithParam<Made>
{
protected:
    static void SetUpTestSuite()
    {
        if (!dicomtest::havePydicom() || vxtest::sharedDataDir().empty())
            return;
        dir = new vxtest::TempDir;
        std::string error;
        made = dicomtest::runReference("make", {dir->path().string()}, &error);
        // References for the real files: pydicom's little-endian pixel bytes.
        dicomtest::runReference(
            "pixels",
            {vxtest::sharedPath("dcm_qa_enh/In/Siemens/XA10/6_1.dcm"), dir->file("enh.expected")},
            &error);
        dicomtest::runReference(
            "pixels", {vxtest::sharedPath("dcm_qa_ts/In/1.dcm"), dir->file("ts.expected")}, &error);
    }
    static void TearDownTestSuite()
    {
        delete dir;
        dir = nullptr;
    }

    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        if (!dicomtest::havePydicom())
            GTEST_SKIP() << "pydicom and numpy are needed for " VX_PYTHON;
        ASSERT_FALSE(made.isEmpty()) << "pydicom could not write the test images";
    }

    // Makes the row's file (once); empty when its tool is missing.
    std::string make(const Made &m)
    {
        const std::string out = dir->file(std::string(m.name) + ".dcm");
        if (!*m.command || std::filesystem::exists(out))
            return out;
        if (!vxtest::haveProgram(m.tool))
            return {};
        std::string command = substitute(m.command, "%S", vxtest::sharedDataDir());
        command = substitute(command, "%D", dir->path().string());
        command = substitute(command, "%O", out);
        if (command.rfind("REFRAGMENT ", 0) == 0) {
            std::vector<std::string> parts; // source, output, fragments, offset table
            const std::string args = command.substr(11);
            for (size_t b = 0, e; b < args.size(); b = e + 1) {
                e = args.find(' ', b);
                if (e == std::string::npos)
                    e = args.size();
                parts.push_back(args.substr(b, e - b));
            }
            // The source is another row's file.
            for (const Made &other : kMade)
                if (parts[0] == dir->file(std::string(other.name) + ".dcm"))
                    make(other);
            std::string error;
            dicomtest::runReference("refragment", parts, &error);
        } else {
            vxtest::runCommand(command + " 2>&1");
        }
        return out;
    }

    static vxtest::TempDir *dir;
    static QJsonObject made;
};

vxtest::TempDir *MadeFile::dir = nullptr;
QJsonObject MadeFile::made;

// Samples equal, or within the tolerance of a lossy codec.
void expectSamples(const std::vector<unsigned char> &actual,
                   const std::vector<unsigned char> &expected, int tolerance, const char *what)
{
    ASSERT_EQ(actual.size(), expected.size()) << what;
    if (tolerance == 0) {
        EXPECT_TRUE(actual == expected) << what;
        return;
    }
    int worst = 0;
    long sum = 0;
    for (size_t i = 0; i < actual.size(); ++i) {
        const int diff = std::abs(int(actual[i]) - int(expected[i]));
        worst = std::max(worst, diff);
        sum += diff;
    }
    EXPECT_LE(worst, tolerance) << what;
    EXPECT_LE(double(sum) / double(actual.size()), 2.0) << what << ": mean difference";
}

TEST_P(MadeFile, DecodesToTheKnownSamples)
{
    const Made &m = GetParam();
    SCOPED_TRACE(m.why);
    const std::string path = make(m);
    if (path.empty())
        GTEST_SKIP() << m.tool << " is not installed";
    ASSERT_TRUE(std::filesystem::exists(path)) << m.command;
    const std::vector<unsigned char> expected = vxtest::readFileBytes(dir->file(m.expected));
    ASSERT_FALSE(expected.empty()) << m.expected;

    std::string why;
    DicomPtr d = dicomtest::read(path, true, &why);
    ASSERT_TRUE(d) << why;
    EXPECT_EQ(d->compression, m.compression);
    EXPECT_EQ(d->photometric, m.photometric);
    EXPECT_EQ(d->planarConfiguration, m.planar);
    EXPECT_EQ(size_t(d->frameSize) * size_t(d->frames), expected.size());
    const std::vector<unsigned char> frames = dicomtest::decodeFrames(*d, &why);
    ASSERT_FALSE(frames.empty()) << why;
    expectSamples(frames, expected, m.tolerance, "delayed read");

    // Frames read out of order, last first.
    if (d->frames > 1) {
        std::vector<unsigned char> frame(size_t(d->frameSize) + 1);
        for (int k = d->frames - 1; k >= 0; --k) {
            ASSERT_TRUE(
                dicom::dicomReadImageData(d.get(), nullptr, k, frame.data(), frame.size(), &why))
                << "frame " << k << ": " << why;
            EXPECT_TRUE(std::equal(frame.begin(), frame.begin() + d->frameSize,
                                   frames.begin() + long(k) * d->frameSize))
                << "frame " << k;
        }
    }

    DicomPtr full = dicomtest::read(path, false, &why);
    ASSERT_TRUE(full) << why;
    expectSamples(dicomtest::fullPixels(*full), frames, 0, "full read");

    const std::vector<unsigned char> bytes = vxtest::readFileBytes(path);
    DicomPtr fromMemory(dicom::dicomReadBuffer(bytes.data(), bytes.size(), m.name, &why));
    ASSERT_TRUE(fromMemory) << why;
    expectSamples(dicomtest::fullPixels(*fromMemory), frames, 0, "buffer read");
}

INSTANTIATE_TEST_SUITE_P(Layouts, MadeFile, ::testing::ValuesIn(kMade),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
