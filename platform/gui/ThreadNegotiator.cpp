#include "platform/gui/ThreadNegotiator.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

#include <exception>
#include <stdexcept>

ThreadNegotiator::~ThreadNegotiator()
{
    // Destructors must not throw; an object still alive is deleted where it lives.
    try {
        deleteForkedObject();
    } catch (...) {
    }
}

bool ThreadNegotiator::onGuiThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return !app || QThread::currentThread() == app->thread();
}

void ThreadNegotiator::runOnGuiThread(const std::function<void()> &fn)
{
    if (!fn)
        return;
    if (onGuiThread()) {
        fn();
        return;
    }
    // The exception is caught on the GUI thread (it must not unwind through
    // Qt's event loop) and rethrown here, in the caller's thread.
    std::exception_ptr failure;
    const bool delivered = QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [&fn, &failure] {
            try {
                fn();
            } catch (...) {
                failure = std::current_exception();
            }
        },
        Qt::BlockingQueuedConnection);
    if (!delivered)
        throw std::runtime_error(
            "ThreadNegotiator: the call could not be handed to the GUI thread");
    if (failure)
        std::rethrow_exception(failure);
}

ForkedObject *ThreadNegotiator::createForkedObject()
{
    deleteForkedObject();
    ForkedObject *made = nullptr;
    runOnGuiThread([this, &made] { made = create(); });
    object = made;
    return object;
}

void ThreadNegotiator::putData()
{
    if (!object)
        return;
    ForkedObject *target = object;
    runOnGuiThread([target] { target->putData(); });
}

int ThreadNegotiator::exec()
{
    if (!object)
        return 0;
    ForkedObject *target = object;
    int result = 0;
    runOnGuiThread([target, &result] { result = target->exec(); });
    return result;
}

void ThreadNegotiator::deleteForkedObject()
{
    if (!object)
        return;
    ForkedObject *doomed = object;
    object = nullptr;
    runOnGuiThread([doomed] { delete doomed; });
}
