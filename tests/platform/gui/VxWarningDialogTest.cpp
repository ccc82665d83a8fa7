#include "platform/gui/VxWarningDialog.h"
#include "platform/core/VxMessage.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QEventLoop>
#include <QMessageBox>
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
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget()))
                act(box);
        });
        timer.start(10);
    }
    QTimer timer;
};

} // namespace

// Without a display (the offscreen platform counts as none) the question is
// printed and the default taken (one that names no button gives the first
// there is); with one, Escape gives the escape button and Return the default,
// also when asked from a worker thread. (The overflow question's buttons,
// clicks and printed default are checked by the DICOM field creation tests.)
TEST(VxWarningDialog, AnswersByDefaultWithoutDisplayAndByTheUserWithOne)
{
    if (QGuiApplication::platformName() == QLatin1String("offscreen")) {
        EXPECT_FALSE(VxWarningDialog::haveDisplay());
    }
    VxWarningDialog::setDisplayOverride(0);
    {
        VxMessageCapture capture;
        EXPECT_EQ(VxWarningDialog::warning("t", "x", "Yes", "No", QString(), 2), 0);
        EXPECT_EQ(VxWarningDialog::warning("t", "x", QString(), "Only", QString(), 0), 1);
        EXPECT_EQ(VxWarningDialog::warning("t", "x", QString()), 0);
        VxWarningDialog::information("DICOM Loader", "Stack might contain no images!");
        EXPECT_EQ(capture.text(), "t: x\n-> Yes (no display; default answer)\n"
                                  "t: x\n-> Only (no display; default answer)\n"
                                  "t: x\n-> OK (no display; default answer)\n"
                                  "DICOM Loader: Stack might contain no images!\n");
    }
    VxWarningDialog::setDisplayOverride(1);
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
