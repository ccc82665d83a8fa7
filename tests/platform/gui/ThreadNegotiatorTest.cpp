#include "platform/gui/ThreadNegotiator.h"
#include "tests/support/WidgetDriver.h"

#include <gtest/gtest.h>

#include <QThread>

#include <stdexcept>

namespace {

struct RecordingObject : ForkedObject
{
    explicit RecordingObject(std::string *log) : log(log) { add("create"); }
    ~RecordingObject() override { add("delete"); }
    void putData() override { add("putData"); }
    int exec() override { return add("exec"), 7; }
    void add(const char *step)
    {
        *log += step + std::string(QThread::currentThread() == qApp->thread() ? " " : "? ");
    }
    std::string *log;
};

struct RecordingNegotiator : ThreadNegotiator
{
    explicit RecordingNegotiator(std::string *log) : log(log) {}
    ForkedObject *create() override { return new RecordingObject(log); }
    std::string *log;
};

} // namespace

// A worker's steps run on the GUI thread; exceptions come back, leftovers are deleted there.
TEST(ThreadNegotiator, StepsRunOnTheGuiThreadForTheWorker)
{
    std::string log, left, caught;
    ASSERT_TRUE(uitest::runOnWorker(
        [&] {
            RecordingNegotiator negotiator(&log);
            EXPECT_NE(negotiator.createForkedObject(), nullptr);
            negotiator.putData();
            EXPECT_EQ(negotiator.exec(), 7);
            negotiator.deleteForkedObject();
            RecordingNegotiator(&left).createForkedObject();
            try {
                ThreadNegotiator::runOnGuiThread(
                    [] { throw std::runtime_error("dialog could not be built"); });
            } catch (const std::runtime_error &e) {
                caught = e.what();
            }
        },
        20000));
    EXPECT_EQ(log, "create putData exec delete ");
    EXPECT_EQ(left, "create delete ");
    EXPECT_EQ(caught, "dialog could not be built");
}
