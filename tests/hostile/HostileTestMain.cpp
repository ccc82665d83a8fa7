#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// The real pipeline: the import dialog builds the stacks silently with a private preferences
// file; the reader's environment switches are cleared.
int main(int argc, char **argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    vxtest::TempDir runtimeDir, settingsDir;
    std::filesystem::permissions(runtimeDir.path(), std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", runtimeDir.path().c_str(), 0);
    setenv("VXDICOM_SETTINGS_FILE", settingsDir.file("vxdicom.ini").c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settingsDir.file("vxdicom.ini"));
    for (const char *name : {"ZENTA_MHT_STEREOTAXIS", "ZENTA_ZIEHM_RECONSTRUCTION",
                             "DICOM_DELAYED_READ", "DICOM_EPS_ORIENTATION"})
        unsetenv(name);
    QApplication app(argc, argv);
    registerDicomImportDialog();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
