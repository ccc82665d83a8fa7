#include "platform/gui/VxWarningDialog.h"
#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <functional>
#include <thread>

namespace {

// While alive, answers every message box that comes up with `act`.
struct BoxAnswerer
{
    explicit BoxAnswerer(std::function<void(QMessageBox *)> act)
    {
        QObject::connect(&timer, &QTimer::timeout, [this, act] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                seen = box;
                defaultText = box->defaultButton() ? box->defaultButton()->text() : QString();
                buttonCount = static_cast<int>(box->buttons().size());
                act(box);
            }
        });
        timer.start(10);
    }
    QMessageBox *seen = nullptr;
    QString defaultText;
    int buttonCount = 0;
    QTimer timer;
};

} // namespace

// Without a display (the offscreen platform counts as none) the question is
// printed and the default taken (one that names no button gives the first
// there is); with one, the answer is the button the user clicks or the key
// pressed, also when asked from a worker thread.
TEST(VxWarningDialog, AnswersByDefaultWithoutDisplayAndByTheUserWithOne)
{
    const char *overflow = "According to the DICOM header the pixel values should be linearly "
                           "scaled.\nHowever, after applying the scaling an overflow would occur.";
    if (QGuiApplication::platformName() == QLatin1String("offscreen")) {
        EXPECT_FALSE(VxWarningDialog::haveDisplay());
    }
    VxWarningDialog::setDisplayOverride(0);
    {
        VxMessageCapture capture;
        EXPECT_EQ(VxWarningDialog::warning("Overflow", overflow, "Ignore scaling", "Clamp data",
                                           "Adjust scaling", 2, 2),
                  2);
        EXPECT_EQ(VxWarningDialog::warning("t", "x", "Yes", "No", QString(), 2), 0);
        EXPECT_EQ(VxWarningDialog::warning("t", "x", QString(), "Only", QString(), 0), 1);
        EXPECT_EQ(VxWarningDialog::warning("t", "x", QString()), 0);
        VxWarningDialog::information("DICOM Loader", "Stack might contain no images!");
        EXPECT_EQ(capture.text(), std::string("Overflow: ") + overflow +
                                      "\n-> Adjust scaling (no display; default answer)\n"
                                      "t: x\n-> Yes (no display; default answer)\n"
                                      "t: x\n-> Only (no display; default answer)\n"
                                      "t: x\n-> OK (no display; default answer)\n"
                                      "DICOM Loader: Stack might contain no images!\n");
    }
    VxWarningDialog::setDisplayOverride(1);
    {
        BoxAnswerer answerer([](QMessageBox *box) {
            for (QAbstractButton *b : box->buttons())
                if (b->text() == "Clamp data")
                    b->click();
        });
        EXPECT_EQ(VxWarningDialog::warning("Overflow", overflow, "Ignore scaling", "Clamp data",
                                           "Adjust scaling", 2, 2),
                  1);
        ASSERT_NE(answerer.seen, nullptr);
        EXPECT_EQ(answerer.defaultText, "Adjust scaling");
        EXPECT_EQ(answerer.buttonCount, 3);
    }
    {
        BoxAnswerer answerer([](QMessageBox *box) { QTest::keyClick(box, Qt::Key_Escape); });
        EXPECT_EQ(VxWarningDialog::warning("Stack", "Revert?", "Yes", "No", QString(), 0, 1), 1)
            << "Escape gives the escape button";
    }
    bool boxOnGui = false;
    BoxAnswerer answerer([&boxOnGui](QMessageBox *box) {
        boxOnGui = box->thread() == qApp->thread();
        QTest::keyClick(box, Qt::Key_Return);
    });
    int answer = -1;
    QEventLoop loop;
    std::thread worker([&] {
        answer = VxWarningDialog::warning("Stack", "Revert?", "Yes", "No", "Later", 2, 1);
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    loop.exec();
    worker.join();
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(answer, 2) << "Return gives the default button";
    EXPECT_TRUE(boxOnGui);
}
