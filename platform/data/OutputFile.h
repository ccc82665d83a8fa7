#pragma once

// Internal to the field file code: a file that appears under its name only
// once it is complete, and the raw writer of a byte stream made of parts.

#include "platform/core/KcString.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vxfield {

/// A file being written at one path.
///
/// - No file of that name yet: the bytes go to an unnamed file in the same
///   folder (O_TMPFILE) that commit() links in under the name, so a save that
///   fails, is interrupted or is killed leaves nothing behind. Where the file
///   system has no unnamed files, the file is made under its name and removed
///   when the save does not complete.
/// - A regular file of that name with a single link: it is overwritten in
///   place and cut to the new length by commit(). Its cached pages and blocks
///   are reused instead of freed and taken again, so saving over the previous
///   result costs no more than saving into an empty folder (freeing a large
///   file that was just written costs about as much as writing it). When the
///   save does not complete, the file is removed: its old contents are gone.
/// - A symbolic link or a file with several links: written unnamed and renamed
///   over the name by commit(); the link's target and the other links keep
///   their contents.
///
/// What commit() did not put in place is removed by discard() or the
/// destructor. write() may be called from any thread, one call at a time.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// False with why, e.g. "cannot open for writing: Permission denied".
    [[nodiscard]] bool open(const char *path, KcString &why);
    /// Appends n bytes. 0, or the errno of the failure (EIO for a write that
    /// wrote nothing).
    [[nodiscard]] int write(const void *data, size_t n);
    /// Appends n bytes as write() does, but the run of them whose address
    /// and file position are both multiples of kUncachedAlignment goes to
    /// the disk directly (O_DIRECT): no page-cache copy to make, allocate
    /// and write back later. The bytes before and after that run, all of
    /// them when address and position never align together, and everything
    /// from the first refusal on (a file system without direct writes) are
    /// written as by write().
    [[nodiscard]] int writeUncached(const void *data, size_t n);
    /// Writes n bytes at position pos of what was written already (a header
    /// filled in last). 0 or errno.
    [[nodiscard]] int writeAt(size_t pos, const void *data, size_t n);
    /// Makes room for n bytes after what was written (a position that is a
    /// multiple of kUncachedAlignment) and maps them into memory, shared with
    /// the file: what is put there is in the file, through the page cache,
    /// with no copy and no write to wait for. The room's blocks are taken
    /// first, so that storing into the map never fails for want of space
    /// (which would end the process). The map is the caller's to unmap (its
    /// length rounded up to whole pages). Null: the file system cannot map
    /// or allocate, or the file was opened for writing only (the caller then
    /// writes the plain way).
    [[nodiscard]] unsigned char *mapRoom(size_t n);
    /// Makes the n bytes at `map`, a map of the file's bytes from position
    /// `at` on made by mapRoom(), private: they keep what they hold, and
    /// later stores into them no longer reach the file. 0 or errno.
    [[nodiscard]] int keepMapPrivate(unsigned char *map, size_t n, size_t at);
    /// Cuts the file to n bytes (after a room bigger than what is kept). 0 or errno.
    [[nodiscard]] int cut(size_t n);
    /// Puts the file in place under its name and closes it. False with why;
    /// the file is then discarded.
    [[nodiscard]] bool commit(KcString &why);
    /// Whether the file has no name yet, so that commitAs() may give it
    /// another one than open() was told.
    bool unnamed() const { return mode == Unnamed || mode == Replacing; }
    /// commit() under another name, for an unnamed file; what that name
    /// holds is replaced in one step (a symbolic link as a link).
    [[nodiscard]] bool commitAs(const char *path, KcString &why);
    /// Removes what was written (nothing when committed or never opened).
    void discard();

    size_t bytesWritten() const { return written; }

private:
    enum Mode { Closed, Unnamed, Replacing, InPlace, Named };
    bool linkUnnamed(KcString &why);
    int writeDirect(const char *data, size_t n);

    std::string path;
    int fd = -1;
    Mode mode = Closed;
    size_t written = 0;
    bool directRefused = false;
};

/// Block size that direct writes are aligned to (a multiple of the logical
/// block size of common disks: 512 or 4096 bytes).
constexpr size_t kUncachedAlignment = 4096;
/// Runs shorter than this are not worth a direct write.
constexpr size_t kUncachedMinBytes = size_t(16) << 20;

/// A run of bytes of the stream a file is made of (a header, a volume).
struct ByteRange
{
    const void *data;
    size_t size;
};

/// Told the fraction written so far, between pieces of work, on the thread
/// that writes; returns false to stop (the user's interrupt).
using KeepGoing = std::function<bool(double fraction)>;

/// Shows "saving NAME" in the work area while a file is written (unless the
/// caller already shows progress of its own, which is then only updated), and
/// passes the user's interrupt (Ctrl-C) on to the writers. Calling thread only.
class SaveProgress
{
public:
    explicit SaveProgress(const char *path);
    ~SaveProgress();
    SaveProgress(const SaveProgress &) = delete;
    SaveProgress &operator=(const SaveProgress &) = delete;

    /// Shows the fraction; false once the user asked to stop.
    bool update(double fraction) const;
    KeepGoing keepGoing() const
    {
        return [this](double fraction) { return update(fraction); };
    }

private:
    bool owned;
};

/// Writes the parts one after the other, in pieces of a few megabytes with
/// keepGoing asked between them; parts of at least kUncachedMinBytes go
/// through OutputFile::writeUncached. False with why ("cannot write: ...",
/// "interrupted").
bool writeRaw(OutputFile &out, const std::vector<ByteRange> &parts, const KeepGoing &keepGoing,
              KcString &why);

/// The file at path made of `plain` as it is, then `gzipped` as a gzip
/// stream (ParallelGzip.h), with SaveProgress shown; put in place only when
/// complete (OutputFile). False with why, which names no file.
bool writeFile(const char *path, const std::vector<ByteRange> &plain,
               const std::vector<ByteRange> &gzipped, KcString &why);

} // namespace vxfield
