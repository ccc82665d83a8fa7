// Broken and hostile inputs: every one gives null (or false) with a reason,
// never a crash, a hang or an access out of bounds (run under ASan/UBSan).

#include "tests/platform/dicom/DicomTestSupport.h"
#include "tests/support/TestSupport.h"

#include "platform/core/VxMessage.h"

#include <algorithm>
#include <filesystem>
#include <random>

namespace {

using dicomtest::DicomPtr;

std::string ts(int n)
{
    return vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm");
}

// Reads the bytes as a file (delayed and full) and as a buffer; expects
// failure with a reason in all three.
void expectRejected(const std::vector<unsigned char> &bytes, const std::string &what,
                    const std::string &reasonPart = "")
{
    vxtest::TempDir dir;
    const std::string path = dir.file("input.dcm");
    vxtest::writeFileBytes(path, bytes);
    for (int delayed : {1, 0}) {
        std::string why;
        DicomPtr d(dicom::dicomReadFile(path.c_str(), delayed, &why));
        EXPECT_FALSE(d) << what << " delayed=" << delayed;
        EXPECT_FALSE(why.empty()) << what;
        if (!reasonPart.empty()) {
            EXPECT_NE(why.find(reasonPart), std::string::npos) << what << ": " << why;
        }
    }
    std::string why;
    DicomPtr d(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "input", &why));
    EXPECT_FALSE(d) << what << " (buffer)";
    EXPECT_FALSE(why.empty()) << what;
}

TEST(BrokenInput, NonDicomFilesAreRefusedAsSuch)
{
    expectRejected({}, "empty file", "not a DICOM file");
    const std::string text = "This is a plain text file, not a DICOM file at all.\n";
    expectRejected(std::vector<unsigned char>(text.begin(), text.end()), "text",
                   "not a DICOM file");
    std::vector<unsigned char> zeros(4096, 0);
    expectRejected(zeros, "4 kB of zero bytes", "not a DICOM file");
    // A preamble and "DICM", then nothing.
    std::vector<unsigned char> bare(132, 0);
    std::memcpy(bare.data() + 128, "DICM", 4);
    expectRejected(bare, "preamble only");
}

TEST(BrokenInput, MissingFilesAndDirectoriesGiveTheSystemReason)
{
    vxtest::TempDir dir;
    std::string why;
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile(dir.file("absent.dcm").c_str(), 1, &why)));
    EXPECT_EQ(why, "No such file or directory");
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile(dir.path().c_str(), 1, &why)));
    EXPECT_EQ(why, "is a directory");
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile(nullptr, 1, &why)));
    EXPECT_FALSE(why.empty());
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile("", 0, nullptr))) << "why may be null";
}

// Each dcm_qa_ts file cut inside the preamble, the meta header, the data set
// header, the pixel data element's header and the pixel data.
TEST(BrokenInput, TruncatedFilesFailWithAReason)
{
    VX_REQUIRE_SHARED_DATA();
    for (int n = 1; n <= 9; ++n) {
        const std::vector<unsigned char> bytes = vxtest::readFileBytes(ts(n));
        DicomPtr whole = dicomtest::read(ts(n), true);
        ASSERT_TRUE(whole);
        const dicom::dicomDataElement *px = dicom::dicomFindElement(whole.get(), 0x7FE0, 0x0010);
        ASSERT_TRUE(px);
        // Pixel data are the last element in these files.
        const size_t pixelValue = bytes.size() - size_t(px->length);
        const size_t cuts[] = {1,
                               100,
                               131,
                               140,
                               300,
                               pixelValue / 2 + 3,
                               pixelValue - 6,
                               pixelValue + 1,
                               pixelValue + size_t(px->length) / 2,
                               bytes.size() - 1};
        for (size_t cut : cuts) {
            const std::vector<unsigned char> head(bytes.begin(), bytes.begin() + long(cut));
            expectRejected(head, std::to_string(n) + ".dcm cut at " + std::to_string(cut));
        }
        // Inside the pixel data the reason says so.
        const std::vector<unsigned char> head(bytes.begin(), bytes.end() - 10);
        expectRejected(head, std::to_string(n) + ".dcm without its last bytes", "truncated");
    }
}

// Bytes flipped at random in the header and in the pixel data of each
// encoding: any outcome is fine except a crash; what parses must decode or
// fail cleanly.
TEST(BrokenInput, RandomCorruptionNeverCrashes)
{
    VX_REQUIRE_SHARED_DATA();
    std::mt19937 random(20240607);
    int parsed = 0, refused = 0, decoded = 0, undecodable = 0;
    for (int n : {1, 2, 3, 4, 5, 7, 9}) {
        const std::vector<unsigned char> original = vxtest::readFileBytes(ts(n));
        DicomPtr whole = dicomtest::read(ts(n), true);
        ASSERT_TRUE(whole);
        const size_t pixelValue =
            original.size() - size_t(dicom::dicomFindElement(whole.get(), 0x7FE0, 0x0010)->length);
        for (int round = 0; round < 30; ++round) {
            std::vector<unsigned char> bytes = original;
            const bool inHeader = round % 2 == 0;
            const int flips = 1 + int(random() % 8);
            for (int f = 0; f < flips; ++f) {
                const size_t at = inHeader ? 128 + random() % (pixelValue - 128)
                                           : pixelValue + random() % (original.size() - pixelValue);
                bytes[at] ^= uint8_t(1 + random() % 255);
            }
            std::string why;
            DicomPtr d(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "mutant", &why));
            if (!d) {
                ++refused;
                EXPECT_FALSE(why.empty());
            } else {
                ++parsed;
                (d->pixelData ? decoded : undecodable)++;
                for (int i = 0; i < d->numElements; ++i)
                    dicom::dicomGetById(d.get(), d->elements[i].group, d->elements[i].element);
            }
        }
    }
    // Flips in compressed pixel data make some frames undecodable; flips in
    // the header make some files unparsable. Both must have happened.
    EXPECT_GT(parsed, 0);
    EXPECT_GT(refused, 0);
    EXPECT_GT(decoded, 0);
    EXPECT_EQ(parsed, decoded + undecodable);
}

// DCMTK 3.6.7's RLE decoder follows segment offsets outside the fragment
// (found by fuzzing); the layer checks the RLE header first.
TEST(BrokenInput, RleSegmentOffsetsOutsideTheFrameAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<unsigned char> bytes = vxtest::readFileBytes(ts(4));
    // 16-bit monochrome RLE: two segments, the first at byte 64 (PS3.5 G.5).
    const unsigned char header[] = {2, 0, 0, 0, 64, 0, 0, 0};
    auto at = std::search(bytes.begin(), bytes.end(), header, header + 8);
    ASSERT_NE(at, bytes.end());
    at[6] = 0x60; // first segment at byte 0x00600040
    std::string why;
    DicomPtr d(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "4.dcm", &why));
    EXPECT_FALSE(d);
    EXPECT_NE(why.find("RLE frame 1: segment 1 at byte 6291520"), std::string::npos) << why;
    at[6] = 0;
    at[0] = 3; // three segments for one 16-bit sample
    d.reset(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "4.dcm", &why));
    EXPECT_FALSE(d);
    EXPECT_NE(why.find("3 segments, 2 expected"), std::string::npos) << why;
}

TEST(BrokenInput, PixelReadsCheckTheirArguments)
{
    VX_REQUIRE_SHARED_DATA();
    DicomPtr d = dicomtest::read(ts(1), true);
    ASSERT_TRUE(d);
    std::vector<unsigned char> frame(size_t(d->frameSize));
    std::string why;
    EXPECT_FALSE(dicom::dicomReadImageData(d.get(), nullptr, 1, frame.data(), frame.size(), &why));
    EXPECT_NE(why.find("frame"), std::string::npos) << why;
    EXPECT_FALSE(dicom::dicomReadImageData(d.get(), nullptr, -1, frame.data(), frame.size(), &why));
    EXPECT_FALSE(
        dicom::dicomReadImageData(d.get(), nullptr, 0, frame.data(), frame.size() - 1, &why));
    EXPECT_NE(why.find("buffer"), std::string::npos) << why;
    EXPECT_FALSE(dicom::dicomReadImageData(d.get(), nullptr, 0, nullptr, frame.size(), &why));
    EXPECT_FALSE(dicom::dicomReadImageData(nullptr, nullptr, 0, frame.data(), frame.size(), &why));
    EXPECT_TRUE(dicom::dicomReadImageData(d.get(), nullptr, 0, frame.data(), frame.size(), &why))
        << why;
}

// The module reads pixels later from a fresh copy (an unpacked .gz); the
// parsed file may be gone by then.
TEST(BrokenInput, PixelsComeFromThePathGivenAndFailWhenItIsGone)
{
    VX_REQUIRE_SHARED_DATA();
    for (int n : {1, 4, 9}) {
        vxtest::TempDir dir;
        const std::string first = dir.file("first.dcm"), second = dir.file("second.dcm");
        std::filesystem::copy_file(ts(n), first);
        std::filesystem::copy_file(ts(n), second);
        DicomPtr d = dicomtest::read(first, true);
        ASSERT_TRUE(d);
        std::filesystem::remove(first);
        std::vector<unsigned char> frame(size_t(d->frameSize) + 1);
        std::string why;
        EXPECT_FALSE(
            dicom::dicomReadImageData(d.get(), nullptr, 0, frame.data(), frame.size(), &why));
        EXPECT_EQ(why, "No such file or directory");
        EXPECT_TRUE(
            dicom::dicomReadImageData(d.get(), second.c_str(), 0, frame.data(), frame.size(), &why))
            << why;
        // A copy truncated after the header was parsed.
        std::filesystem::resize_file(second, std::filesystem::file_size(second) - 1000);
        EXPECT_FALSE(dicom::dicomReadImageData(d.get(), second.c_str(), 0, frame.data(),
                                               frame.size(), &why));
        EXPECT_FALSE(why.empty());
    }
}

TEST(Logging, NormalLoadsPrintNothingOfDcmtks)
{
    VX_REQUIRE_SHARED_DATA();
    VxMessageCapture capture;
    for (int n = 1; n <= 9; ++n) {
        DicomPtr d = dicomtest::read(ts(n), false);
        ASSERT_TRUE(d);
    }
    EXPECT_EQ(capture.text(), "");
}

// DCMTK's own complaints reach the console, not standard error.
TEST(Logging, DcmtkWarningsGoToTheConsole)
{
    // A bare explicit VR data set with (0008,0060) twice: DCMTK keeps the
    // first and warns about the second.
    const unsigned char bytes[] = {0x08, 0x00, 0x60, 0x00, 'C', 'S', 2,   0,   'O', 'T',  0x08,
                                   0x00, 0x60, 0x00, 'C',  'S', 2,   0,   'M', 'R', 0x10, 0x00,
                                   0x10, 0x00, 'P',  'N',  4,   0,   'A', '^', 'B', ' '};
    VxMessageCapture capture;
    std::string why;
    DicomPtr d(dicom::dicomReadBuffer(bytes, sizeof bytes, "duplicate", &why));
    ASSERT_TRUE(d) << why;
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0008, 0x0060), "OT");
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0010, 0x0010), "A^B");
    EXPECT_EQ(d->pixelsInFile, false);
    EXPECT_EQ(d->frames, 0);
    EXPECT_TRUE(capture.contains("Warning: DCMTK: ")) << "captured: " << capture.text();
    EXPECT_TRUE(capture.contains("(0008,0060)")) << "captured: " << capture.text();
}

} // namespace
