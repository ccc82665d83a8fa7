#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"

#include <cstring>
#include <map>
#include <sstream>
#include <string>

namespace {

struct NameCase
{
    uint16_t group;
    uint16_t element;
    const char *name;
    dicom::valRep vr;
    const char *why;
};

class DictionaryName : public ::testing::TestWithParam<NameCase>
{
};

TEST_P(DictionaryName, IsTheLowerCaseWordsOfTheKeyword)
{
    const NameCase &c = GetParam();
    const char *name = dicom::dicomDictionaryName(c.group, c.element);
    ASSERT_NE(name, nullptr) << c.why;
    EXPECT_STREQ(name, c.name) << c.why;
    EXPECT_TRUE(dicom::dicomDictionaryContains(c.group, c.element)) << c.why;
    EXPECT_EQ(dicom::dicomDictionaryType(c.group, c.element), c.vr) << c.why;
    uint16_t g = 0, e = 0;
    ASSERT_TRUE(dicom::dicomDictionaryFind(c.name, &g, &e)) << c.why;
    // Repeating groups find their first group (60xx -> 6000).
    EXPECT_EQ(e, c.element) << c.why;
    EXPECT_EQ(g & 0xFF00, c.group & 0xFF00) << c.why;
}

// Names and VRs as the DICOM standard (PS3.6) lists the attributes.
const NameCase nameCases[] = {
    {0x0010, 0x0010, "patient name", dicom::PN, "plain two-word keyword"},
    {0x0008, 0x0018, "sop instance uid", dicom::UI, "leading and trailing acronyms"},
    {0x0020, 0x000E, "series instance uid", dicom::UI, "trailing acronym"},
    {0x0020, 0x0032, "image position patient", dicom::DS, "three words"},
    {0x0020, 0x0037, "image orientation patient", dicom::DS, "three words"},
    {0x0020, 0x1041, "slice location", dicom::DS, "the stack-break criterion compares this text"},
    {0x0028, 0x0010, "rows", dicom::US, "single word"},
    {0x0028, 0x0106, "smallest image pixel value", dicom::US, "US or SS resolves to US"},
    {0x7FE0, 0x0010, "pixel data", dicom::OW, "OB or OW resolves to OW"},
    {0x0004, 0x1220, "directory record sequence", dicom::SQ, "sequence"},
    {0x0004, 0x1400, "offset of the next directory record", dicom::UL, "file offset pseudo-VR"},
    {0x0002, 0x0010, "transfer syntax uid", dicom::UI, "file meta group"},
    {0x0018, 0x9504, "x ray 3d frame type sequence", dicom::SQ, "digit before an acronym"},
    {0x0008, 0x0001, "length to end", dicom::UL, "retired attribute: DCMTK's prefix is dropped"},
    {0x6000, 0x0010, "overlay rows", dicom::US, "repeating group 60xx, first"},
    {0x6002, 0x3000, "overlay data", dicom::OW, "repeating group 60xx, second overlay"},
    {0x5000, 0x0005, "curve dimensions", dicom::US, "repeating group 50xx"},
    {0x0029, 0x0010, "private creator", dicom::LO, "private creator elements are public"},
};

INSTANTIATE_TEST_SUITE_P(Standard, DictionaryName, ::testing::ValuesIn(nameCases));

TEST(Dictionary, PrivateAndUnknownTagsHaveNoName)
{
    // (0029,1010) is Siemens' CSA image header: private, known to DCMTK only
    // together with its creator, so not in the public dictionary.
    EXPECT_EQ(dicom::dicomDictionaryName(0x0029, 0x1010), nullptr);
    EXPECT_FALSE(dicom::dicomDictionaryContains(0x0029, 0x1010));
    EXPECT_EQ(dicom::dicomDictionaryType(0x0029, 0x1010), dicom::UN);
    // An even group no edition of the standard has used.
    EXPECT_EQ(dicom::dicomDictionaryName(0x0012, 0x7777), nullptr);
    EXPECT_FALSE(dicom::dicomDictionaryContains(0x0012, 0x7777));
    // 60xx is only the even groups: (6001,3000) is private.
    EXPECT_EQ(dicom::dicomDictionaryName(0x6001, 0x3000), nullptr);
    EXPECT_STREQ(dicom::dicomDictionaryName(0x6000, 0x3000), "overlay data");
}

TEST(Dictionary, UnknownNamesAreNotFound)
{
    uint16_t g = 1, e = 1;
    EXPECT_FALSE(dicom::dicomDictionaryFind("no such attribute", &g, &e));
    EXPECT_FALSE(dicom::dicomDictionaryFind("SliceLocation", &g, &e)) << "keywords are not names";
    EXPECT_FALSE(dicom::dicomDictionaryFind(nullptr, &g, &e));
    EXPECT_EQ(g, 1);
    EXPECT_EQ(e, 1);
}

TEST(Dictionary, NamesAreStableAcrossCalls)
{
    const char *first = dicom::dicomDictionaryName(0x0010, 0x0020);
    const char *second = dicom::dicomDictionaryName(0x0010, 0x0020);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "patient id");
}

// pydicom's dictionary is an independent source: every public tag both know
// must have our name equal to pydicom's keyword without its word breaks, and
// the same VR.
TEST(Dictionary, AgreesWithPydicomKeywordsAndVRs)
{
    if (!vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "pydicom is not installed for " VX_PYTHON;
    const std::string script =
        "import pydicom.datadict as d\n"
        "for tag, (vr, vm, name, retired, kw) in d.DicomDictionary.items():\n"
        "    if kw: print('%08X %s %s' % (tag, vr.replace(' ', ''), kw))\n";
    vxtest::TempDir dir;
    const std::string py = dir.file("dict.py");
    vxtest::writeFileBytes(py, std::vector<unsigned char>(script.begin(), script.end()));
    std::string out;
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) + " " + py, &out), 0);

    int compared = 0;
    std::vector<std::string> nameDiffs, vrDiffs;
    std::istringstream lines(out);
    std::string tagText, vr, keyword;
    const std::map<std::string, dicom::valRep> vrs = {
        {"AE", dicom::AE},     {"AS", dicom::AS},        {"AT", dicom::AT},
        {"CS", dicom::CS},     {"DA", dicom::DA},        {"DS", dicom::DS},
        {"DT", dicom::DT},     {"FL", dicom::FL},        {"FD", dicom::FD},
        {"IS", dicom::IS},     {"LO", dicom::LO},        {"LT", dicom::LT},
        {"PN", dicom::PN},     {"SH", dicom::SH},        {"SL", dicom::SL},
        {"SS", dicom::SS},     {"ST", dicom::ST},        {"TM", dicom::TM},
        {"UI", dicom::UI},     {"UL", dicom::UL},        {"US", dicom::US},
        {"OB", dicom::OB},     {"OW", dicom::OW},        {"SQ", dicom::SQ},
        {"UT", dicom::UT},     {"USorSS", dicom::US},    {"OBorOW", dicom::OW},
        {"USorOW", dicom::OW}, {"USorSSorOW", dicom::OW}};
    while (lines >> tagText >> vr >> keyword) {
        const unsigned long tag = std::stoul(tagText, nullptr, 16);
        const uint16_t g = uint16_t(tag >> 16), e = uint16_t(tag & 0xFFFF);
        const char *name = dicom::dicomDictionaryName(g, e);
        if (!name)
            continue; // newer than DCMTK 3.6.7's dictionary
        ++compared;
        std::string joined;
        for (const char *p = name; *p; ++p)
            if (*p != ' ')
                joined += *p;
        std::string lowerKeyword;
        for (char c : keyword)
            lowerKeyword += char(std::tolower(static_cast<unsigned char>(c)));
        if (joined != lowerKeyword)
            nameDiffs.push_back(tagText + " " + name + " / " + keyword);
        auto it = vrs.find(vr);
        if (it != vrs.end() && it->second != dicom::dicomDictionaryType(g, e))
            vrDiffs.push_back(tagText + " " + vr);
    }
    EXPECT_GT(compared, 4000);
    EXPECT_TRUE(nameDiffs.empty()) << nameDiffs.size() << " names differ, first: " << nameDiffs[0];
    EXPECT_TRUE(vrDiffs.empty()) << vrDiffs.size() << " VRs differ, first: " << vrDiffs[0];
}

} // namespace
