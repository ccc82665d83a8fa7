#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <fstream>

// Preferences round-trip as INI that configparser reads; hand-written files and bad units too.
TEST(VxPreferencesTest, StoredRecordIsPlainIniBothWays)
{
    vxtest::TempDir dir;
    const std::string ini = dir.file("prefs.ini");
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    auto reread = [&] { return settings->setStorageFile(ini), settings->getPreferences(); };
    VxPreferences p;
    p.dicomLoadOptions = "<32|19|2|31|series instance uid><-1|-1|1|1|file name>";
    p.lengthUnit = 0.001f;
    p.anonymize = true;
    settings->setStorageFile(ini);
    settings->setPreferences(p, false);
    const VxPreferences q = reread();
    EXPECT_EQ(std::tuple(q.dicomLoadOptions, q.lengthUnit, q.anonymize),
              std::tuple(p.dicomLoadOptions, 0.001f, true));
    std::string out;
    vxtest::runCommand(
        VX_PYTHON " -c \"import configparser,sys; c=configparser.ConfigParser("
                  "interpolation=None); c.read(sys.argv[1]); d=c['DICOM']; print(d['LengthUnit'], "
                  "d['Anonymize'], d['LoadOptions'])\" " +
            vxtest::shellQuote(ini),
        &out, true);
    EXPECT_EQ(out, "0.001 true <32|19|2|31|series instance uid><-1|-1|1|1|file name>\n");

    std::ofstream(ini) << "[DICOM]\nLoadOptions=\"<32|17|4|31|instance number>\"\n"
                          "LengthUnit=0.001\nAnonymize=false\n";
    const VxPreferences h = reread();
    EXPECT_EQ(std::tuple(h.dicomLoadOptions, h.lengthUnit, h.anonymize),
              std::tuple(KcString("<32|17|4|31|instance number>"), 0.001f, false));
    for (const char *bad : {"-1", "0", "abc", "nan"}) {
        std::ofstream(ini) << "[DICOM]\nLengthUnit=" << bad << "\n";
        EXPECT_FLOAT_EQ(reread().lengthUnit, 0.01f) << bad;
    }
}
