#include "platform/core/VxWorkArea.h"
#include "platform/core/KcString.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
volatile sig_atomic_t gHandlerCalls = 0;
extern "C" void countingHandler(int)
{
    gHandlerCalls = gHandlerCalls + 1;
}
} // namespace

// Ctrl-C while progress is shown only sets the interrupt that long work looks at; afterwards the
// previous handler is back. On a terminal progress is drawn as one line with a bar.
TEST(VxWorkArea, DrawsProgressOnATerminalAndTakesCtrlCWhileShowingIt)
{
    VxWorkArea *work = VxWorkArea::instance();
    struct sigaction mine = {}, before = {};
    mine.sa_handler = countingHandler;
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

    const int master = ::posix_openpt(O_RDWR | O_NOCTTY), saved = ::dup(STDERR_FILENO);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
        GTEST_SKIP() << "no pseudo terminal available";
    const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
    ::dup2(slave, STDERR_FILENO);
    work->startProgress();
    EXPECT_FALSE(work->wasInterrupted()) << "a new display starts without the old interrupt";
    for (int i = 0; i < 10; ++i) {
        work->setProgress(i / 10.0f);
        work->setStatus(KcString::format("%3d. of %d.", i + 1, 10).c_str());
    }
    work->endProgress();
    ::dup2(saved, STDERR_FILENO);
    for (int fd : {saved, slave})
        ::close(fd);
    std::string drawn;
    char buf[4096];
    ::fcntl(master, F_SETFL, O_NONBLOCK);
    for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;)
        drawn.append(buf, size_t(n));
    ::close(master);
    for (const char *part :
         {"  1. of 10.", " 10. of 10.", " 90%", "[###########################...]"})
        EXPECT_NE(drawn.find(part), std::string::npos) << drawn;
}
