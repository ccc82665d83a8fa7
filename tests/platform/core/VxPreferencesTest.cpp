#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

// What is stored comes back from the file, not from memory; the file is plain
// INI that Python's configparser reads, and one written by hand is read.
TEST(VxPreferencesTest, StoredRecordIsPlainIniBothWays)
{
    vxtest::TempDir dir;
    const std::string iniPath = dir.file("prefs.ini");
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    const KcString previous = settings->storageFile();
    auto reread = [&] { return settings->setStorageFile(iniPath), settings->getPreferences(); };
    settings->setStorageFile(iniPath);
    VxPreferences p;
    p.dicomLoadOptions = "<32|19|2|31|series instance uid><-1|-1|1|1|file name>";
    p.lengthUnit = 0.001f;
    p.anonymize = true;
    settings->setPreferences(p, false);
    const VxPreferences q = reread();
    EXPECT_EQ(q.dicomLoadOptions, p.dicomLoadOptions);
    EXPECT_EQ(q.lengthUnit, 0.001f);
    EXPECT_TRUE(q.anonymize);

    // A file written by hand is read; a length unit that is no length gives cm.
    std::ofstream(iniPath)
        << "[DICOM]\nLoadOptions=\"<32|17|4|31|instance number>\"\nLengthUnit=0.001\n"
           "Anonymize=false\n";
    const VxPreferences h = reread();
    EXPECT_EQ(h.dicomLoadOptions, "<32|17|4|31|instance number>");
    EXPECT_EQ(h.lengthUnit, 0.001f);
    EXPECT_FALSE(h.anonymize);
    for (const char *bad : {"-1", "0", "abc", "nan"}) {
        std::ofstream(iniPath) << "[DICOM]\nLengthUnit=" << bad << "\n";
        EXPECT_FLOAT_EQ(reread().lengthUnit, 0.01f) << bad;
    }
    settings->setPreferences(p, false);
    std::string out;
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) +
                                     " -c \"import configparser,sys; "
                                     "c=configparser.ConfigParser(interpolation=None); "
                                     "c.read(sys.argv[1]); d=c['DICOM']; print(d['LengthUnit']); "
                                     "print(d['Anonymize']); print(d['LoadOptions'])\" " +
                                     vxtest::shellQuote(iniPath),
                                 &out),
              0)
        << out;
    EXPECT_EQ(out, "0.001\ntrue\n<32|19|2|31|series instance uid><-1|-1|1|1|file name>\n");
    settings->setStorageFile(previous);
}
