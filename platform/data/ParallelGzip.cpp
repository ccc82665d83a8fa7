#include "platform/data/ParallelGzip.h"

#include <libdeflate.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace vxfield {
namespace {

struct Piece
{
    const unsigned char *data;
    size_t size;
};
// The bytes of one member: one piece, or several when short parts are
// joined with the start of the next.
using Chunk = std::vector<Piece>;

std::vector<Chunk> planChunks(const std::vector<ByteRange> &parts, size_t chunkBytes,
                              size_t joinBytes)
{
    size_t lastNonEmpty = parts.size();
    for (size_t k = 0; k < parts.size(); ++k)
        if (parts[k].size > 0)
            lastNonEmpty = k;
    std::vector<Chunk> chunks;
    Chunk pending;
    size_t pendingBytes = 0;
    for (size_t k = 0; k < parts.size(); ++k) {
        const auto *p = static_cast<const unsigned char *>(parts[k].data);
        size_t left = parts[k].size;
        while (left > 0) {
            size_t take;
            if (pendingBytes > 0) {
                take = std::min(left, joinBytes - pendingBytes);
                pending.push_back({p, take});
                pendingBytes += take;
                if (pendingBytes == joinBytes) {
                    chunks.push_back(std::move(pending));
                    pending.clear();
                    pendingBytes = 0;
                }
            } else if (left < joinBytes && k != lastNonEmpty) {
                take = left;
                pending.push_back({p, take});
                pendingBytes = take;
            } else {
                take = std::min(left, chunkBytes);
                chunks.push_back({{p, take}});
            }
            p += take;
            left -= take;
        }
    }
    // An empty stream is one empty member: a gzip file has at least one.
    if (pendingBytes > 0 || chunks.empty())
        chunks.push_back(std::move(pending));
    return chunks;
}

struct Worker
{
    libdeflate_compressor *compressor = nullptr;
    std::unique_ptr<unsigned char[]> out;
    size_t capacity = 0;
    std::unique_ptr<unsigned char[]> staging;

    Worker() = default;
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;
    ~Worker() { libdeflate_free_compressor(compressor); }
};

} // namespace

bool writeGzipMembers(OutputFile &out, const std::vector<ByteRange> &parts,
                      const GzipOptions &options, const KeepGoing &keepGoing, KcString &why)
{
    const size_t chunkBytes = std::max<size_t>(options.chunkBytes, 1);
    const size_t joinBytes = std::clamp<size_t>(options.joinBytes, 1, chunkBytes);
    const std::vector<Chunk> chunks = planChunks(parts, chunkBytes, joinBytes);
    const bool joined =
        std::any_of(chunks.begin(), chunks.end(), [](const Chunk &c) { return c.size() > 1; });

    size_t threads = options.threads > 0
                         ? static_cast<size_t>(options.threads)
                         : std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 2);
    threads = std::min(threads, chunks.size());

    // Everything the threads use is allocated here, on the calling thread.
    std::vector<std::unique_ptr<Worker>> workers;
    try {
        for (size_t t = 0; t < threads; ++t) {
            auto w = std::make_unique<Worker>();
            w->compressor = libdeflate_alloc_compressor(options.level);
            if (!w->compressor) {
                why = KcString::format("cannot start gzip compression (level %d)", options.level);
                return false;
            }
            w->capacity = libdeflate_gzip_compress_bound(w->compressor, chunkBytes);
            // Not value-initialised: only the pages that receive data are touched.
            w->out = std::make_unique_for_overwrite<unsigned char[]>(w->capacity);
            if (joined)
                w->staging = std::make_unique_for_overwrite<unsigned char[]>(joinBytes);
            workers.push_back(std::move(w));
        }
    } catch (const std::bad_alloc &) {
        why = "out of memory for gzip compression";
        return false;
    }

    std::atomic<size_t> next{0};
    std::mutex mutex;
    std::condition_variable turn;
    size_t written = 0; // members written, in order
    bool stop = false;
    bool interrupted = false;
    bool compressFailed = false;
    bool helperFailed = false;
    int writeError = 0;

    // On the calling thread only, with the lock released while it runs.
    auto ask = [&](std::unique_lock<std::mutex> &lock) {
        if (!keepGoing || stop)
            return;
        const double fraction = static_cast<double>(written) / static_cast<double>(chunks.size());
        lock.unlock();
        const bool go = keepGoing(fraction);
        lock.lock();
        if (!go && !stop) {
            stop = true;
            interrupted = true;
            turn.notify_all();
        }
    };

    auto run = [&](Worker &w, bool caller) {
        static const unsigned char nothing = 0;
        for (;;) {
            const size_t i = next.fetch_add(1);
            if (i >= chunks.size())
                return;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (stop)
                    return;
            }
            const Chunk &c = chunks[i];
            const unsigned char *in = &nothing;
            size_t n = 0;
            if (c.size() == 1) {
                in = c[0].data;
                n = c[0].size;
            } else if (c.size() > 1) {
                for (const Piece &piece : c) {
                    std::memcpy(w.staging.get() + n, piece.data, piece.size);
                    n += piece.size;
                }
                in = w.staging.get();
            }
            const size_t z = libdeflate_gzip_compress(w.compressor, in, n, w.out.get(), w.capacity);

            std::unique_lock<std::mutex> lock(mutex);
            while (written != i && !stop) {
                if (!caller)
                    turn.wait(lock);
                else if (turn.wait_for(lock, std::chrono::milliseconds(50)) ==
                         std::cv_status::timeout)
                    ask(lock);
            }
            if (stop)
                return;
            if (z == 0) {
                stop = true;
                compressFailed = true;
                turn.notify_all();
                return;
            }
            // Only the holder of the next member gets here: the others wait
            // for written to reach theirs.
            lock.unlock();
            const int err = out.write(w.out.get(), z);
            lock.lock();
            if (err) {
                stop = true;
                writeError = err;
            } else {
                ++written;
            }
            turn.notify_all();
            if (stop)
                return;
            if (caller)
                ask(lock);
        }
    };

    std::vector<std::thread> helpers;
    // Stops and joins the helpers on every way out, an exception of
    // keepGoing included.
    struct Joiner
    {
        std::vector<std::thread> &threads;
        std::mutex &mutex;
        std::condition_variable &turn;
        bool &stop;
        ~Joiner()
        {
            {
                std::lock_guard<std::mutex> lock(mutex);
                stop = true;
            }
            turn.notify_all();
            for (std::thread &t : threads)
                if (t.joinable())
                    t.join();
        }
    } joiner{helpers, mutex, turn, stop};

    for (size_t t = 1; t < workers.size(); ++t) {
        try {
            helpers.emplace_back([&, t] {
                try {
                    run(*workers[t], false);
                } catch (...) {
                    std::lock_guard<std::mutex> lock(mutex);
                    stop = true;
                    helperFailed = true;
                    turn.notify_all();
                }
            });
        } catch (const std::system_error &) {
            break; // no thread to be had: the calling thread does the rest
        }
    }
    run(*workers[0], true);
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (written != chunks.size() && !stop)
            if (turn.wait_for(lock, std::chrono::milliseconds(50)) == std::cv_status::timeout)
                ask(lock);
    }
    for (std::thread &t : helpers)
        t.join();

    if (interrupted)
        why = "interrupted";
    else if (writeError)
        why = KcString("cannot write: ") + std::strerror(writeError);
    else if (compressFailed)
        why = "gzip compression failed";
    else if (helperFailed || written != chunks.size())
        why = "a compression thread failed";
    else
        return true;
    return false;
}

} // namespace vxfield
