#pragma once

// Internal to the field file code: gzip compression of a large byte stream
// on several cores.

#include "platform/core/KcString.h"
#include "platform/data/OutputFile.h"

#include <cstddef>
#include <vector>

namespace vxfield {

struct GzipOptions
{
    /// libdeflate's level (1 to 12). 6 gives files a little smaller than
    /// gzip's and pigz's default level 6 does.
    int level = 6;
    /// Bytes of the stream per gzip member.
    size_t chunkBytes = size_t(1) << 20;
    /// A part shorter than this (a header) is compressed with the start of
    /// the next one instead of as a member of its own.
    size_t joinBytes = size_t(64) << 10;
    /// Threads that compress, the calling one included; 0: one per core, at
    /// most two.
    int threads = 0;
};

/// Writes the parts, one after the other, to out as a gzip stream of
/// independent members of chunkBytes of the stream each (RFC 1952: a gzip
/// file is a series of members, which gzip, zlib's gzread, pigz and nibabel
/// read as one stream). Each member is compressed with libdeflate by the
/// calling thread or a helper thread, then written in order by the thread
/// that compressed it; the same parts and options give the same bytes
/// whatever the number of threads. Helper threads only compress and write;
/// keepGoing is asked on the calling thread alone, after each of its chunks
/// and at least every 50 ms while it waits. Memory: per thread one chunk's
/// compressed bound, joinBytes and libdeflate's compressor.
///
/// False with why: "cannot write: ...", "interrupted", "cannot start gzip
/// compression (level N)".
bool writeGzipMembers(OutputFile &out, const std::vector<ByteRange> &parts,
                      const GzipOptions &options, const KeepGoing &keepGoing, KcString &why);

} // namespace vxfield
