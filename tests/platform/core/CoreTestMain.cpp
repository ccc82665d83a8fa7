#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

// Preferences live in a private temporary file: no test reads or changes the user's settings.
int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    vxtest::TempDir settingsDir;
    const std::string settingsFile = settingsDir.file("vxdicom.ini");
    setenv("VXDICOM_SETTINGS_FILE", settingsFile.c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settingsFile);
    return RUN_ALL_TESTS();
}
