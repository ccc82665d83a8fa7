#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>

#include <cstdlib>

// Widgets run on Qt's offscreen platform unless a platform is asked for, and
// the preferences live in a private temporary file.
int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    vxtest::TempDir scratch;
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    setenv("XDG_RUNTIME_DIR", scratch.path().c_str(), 0);
    const std::string settingsFile = scratch.file("vxdicom.ini");
    setenv("VXDICOM_SETTINGS_FILE", settingsFile.c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settingsFile);
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
