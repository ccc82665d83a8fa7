#include "vxdicom/params/DicomValueCodec.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QTime>

#include <cstdlib>
#include <cstring>

namespace {

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
    return std::abs(t.secsTo(QTime::currentTime())) < 5;
}

} // namespace

TEST(VrTable, KeepsTheOrderInWhichCodesAreOffered)
{
    const QStringList expected = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FL", "FD",
                                  "IS", "LO", "LT", "OB", "OW", "PN", "SH", "SL", "SS",
                                  "ST", "TM", "UI", "UL", "UN", "US", "UT"};
    EXPECT_EQ(getVRStringList(), expected);
    EXPECT_EQ(getVRStringList(), expected) << "the cached list must be returned unchanged";
}

TEST(VrTable, CodesAndDescriptionsFollowTheFixedNumbers)
{
    // The numbers travel in parameters and between libraries; they must not move.
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(0)), "AE");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(12)), "PN");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(21)), "OB");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(22)), "OW");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(24)), "UN");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(25)), "UT");
    EXPECT_EQ(getVRDescription(dicom::UI), "Unique Identifier (UID)");
    EXPECT_EQ(getVRDescription(dicom::DT), "Date & Time");
    // 23 stands for sequences and has no row.
    EXPECT_EQ(getVRDescription(static_cast<dicom::valRep>(23)), "Unknown");
    EXPECT_EQ(encodeVRString(static_cast<dicom::valRep>(23)), "UN");
}

TEST(VrTable, DecodingIsAContainmentTestInTableOrder)
{
    struct Row { const char *text; int vr; const char *why; };
    const Row rows[] = {
        {"ob", 21, "lower case is upper-cased"},
        {"  US ", 20, "blanks are trimmed"},
        {"x", 24, "no code holds X"},
        {"", 0, "the empty text is contained in the first code"},
        {"A", 0, "a lone letter gives the first code containing it"},
        {"T", 2, "AT is the first code with a T"},
        {"SQ", 24, "sequences have no row"},
        {"DSX", 5, "only two characters count"},
    };
    for (const Row &r : rows)
        EXPECT_EQ(decodeVRString(r.text), r.vr) << r.text << ": " << r.why;
}

TEST(ValueText, StoredFormIsTrimmedAndSimplifiedForEveryVr)
{
    for (dicom::valRep vr : {dicom::AE, dicom::DS, dicom::UI, dicom::OB, dicom::UT})
        EXPECT_EQ(parseDicomDataString("  1.5   \\  2 \t 3  ", vr), "1.5 \\ 2 3");
}

TEST(ValueText, SingleValueRulesPerVr)
{
    struct Row { int vr; const char *in; const char *out; const char *why; };
    const Row rows[] = {
        {dicom::AE, "STORESCP", "", "any non-empty AE is replaced by the empty default"},
        {dicom::AS, "45y", "000Y", "a non-empty age becomes the default"},
        {dicom::AS, "", "", "an empty age stays empty"},
        {dicom::AT, "0010-0020", "FFFF-FFFF", "a matching tag still gives the default"},
        {dicom::CS, "mr", "", "code strings fall back to empty"},
        {dicom::DS, "1.50000000", "1.5", "general format, 6 digits"},
        {dicom::DS, "abc", "0", "unreadable numbers are 0"},
        {dicom::DS, "123456789", "1.23457e+08", "6 significant digits"},
        {dicom::FL, "0.1", "0.1", "single precision widened, 6 digits"},
        {dicom::FD, "2.718281828", "2.71828", "6 significant digits"},
        {dicom::IS, "0042", "42", "decimal integer"},
        {dicom::IS, "12.5", "0", "not an integer"},
        {dicom::SL, "-70000", "-70000", "long"},
        {dicom::SS, "-12", "-12", "short"},
        {dicom::SS, "70000", "0", "out of range for short"},
        {dicom::US, "65535", "65535", "unsigned short"},
        {dicom::UL, "4000000000", "4000000000", "unsigned long"},
        {dicom::UI, "1.2.840.10008", "0.0.0.0.0.0", "a well-formed UID gives the placeholder"},
        {dicom::UI, "1.2.x", "", "a malformed UID gives the empty text"},
        {dicom::UI, "", "", "empty stays empty"},
        {dicom::PN, "Doe^John", "Doe^John", "unchanged"},
        {dicom::OB, "00 01", "00 01", "binary text unchanged"},
    };
    for (const Row &r : rows)
        EXPECT_EQ(parseSingleDicomDataString(r.in, static_cast<dicom::valRep>(r.vr)), r.out)
            << encodeVRString(static_cast<dicom::valRep>(r.vr)).toStdString() << " '" << r.in
            << "': " << r.why;
}

TEST(ValueText, TextLimitsPerVr)
{
    const QString longText(2000, QLatin1Char('x'));
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::SH).length(), 16);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::LO).length(), 64);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::LT).length(), 64) << "LT uses LO's limit";
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::ST).length(), 1024);
    EXPECT_EQ(parseSingleDicomDataString(longText, dicom::UT).length(), 2000);
}

TEST(ValueText, DatesBecomeTodayInDottedForm)
{
    const QString today = todayDotted();
    EXPECT_EQ(parseSingleDicomDataString("20240229", dicom::DA), today);
    EXPECT_EQ(parseSingleDicomDataString("2024.02.29", dicom::DA), today);
    EXPECT_EQ(parseSingleDicomDataString("garbage", dicom::DA), today);
    EXPECT_EQ(parseSingleDicomDataString("", dicom::DA), today);
}

TEST(ValueText, TimesFollowTheirLengthRules)
{
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("12", dicom::TM))) << "two digits give now";
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("1230", dicom::TM)));
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("12:30:15", dicom::TM)));
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("", dicom::TM))) << "other lengths give now";
    // Non-matching texts are completed; a part that does not read as a number
    // counts 0, so the completed text usually stays.
    EXPECT_EQ(parseSingleDicomDataString("12:3", dicom::TM), "12::3:00.0")
        << "four characters: ':' inserted at 2, ':00' appended";
    EXPECT_EQ(parseSingleDicomDataString("ab", dicom::TM), "ab:00:00.0");
    EXPECT_EQ(parseSingleDicomDataString("12:3.5", dicom::TM), "12::3:00.005")
        << "milliseconds are printed with three digits";
    EXPECT_EQ(parseSingleDicomDataString("1230:1", dicom::TM), "12:30::1.0")
        << "six characters that are not all digits get ':' at 4 and 2";
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("12:30", dicom::TM)))
        << "hh:mm matches its pattern and therefore becomes now";
    EXPECT_TRUE(looksLikeNow(parseSingleDicomDataString("25:00:00", dicom::TM)));
    EXPECT_EQ(parseSingleDicomDataString("1 2 3 4", dicom::TM).length(), 12);
}

TEST(ValueText, NowAndTodayInDicomForm)
{
    EXPECT_TRUE(QRegularExpression(QRegularExpression::anchoredPattern("\\d{8}"))
                    .match(getDicomDate())
                    .hasMatch());
    EXPECT_TRUE(QRegularExpression(QRegularExpression::anchoredPattern("\\d{6}\\.\\d{3}"))
                    .match(getDicomTime())
                    .hasMatch());
    const QDate d = QDate::currentDate();
    EXPECT_EQ(getDicomDate(), QString::asprintf("%04d%02d%02d", d.year(), d.month(), d.day()));
}

TEST(ByteHelpers, AsciiTest)
{
    const unsigned char high[] = {'a', 0x80, 'b'};
    EXPECT_FALSE(isASCII(high, 3));
    EXPECT_TRUE(isASCII(high, 1)) << "only the first n bytes count";
    const unsigned char empty[] = {0};
    EXPECT_TRUE(isASCII(empty, 0));
    const unsigned char text[] = "plain";
    EXPECT_TRUE(isASCII(text, 0)) << "n < 1 measures the NUL-terminated text";
}

TEST(ByteHelpers, HexEncoding)
{
    int n = -1;
    char *zero = hexEncode(nullptr, 0, n);
    EXPECT_STREQ(zero, "0");
    EXPECT_EQ(n, 1);
    std::free(zero);

    const unsigned char bytes[] = {0x00, 0x1F, 0xAB, 0xFF};
    char *hex = hexEncode(bytes, 4, n);
    EXPECT_STREQ(hex, "001FABFF");
    EXPECT_EQ(n, 8);
    std::free(hex);
}

TEST(ByteHelpers, HexDecodingKeepsTheCapitalAQuirk)
{
    struct Row { const char *text; unsigned char byte; const char *why; };
    const Row rows[] = {
        {"1f", 0x1F, "lower-case digits"},
        {"1F", 0x1F, "upper-case F"},
        {"A0", 0x10, "'A' counts 17: 17*16 = 0x110, kept in one byte"},
        {"0A", 0x11, "'A' as low digit is 17 = 0x11"},
        {"Bc", 0xBC, "'B' is 11"},
    };
    for (const Row &r : rows) {
        int n = -1;
        unsigned char *out = hexDecode(r.text, 2, n);
        EXPECT_EQ(n, 1);
        EXPECT_EQ(out[0], r.byte) << r.text << ": " << r.why;
        EXPECT_EQ(out[1], 0) << "NUL-terminated";
        std::free(out);
    }
    int n = -1;
    unsigned char *odd = hexDecode("abc", 3, n);
    EXPECT_EQ(n, 1) << "a trailing odd character is ignored";
    EXPECT_EQ(odd[0], 0xAB);
    std::free(odd);
}

TEST(QStringHelpers, SeparatorsBecomeBlanks)
{
    EXPECT_EQ(encodeQString("1\\0\\0\\0\\1\\0"), "1 0 0 0 1 0");
    EXPECT_EQ(decodeQString("a\\b"), "a\\b");
    const unsigned char bytes[] = {'O', 'R', '\\', 'M'};
    EXPECT_EQ(encodeBytesToQString(bytes, 4), "OR M");
}
