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

TEST(VxWorkArea, ObserverSeesEveryStatusAndFraction)
{
    std::vector<std::pair<std::string, float>> seen;
    VxWorkArea::instance()->setObserver([&seen](const std::string &status, float fraction) {
        seen.emplace_back(status, fraction);
    });
    simulateLoad(10);
    VxWorkArea::instance()->setObserver({});

    ASSERT_EQ(seen.size(), 21u);
    EXPECT_EQ(seen[0].first, "loading files...");
    EXPECT_EQ(seen[2].first, "  1. of 10.");
    EXPECT_EQ(seen[20].first, " 10. of 10.");
    EXPECT_FLOAT_EQ(seen[19].second, 0.9f);
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress());
}

TEST(VxWorkArea, FractionIsClampedToTheUnitInterval)
{
    float last = -1.f;
    VxWorkArea::instance()->setObserver([&last](const std::string &, float f) { last = f; });
    VxWorkArea::instance()->setProgress(1.5f);
    EXPECT_EQ(last, 1.f);
    VxWorkArea::instance()->setProgress(-0.5f);
    EXPECT_EQ(last, 0.f);
    VxWorkArea::instance()->setObserver({});
}

TEST(VxWorkArea, NothingIsWrittenWhenStandardErrorIsNotATerminal)
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
}

TEST(VxWorkArea, DrawsAProgressLineOnATerminal)
{
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
    ssize_t n;
    while ((n = ::read(master, buf, sizeof buf)) > 0)
        drawn.append(buf, static_cast<size_t>(n));
    ::close(master);

    EXPECT_NE(drawn.find("loading files..."), std::string::npos) << drawn;
    EXPECT_NE(drawn.find(" 10. of 10."), std::string::npos) << drawn;
    EXPECT_NE(drawn.find(" 90%"), std::string::npos) << drawn;
    EXPECT_NE(drawn.find("[###########################...]"), std::string::npos) << drawn;
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
