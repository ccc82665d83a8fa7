#include "platform/gui/VxWarningDialog.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QMessageBox>
#include <QTest>

// Escape and Return answer the box, also asked by a worker (then shown on the GUI thread).
TEST(VxWarningDialog, EscapeAndReturnAnswerTheBoxAlsoWhenAWorkerAsks)
{
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
