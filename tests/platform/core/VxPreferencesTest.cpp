#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace {

// Each test gets its own INI file; the executable's main() has already moved
// the store away from the user's settings.
class VxPreferencesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        previous = VxSettingsMgr::getInstance()->storageFile();
        iniPath = dir.file("prefs.ini");
        VxSettingsMgr::getInstance()->setStorageFile(iniPath);
    }
    void TearDown() override { VxSettingsMgr::getInstance()->setStorageFile(previous); }

    vxtest::TempDir dir;
    std::string iniPath;
    KcString previous;
};

} // namespace

TEST_F(VxPreferencesTest, MissingFileGivesTheDefaults)
{
    const VxPreferences p = VxSettingsMgr::getInstance()->getPreferences();
    EXPECT_EQ(p.dicomLoadOptions, "");
    EXPECT_FLOAT_EQ(p.lengthUnit, 0.01f);
    EXPECT_FALSE(p.anonymize);
    EXPECT_EQ(VxSettingsMgr::getInstance()->storageFile(), iniPath);
}

TEST_F(VxPreferencesTest, StoredRecordSurvivesRereadingTheFile)
{
    VxPreferences p;
    p.dicomLoadOptions = "<32|19|2|31|series instance uid><-1|-1|1|1|file name>";
    p.lengthUnit = 0.001f;
    p.anonymize = true;
    VxSettingsMgr::getInstance()->setPreferences(p, false);

    // Re-reading from the file, not from memory.
    VxSettingsMgr::getInstance()->setStorageFile(iniPath);
    const VxPreferences q = VxSettingsMgr::getInstance()->getPreferences();
    EXPECT_EQ(q.dicomLoadOptions, p.dicomLoadOptions);
    EXPECT_EQ(q.lengthUnit, 0.001f);
    EXPECT_TRUE(q.anonymize);
}

TEST_F(VxPreferencesTest, FileIsPlainIniThatPythonReads)
{
    if (!vxtest::haveProgram(VX_PYTHON))
        GTEST_SKIP() << VX_PYTHON << " is not installed";
    VxPreferences p;
    p.dicomLoadOptions = "<8|96|2|31|modality>";
    p.lengthUnit = 0.01f;
    p.anonymize = false;
    VxSettingsMgr::getInstance()->setPreferences(p);

    std::string out;
    const std::string script =
        "import configparser,sys; c=configparser.ConfigParser(interpolation=None); "
        "c.read(sys.argv[1]); "
        "d=c['DICOM']; print(d['LengthUnit']); print(d['Anonymize']); print(d['LoadOptions'])";
    ASSERT_EQ(vxtest::runCommand(
                  std::string(VX_PYTHON) + " -c \"" + script + "\" '" + iniPath + "'", &out),
              0)
        << out;
    EXPECT_EQ(out, "0.01\nfalse\n<8|96|2|31|modality>\n");
}

TEST_F(VxPreferencesTest, HandWrittenIniIsRead)
{
    {
        std::ofstream ini(iniPath);
        ini << "[DICOM]\nLoadOptions=\"<32|17|4|31|instance "
               "number>\"\nLengthUnit=0.001\nAnonymize=true\n";
    }
    VxSettingsMgr::getInstance()->setStorageFile(iniPath);
    const VxPreferences p = VxSettingsMgr::getInstance()->getPreferences();
    EXPECT_EQ(p.dicomLoadOptions, "<32|17|4|31|instance number>");
    EXPECT_EQ(p.lengthUnit, 0.001f);
    EXPECT_TRUE(p.anonymize);
}

TEST_F(VxPreferencesTest, NonsenseLengthUnitFallsBackToCentimetres)
{
    for (const char *bad : {"-1", "0", "abc", "nan"}) {
        {
            std::ofstream ini(iniPath);
            ini << "[DICOM]\nLengthUnit=" << bad << "\n";
        }
        VxSettingsMgr::getInstance()->setStorageFile(iniPath);
        EXPECT_FLOAT_EQ(VxSettingsMgr::getInstance()->getPreferences().lengthUnit, 0.01f) << bad;
    }
}

TEST(VxPreferencesIsolation, TestExecutableNeverUsesTheUsersSettings)
{
    const KcString file = VxSettingsMgr::getInstance()->storageFile();
    const char *home = std::getenv("HOME");
    ASSERT_FALSE(file.empty());
    if (home && *home) {
        EXPECT_FALSE(file.startsWith((std::string(home) + "/.config").c_str())) << file;
    }
    const char *env = std::getenv("VXDICOM_SETTINGS_FILE");
    ASSERT_NE(env, nullptr);
    EXPECT_EQ(file, env);
}
