#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"

#include <sstream>

namespace {

// Tags both dictionaries know: our name is pydicom's keyword spaced, same VR, found by name.
TEST(Dictionary, AgreesWithPydicomKeywordsAndVRs)
{
    VX_REQUIRE(vxtest::havePythonModules({"pydicom"}), "pydicom");
    const char *list =
        "import pydicom.datadict as d; [print('%08X %s %s' % (t, vr.replace(' ', ''), "
        "kw.lower())) for t, (vr, vm, n, r, kw) in d.DicomDictionary.items() if kw]";
    std::string out;
    ASSERT_EQ(vxtest::runCommand(VX_PYTHON " -c " + vxtest::shellQuote(list), &out), 0);
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
        std::string joined = name;
        std::erase(joined, ' ');
        const size_t code = codes.find(vr.find("OW") != std::string::npos ? "OW" : vr.substr(0, 2));
        uint16_t fg = 0, fe = 0;
        if (joined != keyword || !dicom::dicomDictionaryContains(g, e) ||
            !dicom::dicomDictionaryFind(name, &fg, &fe) || fg != g || fe != e ||
            (code != std::string::npos &&
             dicom::valRep(code / 3) != dicom::dicomDictionaryType(g, e)))
            diffs.push_back(tag + " " + name + " / " + keyword + " " + vr);
    }
    EXPECT_GT(compared, 4000);
    EXPECT_TRUE(diffs.empty()) << diffs.size() << " differ, first: " << diffs[0];
}

} // namespace
