#pragma once

// Runs numbered jobs (the slices of a volume: compressed ones, or all of a
// large one) on helper threads while a loop takes their results in order.
// The helpers run ahead of the loop by a bounded number of jobs, never call
// the work area or a widget, and keep what the job said (the console's
// messages, DCMTK's among them, and a failure) with the job, so that the
// loop reports it when it takes that job: in the words and the order a loop
// that does every job itself would give.

#include "platform/core/VxMessage.h"

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class OrderedPool
{
public:
    /// What one job gave.
    struct Outcome
    {
        /// The text thrown as const char* (a failure of the file), else empty.
        std::string failure;
        bool failed = false;
        /// Anything else thrown; rethrown by the loop as it would have been.
        std::exception_ptr exception;
        /// The console's messages raised by the job, for VxMessage::replay.
        std::vector<VxMessage::Kept> messages;
    };

    /// `work(k)` does item k; it throws const char* texts on failure and
    /// must be safe to run for different items at once. `items` lists the
    /// items, in the order the loop takes them. `threads` counts the loop's
    /// own thread, which works too while it waits, so threads - 1 helpers
    /// are started. `ahead` bounds how far beyond the item the loop waits
    /// for an item may be started.
    OrderedPool(std::vector<int> items, std::function<void(int)> work, int threads, int ahead);
    /// Stops the helpers (each finishes the item it is doing) and waits.
    ~OrderedPool();
    OrderedPool(const OrderedPool &) = delete;
    OrderedPool &operator=(const OrderedPool &) = delete;

    /// Whether item k is one of the pool's.
    bool covers(int item) const;
    /// The outcome of item k, doing it here or waiting for the helper that
    /// does (the loop's thread does further items meanwhile). Items are
    /// taken in the order given to the constructor.
    Outcome take(int item);
    /// Stops and joins the helpers; items not taken are left as they are.
    void stop();

    /// Helper threads started (threads - 1, fewer when there are fewer items).
    int helpers() const { return static_cast<int>(workers.size()); }

    /// The number of threads to use: VXDICOM_DECODE_THREADS when it is a
    /// positive number, else the processors this process may run on.
    static int defaultThreads();

private:
    enum class State { Waiting, Running, Done };

    void helperLoop();
    /// Claims the next job that may start now, or -1. Caller holds mutex.
    int claimNext();
    /// Does job j on this thread and records its outcome.
    void run(std::unique_lock<std::mutex> &lock, int job);

    std::vector<int> order;      ///< item of each job
    std::vector<int> jobOfItem;  ///< job of each item, -1 for none
    std::function<void(int)> work;
    int window;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<State> states;
    std::vector<Outcome> outcomes;
    int nextJob = 0;  ///< first job not yet claimed
    int taken = 0;    ///< jobs the loop has taken
    bool stopping = false;
    std::vector<std::thread> workers;
};
