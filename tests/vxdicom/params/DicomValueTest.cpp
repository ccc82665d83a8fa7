// Element values: text rules per VR, hex codes, generated UIDs, parts of texts and cleaning.

#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/params/DicomUid.h"
#include "vxdicom/params/DicomValueCodec.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QRegularExpression>
#include <QTime>

#include <memory>
#include <random>
#include <tuple>

namespace {

// out: nullptr is the time now, "today" the date now, dotted.
TEST(ValueText, EachVrFollowsItsRule)
{
    EXPECT_EQ(parseDicomDataString("  1.5   \\  2 \t 3  ", dicom::US), "1.5 \\ 2 3");
    // clang-format off
    const std::tuple<dicom::valRep, const char *, const char *> rows[] = {
        {dicom::AE, "STORESCP", ""}, // inverted tests: a valid value gives the default
        {dicom::AS, "045Y", "000Y"}, {dicom::AT, "0010-0020", "FFFF-FFFF"}, {dicom::UI, "1..2", ""},
        {dicom::UI, "1.2.840.10008", "0.0.0.0.0.0"}, {dicom::LO, "  Doe ^  John ", "Doe ^ John"},
        {dicom::SH, "ABCDEFGHIJKLMNOPQRST", "ABCDEFGHIJKLMNOP"}, {dicom::DS, "abc", "0"},
        {dicom::DS, "123456789", "1.23457e+08"}, {dicom::IS, "0042", "42"},
        {dicom::UL, "4000000000", "4000000000"}, {dicom::SS, "70000", "0"},
        {dicom::DT, " 20240101   1200 ", "20240101 1200"}, {dicom::DA, "20240229", "today"},
        {dicom::TM, "12:30:15", nullptr}, // valid times give now, other texts are completed
        {dicom::TM, "1230:1", "12:30::1.0"}, {dicom::TM, "12:3.5", "12::3:00.005"},
        {dicom::TM, "ab.70000", "ab:00:00.000"}, // milliseconds beyond an unsigned short read 0
    };
    // clang-format on
    for (const auto &[vr, in, out] : rows) {
        const QString got = parseSingleDicomDataString(in, vr);
        SCOPED_TRACE(encodeVRString(vr).toStdString() + " '" + in + "' gave '" + got.toStdString());
        if (!out) {
            const QTime t = QTime::fromString(got, "hh:mm:ss.zzz");
            EXPECT_TRUE(t.isValid() && std::abs(t.msecsTo(QTime::currentTime())) < 5000);
        } else {
            EXPECT_EQ(got, std::string(out) == "today" ? QDate::currentDate().toString("yyyy.MM.dd")
                                                       : QString(out));
        }
    }
    const QString blankAt64 = QString(63, 'a') + " bcd";
    EXPECT_EQ(parseSingleDicomDataString(QString(2000, 'x'), dicom::UT).length(), 2000);
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LO), QString(63, 'a')) << "trims again";
    EXPECT_EQ(parseSingleDicomDataString(blankAt64, dicom::LT), QString(63, 'a') + " ");
    EXPECT_EQ(getDicomDate(), QDate::currentDate().toString("yyyyMMdd"));
    const QTime t = QTime::fromString(getDicomTime(), "hhmmss.zzz");
    EXPECT_LT(std::abs(t.msecsTo(QTime::currentTime())), 5000) << getDicomTime().toStdString();
}

TEST(ByteHelpers, AsciiHexAndSeparators)
{
    const unsigned char text[] = "plain\0\x90";
    EXPECT_TRUE(isASCII(text, 0) && !isASCII(text, 7)) << "n < 1 measures the text up to its NUL";
    int n = -1;
    // Decoding counts a capital 'A' as 17, as the stored values were written.
    const std::pair<const char *, std::vector<unsigned char>> decoded[] = {
        {"1f", {0x1F}}, {"Bc", {0xBC}}, {"A0", {0x10}}, {"0A", {0x11}}, {"abc", {0xAB}}, {"", {}}};
    for (const auto &[in, out] : decoded) {
        std::unique_ptr<unsigned char, decltype(&std::free)> got(
            hexDecode(in, unsigned(std::strlen(in)), n), &std::free);
        ASSERT_EQ(n, int(out.size())) << in;
        std::vector<unsigned char> terminated = out;
        terminated.push_back(0);
        EXPECT_EQ(std::vector<unsigned char>(got.get(), got.get() + n + 1), terminated) << in;
    }
}

// The numbers given (not negative ones), date and time; cut at 64 characters, no final dot.
TEST(UidGeneration, NumbersOfEveryWidthGiveValidUids)
{
    static const QRegularExpression syntax(QRegularExpression::anchoredPattern("\\d+(\\.\\d+)*"));
    const QString root = QString::fromLatin1(creatorUID),
                  day = QDate::currentDate().toString("yyyyMMdd");
    EXPECT_TRUE(generateSOPInstanceUID(7, 12).startsWith(root + ".7.12." + day));
    std::mt19937 rng(7); // numbers of every width move the cut across every position
    auto number = [&rng] { return rng() % 11 == 0 ? -1 : int(rng() >> (rng() % 31 + 1)); };
    int cut = 0;
    for (int i = 0; i < 3000; ++i) {
        const QString u = generateSOPInstanceUID(number(), number());
        ASSERT_TRUE(u.size() <= 64 && syntax.match(u).hasMatch()) << u.toStdString();
        cut += u.size() == 64;
    }
    EXPECT_GT(cut, 100) << "the loop must reach the 64-character limit";
}

TEST(ElementTexts, PartsAreTakenApartAndFixCleansThemInPlace)
{
    // Edges the element table does not reach; expected nullptr: a null text.
    const std::tuple<const char *, const char *, ReturnParamContent, int, const char *> rows[] = {
        {"G0028-0010", "Rows: 512", ContentVR, 0, "US"}, // no '[': the dictionary's VR
        {"G0028-0030", "pixel spacing:  0.5  0.25 ", ContentValueItem, 1, ""}, // blanks split
        {"G0019-100B", " [DS]: 17.5", ContentName, 0, ""},
        {"G0008-0020", "date: x [DA]", ContentGroup, 0, nullptr}, // ':' before '['
    };
    for (const auto &[name, text, what, index, expected] : rows) {
        const VxParameter p(name, text);
        const QString got = decodeDicomParam(&p, what, index);
        EXPECT_EQ(got.isNull() ? "<null>" : got.toStdString(), expected ? expected : "<null>")
            << text << " part " << what << " [" << index << "]";
    }
    EXPECT_TRUE(decodeDicomParam(nullptr, ContentName, 0).isNull());
    VxParamBundle top("DICOM");
    top.setString("G0020-4000", "image comments: say \"hi\"\t  ");
    top.setString("G0010-0010", "patient name: M\xC3\xBCller^Anna");
    top.insert(new VxParamBundle("All"));
    top.bundle("All")->setString("G0051-100E", " [CS]: Tra>Cor(-6.2)\r\n\\");
    fix(&top);
    EXPECT_EQ(top.getString("G0020-4000"), "image comments: say  hi");
    EXPECT_EQ(top.getString("G0010-0010"), "patient name: M ller^Anna") << "a blank per non-ASCII";
    EXPECT_EQ(top.bundle("All")->getString("G0051-100E"), " [CS]: Tra>Cor(-6.2)");
}

} // namespace
