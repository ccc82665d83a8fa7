// Sample layouts and encodings the scanner files lack, made by other tools:
// pydicom writes small native images with known samples, DCMTK's and GDCM's
// command-line tools convert them (and real files) to other syntaxes, and
// pydicom re-fragments compressed frames.

#include "tests/platform/dicom/DicomTestSupport.h"

#include <filesystem>

namespace {

using dicom::COMPRESSION_DEFLATE, dicom::COMPRESSION_JPEG, dicom::COMPRESSION_JPEG2000,
    dicom::COMPRESSION_JPEGLS, dicom::COMPRESSION_NONE, dicom::COMPRESSION_RLE;
using dicomtest::DicomPtr;

struct Made
{
    const char *name, *command, *tool; ///< command "" for pydicom's own files
    const char *expected;              ///< NAME.expected: the bytes a decoder must produce
    dicom::Compression compression;
    const char *photometric;
    int planar, tolerance; ///< tolerance: largest sample difference (lossy codecs)
};

// %S is the shared data directory, %D the fixture directory, %O the output,
// %P the reference script.
const Made kMade[] = {
    {"rgb8", "", "", "rgb8", COMPRESSION_NONE, "RGB", 0, 0}, // by pixel, 45-byte frames
    {"rgb8_planar", "", "", "rgb8_planar", COMPRESSION_NONE, "RGB", 1, 0},
    {"mono1", "", "", "mono1", COMPRESSION_NONE, "MONOCHROME2", 0, 0}, // 15-bit frames, no gaps
    {"mono8", "", "", "mono8", COMPRESSION_NONE, "MONOCHROME2", 0, 0},
    {"signed16", "", "", "signed16", COMPRESSION_NONE, "MONOCHROME2", 0, 0},
    {"mono32", "", "", "mono32", COMPRESSION_NONE, "MONOCHROME2", 0, 0},
    {"ybr422", "", "", "ybr422", COMPRESSION_NONE, "YBR_FULL", 0, 0}, // widened to YBR_FULL
    {"rgb8_be", "dcmconv +tb %D/rgb8.dcm %O", "dcmconv", "rgb8", COMPRESSION_NONE, "RGB", 0, 0},
    {"mono32_be", "dcmconv +tb %D/mono32.dcm %O", "dcmconv", "mono32", COMPRESSION_NONE,
     "MONOCHROME2", 0, 0},
    {"signed16_be", "dcmconv +tb %D/signed16.dcm %O", "dcmconv", "signed16", COMPRESSION_NONE,
     "MONOCHROME2", 0, 0},
    {"mono1_be", "dcmconv +tb %D/mono1.dcm %O", "dcmconv", "mono1", COMPRESSION_NONE, "MONOCHROME2",
     0, 0},
    {"rgb8_planar_deflated", "dcmconv +td %D/rgb8_planar.dcm %O", "dcmconv", "rgb8_planar",
     COMPRESSION_DEFLATE, "RGB", 1, 0},
    // RLE colour comes back by plane, also when the header says Planar Configuration 0.
    {"rgb8_rle", "gdcmconv --rle %D/rgb8.dcm %O", "gdcmconv", "rgb8_planar", COMPRESSION_RLE, "RGB",
     1, 0},
    {"rgb8_rle_dcmtk", "dcmcrle %D/rgb8.dcm %O", "dcmcrle", "rgb8_planar", COMPRESSION_RLE, "RGB",
     1, 0},
    {"mono8_rle", "gdcmconv --rle %D/mono8.dcm %O", "gdcmconv", "mono8", COMPRESSION_RLE,
     "MONOCHROME2", 0, 0},
    {"rgb8_jpegls", "dcmcjpls %D/rgb8.dcm %O", "dcmcjpls", "rgb8", COMPRESSION_JPEGLS, "RGB", 0, 0},
    {"rgb8_jpegls_gdcm", "gdcmconv --jpegls %D/rgb8.dcm %O", "gdcmconv", "rgb8", COMPRESSION_JPEGLS,
     "RGB", 0, 0},
    {"rgb8_jpeg_lossless", "dcmcjpeg +e1 %D/rgb8.dcm %O", "dcmcjpeg", "rgb8", COMPRESSION_JPEG,
     "RGB", 0, 0},
    {"mono8_jpeg_gdcm", "gdcmconv --jpeg %D/mono8.dcm %O", "gdcmconv", "mono8", COMPRESSION_JPEG,
     "MONOCHROME2", 0, 0},
    // Baseline JPEG is stored as YBR_FULL_422 and comes back as RGB.
    {"smooth_jpeg_baseline", "dcmcjpeg +eb %D/rgb8_smooth.dcm %O", "dcmcjpeg", "rgb8_smooth",
     COMPRESSION_JPEG, "RGB", 0, 8},
    {"smooth_j2k", "gdcmconv --j2k %D/rgb8_smooth.dcm %O", "gdcmconv", "rgb8_smooth",
     COMPRESSION_JPEG2000, "RGB", 0, 0},
    {"signed16_j2k", "gdcmconv --j2k %D/signed16.dcm %O", "gdcmconv", "signed16",
     COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0},
    // Multi-frame: one fragment a frame and an empty offset table; three
    // fragments a frame without a table (frames found by their codestream
    // starts); two with a table; 1 kB fragments.
    {"enh_j2k", "gdcmconv --j2k %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O", "gdcmconv", "enh",
     COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0},
    {"enh_j2k_3fragments", "%P refragment %D/enh_j2k.dcm %O 3 0", "gdcmconv", "enh",
     COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0},
    {"enh_j2k_2fragments_bot", "%P refragment %D/enh_j2k.dcm %O 2 1", "gdcmconv", "enh",
     COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0},
    {"enh_jpeg_fragments", "dcmcjpeg +e1 +fs 1 -ot %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O",
     "dcmcjpeg", "enh", COMPRESSION_JPEG, "MONOCHROME2", 0, 0},
    {"enh_jpegls_fragments", "dcmcjpls +fs 1 -ot %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O",
     "dcmcjpls", "enh", COMPRESSION_JPEGLS, "MONOCHROME2", 0, 0},
    {"enh_rle", "gdcmconv --rle %S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm %O", "gdcmconv", "enh",
     COMPRESSION_RLE, "MONOCHROME2", 0, 0},
    {"ts_j2k_fragments", "gdcmconv --split 20000 %S/dcm_qa_ts/In/9.dcm %O", "gdcmconv", "ts",
     COMPRESSION_JPEG2000, "MONOCHROME2", 0, 0},
};

TEST(MadeFiles, EveryLayoutAndEncodingDecodesToTheKnownSamples)
{
    REQUIRE_PYDICOM();
    vxtest::TempDir dir;
    const std::string d = dir.path().string();
    std::string error;
    ASSERT_FALSE(dicomtest::runReference("make", {d}, &error).isEmpty()) << error;
    // References for the real files: pydicom's little-endian pixel bytes.
    dicomtest::runReference(
        "pixels", {vxtest::sharedPath("dcm_qa_enh/In/Siemens/XA10/6_1.dcm"), d + "/enh.expected"},
        &error);
    dicomtest::runReference("pixels",
                            {vxtest::sharedPath("dcm_qa_ts/In/1.dcm"), d + "/ts.expected"}, &error);
    std::vector<std::string> missing;
    for (const Made &m : kMade) {
        SCOPED_TRACE(m.name);
        const std::string path = d + "/" + m.name + ".dcm";
        if (*m.command && !vxtest::haveProgram(m.tool)) {
            missing.push_back(m.tool);
            continue;
        }
        std::string command = m.command;
        for (auto [key, value] :
             {std::pair<std::string, std::string>{"%S", vxtest::sharedDataDir()},
              {"%D", d},
              {"%O", path},
              {"%P", std::string(VX_PYTHON " " VX_DICOM_TEST_DIR "/pydicom_reference.py")}})
            for (size_t at; (at = command.find(key)) != std::string::npos;)
                command.replace(at, key.size(), value);
        if (*m.command)
            vxtest::runCommand(command + " 2>&1");
        ASSERT_TRUE(std::filesystem::exists(path)) << command;
        const auto expected = vxtest::readFileBytes(d + "/" + m.expected + ".expected");
        ASSERT_FALSE(expected.empty()) << m.expected;

        std::string why;
        DicomPtr delayed = dicomtest::read(path, true, &why);
        ASSERT_TRUE(delayed) << why;
        EXPECT_EQ(delayed->compression, m.compression);
        EXPECT_EQ(delayed->photometric, m.photometric);
        EXPECT_EQ(delayed->planarConfiguration, m.planar);
        const std::vector<unsigned char> frames = dicomtest::decodeFrames(*delayed, &why);
        ASSERT_FALSE(frames.empty()) << why;
        ASSERT_EQ(frames.size(), expected.size());
        int worst = 0, sum = 0; // lossy codecs: within the tolerance, a mean difference below 2
        for (size_t i = 0; i < frames.size(); ++i) {
            worst = std::max(worst, std::abs(frames[i] - expected[i]));
            sum += std::abs(frames[i] - expected[i]);
        }
        EXPECT_LE(worst, m.tolerance);
        EXPECT_LE(sum, 2 * int(frames.size()));
        std::vector<unsigned char> frame(size_t(delayed->frameSize) + 1);
        for (int k = delayed->frames - 1; k >= 0; --k) { // out of order, last first
            ASSERT_TRUE(dicom::dicomReadImageData(delayed.get(), nullptr, k, frame.data(),
                                                  frame.size(), &why))
                << why;
            EXPECT_TRUE(std::equal(frame.begin(), frame.end() - 1,
                                   frames.begin() + long(k) * delayed->frameSize))
                << k;
        }
        DicomPtr full = dicomtest::read(path, false, &why);
        ASSERT_TRUE(full) << why;
        EXPECT_TRUE(dicomtest::fullPixels(*full) == frames) << "full read";
        const std::vector<unsigned char> bytes = vxtest::readFileBytes(path);
        DicomPtr fromMemory(dicom::dicomReadBuffer(bytes.data(), bytes.size(), m.name, &why));
        ASSERT_TRUE(fromMemory) << why;
        EXPECT_TRUE(dicomtest::fullPixels(*fromMemory) == frames) << "buffer read";
    }
    if (!missing.empty())
        GTEST_SKIP() << missing.size() << " rows left out, not installed: " << missing.front();
}

} // namespace
