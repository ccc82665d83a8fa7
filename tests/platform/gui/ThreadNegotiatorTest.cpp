#include "platform/gui/ThreadNegotiator.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QThread>

#include <mutex>
#include <stdexcept>

namespace {

// The steps as the forked object saw them, each marked with the thread it ran on.
struct StepLog
{
    void add(const char *step)
    {
        std::lock_guard<std::mutex> lock(mutex);
        steps.push_back(std::string(step) +
                        (QThread::currentThread() == qApp->thread() ? "" : " (worker)"));
    }
    size_t size()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return steps.size();
    }
    std::mutex mutex;
    std::vector<std::string> steps;
};

// putData and exec take a while, so a caller that did not wait would see the log unchanged.
struct RecordingObject : ForkedObject
{
    explicit RecordingObject(StepLog *log) : log(log) { log->add("create"); }
    ~RecordingObject() override { log->add("delete"); }
    void putData() override { QThread::msleep(50), log->add("putData"); }
    int exec() override { return QThread::msleep(50), log->add("exec"), 7; }
    StepLog *log;
};

struct RecordingNegotiator : ThreadNegotiator
{
    explicit RecordingNegotiator(StepLog *log) : log(log) {}
    ForkedObject *create() override { return new RecordingObject(log); }
    StepLog *log;
};

} // namespace

// Called from a worker, each step runs on the GUI thread and returns only when it is done (an
// exception there is rethrown in the worker); the negotiator deletes a remaining object there
// too. On the GUI thread itself every step is a direct call (no event loop runs).
TEST(ThreadNegotiator, StepsRunOnTheGuiThreadAndBlockTheWorker)
{
    StepLog log, left, direct;
    std::vector<size_t> seenAfter;
    int execResult = -1;
    bool workerOnGui = true, thrownOnGui = false;
    std::string caught;
    ASSERT_TRUE(uitest::runOnWorker(
        [&] {
            workerOnGui = ThreadNegotiator::onGuiThread();
            RecordingNegotiator negotiator(&log);
            ForkedObject *made = negotiator.createForkedObject();
            EXPECT_EQ(made, negotiator.forkedObject());
            seenAfter.push_back(log.size());
            negotiator.putData();
            seenAfter.push_back(log.size());
            execResult = negotiator.exec();
            seenAfter.push_back(log.size());
            negotiator.deleteForkedObject();
            seenAfter.push_back(log.size());
            RecordingNegotiator(&left).createForkedObject();
            try {
                ThreadNegotiator::runOnGuiThread([&] {
                    thrownOnGui = QThread::currentThread() == qApp->thread();
                    throw std::runtime_error("dialog could not be built");
                });
            } catch (const std::runtime_error &e) {
                caught = e.what();
            }
        },
        20000));
    EXPECT_FALSE(workerOnGui);
    EXPECT_EQ(execResult, 7);
    EXPECT_EQ(seenAfter, (std::vector<size_t>{1, 2, 3, 4}));
    EXPECT_TRUE(thrownOnGui);
    EXPECT_EQ(caught, "dialog could not be built");
    ASSERT_TRUE(ThreadNegotiator::onGuiThread());
    RecordingNegotiator here(&direct);
    here.createForkedObject();
    here.putData();
    EXPECT_EQ(here.exec(), 7);
    here.deleteForkedObject();
    EXPECT_EQ(here.forkedObject(), nullptr);
    EXPECT_EQ(log.steps, (std::vector<std::string>{"create", "putData", "exec", "delete"}));
    EXPECT_EQ(direct.steps, log.steps);
    EXPECT_EQ(left.steps, (std::vector<std::string>{"create", "delete"}));
}
