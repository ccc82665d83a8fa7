#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// The widgets run offscreen, and every test keeps its preferences in a
// private temporary file, so no test can read or change the user's settings.
int main(int argc, char **argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    vxtest::TempDir runtimeDir;
    std::filesystem::permissions(runtimeDir.path(), std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", runtimeDir.path().c_str(), 0);
    vxtest::TempDir settingsDir;
    const std::string settingsFile = settingsDir.file("vxdicom.ini");
    setenv("VXDICOM_SETTINGS_FILE", settingsFile.c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settingsFile);
    // The stack-break defaults depend on these; a developer's shell must not
    // change what the tests expect.
    unsetenv("ZENTA_MHT_STEREOTAXIS");
    unsetenv("ZENTA_ZIEHM_RECONSTRUCTION");

    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
