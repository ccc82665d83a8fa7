#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"

#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    const vxtest::IsolatedEnvironment environment;
    QApplication app(argc, argv);
    // As in the program: a dialog that closes must not end the loop.
    app.setQuitOnLastWindowClosed(false);
    registerDicomImportDialog();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
