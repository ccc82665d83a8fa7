#include "platform/gui/VxWarningDialog.h"
#include "platform/core/VxMessage.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QMessageBox>
#include <QTest>

// Without a display (the offscreen platform counts as none) the question is printed and the
// default taken (one that names no button gives the first there is); with one, Escape gives the
// escape button and Return the default, also when asked from a worker thread. (The overflow
// question's buttons, clicks and printed default are checked by the DICOM field creation tests.)
TEST(VxWarningDialog, AnswersByDefaultWithoutDisplayAndByTheUserWithOne)
{
    EXPECT_FALSE(QGuiApplication::platformName() == QLatin1String("offscreen") &&
                 VxWarningDialog::haveDisplay());
    VxWarningDialog::setDisplayOverride(0);
    VxMessageCapture capture;
    EXPECT_EQ(VxWarningDialog::warning("t", "x", "Yes", "No", QString(), 2), 0);
    EXPECT_EQ(VxWarningDialog::warning("t", "x", QString(), "Only", QString(), 0), 1);
    EXPECT_EQ(VxWarningDialog::warning("t", "x", QString()), 0);
    VxWarningDialog::information("DICOM Loader", "Stack might contain no images!");
    EXPECT_EQ(capture.text(), "t: x\n-> Yes (no display; default answer)\n"
                              "t: x\n-> Only (no display; default answer)\n"
                              "t: x\n-> OK (no display; default answer)\n"
                              "DICOM Loader: Stack might contain no images!\n");

    VxWarningDialog::setDisplayOverride(1);
    bool boxOnGui = false;
    auto press = [&boxOnGui](Qt::Key key) {
        uitest::when([] { return qobject_cast<QMessageBox *>(QApplication::activeModalWidget()); },
                     [&boxOnGui, key] {
                         QWidget *box = QApplication::activeModalWidget();
                         boxOnGui = box->thread() == qApp->thread();
                         QTest::keyClick(box, key);
                     });
    };
    press(Qt::Key_Escape);
    EXPECT_EQ(VxWarningDialog::warning("Stack", "Revert?", "Yes", "No", QString(), 0, 1), 1)
        << "Escape gives the escape button";
    boxOnGui = false;
    press(Qt::Key_Return);
    int answer = -1;
    EXPECT_TRUE(uitest::runOnWorker(
        [&] { answer = VxWarningDialog::warning("Stack", "Revert?", "Yes", "No", "Later", 2, 1); },
        20000));
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(answer, 2) << "Return gives the default button";
    EXPECT_TRUE(boxOnGui);
}
