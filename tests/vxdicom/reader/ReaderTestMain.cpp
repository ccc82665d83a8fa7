#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// Widgets run offscreen and the preferences live in a private temporary file.
// The reader's environment switches are cleared so that a developer's shell
// cannot change what the tests expect; tests that need one set it themselves.
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
    for (const char *name : {"ZENTA_MHT_STEREOTAXIS", "ZENTA_ZIEHM_RECONSTRUCTION",
                             "DICOM_DELAYED_READ", "DICOM_EPS_ORIENTATION"})
        unsetenv(name);
    setDicomUnitFactor(0.1f);

    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
