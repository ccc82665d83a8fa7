#include "platform/core/VxWorkArea.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Points standard error at another descriptor for the lifetime of the object.
class StderrRedirect
{
public:
    explicit StderrRedirect(int fd) : saved(::dup(STDERR_FILENO)) { ::dup2(fd, STDERR_FILENO); }
    ~StderrRedirect()
    {
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);
    }

private:
    int saved;
};

volatile sig_atomic_t gTestHandlerCalls = 0;
extern "C" void countingHandler(int)
{
    gTestHandlerCalls = gTestHandlerCalls + 1;
}

// The pipeline's use of the work area for `files` files, as the reader does it.
void simulateLoad(int files)
{
    VxWorkArea *work = VxWorkArea::instance();
    work->startProgress();
    work->setStatus("loading files...");
    for (int i = 0; i < files; ++i) {
        work->setProgress(static_cast<float>(i) / static_cast<float>(files));
        char text[64];
        std::snprintf(text, sizeof text, "%3d. of %d.", i + 1, files);
        work->setStatus(text);
    }
    work->endProgress();
}

} // namespace

// A progress line is drawn on a terminal, and nothing is written to a file.
TEST(VxWorkArea, DrawsAProgressLineOnlyOnATerminal)
{
    vxtest::TempDir dir;
    const std::string path = dir.file("stderr.txt");
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    {
        StderrRedirect redirect(fd);
        simulateLoad(12);
    }
    ::close(fd);
    EXPECT_TRUE(vxtest::readFileBytes(path).empty());

    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
        GTEST_SKIP() << "no pseudo terminal available";
    const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
    ASSERT_GE(slave, 0);
    {
        StderrRedirect redirect(slave);
        simulateLoad(10);
    }
    ::close(slave);
    std::string drawn;
    ::fcntl(master, F_SETFL, O_NONBLOCK);
    char buf[4096];
    for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;)
        drawn.append(buf, static_cast<size_t>(n));
    ::close(master);
    for (const char *part :
         {"loading files...", " 10. of 10.", " 90%", "[###########################...]"})
        EXPECT_NE(drawn.find(part), std::string::npos) << drawn;
}

TEST(VxWorkArea, CtrlCWhileShowingProgressSetsTheInterruptOnly)
{
    struct sigaction mine = {}, before = {};
    mine.sa_handler = countingHandler;
    sigemptyset(&mine.sa_mask);
    ASSERT_EQ(sigaction(SIGINT, &mine, &before), 0);
    gTestHandlerCalls = 0;

    VxWorkArea *work = VxWorkArea::instance();
    work->startProgress();
    EXPECT_FALSE(work->wasInterrupted());
    std::raise(SIGINT);
    EXPECT_TRUE(work->wasInterrupted());
    EXPECT_EQ(gTestHandlerCalls, 0) << "the work area takes Ctrl-C while progress is shown";
    work->endProgress();

    // Afterwards the previous handler is back.
    std::raise(SIGINT);
    EXPECT_EQ(gTestHandlerCalls, 1);

    // A new progress display starts without the old interrupt.
    work->startProgress();
    EXPECT_FALSE(work->wasInterrupted());
    work->interrupt();
    EXPECT_TRUE(work->wasInterrupted());
    work->endProgress();
    sigaction(SIGINT, &before, nullptr);
}
