#include "vxdicom/params/DicomValueCodec.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QTime>

#include <cstdlib>
#include <cstring>
#include <ostream>

namespace {

// Placeholders for the rows whose result is the clock's.
const char *const kToday = "<today>";
const char *const kNow = "<now>";

QString todayDotted()
{
    const QDate d = QDate::currentDate();
    return QString::asprintf("%04d.%02d.%02d", d.year(), d.month(), d.day());
}

bool looksLikeNow(const QString &s)
{
    // "hh:mm:ss.mmm" within a few seconds of the test's clock.
    static const QRegularExpression re(
        QRegularExpression::anchoredPattern("(\\d\\d):(\\d\\d):(\\d\\d)\\.(\\d\\d\\d)"));
    const auto m = re.match(s);
    if (!m.hasMatch())
        return false;
    const QTime t(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    return t.isValid() && std::abs(t.secsTo(QTime::currentTime())) < 5;
}

std::string vrName(int vr)
{
    return encodeVRString(static_cast<dicom::valRep>(vr)).toStdString();
}

} // namespace

// --- VR table -------------------------------------------------------------

TEST(VrTable, KeepsTheOrderInWhichCodesAreOffered)
{
    const QStringList expected = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FL", "FD",
                                  "IS", "LO", "LT", "OB", "OW", "PN", "SH", "SL", "SS",
                                  "ST", "TM", "UI", "UL", "UN", "US", "UT"};
    EXPECT_EQ(getVRStringList(), expected);
    EXPECT_EQ(getVRStringList(), expected) << "the cached list must come back unchanged";
    ASSERT_EQ(vrList().size(), 25u);
}

struct VrRow
{
    int vr;
    const char *code;
    const char *description;
    const char *why;
};

void PrintTo(const VrRow &r, std::ostream *os)
{
    *os << r.vr << " " << r.code << " (" << r.why << ")";
}

class VrCodes : public ::testing::TestWithParam<VrRow>
{
};

TEST_P(VrCodes, NumberGivesCodeAndDescription)
{
    const VrRow &r = GetParam();
    const auto vr = static_cast<dicom::valRep>(r.vr);
    EXPECT_EQ(encodeVRString(vr), r.code) << r.why;
    EXPECT_EQ(getVRDescription(vr), r.description) << r.why;
}

// The numbers travel in parameters and between libraries: every one is pinned.
INSTANTIATE_TEST_SUITE_P(
    FixedNumbers, VrCodes,
    ::testing::Values(VrRow{0, "AE", "Application Entity", "first row"},
                      VrRow{1, "AS", "Age String", "fixed number"},
                      VrRow{2, "AT", "Attribute Tag", "fixed number"},
                      VrRow{3, "CS", "Code String", "fixed number"},
                      VrRow{4, "DA", "Date", "fixed number"},
                      VrRow{5, "DS", "Decimal String", "fixed number"},
                      VrRow{6, "DT", "Date & Time", "the ampersand is part of the text"},
                      VrRow{7, "FL", "Floating Point Single", "fixed number"},
                      VrRow{8, "FD", "Floating Point Double", "fixed number"},
                      VrRow{9, "IS", "Integer String", "fixed number"},
                      VrRow{10, "LO", "Long String", "fixed number"},
                      VrRow{11, "LT", "Long Text", "fixed number"},
                      VrRow{12, "PN", "Person Name", "number 12 although PN is 15th in the list"},
                      VrRow{13, "SH", "Short String", "fixed number"},
                      VrRow{14, "SL", "Signed Long", "fixed number"},
                      VrRow{15, "SS", "Signed Short", "fixed number"},
                      VrRow{16, "ST", "Short Text", "fixed number"},
                      VrRow{17, "TM", "Time", "fixed number"},
                      VrRow{18, "UI", "Unique Identifier (UID)", "fixed number"},
                      VrRow{19, "UL", "Unsigned Long", "fixed number"},
                      VrRow{20, "US", "Unsigned Short", "number 20 although US follows UN"},
                      VrRow{21, "OB", "Other Byte String", "number 21 although listed after LT"},
                      VrRow{22, "OW", "Other Word String", "fixed number"},
                      VrRow{23, "UN", "Unknown", "sequences have no row: both fallbacks"},
                      VrRow{24, "UN", "Unknown", "the row of UN itself"},
                      VrRow{25, "UT", "Unlimited Text", "last number"},
                      VrRow{99, "UN", "Unknown", "out of range: both fallbacks"}));

struct DecodeRow
{
    const char *text;
    int vr;
    const char *why;
};

void PrintTo(const DecodeRow &r, std::ostream *os)
{
    *os << "'" << r.text << "' (" << r.why << ")";
}

class VrDecoding : public ::testing::TestWithParam<DecodeRow>
{
};

TEST_P(VrDecoding, IsAContainmentTestInListOrder)
{
    const DecodeRow &r = GetParam();
    EXPECT_EQ(decodeVRString(r.text), r.vr) << r.why;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VrDecoding,
    ::testing::Values(DecodeRow{"ob", 21, "lower case is upper-cased"},
                      DecodeRow{"  US ", 20, "blanks are trimmed"},
                      DecodeRow{"x", 24, "no code holds X: UN"},
                      DecodeRow{"", 0, "the empty text is contained in the first code"},
                      DecodeRow{"A", 0, "a lone letter gives the first code containing it"},
                      DecodeRow{"T", 2, "AT is the first code with a T"},
                      DecodeRow{"O", 10, "LO stands before OB in the list"},
                      DecodeRow{"U", 18, "UI is the first code with a U"},
                      DecodeRow{"S", 1, "AS is the first code with an S"},
                      DecodeRow{"SQ", 24, "sequences have no row"},
                      DecodeRow{"DSX", 5, "only two characters count"},
                      DecodeRow{" o b ", 24,
                                "inner blank survives simplification: 'O ' is in no code"},
                      DecodeRow{"ut", 25, "last row"}));

// --- value texts ------------------------------------------------------------

TEST(ValueText, StoredFormIsTrimmedAndSimplifiedForEveryVr)
{
    for (int vr = 0; vr <= 25; ++vr)
        EXPECT_EQ(parseDicomDataString("  1.5   \\  2 \t 3  ", static_cast<dicom::valRep>(vr)),
                  "1.5 \\ 2 3")
            << vrName(vr) << ": the VR is not consulted, multiple values stay as typed";
}

struct ParseRow
{
    int vr;
    const char *in;
    const char *out; ///< kToday / kNow for the clock's value
    const char *why;
};

void PrintTo(const ParseRow &r, std::ostream *os)
{
    *os << vrName(r.vr) << " '" << r.in << "' (" << r.why << ")";
}

class SingleValue : public ::testing::TestWithParam<ParseRow>
{
};

TEST_P(SingleValue, FollowsTheRuleOfItsVr)
{
    const ParseRow &r = GetParam();
    const QString got = parseSingleDicomDataString(r.in, static_cast<dicom::valRep>(r.vr));
    if (r.out == kToday)
        EXPECT_EQ(got, todayDotted()) << r.why;
    else if (r.out == kNow)
        EXPECT_TRUE(looksLikeNow(got)) << "got '" << got.toStdString() << "': " << r.why;
    else
        EXPECT_EQ(got, r.out) << r.why;
}

INSTANTIATE_TEST_SUITE_P(
    TextVrs, SingleValue,
    ::testing::Values(
        ParseRow{dicom::AE, "STORESCP", "", "inverted test: any non-empty AE gives the default"},
        ParseRow{dicom::AE, "", "", "empty stays empty"},
        ParseRow{dicom::AS, "045Y", "000Y", "inverted test: even a valid age gives the default"},
        ParseRow{dicom::AS, "45y", "000Y", "non-empty"},
        ParseRow{dicom::AS, "", "", "empty stays empty"},
        ParseRow{dicom::AT, "0010-0020", "FFFF-FFFF",
                 "inverted test: a valid tag gives the default"},
        ParseRow{dicom::AT, "zz", "FFFF-FFFF", "non-empty"},
        ParseRow{dicom::AT, "", "", "empty stays empty"},
        ParseRow{dicom::CS, "ORIGINAL", "", "inverted test: a valid code gives the empty default"},
        ParseRow{dicom::CS, "mr", "", "non-empty"},
        ParseRow{dicom::LO, "  Doe ^  John ", "Doe ^ John", "trimmed and simplified"},
        ParseRow{dicom::PN, "  Doe ^  John ", "Doe ^ John", "only the common simplification"},
        ParseRow{dicom::SH, "ABCDEFGHIJKLMNOPQRST", "ABCDEFGHIJKLMNOP", "16 characters"},
        ParseRow{dicom::OB, "00  01", "00 01", "binary text: simplified only"},
        ParseRow{dicom::UT, " a\\b ", "a\\b", "unlimited text: simplified only"},
        ParseRow{23, "x  y", "x y", "the sequence value has no rule"}));

INSTANTIATE_TEST_SUITE_P(
    UniqueIdentifiers, SingleValue,
    ::testing::Values(ParseRow{dicom::UI, "1.2.840.10008", "0.0.0.0.0.0",
                               "inverted test: a valid UID gives the placeholder"},
                      ParseRow{dicom::UI, "123", "0.0.0.0.0.0", "one component, no dot, matches"},
                      ParseRow{dicom::UI, "1.2.x", "", "malformed and non-empty: empty"},
                      ParseRow{dicom::UI, "1..2", "", "an empty component does not match"},
                      ParseRow{dicom::UI, "1.2.", "", "a trailing dot needs one more component"},
                      ParseRow{dicom::UI, "", "", "empty stays empty"}));

INSTANTIATE_TEST_SUITE_P(
    Numbers, SingleValue,
    ::testing::Values(ParseRow{dicom::DS, "1.50000000", "1.5", "general format"},
                      ParseRow{dicom::DS, "123456789", "1.23457e+08", "6 significant digits"},
                      ParseRow{dicom::DS, " -0.000012345678 ", "-1.23457e-05", "small numbers"},
                      ParseRow{dicom::DS, "abc", "0", "unreadable numbers are 0"},
                      ParseRow{dicom::FL, "2.5", "2.5", "single precision, exact"},
                      ParseRow{dicom::FL, "3.14159265", "3.14159", "6 significant digits"},
                      ParseRow{dicom::FD, "2.718281828", "2.71828", "6 significant digits"},
                      ParseRow{dicom::IS, "0042", "42", "decimal, leading zeros dropped"},
                      ParseRow{dicom::IS, "-7", "-7", "negative"},
                      ParseRow{dicom::IS, "12.5", "0", "not an integer"},
                      ParseRow{dicom::SL, "-70000", "-70000", "beyond 16 bits"},
                      ParseRow{dicom::SL, "abc", "0", "unreadable"},
                      ParseRow{dicom::SS, "-12", "-12", "short"},
                      ParseRow{dicom::SS, "70000", "0", "out of range for a short"},
                      ParseRow{dicom::US, "65535", "65535", "largest unsigned short"},
                      ParseRow{dicom::US, "65536", "0", "out of range"},
                      ParseRow{dicom::UL, "4000000000", "4000000000", "beyond a signed 32-bit"}));

INSTANTIATE_TEST_SUITE_P(
    Dates, SingleValue,
    ::testing::Values(
        ParseRow{dicom::DA, "20240229", kToday, "inverted test: eight digits give today"},
        ParseRow{dicom::DA, "2024.02.29", kToday, "ten characters, matching: today"},
        ParseRow{dicom::DA, "garbage", kToday, "non-empty: today"},
        ParseRow{dicom::DA, "", kToday, "empty: the dots go in, the date is invalid: today"},
        ParseRow{dicom::DT, "20240101 120000", "20240101 120000", "both parts only simplified"},
        ParseRow{dicom::DT, " 20240101   1200 ", "20240101 1200", "inner blanks reduced"},
        ParseRow{dicom::DT, "20240101", "20240101", "no white space: all date, no time"}));

INSTANTIATE_TEST_SUITE_P(
    Times, SingleValue,
    ::testing::Values(
        ParseRow{dicom::TM, "12", kNow, "inverted test: two digits give now"},
        ParseRow{dicom::TM, "99", kNow, "two digits give now, valid or not"},
        ParseRow{dicom::TM, "1230", kNow, "four digits"},
        ParseRow{dicom::TM, "12:30", kNow, "hh:mm"},
        ParseRow{dicom::TM, "123015", kNow, "six digits"},
        ParseRow{dicom::TM, "12:30:15", kNow, "hh:mm:ss"},
        ParseRow{dicom::TM, "", kNow, "length 0 is another length"},
        ParseRow{dicom::TM, "1 2 3 4", kNow, "length 7 is another length"},
        ParseRow{dicom::TM, "ab", "ab:00:00.0", "two non-digits are completed; 'ab' reads as 0"},
        ParseRow{dicom::TM, "12:3", "12::3:00.0", "four characters: ':' at 2 and ':00' appended"},
        ParseRow{dicom::TM, "12:3x", "12:3x:00.0", "five characters not hh:mm: ':00' appended"},
        ParseRow{dicom::TM, "1230:1", "12:30::1.0", "six characters not digits: ':' at 4 and at 2"},
        ParseRow{dicom::TM, "xx:yy:zz", "xx:yy:zz.0", "eight characters not hh:mm:ss stay"},
        ParseRow{dicom::TM, "99:99:9x", kNow, "hour 99 is no time of day: now"},
        ParseRow{dicom::TM, "12:3.5", "12::3:00.005", "milliseconds printed with three digits"},
        ParseRow{dicom::TM, "ab.700", "ab:00:00.700", "milliseconds after the first dot"},
        ParseRow{dicom::TM, "ab.70000", "ab:00:00.000",
                 "milliseconds beyond an unsigned short read 0"}));

TEST(ValueText, TextLimitsPerVr)
{
    const QString longText(2000, QLatin1Char('x'));
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::SH).length(), 16);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::LO).length(), 64);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::LT).length(), 64) << "LT uses LO's limit";
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::ST).length(), 1024);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::UT).length(), 2000);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::PN).length(), 2000);

    // A blank that ends up last after the cut: LO trims again, LT does not.
    const QString blankAt64 = QString(63, QLatin1Char('a')) + " bcd";
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LO), QString(63, QLatin1Char('a')));
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LT),
              QString(63, QLatin1Char('a')) + " ");
}

TEST(ValueText, NowAndTodayInDicomForm)
{
    const QDate before = QDate::currentDate();
    const QString date = getDicomDate();
    const QDate after = QDate::currentDate();
    EXPECT_TRUE(date == before.toString("yyyyMMdd") || date == after.toString("yyyyMMdd"))
        << date.toStdString();

    const QString time = getDicomTime();
    static const QRegularExpression re(
        QRegularExpression::anchoredPattern("(\\d\\d)(\\d\\d)(\\d\\d)\\.(\\d\\d\\d)"));
    const auto m = re.match(time);
    ASSERT_TRUE(m.hasMatch()) << time.toStdString();
    const QTime t(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt(),
                  m.captured(4).toInt());
    ASSERT_TRUE(t.isValid());
    EXPECT_LT(std::abs(t.msecsTo(QTime::currentTime())), 5000);
}

// --- byte helpers ----------------------------------------------------------

TEST(ByteHelpers, AsciiTestLooksAtTheFirstNBytesOrTheCString)
{
    const unsigned char high[] = {'a', 0x80, 'b'};
    EXPECT_FALSE(isASCII(high, 3)) << "0x80 is above 127";
    EXPECT_TRUE(isASCII(high, 1)) << "only the first n bytes count";
    const unsigned char top[] = {0x7F, 0xFF};
    EXPECT_TRUE(isASCII(top, 1)) << "127 itself is ASCII";
    EXPECT_FALSE(isASCII(top, 2));
    const unsigned char empty[] = {0};
    EXPECT_TRUE(isASCII(empty, 0)) << "an empty NUL-terminated text is ASCII";
    const unsigned char text[] = "plain\0\x90";
    EXPECT_TRUE(isASCII(text, 0)) << "n < 1 measures the NUL-terminated text";
    EXPECT_FALSE(isASCII(text, 7)) << "with n given, NUL does not end the test";
}

TEST(ByteHelpers, HexEncodingIsUpperCaseHighNibbleFirst)
{
    int n = -1;
    char *zero = hexEncode(nullptr, 0, n);
    ASSERT_NE(zero, nullptr);
    EXPECT_STREQ(zero, "0");
    EXPECT_EQ(n, 1) << "zero bytes give \"0\" with length 1";
    std::free(zero);

    const unsigned char bytes[] = {0x00, 0x1F, 0xAB, 0xFF};
    char *hex = hexEncode(bytes, 4, n);
    ASSERT_NE(hex, nullptr);
    EXPECT_STREQ(hex, "001FABFF");
    EXPECT_EQ(n, 8);
    std::free(hex);
}

struct HexRow
{
    const char *text;
    unsigned char byte;
    const char *why;
};

void PrintTo(const HexRow &r, std::ostream *os)
{
    *os << "'" << r.text << "' (" << r.why << ")";
}

class HexDecoding : public ::testing::TestWithParam<HexRow>
{
};

TEST_P(HexDecoding, PairGivesOneByteWithTheCapitalAQuirk)
{
    const HexRow &r = GetParam();
    int n = -1;
    unsigned char *out = hexDecode(r.text, 2, n);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(out[0], r.byte) << r.why;
    EXPECT_EQ(out[1], 0) << "NUL-terminated";
    std::free(out);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, HexDecoding,
    ::testing::Values(HexRow{"1f", 0x1F, "lower-case digits"}, HexRow{"1F", 0x1F, "upper-case F"},
                      HexRow{"ff", 0xFF, "largest byte"}, HexRow{"9a", 0x9A, "digit then letter"},
                      HexRow{"Bc", 0xBC, "'B' is 11, 'c' is 12"},
                      HexRow{"A0", 0x10, "'A' counts 17: 17*16 = 0x110, kept in one byte"},
                      HexRow{"0A", 0x11, "'A' as low digit is 17 = 0x11"},
                      HexRow{"aA", 0xB1, "0xA0 | 0x11"},
                      HexRow{"AA", 0x11, "0x110 | 0x11 = 0x111, kept in one byte"}));

TEST(ByteHelpers, HexDecodingIgnoresATrailingOddCharacter)
{
    int n = -1;
    unsigned char *odd = hexDecode("abc", 3, n);
    ASSERT_NE(odd, nullptr);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(odd[0], 0xAB);
    EXPECT_EQ(odd[1], 0);
    std::free(odd);

    unsigned char *none = hexDecode("", 0, n);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(none[0], 0);
    std::free(none);
}

TEST(QStringHelpers, SeparatorsBecomeBlanks)
{
    EXPECT_EQ(encodeQString("1\\0\\0\\0\\1\\0"), "1 0 0 0 1 0");
    EXPECT_EQ(encodeQString("a\\\\b"), "a  b") << "every separator, one blank each";
    EXPECT_EQ(decodeQString("a\\b"), "a\\b");
    const unsigned char bytes[] = {'O', 'R', '\\', 'M'};
    EXPECT_EQ(encodeBytesToQString(bytes, 4), "OR M");
    EXPECT_EQ(encodeBytesToQString(bytes, 2), "OR") << "only n bytes";
}
