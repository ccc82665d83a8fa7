#include "tests/platform/dicom/DicomTestSupport.h"

#include "platform/core/VxMessage.h"

#include <algorithm>
#include <random>

namespace {

using dicomtest::DicomPtr, dicomtest::ts;
using Bytes = std::vector<unsigned char>;

void expectRejected(const Bytes &bytes, const std::string &what, const std::string &reason = "")
{
    vxtest::TempDir dir;
    const std::string path = dir.file("input.dcm");
    vxtest::writeFileBytes(path, bytes);
    for (int mode : {0, 1, 2}) {
        std::string why;
        DicomPtr d(mode < 2 ? dicom::dicomReadFile(path.c_str(), mode, &why)
                            : dicom::dicomReadBuffer(bytes.data(), bytes.size(), "input", &why));
        EXPECT_FALSE(d) << what << ", mode " << mode;
        EXPECT_TRUE(!why.empty() && why.find(reason) != std::string::npos) << what << ": " << why;
    }
}

TEST(BrokenInput, NonDicomBytesAndMissingFilesAreRefusedAsSuch)
{
    const std::string text = "This is a plain text file, not a DICOM file at all.\n";
    for (const Bytes &bytes : {Bytes{}, Bytes(text.begin(), text.end()), Bytes(4096, 0)})
        expectRejected(bytes, std::to_string(bytes.size()) + " bytes", "not a DICOM file");
    Bytes bare(128, 0);
    bare.insert(bare.end(), {'D', 'I', 'C', 'M'});
    expectRejected(bare, "preamble only");
    vxtest::TempDir dir;
    std::string why;
    for (auto [path, reason] : {std::pair{dir.file("absent.dcm"), "No such file or directory"},
                                {dir.path().string(), "is a directory"}}) {
        EXPECT_FALSE(dicomtest::read(path, true, &why));
        EXPECT_EQ(why, reason);
    }
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile(nullptr, 1, &why)) || why.empty());
    EXPECT_FALSE(DicomPtr(dicom::dicomReadFile("", 0, nullptr))) << "why may be null";
}

// Nine encodings of one image load silently alike; cuts fail with a reason, flipped bytes cleanly.
TEST(BrokenInput, TruncatedFilesFailWithAReasonAndWholeOnesLoadSilently)
{
    VX_REQUIRE_SHARED_DATA();
    using enum dicom::Compression;
    const dicom::Compression compression[] = {
        COMPRESSION_NONE,   COMPRESSION_NONE,   COMPRESSION_NONE,
        COMPRESSION_RLE,    COMPRESSION_JPEG,   COMPRESSION_JPEG,
        COMPRESSION_JPEGLS, COMPRESSION_JPEGLS, COMPRESSION_JPEG2000};
    std::mt19937 random(20240607);
    int refused = 0, decoded = 0;
    Bytes reference;
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(ts(n));
        const Bytes bytes = vxtest::readFileBytes(ts(n));
        std::string why;
        VxMessageCapture capture;
        DicomPtr whole = dicomtest::read(ts(n), true, &why),
                 full = dicomtest::read(ts(n), false, &why);
        ASSERT_TRUE(whole && full) << why;
        reference = n == 1 ? dicomtest::fullPixels(*full) : reference;
        ASSERT_EQ(reference.size(), 384u * 384u * 2u);
        EXPECT_TRUE(dicomtest::fullPixels(*full) == reference &&
                    dicomtest::decodeFrames(*whole, &why) == reference)
            << why;
        EXPECT_EQ(capture.text(), "");
        EXPECT_EQ(std::tuple(whole->compression, whole->photometric, whole->planarConfiguration,
                             whole->bigEndian, whole->explicitVR),
                  std::tuple(compression[n - 1], std::string("MONOCHROME2"), 0, n == 3, n != 2));
        const size_t length = size_t(
                         dicom::dicomFindElement(whole.get(), 0x7FE0, 0x0010)->length), // the last
            value = bytes.size() - length;
        for (size_t cut :
             {size_t(1), size_t(100), size_t(131), size_t(140), size_t(300), value / 2 + 3,
              value - 6, value + 1, value + length / 2, bytes.size() - 1})
            expectRejected(Bytes(bytes.begin(), bytes.begin() + long(cut)),
                           std::to_string(n) + ".dcm cut at " + std::to_string(cut));
        // Encapsulated: the last item runs past the end by no more than its 8-byte header.
        for (long shortBy : {9, 16})
            expectRejected(Bytes(bytes.begin(), bytes.end() - shortBy),
                           std::to_string(n) + ".dcm " + std::to_string(shortBy) + " bytes short",
                           n <= 3 ? "truncated" : "runs past the end of the file");
        for (int round = 0; round < 30; ++round) {
            Bytes mutant = bytes;
            for (int f = 0, flips = 1 + int(random() % 8); f < flips; ++f)
                mutant[round % 2 ? value + random() % length : 128 + random() % (value - 128)] ^=
                    uint8_t(1 + random() % 255);
            std::string why;
            DicomPtr d(dicom::dicomReadBuffer(mutant.data(), mutant.size(), "mutant", &why));
            refused += !d;
            EXPECT_TRUE(d || !why.empty());
            decoded += d && d->pixelData;
            for (int i = 0; d && i < d->numElements; ++i)
                dicom::dicomGetById(d.get(), d->elements[i].group, d->elements[i].element);
        }
    }
    EXPECT_TRUE(refused > 0 && decoded > 0) << refused << " refused, " << decoded << " decoded";
}

// DCMTK 3.6.7's RLE decoder follows segment offsets outside the fragment; we check first.
TEST(BrokenInput, RleSegmentOffsetsOutsideTheFrameAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    Bytes bytes = vxtest::readFileBytes(ts(4));
    const unsigned char header[] = {2, 0, 0, 0, 64, 0, 0, 0}; // two segments, the first at 64
    auto at = std::search(bytes.begin(), bytes.end(), header, header + 8);
    ASSERT_NE(at, bytes.end());
    std::string why;
    for (auto [offset, segments, reason] :
         {std::tuple{0x60, 2, "RLE frame 1: segment 1 at byte 6291520"},
          {0, 3, "3 segments, 2 expected"}}) {
        at[6] = uint8_t(offset);
        at[0] = uint8_t(segments);
        EXPECT_FALSE(DicomPtr(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "4.dcm", &why)));
        EXPECT_NE(why.find(reason), std::string::npos) << why;
    }
}

// Delayed pixel reads (from the path given) fail on bad arguments and a vanished or cut file.
TEST(BrokenInput, PixelReadsCheckTheirArgumentsAndTheirFile)
{
    VX_REQUIRE_SHARED_DATA();
    for (int n : {1, 4, 9}) {
        vxtest::TempDir dir;
        const std::string first = dir.file("first.dcm"), second = dir.file("second.dcm");
        std::filesystem::copy_file(ts(n), first);
        std::filesystem::copy_file(ts(n), second);
        DicomPtr d = dicomtest::read(first, true);
        ASSERT_TRUE(d);
        Bytes frame(size_t(d->frameSize));
        std::string why;
        auto read = [&](const dicom::dicomStruct *s, const char *path, int k, unsigned char *p,
                        size_t size, const char *reason = "") {
            why.clear();
            return dicom::dicomReadImageData(s, path, k, p, size, &why) ||
                   why.find(reason) == std::string::npos;
        };
        EXPECT_FALSE(read(d.get(), nullptr, 1, frame.data(), frame.size(), "frame") ||
                     read(d.get(), nullptr, 0, frame.data(), frame.size() - 1, "buffer") ||
                     read(nullptr, nullptr, 0, frame.data(), frame.size()))
            << why;
        std::filesystem::remove(first);
        EXPECT_FALSE(read(d.get(), nullptr, 0, frame.data(), frame.size(), "No such file"));
        EXPECT_TRUE(read(d.get(), second.c_str(), 0, frame.data(), frame.size())) << why;
        std::filesystem::resize_file(second, std::filesystem::file_size(second) - 1000);
        EXPECT_FALSE(read(d.get(), second.c_str(), 0, frame.data(), frame.size()));
    }
}

// Undefined lengths cut, unclosed, overlong or nested too deep give -1 in every encoding.
TEST(BrokenInput, UndefinedLengthsCutUnclosedOrNestedTooDeepFail)
{
    for (auto [big, explicitVr] : {std::pair{false, true}, {false, false}, {true, true}}) {
        SCOPED_TRACE(std::to_string(big) + std::to_string(explicitVr));
        Bytes b;
        auto u16 = [&](unsigned v) {
            b.insert(b.end(), {uint8_t(big ? v >> 8 : v), uint8_t(big ? v : v >> 8)});
        };
        auto tag = [&](unsigned g, unsigned e, uint32_t length) { // items and delimiters
            u16(g), u16(e);
            big ? (u16(length >> 16), u16(length)) : (u16(length), u16(length >> 16));
        };
        auto item = [&](uint32_t length) { tag(0xFFFE, 0xE000, length); };
        auto itemEnd = [&] { tag(0xFFFE, 0xE00D, 0); };
        auto sequenceEnd = [&] { tag(0xFFFE, 0xE0DD, 0); };
        auto code = [&] { // (0008,0100) SH "CODE"
            explicitVr ? (u16(8), u16(0x100), b.insert(b.end(), {'S', 'H'}), u16(4))
                       : tag(8, 0x100, 4);
            b.insert(b.end(), {'C', 'O', 'D', 'E'});
        };
        auto sequence = [&] { // (0040,A730) of undefined length
            explicitVr ? (u16(0x40), u16(0xA730), b.insert(b.end(), {'S', 'Q', 0, 0}), u16(0xFFFF),
                          u16(0xFFFF))
                       : tag(0x40, 0xA730, ~0u);
        };
        auto adjust = [&](size_t n) { // on an exact-size copy, so that ASan sees a read past it
            const Bytes copy(b.begin(), b.begin() + long(n));
            return dicom::dicomAdjustLength(copy.data(), copy.data() + n, big, explicitVr, false);
        };
        item(12), code(), item(~0u), code(), sequence(), item(~0u), code();
        itemEnd(), sequenceEnd(), itemEnd(), sequenceEnd();
        const size_t whole = b.size();
        for (size_t n = 0; n < whole; ++n)
            EXPECT_EQ(adjust(n), -1) << "cut after " << n << " bytes";
        code();
        EXPECT_EQ(adjust(b.size()), long(whole));
        for (int broken = 0; broken < 4; ++broken) {
            b.clear();
            broken == 2 ? code() : (item(broken == 3 ? 1000 : ~0u), code());
            broken == 1 ? itemEnd() : sequenceEnd();
            EXPECT_EQ(adjust(b.size()), -1) << "case " << broken;
        }
        for (auto [levels, closed] : {std::pair{30, true}, {40, true}, {10000, false}}) {
            b.clear();
            for (int i = 0; i < levels; ++i)
                item(~0u), sequence();
            for (int i = 0; closed && i < levels; ++i)
                sequenceEnd(), itemEnd();
            closed ? sequenceEnd() : void();
            EXPECT_EQ(adjust(b.size()), levels == 30 ? long(b.size()) : -1) << levels << " levels";
        }
    }
    const unsigned char d[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
    EXPECT_EQ(dicom::dicomAdjustLength(nullptr, d + 8, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d + 8, d, false, true, false), -1);
}

} // namespace
