// The value codec: VR codes, the text rules per VR (with the quirks stored
// values depend on), and the byte helpers.

#include "vxdicom/params/DicomValueCodec.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QTime>

#include <cstdlib>
#include <memory>

namespace {

// The numbers travel in parameters: each code is pinned (23, the sequence, and 99 have none);
// decoding is a containment test in list order, upper-cased and trimmed.
TEST(VrCodes, PinnedNumbersAndDecodingInListOrder)
{
    const QStringList codes =
        QString("AE AS AT CS DA DS DT FL FD IS LO LT PN SH SL SS ST TM UI UL US OB OW UN UN UT")
            .split(' ');
    for (int vr = 0; vr <= 26; ++vr)
        EXPECT_EQ(encodeVRString(dicom::valRep(vr == 26 ? 99 : vr)), codes.value(vr, "UN")) << vr;
    const std::pair<const char *, int> decoded[] = {
        {"ob", 21}, {"  US ", 20}, {"x", 24},  {"", 0},       {"T", 2},  {"O", 10},
        {"U", 18},  {"SQ", 24},    {"DSX", 5}, {" o b ", 24}, {"ut", 25}};
    for (const auto &[text, vr] : decoded)
        EXPECT_EQ(decodeVRString(text), vr) << "'" << text << "'";
}

// out: nullptr is the time now, "today" the date now, dotted.
TEST(ValueText, EachVrFollowsItsRule)
{
    EXPECT_EQ(parseDicomDataString("  1.5   \\  2 \t 3  ", dicom::US), "1.5 \\ 2 3");
    const std::tuple<dicom::valRep, const char *, const char *> rows[] = {
        {dicom::AE, "STORESCP", ""}, // inverted tests: a valid value gives the default
        {dicom::AS, "045Y", "000Y"},
        {dicom::AT, "0010-0020", "FFFF-FFFF"},
        {dicom::CS, "ORIGINAL", ""},
        {dicom::UI, "1.2.840.10008", "0.0.0.0.0.0"},
        {dicom::UI, "1..2", ""},
        {dicom::AS, "", ""},
        {dicom::LO, "  Doe ^  John ", "Doe ^ John"},
        {dicom::SH, "ABCDEFGHIJKLMNOPQRST", "ABCDEFGHIJKLMNOP"},
        {dicom::DS, "123456789", "1.23457e+08"},
        {dicom::DS, "abc", "0"},
        {dicom::FL, "3.14159265", "3.14159"},
        {dicom::IS, "0042", "42"},
        {dicom::IS, "12.5", "0"},
        {dicom::SS, "70000", "0"},
        {dicom::US, "65536", "0"},
        {dicom::UL, "4000000000", "4000000000"},
        {dicom::DA, "20240229", "today"},
        {dicom::DA, "", "today"},
        {dicom::DT, " 20240101   1200 ", "20240101 1200"},
        {dicom::TM, "12:30:15", nullptr}, // valid times of 2, 4, 5, 6 or 8 characters give now
        {dicom::TM, "99", nullptr},
        {dicom::TM, "", nullptr},
        {dicom::TM, "ab", "ab:00:00.0"}, // other texts are completed
        {dicom::TM, "12:3", "12::3:00.0"},
        {dicom::TM, "1230:1", "12:30::1.0"},
        {dicom::TM, "99:99:9x", nullptr},
        {dicom::TM, "12:3.5", "12::3:00.005"},
        {dicom::TM, "ab.70000", "ab:00:00.000"}, // milliseconds beyond an unsigned short read 0
    };
    static const QRegularExpression now(
        QRegularExpression::anchoredPattern("(\\d\\d):(\\d\\d):(\\d\\d)\\.\\d\\d\\d"));
    for (const auto &[vr, in, out] : rows) {
        const QString got = parseSingleDicomDataString(in, vr);
        SCOPED_TRACE(encodeVRString(vr).toStdString() + " '" + in + "' gave '" + got.toStdString() +
                     "'");
        if (!out) {
            const auto m = now.match(got);
            ASSERT_TRUE(m.hasMatch());
            const QTime t(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
            EXPECT_LT(std::abs(t.secsTo(QTime::currentTime())), 5);
        } else {
            EXPECT_EQ(got, std::string(out) == "today" ? QDate::currentDate().toString("yyyy.MM.dd")
                                                       : QString(out));
        }
    }
    const QString longText(2000, 'x'), blankAt64 = QString(63, 'a') + " bcd";
    for (auto [vr, limit] : {std::pair{dicom::SH, 16},
                             {dicom::LO, 64},
                             {dicom::LT, 64},
                             {dicom::ST, 1024},
                             {dicom::UT, 2000},
                             {dicom::PN, 2000}})
        EXPECT_EQ(parseSingleDicomDataString(longText, vr).length(), limit) << vr;
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LO), QString(63, 'a')) << "trims again";
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LT), QString(63, 'a') + " ");
    const QString before = QDate::currentDate().toString("yyyyMMdd"), date = getDicomDate();
    EXPECT_TRUE(date == before || date == QDate::currentDate().toString("yyyyMMdd"));
    const QTime t = QTime::fromString(getDicomTime(), "hhmmss.zzz");
    ASSERT_TRUE(t.isValid()) << getDicomTime().toStdString();
    EXPECT_LT(std::abs(t.msecsTo(QTime::currentTime())), 5000);
}

TEST(ByteHelpers, AsciiHexAndSeparators)
{
    const unsigned char high[] = {'a', 0x80, 0x7F}, text[] = "plain\0\x90";
    EXPECT_FALSE(isASCII(high, 2));
    EXPECT_TRUE(isASCII(high, 1) && isASCII(high + 2, 1)) << "only the first n bytes; 127";
    EXPECT_TRUE(isASCII(text, 0)) << "n < 1 measures the NUL-terminated text";
    EXPECT_FALSE(isASCII(text, 7)) << "with n given, NUL does not end the test";
    int n = -1;
    const unsigned char bytes[] = {0x00, 0x1F, 0xAB, 0xFF};
    std::unique_ptr<char, decltype(&std::free)> hex(hexEncode(bytes, 4, n), &std::free);
    EXPECT_EQ(std::string(hex.get()) + std::to_string(n), "001FABFF8");
    hex.reset(hexEncode(nullptr, 0, n));
    EXPECT_EQ(std::string(hex.get()) + std::to_string(n), "01");
    // Decoding counts a capital 'A' as 17, as the stored values were written.
    const std::pair<const char *, std::vector<unsigned char>> decoded[] = {
        {"1f", {0x1F}}, {"Bc", {0xBC}}, {"ff", {0xFF}},  {"A0", {0x10}}, {"0A", {0x11}},
        {"aA", {0xB1}}, {"AA", {0x11}}, {"abc", {0xAB}}, {"", {}}};
    for (const auto &[in, out] : decoded) {
        std::unique_ptr<unsigned char, decltype(&std::free)> got(
            hexDecode(in, unsigned(std::strlen(in)), n), &std::free);
        ASSERT_EQ(n, int(out.size())) << in;
        std::vector<unsigned char> terminated = out;
        terminated.push_back(0);
        EXPECT_EQ(std::vector<unsigned char>(got.get(), got.get() + n + 1), terminated) << in;
    }
    EXPECT_EQ(encodeQString("1\\0\\0\\0\\1\\0"), "1 0 0 0 1 0");
    EXPECT_EQ(encodeQString("a\\\\b"), "a  b");
    EXPECT_EQ(decodeQString("a\\b"), "a\\b");
    const unsigned char separated[] = {'O', 'R', '\\', 'M'};
    EXPECT_EQ(encodeBytesToQString(separated, 4), "OR M");
    EXPECT_EQ(encodeBytesToQString(separated, 2), "OR");
}

} // namespace
