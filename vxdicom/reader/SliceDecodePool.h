#pragma once

// Decodes compressed slices of a volume on helper threads while the loading
// loop takes them in order. Each slice is decoded straight into its place in
// the volume; the helpers run ahead of the loop by a bounded number of
// slices, never call the console, the work area or a widget, and keep what
// their decoders said (DCMTK's log, a failure) with the slice, so that the
// loop reports it when it reaches that slice: in the words and the order a
// loop that decodes every slice itself would give.

#include "platform/dicom/dicom.h"

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class SliceDecodePool
{
public:
    /// What decoding one slice gave.
    struct Outcome
    {
        /// The text thrown as const char* (a failure of the file), else empty.
        std::string failure;
        bool failed = false;
        /// Anything else thrown; rethrown by the loop as it would have been.
        std::exception_ptr exception;
        /// DCMTK's messages while the slice was decoded, to be printed by the loop.
        std::vector<dicom::dicomLogMessage> log;
    };

    /// `decode(k)` fills slice k; it throws const char* texts on failure and
    /// must be safe to run for different slices at once. `slices` lists the
    /// slices to decode, in the order the loop takes them. `threads` counts
    /// the loading thread, which decodes too while it waits, so threads - 1
    /// helpers are started. `ahead` bounds how far beyond the slice the loop
    /// waits for a slice may be started.
    SliceDecodePool(std::vector<int> slices, std::function<void(int)> decode, int threads,
                    int ahead);
    /// Stops the helpers (each finishes the slice it is decoding) and waits.
    ~SliceDecodePool();
    SliceDecodePool(const SliceDecodePool &) = delete;
    SliceDecodePool &operator=(const SliceDecodePool &) = delete;

    /// Whether slice k is one of the pool's.
    bool decodes(int slice) const;
    /// The outcome of slice k, decoding it here or waiting for the helper
    /// that does (the loading thread decodes further slices meanwhile).
    /// Slices are taken in the order given to the constructor.
    Outcome take(int slice);
    /// Stops and joins the helpers; slices not taken are left as they are.
    void stop();

    /// Helper threads started (threads - 1, fewer when there are fewer slices).
    int helpers() const { return static_cast<int>(workers.size()); }

    /// The number of decoding threads to use: VXDICOM_DECODE_THREADS when it
    /// is a positive number, else the processors this process may run on.
    static int defaultThreads();

private:
    enum class State { Waiting, Running, Done };

    void helperLoop();
    /// Claims the next slice that may start now, or -1. Caller holds mutex.
    int claimNext();
    /// Decodes job j on this thread and records its outcome.
    void run(std::unique_lock<std::mutex> &lock, int job);

    std::vector<int> order;       ///< slice of each job
    std::vector<int> jobOfSlice;  ///< job of each slice, -1 for none
    std::function<void(int)> decodeSlice;
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
