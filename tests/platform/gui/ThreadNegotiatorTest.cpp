#include "platform/gui/ThreadNegotiator.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QThread>

#include <atomic>
#include <stdexcept>

namespace {

// The steps as the forked object saw them, each marked with the thread it ran on.
struct StepLog
{
    void add(const char *step)
    {
        steps.push_back(step + std::string(QThread::currentThread() == qApp->thread() ? "" : "?"));
        ++count;
    }
    std::vector<std::string> steps;
    std::atomic<size_t> count{0};
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
// too. On the GUI thread itself a step is a direct call (no event loop runs).
TEST(ThreadNegotiator, StepsRunOnTheGuiThreadAndBlockTheWorker)
{
    StepLog log, left;
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
            seenAfter.push_back(log.count);
            negotiator.putData();
            seenAfter.push_back(log.count);
            execResult = negotiator.exec();
            seenAfter.push_back(log.count);
            negotiator.deleteForkedObject();
            seenAfter.push_back(log.count);
            EXPECT_EQ(negotiator.forkedObject(), nullptr);
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
    EXPECT_EQ(log.steps, (std::vector<std::string>{"create", "putData", "exec", "delete"}));
    EXPECT_EQ(left.steps, (std::vector<std::string>{"create", "delete"}));
    StepLog direct;
    EXPECT_EQ(RecordingNegotiator(&direct).exec(), 0) << "no object, no exec";
    RecordingNegotiator here(&direct);
    here.createForkedObject();
    EXPECT_EQ(here.exec(), 7);
    here.deleteForkedObject();
    EXPECT_EQ(direct.steps, (std::vector<std::string>{"create", "exec", "delete"}));
}
