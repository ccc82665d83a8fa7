#pragma once

// Saving a large volume while it is still being read: the samples go to the
// file they will be saved in as soon as the reader has made them final, so
// that when the save comes, only the header is left to write.

#include "platform/core/KcString.h"
#include "platform/data/OutputFile.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace vxfield {

/// The samples of one volume being written ahead of its save.
///
/// The file is opened as a save opens it (OutputFile), under the name the
/// field will be saved under as far as its label tells: unnamed until
/// finish() when there is no such file yet, overwritten in place when there
/// is one. It holds kUncachedAlignment bytes for the header, then the
/// samples, as an uncompressed NIfTI-1 file with its samples at that offset
/// does. A helper thread writes the samples from the volume's own buffer
/// (directly to the disk, OutputFile::writeUncached) as ready() announces
/// them. A write ahead that is not finished is discarded as a failed save
/// is: an interrupted or failed load leaves no file, and an earlier file of
/// that name is gone.
class WriteAhead
{
public:
    /// The path a field of that label is saved under; empty: none.
    using Namer = std::function<std::string(const KcString &label)>;
    /// Write ahead from now on, into the files that namer gives; an empty
    /// namer stops it and discards every write ahead kept and not taken.
    static void setNamer(Namer namer);

    /// A write ahead of the `bytes` samples at `samples` of the field to be
    /// labelled `label`, or null: no namer, a volume too small to gain from
    /// it (kUncachedMinBytes), a buffer not aligned for direct writes, a path
    /// written ahead before since the namer was set, or a file that cannot be
    /// opened.
    static std::unique_ptr<WriteAhead> start(const unsigned char *samples, size_t bytes,
                                             const KcString &label);

    /// The samples below `bytes` are final and will not change again.
    void ready(size_t bytes);

    /// Every sample is final: the write ahead waits for the save of the
    /// volume at `samples`, which take() finds by that address.
    static void keep(std::unique_ptr<WriteAhead> ahead);
    /// The samples at `samples` change or are released: their write ahead,
    /// if any, is discarded.
    static void forget(const void *samples);
    /// The write ahead kept for exactly these samples, or null.
    static std::unique_ptr<WriteAhead> take(const void *samples, size_t bytes);

    /// Waits for the samples to be written, puts `head` (at most
    /// kUncachedAlignment bytes) in front of them and puts the file in place
    /// at path. False with why ("cannot write: ...", "interrupted"); the
    /// file is then discarded.
    bool finish(const std::vector<ByteRange> &head, const char *path, const KeepGoing &keepGoing,
                KcString &why);

    ~WriteAhead();
    WriteAhead(const WriteAhead &) = delete;
    WriteAhead &operator=(const WriteAhead &) = delete;

private:
    WriteAhead(const unsigned char *samples, size_t bytes, std::string path);
    void run();
    void stop();

    const unsigned char *data;
    size_t bytes;
    std::string path;
    OutputFile out;
    std::mutex mutex;
    std::condition_variable changed;
    size_t readyBytes = 0;   // announced by the reader
    size_t writtenBytes = 0; // written by the helper thread
    bool stopping = false;
    int error = 0;
    std::thread worker;
};

} // namespace vxfield
