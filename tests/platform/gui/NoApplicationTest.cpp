#include "platform/core/VxMessage.h"
#include "platform/gui/ThreadNegotiator.h"
#include "platform/gui/VxWarningDialog.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <thread>

// Without an application, steps are direct calls and questions go to the console.
TEST(NoApplication, StepsAreDirectCallsAndQuestionsGoToTheConsole)
{
    ASSERT_EQ(QCoreApplication::instance(), nullptr);
    std::thread::id ranOn;
    std::thread worker([&] {
        EXPECT_TRUE(ThreadNegotiator::onGuiThread());
        ThreadNegotiator::runOnGuiThread([&] { ranOn = std::this_thread::get_id(); });
    });
    const std::thread::id workerId = worker.get_id();
    worker.join();
    EXPECT_EQ(ranOn, workerId);

    EXPECT_FALSE(VxWarningDialog::haveDisplay());
    VxWarningDialog::setDisplayOverride(1);
    VxMessageCapture capture;
    EXPECT_EQ(VxWarningDialog::warning("Overflow", "values overflow", "Ignore scaling",
                                       "Clamp data", "Adjust scaling", 2, 2),
              2);
    EXPECT_EQ(VxWarningDialog::warning("t", "x", QString(), "Only", QString(), 2), 1);
    EXPECT_EQ(VxWarningDialog::warning("t", "x", QString()), 0);
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(capture.text(), "Overflow: values overflow\n-> Adjust scaling (no display; default "
                              "answer)\nt: x\n-> Only (no display; default answer)\n"
                              "t: x\n-> OK (no display; default answer)\n");
}
