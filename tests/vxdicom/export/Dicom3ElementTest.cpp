#include "vxdicom/export/Dicom3Element.h"

#include "tests/vxdicom/export/Dicom3TestUtil.h"

#include <gtest/gtest.h>

using namespace dicom3test;

namespace {

const dicom::enCoding LE = dicom::EXPLICIT_LITTLE_ENDIAN, BE = dicom::EXPLICIT_BIG_ENDIAN;

Bytes encode(Dicom3Element &e, dicom::enCoding enc, int *result = nullptr)
{
    return writtenBytes([&](FILE *f) { return e.write(f, enc, 0); }, result);
}

/// The explicit VR header of (0009,1020), worked out from the standard's
/// rules: OB, OW, UN and UT have two reserved bytes and a 32-bit length.
Bytes header(dicom::valRep vr, size_t length, dicom::enCoding enc)
{
    const char *name = &"AEASATCSDADSDTFLFDISLOLTPNSHSLSSSTTMUIULUSOBOWSQUNUT"[2 * vr];
    const bool big = enc == BE;
    const bool longLength =
        vr == dicom::OB || vr == dicom::OW || vr == dicom::UN || vr == dicom::UT;
    Bytes h = big ? Bytes{0x00, 0x09, 0x10, 0x20} : Bytes{0x09, 0x00, 0x20, 0x10};
    h.push_back(static_cast<unsigned char>(name[0]));
    h.push_back(static_cast<unsigned char>(name[1]));
    const int n = longLength ? 4 : 2;
    if (longLength)
        h.insert(h.end(), {0, 0});
    for (int i = 0; i < n; ++i)
        h.push_back(static_cast<unsigned char>(length >> (8 * (big ? n - 1 - i : i))));
    return h;
}

bool hostIsLittleEndian()
{
    const unsigned short one = 1;
    return *reinterpret_cast<const unsigned char *>(&one) == 1;
}

} // namespace

TEST(Dicom3ElementEncoding, EveryKindOfValueIsFramedInEitherByteOrderAndPaddedWithZero)
{
    using Set = std::function<void(Dicom3Element &)>;
    auto chars = [](const char *s) -> Set {
        return [s](Dicom3Element &e) { e.setCharStringData(s, -2); };
    };
    auto cell = [](const char *s) -> Set {
        return [s](Dicom3Element &e) { e.setTableDataString(s); };
    };
    const unsigned char version[2] = {0x00, 0x01};
    struct Row
    {
        dicom::valRep vr;
        dicom::enCoding enc;
        Set set;
        Bytes value;
        const char *reason;
        bool hostOrder = false; ///< expected bytes worked out for a little-endian host
    };
    const Row rows[] = {
        {dicom::US,
         LE,
         [](Dicom3Element &e) { e.setU16bitData(0x0102); },
         {0x02, 0x01},
         "US little"},
        {dicom::US, BE, [](Dicom3Element &e) { e.setU16bitData(0x0102); }, {0x01, 0x02}, "US big"},
        {dicom::UL,
         BE,
         [](Dicom3Element &e) { e.setU32bitData(0x01020304); },
         {1, 2, 3, 4},
         "UL big"},
        {dicom::OB, LE, [&](Dicom3Element &e) { e.setU8bitStringData(version, 2); }, {0, 1}, "OB"},
        {dicom::UN,
         LE,
         [](Dicom3Element &e) { e.setU8bitData(7); },
         {7, 0},
         "one byte padded to two"},
        {dicom::UT, BE, chars("abc"), cat(text("abc"), {0}), "UT big, padded"},
        {dicom::IS, LE, [](Dicom3Element &e) { e.setISData(-12345); }, text("-12345"), "IS even"},
        {dicom::IS, LE, [](Dicom3Element &e) { e.setISData(123); }, cat(text("123"), {0}),
         "IS odd"},
        {dicom::AT,
         BE,
         [](Dicom3Element &e) { e.setAttributeData(0x0018, 0x1063); },
         {0x00, 0x18, 0x10, 0x63},
         "AT: group then element"},
        // The pad of text VRs is 0x00, not the blank DICOM asks for: files
        // written before depend on it.
        {dicom::CS, LE, chars("MR"), text("MR"), "even: no pad"},
        {dicom::CS, LE, chars("CT1"), cat(text("CT1"), {0}), "odd CS"},
        {dicom::PN, BE, chars("Unknown"), cat(text("Unknown"), {0}), "odd PN"},
        {dicom::UI, LE, chars("1.2.3"), cat(text("1.2.3"), {0}), "odd UI"},
        {dicom::DS, LE, chars("12.250000 "), text("12.250000 "), "a trailing blank stays"},
        {dicom::ST, LE,
         [](Dicom3Element &e) { e.setCharStringData(std::string(2000, 'x').c_str(), 2000); },
         text(std::string(1024, 'x')), "ST holds at most 1024 characters"},
        {dicom::LO, LE,
         [](Dicom3Element &e) { e.setCharStringData(std::string(70, 'x').c_str(), 70); },
         text(std::string(70, 'x')), "LO may hold several values: never clamped"},
        {dicom::AE, LE, chars(""), {}, "empty value"},
        // Cell texts of the element table, each VR read its own way.
        {dicom::LO, LE, cell("  Head   First "), text("Head First"), "white space normalised"},
        {dicom::DA, LE, cell("2024.06.07"), text("20240607"), "dots removed"},
        {dicom::TM, LE, cell("12:34:56.50"), cat(text("123456.50"), {0}), "colons removed"},
        {dicom::DT, LE, cell("240607 12:34:56"), text("240607123456"), "blank at 6 dropped"},
        {dicom::AT, LE, cell("0010,0020"), {10, 0, 20, 0}, "pairs read as decimal"},
        {dicom::AT, LE, cell("0102,0304"), {2, 1, 4, 3}, "1*256+2 and 3*256+4"},
        {dicom::FL, LE, cell("1.5"), {0x00, 0x00, 0xC0, 0x3F}, "IEEE single 0x3FC00000"},
        {dicom::SL, LE, cell("-1"), {0xFF, 0xFF, 0xFF, 0xFF}, "two's complement"},
        {dicom::UL, LE, cell("70000"), {0x70, 0x11, 0x01, 0x00}, "0x00011170"},
        {dicom::SS, LE, cell("-2"), {0xFE, 0xFF}, "two's complement"},
        {dicom::US, LE, cell("513"), {0x01, 0x02}, "0x0201"},
        {dicom::FD, LE, cell("2.5"), cat(text("2.5"), {0}), "FD keeps the bytes of its text"},
        {dicom::OW, LE, cell("ABC"), text(std::string("ABC\0", 4)), "OW: host words", true},
        {dicom::OW, BE, cell("ABC"), text(std::string("BA\0C", 4)), "OW: swapped words", true},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        if (row.hostOrder && !hostIsLittleEndian())
            continue;
        Dicom3Element e(0x0009, 0x1020, row.vr);
        row.set(e);
        int result = 0;
        const Bytes expected = cat(header(row.vr, row.value.size(), row.enc), row.value);
        EXPECT_EQ(encode(e, row.enc, &result), expected);
        EXPECT_EQ(result, 2 * static_cast<int>(expected.size())) << "twice the bytes written";
        EXPECT_EQ(e.write(nullptr, row.enc, 1), static_cast<int>(expected.size()))
            << "sizeOnly gives the true size and needs no file";
    }
}
