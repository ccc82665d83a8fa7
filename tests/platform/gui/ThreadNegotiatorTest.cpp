#include "platform/gui/ThreadNegotiator.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// The steps as the forked object saw them, and whether each ran on the GUI thread.
struct StepLog
{
    void add(const std::string &name)
    {
        std::lock_guard<std::mutex> lock(mutex);
        steps.push_back({name, QThread::currentThread() == qApp->thread()});
    }
    std::vector<std::pair<std::string, bool>> all() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return steps;
    }
    mutable std::mutex mutex;
    std::vector<std::pair<std::string, bool>> steps;
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

// Runs `work` on a second thread while this (the GUI) thread runs the event
// loop, as the command line does with the reader; returns when work is done.
void runWorkerWithEventLoop(const std::function<void()> &work)
{
    QEventLoop loop;
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        work();
        finished = true;
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    loop.exec();
    worker.join();
    ASSERT_TRUE(finished.load()) << "worker did not finish within 20 s";
}

} // namespace

// Called from a worker, each step runs on the GUI thread and returns only
// when it is done (an exception there is rethrown in the worker); the
// negotiator deletes a remaining object there too. On the GUI thread itself
// every step is a direct call (no event loop runs).
TEST(ThreadNegotiator, StepsRunOnTheGuiThreadAndBlockTheWorker)
{
    StepLog log, left, direct;
    std::vector<size_t> seenAfter;
    int execResult = -1;
    bool workerOnGui = true, thrownOnGui = false;
    std::string caught;
    runWorkerWithEventLoop([&] {
        workerOnGui = ThreadNegotiator::onGuiThread();
        RecordingNegotiator negotiator(&log);
        ForkedObject *made = negotiator.createForkedObject();
        EXPECT_EQ(made, negotiator.forkedObject());
        seenAfter.push_back(log.all().size());
        negotiator.putData();
        seenAfter.push_back(log.all().size());
        execResult = negotiator.exec();
        seenAfter.push_back(log.all().size());
        negotiator.deleteForkedObject();
        seenAfter.push_back(log.all().size());
        RecordingNegotiator(&left).createForkedObject();
        try {
            ThreadNegotiator::runOnGuiThread([&] {
                thrownOnGui = QThread::currentThread() == qApp->thread();
                throw std::runtime_error("dialog could not be built");
            });
        } catch (const std::runtime_error &e) {
            caught = e.what();
        }
    });
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
    for (const StepLog *l : {&log, &left, &direct}) {
        const auto steps = l->all();
        ASSERT_EQ(steps.size(), l == &left ? 2u : 4u);
        const char *expected[] = {"create", l == &left ? "delete" : "putData", "exec", "delete"};
        for (size_t i = 0; i < steps.size(); ++i) {
            EXPECT_EQ(steps[i].first, expected[i]);
            EXPECT_TRUE(steps[i].second) << steps[i].first;
        }
    }
}
