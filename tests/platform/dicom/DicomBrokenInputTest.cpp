// Broken and hostile inputs: null (or false) with a reason that names the
// problem, never a crash, a hang or a read out of bounds (also run under ASan).

#include "tests/platform/dicom/DicomTestSupport.h"

#include "platform/core/VxMessage.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>

namespace {

using dicomtest::DicomPtr, dicomtest::ts;
using Bytes = std::vector<unsigned char>;

// Read as a file (full and delayed) and from memory: refused each time.
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
        EXPECT_FALSE(why.empty()) << what;
        EXPECT_NE(why.find(reason), std::string::npos) << what << ": " << why;
    }
}

// Pixel data are the last element of each dcm_qa_ts file: its value length.
size_t pixelLength(int n)
{
    DicomPtr whole = dicomtest::read(ts(n), true);
    return whole ? size_t(dicom::dicomFindElement(whole.get(), 0x7FE0, 0x0010)->length) : 0;
}

TEST(BrokenInput, NonDicomBytesAndMissingFilesAreRefusedAsSuch)
{
    const std::string text = "This is a plain text file, not a DICOM file at all.\n";
    Bytes bare(128, 0); // a preamble and "DICM", then nothing
    bare.insert(bare.end(), {'D', 'I', 'C', 'M'});
    for (const Bytes &bytes : {Bytes{}, Bytes(text.begin(), text.end()), Bytes(4096, 0)})
        expectRejected(bytes, std::to_string(bytes.size()) + " bytes", "not a DICOM file");
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

// Each of the nine encodings loads without a word from DCMTK, and fails with a
// reason when cut in the preamble, the meta header, the data set, the pixel
// data element's header or its value.
TEST(BrokenInput, TruncatedFilesFailWithAReasonAndWholeOnesLoadSilently)
{
    VX_REQUIRE_SHARED_DATA();
    for (int n = 1; n <= 9; ++n) {
        const Bytes bytes = vxtest::readFileBytes(ts(n));
        VxMessageCapture capture;
        ASSERT_TRUE(dicomtest::read(ts(n), false));
        EXPECT_EQ(capture.text(), "") << n << ".dcm";
        const size_t length = pixelLength(n), value = bytes.size() - length;
        for (size_t cut :
             {size_t(1), size_t(100), size_t(131), size_t(140), size_t(300), value / 2 + 3,
              value - 6, value + 1, value + length / 2, bytes.size() - 1})
            expectRejected(Bytes(bytes.begin(), bytes.begin() + long(cut)),
                           std::to_string(n) + ".dcm cut at " + std::to_string(cut));
        // 9 or 16 bytes short: in the encapsulated files (4 to 9) the sequence
        // delimiter and 1 or 8 bytes of the last item are gone, so that item
        // runs past the end by no more than its own 8-byte header.
        for (long shortBy : {9, 16})
            expectRejected(Bytes(bytes.begin(), bytes.end() - shortBy),
                           std::to_string(n) + ".dcm " + std::to_string(shortBy) + " bytes short",
                           n <= 3 ? "truncated" : "runs past the end of the file");
    }
}

// Bytes flipped at random in the header and in the pixel data of each
// encoding: what parses must decode or fail cleanly, what does not gives a reason.
TEST(BrokenInput, RandomCorruptionNeverCrashes)
{
    VX_REQUIRE_SHARED_DATA();
    std::mt19937 random(20240607);
    int refused = 0, decoded = 0;
    for (int n : {1, 2, 3, 4, 5, 7, 9}) {
        const Bytes original = vxtest::readFileBytes(ts(n));
        const size_t value = original.size() - pixelLength(n);
        for (int round = 0; round < 30; ++round) {
            Bytes bytes = original;
            for (int f = 0, flips = 1 + int(random() % 8); f < flips; ++f) {
                const size_t at = round % 2 == 0 ? 128 + random() % (value - 128)
                                                 : value + random() % (original.size() - value);
                bytes[at] ^= uint8_t(1 + random() % 255);
            }
            std::string why;
            DicomPtr d(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "mutant", &why));
            refused += !d;
            EXPECT_TRUE(d || !why.empty());
            decoded += d && d->pixelData;
            for (int i = 0; d && i < d->numElements; ++i)
                dicom::dicomGetById(d.get(), d->elements[i].group, d->elements[i].element);
        }
    }
    EXPECT_TRUE(refused > 0 && decoded > 0) << refused << " refused, " << decoded << " decoded";
}

// DCMTK 3.6.7's RLE decoder follows segment offsets outside the fragment
// (found by fuzzing); the layer checks the RLE header first.
TEST(BrokenInput, RleSegmentOffsetsOutsideTheFrameAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    Bytes bytes = vxtest::readFileBytes(ts(4));
    // 16-bit monochrome RLE: two segments, the first at byte 64.
    const unsigned char header[] = {2, 0, 0, 0, 64, 0, 0, 0};
    auto at = std::search(bytes.begin(), bytes.end(), header, header + 8);
    ASSERT_NE(at, bytes.end());
    at[6] = 0x60; // first segment at byte 0x00600040
    std::string why;
    EXPECT_FALSE(DicomPtr(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "4.dcm", &why)));
    EXPECT_NE(why.find("RLE frame 1: segment 1 at byte 6291520"), std::string::npos) << why;
    at[6] = 0;
    at[0] = 3; // three segments for one 16-bit sample
    EXPECT_FALSE(DicomPtr(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "4.dcm", &why)));
    EXPECT_NE(why.find("3 segments, 2 expected"), std::string::npos) << why;
}

// Pixels are read later, from the path given (the module passes a fresh copy of an unpacked
// .gz): bad arguments, a vanished or a shortened file fail.
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
                        size_t size) {
            why.clear();
            return dicom::dicomReadImageData(s, path, k, p, size, &why) || why.empty();
        };
        EXPECT_FALSE(read(d.get(), nullptr, 1, frame.data(), frame.size()) ||
                     why.find("frame") == std::string::npos)
            << why;
        EXPECT_FALSE(read(d.get(), nullptr, 0, frame.data(), frame.size() - 1) ||
                     why.find("buffer") == std::string::npos)
            << why;
        EXPECT_FALSE(read(d.get(), nullptr, -1, frame.data(), frame.size()) ||
                     read(d.get(), nullptr, 0, nullptr, frame.size()) ||
                     read(nullptr, nullptr, 0, frame.data(), frame.size()));
        std::filesystem::remove(first);
        EXPECT_FALSE(read(d.get(), nullptr, 0, frame.data(), frame.size()));
        EXPECT_EQ(why, "No such file or directory");
        EXPECT_TRUE(read(d.get(), second.c_str(), 0, frame.data(), frame.size())) << why;
        std::filesystem::resize_file(second, std::filesystem::file_size(second) - 1000);
        EXPECT_FALSE(read(d.get(), second.c_str(), 0, frame.data(), frame.size()));
    }
}

// Undefined lengths walked on hostile bytes: the DICOMDIRs of the shared-file pass drive the
// good cases, these the cuts, missing delimiters and deep nesting. Encoded: bytes in one byte
// order and VR form.
struct Encoded
{
    bool big, explicitVr;
    std::vector<unsigned char> b;

    Encoded &u16(uint16_t v)
    {
        b.insert(b.end(), {uint8_t(big ? v >> 8 : v), uint8_t(big ? v : v >> 8)});
        return *this;
    }
    Encoded &u32(uint32_t v) { return big ? u16(v >> 16).u16(v) : u16(v).u16(v >> 16); }
    Encoded &code(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e);
        if (explicitVr)
            b.insert(b.end(), vr, vr + 2);
        (explicitVr ? u16(uint16_t(value.size())) : u32(uint32_t(value.size())));
        b.insert(b.end(), value.begin(), value.end());
        return *this;
    }
    Encoded &sequence()
    {
        return explicitVr ? code(0x0040, 0xA730, "SQ", "").u16(0xFFFF).u16(0xFFFF)
                          : u16(0x0040).u16(0xA730).u32(0xFFFFFFFF);
    }
    Encoded &item(uint32_t length = 0xFFFFFFFF) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Encoded &itemEnd() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Encoded &sequenceEnd() { return u16(0xFFFE).u16(0xE0DD).u32(0); }
    // On an exact-size copy of the first n bytes, so that a read past the end shows under ASan.
    long adjust(size_t n = size_t(-1)) const
    {
        std::vector<unsigned char> copy(b.begin(), b.begin() + long(std::min(n, b.size())));
        return dicom::dicomAdjustLength(copy.data(), copy.data() + copy.size(), big, explicitVr,
                                        false);
    }
};

class AdjustLength : public ::testing::TestWithParam<std::pair<bool, bool>>
{
};

TEST_P(AdjustLength, EveryCutMissingDelimiterAndRunawayNestingFails)
{
    const Encoded none{GetParam().first, GetParam().second, {}};
    // Item 1 of defined length; item 2 of undefined length with a nested sequence.
    Encoded seq = none;
    seq.item(12).code(0x0008, 0x0100, "SH", "T-D1").item().code(0x0008, 0x0104, "LO", "Chest ");
    seq.sequence().item().code(0x0008, 0x0100, "SH", "CODE").itemEnd().sequenceEnd().itemEnd();
    seq.sequenceEnd();
    for (size_t n = 0; n < seq.b.size(); ++n)
        EXPECT_EQ(seq.adjust(n), -1) << "cut after " << n << " bytes";
    EXPECT_EQ(Encoded(seq).code(0x0010, 0x0010, "PN", "Doe^J ").adjust(), long(seq.b.size()));

    Encoded code = none;
    code.code(0x0008, 0x0100, "SH", "CODE");
    for (Encoded b :
         {Encoded(none).item().code(0x0008, 0x0100, "SH", "CODE").sequenceEnd(), // no item end
          Encoded(none).item().code(0x0008, 0x0100, "SH", "CODE").itemEnd(),     // no sequence end
          Encoded(code).sequenceEnd(),                                           // no item
          Encoded(none).item(1000).code(0x0008, 0x0100, "SH", "CODE").sequenceEnd()})
        EXPECT_EQ(b.adjust(), -1);

    auto nest = [&](int levels, bool closed) {
        Encoded b = none;
        for (int i = 0; i < levels; ++i)
            b.item().sequence();
        for (int i = 0; closed && i < levels; ++i)
            b.sequenceEnd().itemEnd();
        return closed ? b.sequenceEnd() : b;
    };
    EXPECT_EQ(nest(30, true).adjust(), long(nest(30, true).b.size())) << "60 levels";
    EXPECT_EQ(nest(40, true).adjust(), -1) << "80 levels";
    EXPECT_EQ(nest(10000, false).adjust(), -1) << "without exhausting the stack";
    const unsigned char d[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
    EXPECT_EQ(dicom::dicomAdjustLength(nullptr, d + 8, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d + 8, d, false, true, false), -1);
}

INSTANTIATE_TEST_SUITE_P(Encodings, AdjustLength,
                         ::testing::Values(std::pair{false, true}, std::pair{false, false},
                                           std::pair{true, true}));

} // namespace
