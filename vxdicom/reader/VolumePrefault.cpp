#include "vxdicom/reader/VolumePrefault.h"

#include <cstdint>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t kChunk = size_t(4) << 20;

} // namespace

VolumePrefault::VolumePrefault(unsigned char *d, size_t n, size_t minBytes)
    : data(d), bytes(n), populated(n)
{
#ifdef MADV_POPULATE_WRITE
    if (data && bytes >= minBytes)
        worker = std::thread([this] { run(); });
#else
    (void)minBytes;
#endif
}

VolumePrefault::~VolumePrefault()
{
    stop();
}

void VolumePrefault::stop()
{
    stopped.store(true, std::memory_order_relaxed);
    if (worker.joinable())
        worker.join();
}

// From the end towards the reader, chunk by chunk, page aligned inside the
// volume; it ends where the reader has come, or on the first refusal (a
// kernel without MADV_POPULATE_WRITE says EINVAL).
void VolumePrefault::run()
{
#ifdef MADV_POPULATE_WRITE
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t begin = reinterpret_cast<uintptr_t>(data);
    uintptr_t end = (begin + bytes) & ~(page - 1);
    while (!stopped.load(std::memory_order_relaxed)) {
        const uintptr_t readerEnd = begin + reader.load(std::memory_order_relaxed) + kChunk;
        if (end <= readerEnd || end - begin < kChunk)
            break;
        const uintptr_t start = (end - kChunk + page - 1) & ~(page - 1);
        if (start >= end ||
            madvise(reinterpret_cast<void *>(start), end - start, MADV_POPULATE_WRITE) != 0)
            break;
        end = start;
        populated.store(end - begin, std::memory_order_relaxed);
    }
#endif
    done.store(true, std::memory_order_release);
}
