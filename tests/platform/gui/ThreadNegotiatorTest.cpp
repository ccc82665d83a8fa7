#include "platform/gui/ThreadNegotiator.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QThread>

#include <stdexcept>

namespace {

// Logs each step, "?" marking one that ran off the GUI thread. putData and exec take a while, so
// a caller that did not wait for them would not find them logged.
struct RecordingObject : ForkedObject
{
    explicit RecordingObject(std::string *log) : log(log) { add("create"); }
    ~RecordingObject() override { add("delete"); }
    void putData() override { QThread::msleep(50), add("putData"); }
    int exec() override { return QThread::msleep(50), add("exec"), 7; }
    void add(const char *step) { *log += step + std::string(onGui() ? " " : "? "); }
    static bool onGui() { return QThread::currentThread() == qApp->thread(); }
    std::string *log;
};

struct RecordingNegotiator : ThreadNegotiator
{
    explicit RecordingNegotiator(std::string *log) : log(log) {}
    ForkedObject *create() override { return new RecordingObject(log); }
    std::string *log;
};

} // namespace

// Called from a worker, each step runs on the GUI thread and returns only when it is done (an
// exception there is rethrown in the worker); the negotiator deletes a remaining object there
// too.
TEST(ThreadNegotiator, StepsRunOnTheGuiThreadAndBlockTheWorker)
{
    std::string log, left, caught;
    std::vector<std::string> seen;
    ASSERT_TRUE(uitest::runOnWorker(
        [&] {
            RecordingNegotiator negotiator(&log);
            EXPECT_NE(negotiator.createForkedObject(), nullptr);
            seen.push_back(log);
            negotiator.putData();
            seen.push_back(log);
            EXPECT_EQ(negotiator.exec(), 7);
            seen.push_back(log);
            negotiator.deleteForkedObject();
            seen.push_back(log);
            RecordingNegotiator(&left).createForkedObject();
            try {
                ThreadNegotiator::runOnGuiThread(
                    [] { throw std::runtime_error("dialog could not be built"); });
            } catch (const std::runtime_error &e) {
                caught = e.what();
            }
        },
        20000));
    EXPECT_EQ(seen, (std::vector<std::string>{"create ", "create putData ", "create putData exec ",
                                              "create putData exec delete "}));
    EXPECT_EQ(left, "create delete ");
    EXPECT_EQ(caught, "dialog could not be built");
}
