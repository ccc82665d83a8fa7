// The public dictionary: names are the lower-case words of the keywords.

#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"

#include <sstream>

namespace {

TEST(Dictionary, NamesVrsAndLookupsOfSpecialCases)
{
    const struct
    {
        uint16_t group, element;
        const char *name; ///< nullptr: not in the public dictionary
        dicom::valRep vr;
    } rows[] = {
        {0x0008, 0x0018, "sop instance uid", dicom::UI},           // leading and trailing acronyms
        {0x0028, 0x0106, "smallest image pixel value", dicom::US}, // US or SS gives US
        {0x7FE0, 0x0010, "pixel data", dicom::OW},                 // OB or OW gives OW
        {0x0018, 0x9504, "x ray 3d frame type sequence", dicom::SQ}, // digit before an acronym
        {0x0008, 0x0001, "length to end", dicom::UL}, // retired: DCMTK's prefix is dropped
        {0x6002, 0x3000, "overlay data", dicom::OW},  // repeating group 60xx, second overlay
        {0x0029, 0x0010, "private creator", dicom::LO},
        {0x0029, 0x1010, nullptr, dicom::UN}, // Siemens' CSA header: known only with its creator
        {0x0012, 0x7777, nullptr, dicom::UN}, // a group no edition has used
        {0x6001, 0x3000, nullptr, dicom::UN}, // 60xx is only the even groups
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name ? r.name : "none");
        const char *name = dicom::dicomDictionaryName(r.group, r.element);
        EXPECT_EQ(dicom::dicomDictionaryContains(r.group, r.element), r.name != nullptr);
        EXPECT_EQ(dicom::dicomDictionaryType(r.group, r.element), r.vr);
        if (!r.name) {
            EXPECT_EQ(name, nullptr);
            continue;
        }
        EXPECT_STREQ(name, r.name);
        EXPECT_EQ(name, dicom::dicomDictionaryName(r.group, r.element)) << "stable pointer";
        uint16_t g = 0, e = 0;
        ASSERT_TRUE(dicom::dicomDictionaryFind(r.name, &g, &e));
        EXPECT_EQ(e, r.element);
        EXPECT_EQ(g & 0xFF00, r.group & 0xFF00) << "repeating groups find their first group";
    }
    uint16_t g = 1, e = 1;
    EXPECT_FALSE(dicom::dicomDictionaryFind("no such attribute", &g, &e));
    EXPECT_FALSE(dicom::dicomDictionaryFind("SliceLocation", &g, &e)) << "keywords are not names";
    EXPECT_FALSE(dicom::dicomDictionaryFind(nullptr, &g, &e));
    EXPECT_EQ(g + e, 2);
}

// Every public tag that pydicom's dictionary and ours both know has our name
// equal to pydicom's keyword without its word breaks, and the same VR.
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
        if (joined != lower || (code != std::string::npos &&
                                dicom::valRep(code / 3) != dicom::dicomDictionaryType(g, e)))
            diffs.push_back(tag + " " + name + " / " + keyword + " " + vr);
    }
    EXPECT_GT(compared, 4000);
    EXPECT_TRUE(diffs.empty()) << diffs.size() << " differ, first: " << diffs[0];
}

} // namespace
