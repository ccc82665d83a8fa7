#include "vxdicom/reader/OrderedPool.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <sched.h>

OrderedPool::OrderedPool(std::vector<int> items, std::function<void(int)> job, int threads,
                         int ahead)
    : order(std::move(items)), work(std::move(job)), window(std::max(ahead, 1)),
      states(order.size(), State::Waiting), outcomes(order.size())
{
    for (size_t j = 0; j < order.size(); ++j) {
        const int item = order[j];
        if (item >= static_cast<int>(jobOfItem.size()))
            jobOfItem.resize(static_cast<size_t>(item) + 1, -1);
        jobOfItem[static_cast<size_t>(item)] = static_cast<int>(j);
    }
    const int helperCount = std::min(threads - 1, static_cast<int>(order.size()) - 1);
    for (int i = 0; i < helperCount; ++i)
        workers.emplace_back([this] { helperLoop(); });
}

OrderedPool::~OrderedPool()
{
    stop();
}

void OrderedPool::stop()
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

bool OrderedPool::covers(int item) const
{
    return item >= 0 && item < static_cast<int>(jobOfItem.size()) &&
           jobOfItem[static_cast<size_t>(item)] >= 0;
}

int OrderedPool::claimNext()
{
    const int n = static_cast<int>(order.size());
    if (stopping || nextJob >= n || nextJob >= taken + window)
        return -1;
    states[static_cast<size_t>(nextJob)] = State::Running;
    return nextJob++;
}

void OrderedPool::run(std::unique_lock<std::mutex> &lock, int job)
{
    lock.unlock();
    Outcome outcome;
    {
        VxMessageDefer defer(&outcome.messages);
        try {
            work(order[static_cast<size_t>(job)]);
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

void OrderedPool::helperLoop()
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

OrderedPool::Outcome OrderedPool::take(int item)
{
    const int job = covers(item) ? jobOfItem[static_cast<size_t>(item)] : -1;
    std::unique_lock<std::mutex> lock(mutex);
    // The loop takes the jobs in order; anything else is a programming error
    // that must not hang: it gets an outcome saying so.
    if (job != taken) {
        Outcome wrong;
        wrong.failed = true;
        wrong.failure = "taken out of order";
        return wrong;
    }
    while (states[static_cast<size_t>(job)] != State::Done) {
        // The wanted item is being done by a helper: do a later one
        // here meanwhile, or wait when the window is full.
        const int other = claimNext();
        if (other >= 0) {
            run(lock, other);
        } else if (states[static_cast<size_t>(job)] == State::Waiting) {
            // Nobody will start it: the pool was stopped.
            Outcome stopped;
            stopped.failed = true;
            stopped.failure = "stopped before it was done";
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

int OrderedPool::defaultThreads()
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
