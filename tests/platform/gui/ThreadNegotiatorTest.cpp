#include "platform/gui/ThreadNegotiator.h"
#include "platform/gui/QxDialog.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QBoxLayout>
#include <QEventLoop>
#include <QPushButton>
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

// One step as the forked object saw it.
struct Step
{
    std::string name;
    bool onGuiThread;
};

class StepLog
{
public:
    void add(const std::string &name)
    {
        std::lock_guard<std::mutex> lock(mutex);
        steps.push_back({name, QThread::currentThread() == qApp->thread()});
    }
    std::vector<Step> all() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return steps;
    }
    size_t size() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return steps.size();
    }

private:
    mutable std::mutex mutex;
    std::vector<Step> steps;
};

// Each operation records itself; putData and exec take a while, so a caller
// that did not wait would see the log unchanged.
class RecordingObject : public ForkedObject
{
public:
    explicit RecordingObject(StepLog *log) : log(log) { log->add("create"); }
    ~RecordingObject() override { log->add("delete"); }
    void putData() override
    {
        QThread::msleep(50);
        log->add("putData");
    }
    int exec() override
    {
        QThread::msleep(50);
        log->add("exec");
        return 7;
    }

private:
    StepLog *log;
};

class RecordingNegotiator : public ThreadNegotiator
{
public:
    explicit RecordingNegotiator(StepLog *log) : log(log) {}

protected:
    ForkedObject *create() override { return new RecordingObject(log); }

private:
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
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(20000);
    loop.exec();
    worker.join();
    ASSERT_TRUE(finished.load()) << "worker did not finish within 20 s";
}

// A small modal dialog driven through the negotiator, like the import dialog.
class ModalDialog : public QxDialog, public ForkedObject
{
public:
    ModalDialog()
    {
        auto *layout = createButtons(ButtonsOkCancel);
        setLayout(layout);
    }
    void putData() override { setWindowTitle(QStringLiteral("DICOM Loader")); }
    int exec() override { return QDialog::exec(); }
};

class ModalNegotiator : public ThreadNegotiator
{
protected:
    ForkedObject *create() override { return new ModalDialog; }
};

} // namespace

TEST(ThreadNegotiator, WorkerThreadStepsRunOnGuiThreadAndBlockTheWorker)
{
    StepLog log;
    std::vector<size_t> seenAfter;
    int execResult = -1;
    bool workerOnGui = true;
    runWorkerWithEventLoop([&] {
        workerOnGui = ThreadNegotiator::onGuiThread();
        RecordingNegotiator negotiator(&log);
        ForkedObject *made = negotiator.createForkedObject();
        seenAfter.push_back(log.size());
        EXPECT_EQ(made, negotiator.forkedObject());
        negotiator.putData();
        seenAfter.push_back(log.size());
        execResult = negotiator.exec();
        seenAfter.push_back(log.size());
        negotiator.deleteForkedObject();
        seenAfter.push_back(log.size());
    });

    EXPECT_FALSE(workerOnGui);
    EXPECT_EQ(execResult, 7);
    // Each call returned only after its step was done on the GUI thread.
    EXPECT_EQ(seenAfter, (std::vector<size_t>{1, 2, 3, 4}));
    const auto steps = log.all();
    ASSERT_EQ(steps.size(), 4u);
    const char *expected[] = {"create", "putData", "exec", "delete"};
    for (size_t i = 0; i < steps.size(); ++i) {
        EXPECT_EQ(steps[i].name, expected[i]);
        EXPECT_TRUE(steps[i].onGuiThread) << steps[i].name;
    }
}

TEST(ThreadNegotiator, OnGuiThreadEveryStepIsADirectCall)
{
    // No event loop runs here: a queued call would never be served.
    StepLog log;
    ASSERT_TRUE(ThreadNegotiator::onGuiThread());
    RecordingNegotiator negotiator(&log);
    negotiator.createForkedObject();
    negotiator.putData();
    EXPECT_EQ(negotiator.exec(), 7);
    negotiator.deleteForkedObject();
    EXPECT_EQ(negotiator.forkedObject(), nullptr);
    const auto steps = log.all();
    ASSERT_EQ(steps.size(), 4u);
    for (const Step &s : steps)
        EXPECT_TRUE(s.onGuiThread) << s.name;
}

TEST(ThreadNegotiator, WithoutObjectStepsDoNothing)
{
    StepLog log;
    RecordingNegotiator negotiator(&log);
    negotiator.putData();
    EXPECT_EQ(negotiator.exec(), 0);
    negotiator.deleteForkedObject();
    EXPECT_EQ(log.size(), 0u);
}

TEST(ThreadNegotiator, DestroyingTheNegotiatorDeletesTheObjectOnTheGuiThread)
{
    StepLog log;
    runWorkerWithEventLoop([&] {
        RecordingNegotiator negotiator(&log);
        negotiator.createForkedObject();
    });
    const auto steps = log.all();
    ASSERT_EQ(steps.size(), 2u);
    EXPECT_EQ(steps[1].name, "delete");
    EXPECT_TRUE(steps[1].onGuiThread);
}

TEST(ThreadNegotiator, ExceptionOnGuiThreadIsRethrownInTheCaller)
{
    std::string caught;
    bool thrownOnGui = false;
    runWorkerWithEventLoop([&] {
        try {
            ThreadNegotiator::runOnGuiThread([&] {
                thrownOnGui = QThread::currentThread() == qApp->thread();
                throw std::runtime_error("dialog could not be built");
            });
        } catch (const std::runtime_error &e) {
            caught = e.what();
        }
    });
    EXPECT_TRUE(thrownOnGui);
    EXPECT_EQ(caught, "dialog could not be built");
}

TEST(ThreadNegotiator, ModalDialogRunFromWorkerIsAnsweredOnGuiThread)
{
    // The GUI thread accepts the dialog as soon as it is shown.
    QTimer clicker;
    QObject::connect(&clicker, &QTimer::timeout, [] {
        if (auto *dialog = dynamic_cast<ModalDialog *>(QApplication::activeModalWidget()))
            dialog->okButton()->click();
    });
    clicker.start(10);

    int result = -1;
    QString title;
    runWorkerWithEventLoop([&] {
        ModalNegotiator negotiator;
        negotiator.createForkedObject();
        negotiator.putData();
        ThreadNegotiator::runOnGuiThread(
            [&] { title = dynamic_cast<ModalDialog *>(negotiator.forkedObject())->windowTitle(); });
        result = negotiator.exec();
        negotiator.deleteForkedObject();
    });
    EXPECT_EQ(title, "DICOM Loader");
    EXPECT_EQ(result, 1);
}
