#pragma once

#include <functional>

/// An object created and driven through a ThreadNegotiator: it lives on the
/// GUI thread, and every operation on it runs there.
class ForkedObject
{
public:
    virtual ~ForkedObject() = default;
    /// Hands the object its data (runs on the GUI thread).
    virtual void putData() {}
    /// Runs the object modally; returns its result (runs on the GUI thread).
    virtual int exec() { return 0; }
};

/// Runs create, put-data, exec and delete of one ForkedObject on the GUI
/// thread (the thread of the QCoreApplication) and blocks the calling thread
/// until each step is done. Called on the GUI thread itself, or with no
/// application object, every step is a direct call. From another thread a
/// step completes only while the GUI thread runs (or returns to) its event
/// loop; the GUI thread must never wait for the calling thread meanwhile.
/// Destroying the negotiator deletes a remaining object on the GUI thread.
class ThreadNegotiator
{
public:
    virtual ~ThreadNegotiator();

    /// Creates the object on the GUI thread (through create()) and keeps it.
    ForkedObject *createForkedObject();
    /// putData() of the object on the GUI thread.
    void putData();
    /// exec() of the object on the GUI thread; its result (0 without an object).
    int exec();
    /// Deletes the object on the GUI thread.
    void deleteForkedObject();
    ForkedObject *forkedObject() const { return object; }

    /// Runs fn on the GUI thread and waits for it. Exceptions thrown by fn are
    /// caught there and rethrown in the caller's thread.
    static void runOnGuiThread(const std::function<void()> &fn);
    /// True on the GUI thread, or when there is no application object.
    static bool onGuiThread();

protected:
    /// Constructs the object (called on the GUI thread).
    virtual ForkedObject *create() = 0;

private:
    ForkedObject *object = nullptr;
};
