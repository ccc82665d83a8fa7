#include "platform/core/VxMessage.h"
#include "platform/gui/ThreadNegotiator.h"
#include "platform/gui/VxWarningDialog.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <thread>

// This executable never creates an application object, as a host without Qt (or a plain
// command-line tool) would run.
namespace {

struct ThreadRecorder : ForkedObject
{
    explicit ThreadRecorder(std::vector<std::thread::id> *seen) : seen(seen) { putData(); }
    ~ThreadRecorder() override { putData(); }
    void putData() override { seen->push_back(std::this_thread::get_id()); }
    int exec() override { return putData(), 3; }
    std::vector<std::thread::id> *seen;
};

struct RecorderNegotiator : ThreadNegotiator
{
    explicit RecorderNegotiator(std::vector<std::thread::id> *seen) : seen(seen) {}
    ForkedObject *create() override { return new ThreadRecorder(seen); }
    std::vector<std::thread::id> *seen;
};

} // namespace

// Every negotiator step is a direct call on the calling thread. Even a display forced on cannot
// be used without an application object: the question goes to the console with the default.
TEST(NoApplication, StepsAreDirectCallsAndQuestionsGoToTheConsole)
{
    ASSERT_EQ(QCoreApplication::instance(), nullptr);
    std::vector<std::thread::id> seen;
    std::thread::id workerId;
    std::thread worker([&] {
        workerId = std::this_thread::get_id();
        EXPECT_TRUE(ThreadNegotiator::onGuiThread());
        RecorderNegotiator negotiator(&seen);
        negotiator.createForkedObject();
        negotiator.putData();
        EXPECT_EQ(negotiator.exec(), 3);
        negotiator.deleteForkedObject();
    });
    worker.join();
    EXPECT_EQ(seen, std::vector<std::thread::id>(4, workerId));

    EXPECT_FALSE(VxWarningDialog::haveDisplay());
    VxWarningDialog::setDisplayOverride(1);
    VxMessageCapture capture;
    EXPECT_EQ(VxWarningDialog::warning("Overflow", "values overflow", "Ignore scaling",
                                       "Clamp data", "Adjust scaling", 2, 2),
              2);
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(capture.text(),
              "Overflow: values overflow\n-> Adjust scaling (no display; default answer)\n");
}
