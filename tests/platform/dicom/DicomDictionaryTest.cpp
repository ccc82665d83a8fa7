// The public dictionary: names are the lower-case words of the keywords.

#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"

#include <sstream>

namespace {

// Every public tag that pydicom's dictionary and ours both know has our name equal to pydicom's
// keyword without its word breaks, the same VR, and is found again by its name.
TEST(Dictionary, AgreesWithPydicomKeywordsAndVRs)
{
    if (!vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "pydicom is not installed for " VX_PYTHON;
    std::string out;
    ASSERT_EQ(
        vxtest::runCommand(
            std::string(VX_PYTHON) + " -c " +
                vxtest::shellQuote("import pydicom.datadict as d\n"
                                   "for t, (vr, vm, n, r, kw) in d.DicomDictionary.items():\n"
                                   "    if kw: print('%08X %s %s' % (t, vr.replace(' ', ''), kw))"),
            &out),
        0);
    // The codes in the order of dicom::valRep; "US or SS" gives US, any choice with OW gives OW.
    const std::string codes =
        "AE AS AT CS DA DS DT FL FD IS LO LT PN SH SL SS ST TM UI UL US OB OW SQ UN UT";
    int compared = 0;
    std::vector<std::string> diffs;
    std::istringstream lines(out);
    for (std::string tag, vr, keyword; lines >> tag >> vr >> keyword;) {
        const unsigned long t = std::stoul(tag, nullptr, 16);
        const uint16_t g = uint16_t(t >> 16), e = uint16_t(t & 0xFFFF);
        const char *name = dicom::dicomDictionaryName(g, e);
        if (!name)
            continue; // newer than DCMTK 3.6.7's dictionary
        ++compared;
        std::string joined, lower;
        for (const char *p = name; *p; ++p)
            if (*p != ' ')
                joined += *p;
        for (char c : keyword)
            lower += char(std::tolower(static_cast<unsigned char>(c)));
        const size_t code = codes.find(vr.find("OW") != std::string::npos ? "OW" : vr.substr(0, 2));
        uint16_t fg = 0, fe = 0;
        if (joined != lower || !dicom::dicomDictionaryContains(g, e) ||
            name != dicom::dicomDictionaryName(g, e) ||
            !dicom::dicomDictionaryFind(name, &fg, &fe) || fg != g || fe != e ||
            (code != std::string::npos &&
             dicom::valRep(code / 3) != dicom::dicomDictionaryType(g, e)))
            diffs.push_back(tag + " " + name + " / " + keyword + " " + vr);
    }
    EXPECT_GT(compared, 4000);
    EXPECT_TRUE(diffs.empty()) << diffs.size() << " differ, first: " << diffs[0];
}

// What pydicom's dictionary does not hold: repeating groups, private tags, unknown tags.
TEST(Dictionary, RepeatingPrivateAndUnknownTags)
{
    const std::tuple<uint16_t, uint16_t, const char *, dicom::valRep> rows[] = {
        {0x6002, 0x3000, "overlay data", dicom::OW}, // 60xx, second overlay
        {0x0029, 0x0010, "private creator", dicom::LO},
        {0x0029, 0x1010, nullptr, dicom::UN}, // Siemens' CSA header: known only with its creator
        {0x0012, 0x7777, nullptr, dicom::UN},
        {0x6001, 0x3000, nullptr, dicom::UN}, // 60xx is only the even groups
    };
    for (const auto &[group, element, name, vr] : rows) {
        SCOPED_TRACE(element);
        EXPECT_EQ(dicom::dicomDictionaryContains(group, element), name != nullptr);
        EXPECT_EQ(dicom::dicomDictionaryType(group, element), vr);
        EXPECT_STREQ(dicom::dicomDictionaryName(group, element), name);
        uint16_t g = 0, e = 0;
        if (name) {
            ASSERT_TRUE(dicom::dicomDictionaryFind(name, &g, &e));
            EXPECT_EQ(e, element);
            EXPECT_EQ(g & 0xFF00, group & 0xFF00) << "repeating groups find their first group";
        }
    }
    uint16_t g = 1, e = 1;
    EXPECT_FALSE(dicom::dicomDictionaryFind("no such attribute", &g, &e));
    EXPECT_FALSE(dicom::dicomDictionaryFind("SliceLocation", &g, &e)) << "keywords are not names";
    EXPECT_FALSE(dicom::dicomDictionaryFind(nullptr, &g, &e));
    EXPECT_EQ(g + e, 2);
}

} // namespace
