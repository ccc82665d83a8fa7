#include "platform/data/WriteAhead.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <unordered_map>

#include <sys/mman.h>
#include <unistd.h>

namespace vxfield {
namespace {

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
    // The maps of write aheads and their lengths, until releaseSamples().
    std::unordered_map<const void *, size_t> maps;
};

// Never destroyed: lattices released at exit still look into it. Write
// aheads leave it into a variable declared before the lock, so that their
// files are discarded once the lock is released.
Registry &registry()
{
    static Registry *r = new Registry;
    return *r;
}

size_t wholePages(size_t n)
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (n + page - 1) / page * page;
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

std::unique_ptr<WriteAhead> WriteAhead::start(size_t bytes, size_t spare, const KcString &label)
{
    if (bytes < kUncachedMinBytes)
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
    std::unique_ptr<WriteAhead> ahead(new WriteAhead(bytes, path));
    KcString why;
    if (!ahead->out.open(path.c_str(), why))
        return nullptr;
    // Room for the header: zeros until finish() writes it.
    static const unsigned char zeros[kUncachedAlignment] = {};
    if (ahead->out.write(zeros, sizeof zeros) != 0)
        return nullptr;
    ahead->data = ahead->out.mapRoom(bytes + spare);
    if (!ahead->data)
        return nullptr;
    std::lock_guard<std::mutex> lock(r.mutex);
    r.maps[ahead->data] = wholePages(bytes + spare);
    return ahead;
}

WriteAhead::WriteAhead(size_t n, std::string p) : bytes(n), path(std::move(p))
{
}

WriteAhead::~WriteAhead()
{
    out.discard();
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

std::unique_ptr<WriteAhead> WriteAhead::removeKept(const void *samples)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto found = r.kept.find(samples);
    if (found == r.kept.end())
        return nullptr;
    std::unique_ptr<WriteAhead> ahead = std::move(found->second);
    r.kept.erase(found);
    return ahead;
}

void WriteAhead::forget(const void *samples)
{
    if (samples)
        removeKept(samples);
}

std::unique_ptr<WriteAhead> WriteAhead::take(const void *samples, size_t bytes)
{
    std::unique_ptr<WriteAhead> ahead = removeKept(samples);
    if (ahead && ahead->bytes != bytes)
        return nullptr;
    return ahead;
}

void WriteAhead::yield(const char *target)
{
    if (!target)
        return;
    Registry &r = registry();
    std::unique_ptr<WriteAhead> old;
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto it = r.kept.begin(); it != r.kept.end(); ++it)
        if (it->second->path == target) {
            old = std::move(it->second);
            r.kept.erase(it);
            return;
        }
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
    if (keepGoing && !keepGoing(0.0)) {
        out.discard();
        why = "interrupted";
        return false;
    }
    size_t headBytes = 0;
    for (const ByteRange &h : head)
        headBytes += h.size;
    int err = headBytes > kUncachedAlignment ? EINVAL : 0;
    size_t pos = 0;
    for (const ByteRange &h : head) {
        if (err != 0)
            break;
        err = out.writeAt(pos, h.data, h.size);
        pos += h.size;
    }
    // The samples stay the field's; the spare bytes after them, which the
    // file does not keep, are unmapped before it is cut.
    Registry &r = registry();
    if (err == 0) {
        std::lock_guard<std::mutex> lock(r.mutex);
        size_t &mapped = r.maps[data];
        const size_t kept = wholePages(bytes);
        err = out.keepMapPrivate(data, kept, kUncachedAlignment);
        if (err == 0 && mapped > kept && munmap(data + kept, mapped - kept) == 0)
            mapped = kept;
    }
    if (err == 0)
        err = out.cut(kUncachedAlignment + bytes);
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

void releaseSamples(void *samples)
{
    if (!samples)
        return;
    size_t mapped = 0;
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        const auto found = r.maps.find(samples);
        if (found != r.maps.end()) {
            mapped = found->second;
            r.maps.erase(found);
        }
    }
    if (mapped > 0)
        munmap(samples, mapped);
    else
        std::free(samples);
}

} // namespace vxfield
