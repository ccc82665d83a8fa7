#include "platform/data/WriteAhead.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <set>
#include <unordered_map>

namespace vxfield {
namespace {

// Written in pieces of this size: large enough for the disk, small enough
// that the last piece after the reader's last slice is short.
constexpr size_t kPiece = size_t(8) << 20;

using Kept = std::unordered_map<const void *, std::unique_ptr<WriteAhead>>;

struct Registry
{
    std::mutex mutex;
    WriteAhead::Namer namer;
    // Paths written ahead since the namer was set. A later field of the same
    // name is one the pool or the reader renames (a second stack of a
    // series), so it is not guessed to go there.
    std::set<std::string> claimed;
    Kept kept;
};

// Never destroyed: lattices released at exit still look into it. Write
// aheads leave it into a variable declared before the lock, so that their
// threads are joined once the lock is released.
Registry &registry()
{
    static Registry *r = new Registry;
    return *r;
}

} // namespace

void WriteAhead::setNamer(Namer namer)
{
    Registry &r = registry();
    Kept dropped;
    std::lock_guard<std::mutex> lock(r.mutex);
    r.namer = std::move(namer);
    r.claimed.clear();
    if (!r.namer)
        dropped.swap(r.kept);
}

std::unique_ptr<WriteAhead> WriteAhead::start(const unsigned char *samples, size_t bytes,
                                              const KcString &label)
{
    if (!samples || bytes < kUncachedMinBytes ||
        reinterpret_cast<uintptr_t>(samples) % kUncachedAlignment != 0)
        return nullptr;
    Registry &r = registry();
    std::string path;
    {
        std::lock_guard<std::mutex> lock(r.mutex);
        if (!r.namer)
            return nullptr;
        path = r.namer(label);
        if (path.empty() || !r.claimed.insert(path).second)
            return nullptr;
    }
    std::unique_ptr<WriteAhead> ahead(new WriteAhead(samples, bytes, path));
    KcString why;
    if (!ahead->out.open(path.c_str(), why))
        return nullptr;
    // Room for the header: zeros until finish() writes it.
    static const unsigned char zeros[kUncachedAlignment] = {};
    if (ahead->out.write(zeros, sizeof zeros) != 0)
        return nullptr;
    ahead->worker = std::thread([a = ahead.get()] { a->run(); });
    return ahead;
}

WriteAhead::WriteAhead(const unsigned char *samples, size_t n, std::string p)
    : data(samples), bytes(n), path(std::move(p))
{
}

WriteAhead::~WriteAhead()
{
    stop();
    out.discard();
}

void WriteAhead::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    if (worker.joinable())
        worker.join();
}

void WriteAhead::ready(size_t n)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        readyBytes = std::min(bytes, std::max(readyBytes, n));
    }
    changed.notify_all();
}

// Writes whole pieces as they become ready, and the rest once everything is.
void WriteAhead::run()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (writtenBytes < bytes && error == 0) {
        changed.wait(lock, [this] {
            return stopping || readyBytes == bytes || readyBytes - writtenBytes >= kPiece;
        });
        if (stopping)
            break;
        const size_t from = writtenBytes;
        const size_t end = readyBytes == bytes ? bytes : from + kPiece;
        lock.unlock();
        const int err = out.writeUncached(data + from, end - from);
        lock.lock();
        error = err;
        if (err == 0)
            writtenBytes = end;
        changed.notify_all();
    }
}

void WriteAhead::keep(std::unique_ptr<WriteAhead> ahead)
{
    if (!ahead)
        return;
    Registry &r = registry();
    std::unique_ptr<WriteAhead> old;
    std::lock_guard<std::mutex> lock(r.mutex);
    if (!r.namer) {
        old = std::move(ahead);
        return;
    }
    std::unique_ptr<WriteAhead> &slot = r.kept[ahead->data];
    old = std::move(slot);
    slot = std::move(ahead);
}

void WriteAhead::forget(const void *samples)
{
    if (!samples)
        return;
    Registry &r = registry();
    std::unique_ptr<WriteAhead> old;
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto found = r.kept.find(samples);
    if (found == r.kept.end())
        return;
    old = std::move(found->second);
    r.kept.erase(found);
}

std::unique_ptr<WriteAhead> WriteAhead::take(const void *samples, size_t bytes)
{
    Registry &r = registry();
    std::unique_ptr<WriteAhead> ahead;
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto found = r.kept.find(samples);
    if (found == r.kept.end())
        return nullptr;
    ahead = std::move(found->second);
    r.kept.erase(found);
    if (ahead->bytes != bytes)
        return nullptr;
    return ahead;
}

bool WriteAhead::finish(const std::vector<ByteRange> &head, const char *target,
                        const KeepGoing &keepGoing, KcString &why)
{
    const bool samePath = target && path == target;
    if (!samePath && !out.unnamed()) {
        // The label changed after the load: the file written under the old
        // name cannot move over to the new one.
        out.discard();
        why = "written ahead under another name";
        return false;
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (readyBytes < bytes) {
            why = "the samples are not complete";
            return false;
        }
        // Progress shows the share written, and the user may stop the wait.
        while (writtenBytes < bytes && error == 0) {
            const double fraction = static_cast<double>(writtenBytes) / static_cast<double>(bytes);
            lock.unlock();
            if (keepGoing && !keepGoing(fraction)) {
                stop();
                out.discard();
                why = "interrupted";
                return false;
            }
            lock.lock();
            changed.wait_for(lock, std::chrono::milliseconds(50),
                             [this] { return writtenBytes == bytes || error != 0; });
        }
    }
    stop();
    size_t headBytes = 0;
    for (const ByteRange &h : head)
        headBytes += h.size;
    int err = error;
    if (err == 0 && headBytes > kUncachedAlignment)
        err = EINVAL;
    size_t pos = 0;
    for (const ByteRange &h : head) {
        if (err != 0)
            break;
        err = out.writeAt(pos, h.data, h.size);
        pos += h.size;
    }
    if (err != 0) {
        out.discard();
        why = "cannot write: " + KcString(std::strerror(err));
        return false;
    }
    if (keepGoing && !keepGoing(1.0)) {
        out.discard();
        why = "interrupted";
        return false;
    }
    return samePath ? out.commit(why) : out.commitAs(target, why);
}

} // namespace vxfield
