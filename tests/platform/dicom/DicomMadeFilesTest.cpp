#include "tests/platform/dicom/DicomTestSupport.h"

using namespace vxtest;
namespace {

using dicomtest::DicomPtr;
constexpr auto RAW = dicom::COMPRESSION_NONE, DEFL = dicom::COMPRESSION_DEFLATE,
               RLE = dicom::COMPRESSION_RLE, JPG = dicom::COMPRESSION_JPEG,
               JLS = dicom::COMPRESSION_JPEGLS, J2K = dicom::COMPRESSION_JPEG2000;
const char *const M2 = "MONOCHROME2";

// command: "" for pydicom's files; $S shared data, $D fixtures, $O output, $P reference script.
const struct Made
{
    const char *name, *command, *expected;
    dicom::Compression compression;
    const char *photometric;
    int planar, tolerance;
} kMade[] = {
    {"rgb8", "", "rgb8", RAW, "RGB", 0, 0}, // by pixel, 45-byte frames
    {"rgb8_planar", "", "rgb8_planar", RAW, "RGB", 1, 0},
    {"mono1", "", "mono1", RAW, M2, 0, 0}, // 15-bit frames, no gaps
    {"signed16", "", "signed16", RAW, M2, 0, 0},
    {"mono32", "", "mono32", RAW, M2, 0, 0},
    {"ybr422", "", "ybr422", RAW, "YBR_FULL", 0, 0}, // widened to YBR_FULL
    {"mono32_be", "dcmconv +tb $D/mono32.dcm $O", "mono32", RAW, M2, 0, 0},
    {"signed16_be", "dcmconv +tb $D/signed16.dcm $O", "signed16", RAW, M2, 0, 0},
    {"mono1_be", "dcmconv +tb $D/mono1.dcm $O", "mono1", RAW, M2, 0, 0},
    {"rgb8_planar_deflated", "dcmconv +td $D/rgb8_planar.dcm $O", "rgb8_planar", DEFL, "RGB", 1, 0},
    {"rgb8_rle", "gdcmconv --rle $D/rgb8.dcm $O", "rgb8_planar", RLE, "RGB", 1, 0},
    {"rgb8_rle_dcmtk", "dcmcrle $D/rgb8.dcm $O", "rgb8_planar", RLE, "RGB", 1, 0},
    {"rgb8_jpegls", "dcmcjpls $D/rgb8.dcm $O", "rgb8", JLS, "RGB", 0, 0},
    {"rgb8_jpeg_lossless", "dcmcjpeg +e1 $D/rgb8.dcm $O", "rgb8", JPG, "RGB", 0, 0},
    {"smooth_jpeg_baseline", "dcmcjpeg +eb $D/rgb8_smooth.dcm $O", "rgb8_smooth", JPG, "RGB", 0, 8},
    {"smooth_j2k", "gdcmconv --j2k $D/rgb8_smooth.dcm $O", "rgb8_smooth", J2K, "RGB", 0, 0},
    {"signed16_j2k", "gdcmconv --j2k $D/signed16.dcm $O", "signed16", J2K, M2, 0, 0},
    {"signed12_j2k", "gdcmconv --j2k $D/unsigned12.dcm $O && dcmodify -nb -m '(0028,0103)=1' $O",
     "signed12", J2K, M2, 0, 0}, // signed pixels in an unsigned codestream
    {"enh_j2k", "gdcmconv --j2k $S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm $O", "enh", J2K, M2, 0, 0},
    {"enh_j2k_3fragments", "$P refragment $D/enh_j2k.dcm $O 3 0", "enh", J2K, M2, 0, 0},
    {"enh_j2k_2fragments_bot", "$P refragment $D/enh_j2k.dcm $O 2 1", "enh", J2K, M2, 0, 0},
    {"enh_jpeg_fragments", "dcmcjpeg +e1 +fs 1 -ot $S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm $O", "enh",
     JPG, M2, 0, 0},
    {"enh_rle", "gdcmconv --rle $S/dcm_qa_enh/In/Siemens/XA10/6_1.dcm $O", "enh", RLE, M2, 0, 0},
    {"ts_j2k_fragments", "gdcmconv --split 20000 $S/dcm_qa_ts/In/9.dcm $O", "ts", J2K, M2, 0, 0},
};

// Layouts and encodings the scanner files lack decode delayed (any frame order) and full.
TEST(MadeFiles, EveryLayoutAndEncodingDecodesToTheKnownSamples)
{
    REQUIRE_PYDICOM();
    TempDir dir;
    const std::string d = dir.path().string();
    std::string missing;
    ASSERT_FALSE(dicomtest::runReference("make", {d, sharedDataDir()}).isEmpty());
    for (const Made &m : kMade) {
        SCOPED_TRACE(m.name);
        const std::string path = d + "/" + m.name + ".dcm";
        const std::string tool = std::string(m.command).substr(0, std::string(m.command).find(' '));
        if (*m.command &&
            !(tool == "$P" ? std::filesystem::exists(d + "/enh_j2k.dcm") : haveProgram(tool))) {
            missing += " " + tool;
            continue;
        }
        const std::string command =
            "S=" + shellQuote(sharedDataDir()) + " D=" + shellQuote(d) + " O=" + shellQuote(path) +
            " P=" + shellQuote(VX_PYTHON " " VX_TEST_DIR "/pydicom_reference.py") + "; " +
            m.command + " 2>&1";
        if (*m.command)
            runCommand(command);
        ASSERT_TRUE(std::filesystem::exists(path)) << command;
        const auto expected = readFileBytes(d + "/" + m.expected + ".expected");
        std::string why;
        DicomPtr delayed = dicomtest::read(path, true, &why),
                 full = dicomtest::read(path, false, &why);
        ASSERT_TRUE(delayed && full) << why;
        EXPECT_EQ(delayed->compression, m.compression);
        EXPECT_EQ(delayed->photometric + std::to_string(delayed->planarConfiguration),
                  m.photometric + std::to_string(m.planar));
        const std::vector<unsigned char> frames = dicomtest::decodeFrames(*delayed, &why);
        ASSERT_EQ(frames.size(), expected.size()) << why;
        int worst = 0, sum = 0; // lossy codecs: within the tolerance, a mean difference below 2
        for (size_t i = 0; i < frames.size(); ++i) {
            worst = std::max(worst, std::abs(frames[i] - expected[i]));
            sum += std::abs(frames[i] - expected[i]);
        }
        EXPECT_LE(worst, m.tolerance);
        EXPECT_LE(sum, 2 * int(frames.size()));
        std::vector<unsigned char> frame(size_t(delayed->frameSize));
        for (int k = delayed->frames - 1; k >= 0; --k) // out of order, last first
            EXPECT_TRUE(dicom::dicomReadImageData(delayed.get(), nullptr, k, frame.data(),
                                                  frame.size(), &why) &&
                        std::equal(frame.begin(), frame.end(),
                                   frames.begin() + long(k) * delayed->frameSize))
                << k << why;
        EXPECT_TRUE(dicomtest::fullPixels(*full) == frames) << "full read";
    }
    if (!missing.empty())
        GTEST_SKIP() << "rows left out, not installed:" << missing;
}

} // namespace
