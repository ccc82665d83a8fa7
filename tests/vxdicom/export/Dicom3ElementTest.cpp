#include "vxdicom/export/Dicom3Element.h"

#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "tests/vxdicom/export/Dicom3TestUtil.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/// Everything e writes to a fresh file, and the write result.
Bytes encode(Dicom3Element &e, dicom::enCoding enc, int *result = nullptr)
{
    return dicom3test::writtenBytes([&](FILE *f) { return e.write(f, enc, 0); }, result);
}

Bytes text(const char *s)
{
    return Bytes(s, s + std::strlen(s));
}

Bytes cat(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// An explicit VR little endian header of a short VR.
Bytes shortHeaderLE(unsigned short g, unsigned short e, const char *vr, unsigned short len)
{
    return {static_cast<unsigned char>(g & 0xff),   static_cast<unsigned char>(g >> 8),
            static_cast<unsigned char>(e & 0xff),   static_cast<unsigned char>(e >> 8),
            static_cast<unsigned char>(vr[0]),      static_cast<unsigned char>(vr[1]),
            static_cast<unsigned char>(len & 0xff), static_cast<unsigned char>(len >> 8)};
}

bool hostIsLittleEndian()
{
    const unsigned short one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

} // namespace

TEST(Dicom3ElementEncoding, ValuesAreWrittenInEitherByteOrderWithTheirVRsLength)
{
    // Each row: an element, the encoding, the bytes expected, and why.
    Dicom3Element rows(0x0028, 0x0010, dicom::US);
    EXPECT_EQ(rows.setU16bitData(0x0102), 2);
    Dicom3Element version(0x0002, 0x0001, dicom::OB); // as every Part 10 file has it
    const unsigned char versionValue[2] = {0x00, 0x01};
    EXPECT_EQ(version.setU8bitStringData(versionValue, 2), 2);
    Dicom3Element comment(0x0020, 0x4000, dicom::UT);
    comment.setCharStringData("abc", -2);
    Dicom3Element byte(0x0009, 0x0010, dicom::UN);
    EXPECT_EQ(byte.setU8bitData(7), 1);
    Dicom3Element length(0x0008, 0x0000, dicom::UL);
    EXPECT_EQ(length.setU32bitData(0x01020304), 4);
    Dicom3Element number(0x0020, 0x0013, dicom::IS);
    EXPECT_EQ(number.setISData(-12345), 6);
    Dicom3Element odd(0x0020, 0x0013, dicom::IS);
    EXPECT_EQ(odd.setISData(123), 3);
    Dicom3Element pointer(0x0028, 0x0009, dicom::AT);
    EXPECT_EQ(pointer.setAttributeData(0x0018, 0x1063), 4);
    const dicom::enCoding LE = dicom::EXPLICIT_LITTLE_ENDIAN, BE = dicom::EXPLICIT_BIG_ENDIAN;
    struct Row
    {
        Dicom3Element *element;
        dicom::enCoding enc;
        Bytes expected;
        const char *reason;
    };
    const Row table[] = {
        {&rows, LE, {0x28, 0x00, 0x10, 0x00, 'U', 'S', 0x02, 0x00, 0x02, 0x01}, "US little"},
        {&rows, BE, {0x00, 0x28, 0x00, 0x10, 'U', 'S', 0x00, 0x02, 0x01, 0x02}, "US big"},
        {&version,
         LE,
         {0x02, 0x00, 0x01, 0x00, 'O', 'B', 0, 0, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01},
         "OB: reserved bytes and a 32-bit length"},
        {&comment,
         BE,
         {0x00, 0x20, 0x40, 0x00, 'U', 'T', 0, 0, 0x00, 0x00, 0x00, 0x04, 'a', 'b', 'c', 0x00},
         "UT big, padded"},
        {&byte,
         LE,
         {0x09, 0x00, 0x10, 0x00, 'U', 'N', 0, 0, 0x02, 0x00, 0x00, 0x00, 0x07, 0x00},
         "one byte padded to two"},
        {&length, BE, {0x00, 0x08, 0x00, 0x00, 'U', 'L', 0x00, 0x04, 0x01, 0x02, 0x03, 0x04}, "UL"},
        {&number, LE, cat(shortHeaderLE(0x0020, 0x0013, "IS", 6), text("-12345")), "IS even"},
        {&odd, LE, cat(shortHeaderLE(0x0020, 0x0013, "IS", 4), cat(text("123"), {0})), "IS odd"},
        {&pointer,
         BE,
         {0x00, 0x28, 0x00, 0x09, 'A', 'T', 0x00, 0x04, 0x00, 0x18, 0x10, 0x63},
         "AT: group then element"},
    };
    for (const Row &row : table) {
        SCOPED_TRACE(row.reason);
        int result = 0;
        EXPECT_EQ(encode(*row.element, row.enc, &result), row.expected);
        EXPECT_EQ(result, 2 * static_cast<int>(row.expected.size()))
            << "every kind but raw data reports twice the bytes written";
        EXPECT_EQ(row.element->write(nullptr, row.enc, 1), static_cast<int>(row.expected.size()))
            << "sizeOnly gives the true size and needs no file";
    }
}

TEST(Dicom3ElementEncoding, OnlyExplicitLittleAndBigEndianCanBeWritten)
{
    const dicom::enCoding refused[] = {dicom::ENC_NONE, dicom::IMPLICIT_LITTLE_ENDIAN,
                                       dicom::JPEG_LOSSLESS, dicom::RLE_LOSSLESS};
    for (dicom::enCoding enc : refused) {
        SCOPED_TRACE(static_cast<int>(enc));
        Dicom3Element modality(0x0008, 0x0060, dicom::CS);
        modality.setCharStringData("MR", -2);
        int result = 0;
        EXPECT_TRUE(encode(modality, enc, &result).empty()) << "nothing may reach the file";
        EXPECT_EQ(result, -1);
        EXPECT_EQ(modality.write(nullptr, enc, 1), -1);
    }
    Dicom3Element modality(0x0008, 0x0060, dicom::CS);
    modality.setCharStringData("MR", -2);
    EXPECT_EQ(modality.write(nullptr, dicom::EXPLICIT_LITTLE_ENDIAN, 0), -1)
        << "writing for real needs a file";
}

TEST(Dicom3ElementEncoding, OddValuesArePaddedWithZeroForEveryVR)
{
    // Each row: VR, value, the value bytes expected after the 8-byte header.
    // The pad is 0x00 even where DICOM would use a blank (text VRs): files
    // written before depend on it.
    struct Row
    {
        dicom::valRep vr;
        const char *value;
        Bytes expected;
        const char *reason;
    };
    const Row rows[] = {
        {dicom::CS, "MR", text("MR"), "even: no pad"},
        {dicom::CS, "CT1", cat(text("CT1"), {0}), "odd CS: 0x00, not a blank"},
        {dicom::PN, "Unknown", cat(text("Unknown"), {0}), "odd PN"},
        {dicom::SH, "12345", cat(text("12345"), {0}), "odd SH"},
        {dicom::UI, "1.2.3", cat(text("1.2.3"), {0}), "odd UI: 0x00 as DICOM asks"},
        {dicom::DS, "12.250000 ", text("12.250000 "), "a trailing blank of the value stays"},
        {dicom::AE, "", Bytes{}, "empty value"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Dicom3Element e(0x0008, 0x1234, row.vr);
        const int length = e.setCharStringData(row.value, -2);
        EXPECT_EQ(length, static_cast<int>(std::strlen(row.value)));
        EXPECT_EQ(e.getPad(), length & 1);
        const Bytes bytes = encode(e, dicom::EXPLICIT_LITTLE_ENDIAN);
        const char *letters[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FL", "FD", "IS",
                                 "LO", "LT", "PN", "SH", "SL", "SS", "ST", "TM", "UI"};
        EXPECT_EQ(bytes, cat(shortHeaderLE(0x0008, 0x1234, letters[row.vr],
                                           static_cast<unsigned short>(row.expected.size())),
                             row.expected));
        EXPECT_EQ(e.write(nullptr, dicom::EXPLICIT_LITTLE_ENDIAN, 1),
                  static_cast<int>(bytes.size()));
    }
}

TEST(Dicom3ElementLength, ClampsOnlySingleValuedVRs)
{
    struct Row
    {
        dicom::valRep vr;
        int n;
        int expected;
        const char *reason;
    };
    const Row rows[] = {
        {dicom::ST, 1100, 1024, "ST holds at most 1024 characters"},
        {dicom::LT, 10241, 10240, "LT at most 10240"},
        {dicom::US, 5, 2, "a US text is cut to the two bytes of the value"},
        {dicom::FD, 20, 8, "FD 8"},
        {dicom::ST, 10, 10, "shorter than the limit: unchanged"},
        {dicom::LO, 70, 70, "LO may hold several values: never clamped"},
        {dicom::UI, 65, 65, "UI may hold several values: never clamped"},
        {dicom::SL, 9, 9, "SL is among the multi-valued VRs, so its limit 4 never applies"},
        {dicom::UT, 100000, 100000, "UT has no limit"},
    };
    const std::string source(100000, 'x');
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        EXPECT_EQ(Dicom3Element::maxVRLength(source.c_str(), row.vr, row.n), row.expected);
        Dicom3Element e(0x0009, 0x1000, row.vr);
        EXPECT_EQ(e.setCharStringData(source.c_str(), row.n), row.expected)
            << "the setter stores the clamped length";
    }
    // In the file: a 16-bit length of 1024 and 1024 bytes.
    Dicom3Element description(0x0008, 0x1030, dicom::ST);
    EXPECT_EQ(description.setCharStringData(source.c_str() + 98900, -2), 1024);
    const Bytes bytes = encode(description, dicom::EXPLICIT_LITTLE_ENDIAN);
    ASSERT_EQ(bytes.size(), 8u + 1024u);
    EXPECT_EQ(bytes[7], 0x04);
}

TEST(Dicom3ElementTableText, EachVRReadsTheCellTextItsOwnWay)
{
    // Each row: VR, cell text, the value bytes after the header (LE).
    struct Row
    {
        dicom::valRep vr;
        const char *cell;
        Bytes value;
        const char *reason;
    };
    const Row rows[] = {
        {dicom::LO, "  Head   First ", text("Head First"), "white space normalised first"},
        {dicom::IS, " 42 ", text("42"), "IS goes in as text"},
        {dicom::DA, "2024.06.07", text("20240607"), "dots removed"},
        {dicom::TM, "12:34:56.50", cat(text("123456.50"), {0}), "colons removed"},
        {dicom::DT, "240607 12:34:56", text("240607123456"),
         "six date characters, the blank at 6 dropped, colons removed"},
        {dicom::AT, "0010,0020", Bytes{10, 0, 20, 0},
         "pairs read as decimal: group 10 (0x000A) and element 20 (0x0014)"},
        {dicom::AT, "0102,0304", Bytes{0x02, 0x01, 0x04, 0x03}, "1*256+2 and 3*256+4"},
        {dicom::FL, "1.5", Bytes{0x00, 0x00, 0xC0, 0x3F}, "IEEE single 1.5 is 0x3FC00000"},
        {dicom::SL, "-1", Bytes{0xFF, 0xFF, 0xFF, 0xFF}, "two's complement"},
        {dicom::UL, "70000", Bytes{0x70, 0x11, 0x01, 0x00}, "70000 = 0x00011170"},
        {dicom::SS, "-2", Bytes{0xFE, 0xFF}, "two's complement"},
        {dicom::US, "513", Bytes{0x01, 0x02}, "513 = 0x0201"},
        {dicom::FD, "2.5", cat(text("2.5"), {0}), "FD keeps the bytes of its text"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        Dicom3Element e(0x0009, 0x1001, row.vr);
        EXPECT_GE(e.setTableDataString(row.cell), 0);
        const Bytes bytes = encode(e, dicom::EXPLICIT_LITTLE_ENDIAN);
        const size_t header = Dicom3Element::isLongLengthVR(row.vr) ? 12 : 8;
        ASSERT_GE(bytes.size(), header);
        EXPECT_EQ(Bytes(bytes.begin() + static_cast<long>(header), bytes.end()), row.value);
    }
}

TEST(Dicom3ElementTableText, OtherWordTextIsWrittenAsWordsInTheEncodingsOrder)
{
    if (!hostIsLittleEndian())
        GTEST_SKIP() << "the expected words are worked out for a little-endian host";
    Dicom3Element words(0x0009, 0x1002, dicom::OW);
    EXPECT_EQ(words.setTableDataString("ABC"), 3);
    // Host words 0x4241 and 0x0043 (the odd last byte becomes a word of its own).
    EXPECT_EQ(encode(words, dicom::EXPLICIT_LITTLE_ENDIAN),
              (Bytes{0x09, 0x00, 0x02, 0x10, 'O', 'W', 0, 0, 4, 0, 0, 0, 'A', 'B', 'C', 0x00}));
    EXPECT_EQ(encode(words, dicom::EXPLICIT_BIG_ENDIAN),
              (Bytes{0x00, 0x09, 0x10, 0x02, 'O', 'W', 0, 0, 0, 0, 0, 4, 'B', 'A', 0x00, 'C'}));
}

TEST(Dicom3ElementSetters, NullSourcesAreRefused)
{
    Dicom3Element e(0x0008, 0x0060, dicom::CS);
    e.setCharStringData("MR", -2);
    EXPECT_EQ(e.setCharStringData(nullptr, -2), -1);
    EXPECT_EQ(e.setU8bitStringData(nullptr, 3), -1);
    EXPECT_EQ(e.setCharStringData("CT", -1), -1) << "only -2 stands for the text's own length";
    EXPECT_EQ(encode(e, dicom::EXPLICIT_LITTLE_ENDIAN),
              cat(shortHeaderLE(0x0008, 0x0060, "CS", 2), text("MR")))
        << "the string setters test first and keep the old value";

    EXPECT_EQ(e.setRawDataPtr(nullptr, KcPrimType::UInt8, 1, 2, 0), -1);
    EXPECT_NE(e.getDataKind(), Dicom3Element::RawData);
    EXPECT_EQ(e.write(nullptr, dicom::EXPLICIT_LITTLE_ENDIAN, 1), 8)
        << "the raw setter frees first: an empty value is left, never a dangling one";
}

TEST(Dicom3ElementPixels, OneByteSliceIsPaddedToAnEvenLength)
{
    unsigned char samples[30];
    for (int i = 0; i < 30; ++i)
        samples[i] = static_cast<unsigned char>(i + 1);
    const int dims[3] = {5, 3, 2};
    KcRawData3D volume(samples, dims, KcPrimType::UInt8);

    Dicom3Element pixels(0x7FE0, 0x0010, dicom::OB);
    EXPECT_EQ(pixels.setRawDataPtr(&volume, KcPrimType::UInt8, 1, 2, 0), 15);
    EXPECT_EQ(pixels.getValueLength(), 0);

    Bytes slice0 = {0xE0, 0x7F, 0x10, 0x00, 'O', 'B', 0x00, 0x00, 0x10, 0x00, 0x00, 0x00};
    for (int i = 1; i <= 15; ++i)
        slice0.push_back(static_cast<unsigned char>(i));
    slice0.push_back(0x00);
    int result = 0;
    EXPECT_EQ(encode(pixels, dicom::EXPLICIT_LITTLE_ENDIAN, &result), slice0);
    EXPECT_EQ(result, 28) << "raw data reports the bytes written once";
    EXPECT_EQ(pixels.write(nullptr, dicom::EXPLICIT_LITTLE_ENDIAN, 1), 28);

    EXPECT_EQ(pixels.setRawDataSlice(1), 15);
    const Bytes slice1 = encode(pixels, dicom::EXPLICIT_LITTLE_ENDIAN);
    ASSERT_EQ(slice1.size(), 28u);
    EXPECT_EQ(slice1[12], 16);
    EXPECT_EQ(slice1[26], 30);
    EXPECT_EQ(slice1[27], 0x00);

    EXPECT_EQ(pixels.setRawDataSlice(2), -1);
    EXPECT_EQ(pixels.setRawDataSlice(-1), -1);
    EXPECT_EQ(pixels.getCurrentSlice(), 1) << "a refused slice changes nothing";

    EXPECT_EQ(pixels.setRawDataPtr(&volume, KcPrimType::UInt8, 1, 2, -1), 30)
        << "slice -1 stands for the whole volume";
    const Bytes whole = encode(pixels, dicom::EXPLICIT_LITTLE_ENDIAN);
    ASSERT_EQ(whole.size(), 12u + 30u);
    EXPECT_EQ(whole[41], 30);

    Dicom3Element notPixels(0x0008, 0x0060, dicom::CS);
    EXPECT_EQ(notPixels.setRawDataSlice(0), -1);
}

TEST(Dicom3ElementPixels, SamplesStayInHostOrderWhateverTheEncoding)
{
    if (!hostIsLittleEndian())
        GTEST_SKIP() << "the expected bytes are worked out for a little-endian host";
    const unsigned short samples[4] = {0x0102, 0x0304, 0x0506, 0x0708};
    const int dims[3] = {2, 1, 2};
    KcRawData3D volume(samples, dims, KcPrimType::UInt16);
    Dicom3Element pixels(0x7FE0, 0x0010, dicom::OW);
    EXPECT_EQ(pixels.setRawDataPtr(&volume, KcPrimType::UInt16, 1, 2, 0), 4);
    EXPECT_EQ(pixels.setRawDataSlice(1), 4);
    EXPECT_EQ(encode(pixels, dicom::EXPLICIT_BIG_ENDIAN),
              (Bytes{0x7F, 0xE0, 0x00, 0x10, 'O', 'W', 0, 0, 0, 0, 0, 4, 0x06, 0x05, 0x08, 0x07}));
}

TEST(Dicom3ElementPixels, AShortPixelWriteIsReportedAndTolerated)
{
    FILE *full = std::fopen("/dev/full", "wb");
    if (!full)
        GTEST_SKIP() << "/dev/full is not available";
    std::setvbuf(full, nullptr, _IONBF, 0);
    unsigned char samples[15] = {};
    const int even[3] = {4, 2, 1};
    KcRawData3D evenVolume(samples, even, KcPrimType::UInt8);
    Dicom3Element pixels(0x7FE0, 0x0010, dicom::OB);
    pixels.setRawDataPtr(&evenVolume, KcPrimType::UInt8, 1, 2, 0);
    {
        VxMessageCapture capture;
        EXPECT_EQ(pixels.writeRawData(full, dicom::EXPLICIT_LITTLE_ENDIAN), 8)
            << "the expected count comes back; writing goes on";
        EXPECT_TRUE(capture.contains("Dicom export: only 0 of 8 bytes written")) << capture.text();
    }
    const int odd[3] = {5, 3, 1};
    KcRawData3D oddVolume(samples, odd, KcPrimType::UInt8);
    pixels.setRawDataPtr(&oddVolume, KcPrimType::UInt8, 1, 2, 0);
    {
        VxMessageCapture capture;
        EXPECT_EQ(pixels.writeRawData(full, dicom::EXPLICIT_LITTLE_ENDIAN), -1)
            << "a pad byte that cannot be written is a failure";
    }
    EXPECT_EQ(pixels.write(full, dicom::EXPLICIT_LITTLE_ENDIAN, 0), -1)
        << "a short header write fails the element";
    std::fclose(full);
}
