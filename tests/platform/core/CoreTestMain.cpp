#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

// Every test of this executable keeps its preferences in a private temporary
// file, so no test can read or change the user's settings.
int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    vxtest::TempDir settingsDir;
    const std::string settingsFile = settingsDir.file("vxdicom.ini");
    setenv("VXDICOM_SETTINGS_FILE", settingsFile.c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settingsFile);
    return RUN_ALL_TESTS();
}
