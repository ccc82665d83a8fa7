#include "platform/core/VxWorkArea.h"

#include <gtest/gtest.h>

#include <csignal>

static volatile sig_atomic_t gHandlerCalls = 0;

// Ctrl-C during progress only sets the interrupt; then the old handler is back.
TEST(VxWorkArea, TakesCtrlCWhileShowingProgress)
{
    VxWorkArea *work = VxWorkArea::instance();
    struct sigaction mine = {}, before = {};
    mine.sa_handler = [](int) { gHandlerCalls = gHandlerCalls + 1; };
    ASSERT_EQ(sigaction(SIGINT, &mine, &before), 0);
    work->startProgress();
    EXPECT_FALSE(work->wasInterrupted());
    std::raise(SIGINT);
    EXPECT_TRUE(work->wasInterrupted());
    EXPECT_EQ(gHandlerCalls, 0) << "the work area takes Ctrl-C while progress is shown";
    work->endProgress();
    std::raise(SIGINT);
    EXPECT_EQ(gHandlerCalls, 1);
    sigaction(SIGINT, &before, nullptr);
    work->startProgress();
    EXPECT_FALSE(work->wasInterrupted());
    work->endProgress();
}
