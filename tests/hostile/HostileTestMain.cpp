#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// The loads run the real pipeline: the import dialog of the browser builds
// the stacks silently, offscreen, with the default stack-break criteria from
// a private preferences file. The reader's environment switches are cleared
// so that a developer's shell cannot change what the tests expect.
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

    QApplication app(argc, argv);
    registerDicomImportDialog();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
