#pragma once

// Saving a large volume while it is still being read: the volume is read
// straight into the file it will be saved in, mapped into memory, so that
// when the save comes only the header is left to write.

#include "platform/core/KcString.h"
#include "platform/data/OutputFile.h"

#include <functional>
#include <memory>
#include <string>

namespace vxfield {

/// The samples of one volume held in the file they are to be saved in.
///
/// The file is opened as a save opens it (OutputFile), under the name the
/// field will be saved under as far as its label tells: unnamed until
/// finish() when there is no such file yet, overwritten in place when there
/// is one. It holds kUncachedAlignment bytes for the header, then the
/// samples, as an uncompressed NIfTI-1 file with its samples at that offset
/// does. samples() maps those bytes: the reader fills them as any buffer,
/// and the page cache takes them to the disk, after the program has ended
/// if need be. A write ahead that is not finished is discarded as a failed
/// save is: an interrupted or failed load leaves no file, and an earlier
/// file of that name is gone. The map itself lives on until
/// releaseSamples(), as the field's samples.
///
/// Only the command line names files to save into (setNamer), and ends
/// soon after the save: after it, the pages the field has not changed
/// still follow the file, so another program that rewrote the saved file
/// in place meanwhile would show through, and one that cut it shorter
/// would make them fault.
class WriteAhead
{
public:
    /// The path a field of that label is saved under; empty: none.
    using Namer = std::function<std::string(const KcString &label)>;
    /// Write ahead from now on, into the files that namer gives; an empty
    /// namer stops it and discards every write ahead kept and not taken.
    static void setNamer(Namer namer);

    /// A write ahead of `bytes` samples (with room for `spare` bytes after
    /// them that the file does not keep) of the field to be labelled
    /// `label`, or null: no namer, a volume too small to gain from it
    /// (kUncachedMinBytes), a path written ahead before since the namer was
    /// set, or a file that cannot be opened, given room or mapped.
    static std::unique_ptr<WriteAhead> start(size_t bytes, size_t spare, const KcString &label);

    /// The samples, in the file; released by releaseSamples() only.
    unsigned char *samples() const { return data; }

    /// The samples are made: the write ahead waits for the save of the
    /// volume at samples(), which take() finds by that address.
    static void keep(std::unique_ptr<WriteAhead> ahead);
    /// The samples at `samples` are released or replaced: their write
    /// ahead, if any, is discarded (the map itself is not touched).
    static void forget(const void *samples);
    /// The write ahead kept for exactly these samples, or null.
    static std::unique_ptr<WriteAhead> take(const void *samples, size_t bytes);
    /// A save is about to write a file at path the ordinary way: a write
    /// ahead kept there is discarded first, so that discarding it later
    /// cannot take the new file's name away.
    static void yield(const char *path);

    /// Puts `head` (at most kUncachedAlignment bytes) in front of the
    /// samples, cuts the file to its length and puts it in place at path.
    /// From then on the samples are the field's own: what it changes in
    /// them no longer reaches the file. False with why ("cannot write:
    /// ...", "interrupted"); the file is then discarded.
    bool finish(const std::vector<ByteRange> &head, const char *path, const KeepGoing &keepGoing,
                KcString &why);

    ~WriteAhead();
    WriteAhead(const WriteAhead &) = delete;
    WriteAhead &operator=(const WriteAhead &) = delete;

private:
    WriteAhead(size_t bytes, std::string path);
    /// The write ahead kept for these samples, out of the registry, or null.
    static std::unique_ptr<WriteAhead> removeKept(const void *samples);

    unsigned char *data = nullptr;
    size_t bytes;
    std::string path;
    OutputFile out;
};

/// Releases samples that a lattice owns: those of a write ahead are
/// unmapped, any other are given back with std::free.
void releaseSamples(void *samples);

} // namespace vxfield
