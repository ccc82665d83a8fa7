#include "vxdicom/reader/SliceDecodePool.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <sched.h>

SliceDecodePool::SliceDecodePool(std::vector<int> slices, std::function<void(int)> decode,
                                 int threads, int ahead)
    : order(std::move(slices)), decodeSlice(std::move(decode)), window(std::max(ahead, 1)),
      states(order.size(), State::Waiting), outcomes(order.size())
{
    for (size_t j = 0; j < order.size(); ++j) {
        const int slice = order[j];
        if (slice >= static_cast<int>(jobOfSlice.size()))
            jobOfSlice.resize(static_cast<size_t>(slice) + 1, -1);
        jobOfSlice[static_cast<size_t>(slice)] = static_cast<int>(j);
    }
    const int helperCount = std::min(threads - 1, static_cast<int>(order.size()) - 1);
    for (int i = 0; i < helperCount; ++i)
        workers.emplace_back([this] { helperLoop(); });
}

SliceDecodePool::~SliceDecodePool()
{
    stop();
}

void SliceDecodePool::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread &t : workers)
        if (t.joinable())
            t.join();
    workers.clear();
}

bool SliceDecodePool::decodes(int slice) const
{
    return slice >= 0 && slice < static_cast<int>(jobOfSlice.size()) &&
           jobOfSlice[static_cast<size_t>(slice)] >= 0;
}

int SliceDecodePool::claimNext()
{
    const int n = static_cast<int>(order.size());
    if (stopping || nextJob >= n || nextJob >= taken + window)
        return -1;
    states[static_cast<size_t>(nextJob)] = State::Running;
    return nextJob++;
}

void SliceDecodePool::run(std::unique_lock<std::mutex> &lock, int job)
{
    lock.unlock();
    Outcome outcome;
    {
        dicom::dicomLogCapture capture(&outcome.log);
        try {
            decodeSlice(order[static_cast<size_t>(job)]);
        } catch (const char *text) {
            outcome.failed = true;
            outcome.failure = text ? text : "";
        } catch (...) {
            outcome.exception = std::current_exception();
        }
    }
    lock.lock();
    outcomes[static_cast<size_t>(job)] = std::move(outcome);
    states[static_cast<size_t>(job)] = State::Done;
    changed.notify_all();
}

void SliceDecodePool::helperLoop()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopping) {
        const int job = claimNext();
        if (job < 0)
            changed.wait(lock);
        else
            run(lock, job);
    }
}

SliceDecodePool::Outcome SliceDecodePool::take(int slice)
{
    const int job = decodes(slice) ? jobOfSlice[static_cast<size_t>(slice)] : -1;
    std::unique_lock<std::mutex> lock(mutex);
    // The loop takes the jobs in order; anything else is a programming error
    // that must not hang: it gets an outcome saying so.
    if (job != taken) {
        Outcome wrong;
        wrong.failed = true;
        wrong.failure = "slice taken out of order";
        return wrong;
    }
    while (states[static_cast<size_t>(job)] != State::Done) {
        // The wanted slice is being decoded by a helper: decode a later one
        // here meanwhile, or wait when the window is full.
        const int other = claimNext();
        if (other >= 0) {
            run(lock, other);
        } else if (states[static_cast<size_t>(job)] == State::Waiting) {
            // Nobody will start it: the pool was stopped.
            Outcome stopped;
            stopped.failed = true;
            stopped.failure = "decoding was stopped";
            return stopped;
        } else {
            changed.wait(lock);
        }
    }
    Outcome outcome = std::move(outcomes[static_cast<size_t>(job)]);
    ++taken;
    changed.notify_all();
    return outcome;
}

int SliceDecodePool::defaultThreads()
{
    if (const char *env = std::getenv("VXDICOM_DECODE_THREADS")) {
        const long n = std::strtol(env, nullptr, 10);
        if (n > 0)
            return static_cast<int>(std::min(n, 256L));
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return CPU_COUNT(&set);
    const unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? static_cast<int>(n) : 1;
}
