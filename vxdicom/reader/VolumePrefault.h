#pragma once

// Faults in the far end of a freshly allocated volume on a second thread
// while the reading loop fills it from the front: the kernel must zero every
// new page before the first copy into it, and on a large volume that costs as
// much as reading the files. The two meet in the middle; nothing is written
// into the volume by the helper thread (pages are populated, not touched).

#include <atomic>
#include <cstddef>
#include <thread>

class VolumePrefault
{
public:
    /// Starts on volumes of at least `minBytes`; does nothing otherwise.
    VolumePrefault(unsigned char *data, size_t bytes, size_t minBytes = size_t(64) << 20);
    ~VolumePrefault();
    VolumePrefault(const VolumePrefault &) = delete;
    VolumePrefault &operator=(const VolumePrefault &) = delete;

    /// The reading loop has filled everything below `offset`.
    void readerAt(size_t offset) { reader.store(offset, std::memory_order_relaxed); }
    /// Stops the helper thread and waits for it.
    void stop();
    /// Offset from which on the volume is populated (its size before the
    /// first chunk), and whether the helper thread has ended by itself.
    size_t populatedFrom() const { return populated.load(std::memory_order_relaxed); }
    bool finished() const { return done.load(std::memory_order_acquire); }

private:
    void run();

    unsigned char *data;
    size_t bytes;
    std::atomic<size_t> reader{0};
    std::atomic<bool> stopped{false};
    std::atomic<size_t> populated;
    std::atomic<bool> done{false};
    std::thread worker;
};
