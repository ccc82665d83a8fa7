#pragma once

// Loads through the reader's pipeline for the hostile-input tests, and the
// facts of the fields they make.

#include "tests/support/TestSupport.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace hostile {

/// What a test compares of a field: its dimensions, sample type and samples.
struct FieldFacts
{
    std::string label;
    int dims[3] = {0, 0, 0};
    int sampleBytes = 0;
    uint64_t samplesHash = 0; ///< FNV-1a of the sample bytes
    bool operator==(const FieldFacts &o) const
    {
        return dims[0] == o.dims[0] && dims[1] == o.dims[1] && dims[2] == o.dims[2] &&
               sampleBytes == o.sampleBytes && samplesHash == o.samplesHash;
    }
};

struct LoadOutcome
{
    int status = -1;     ///< vxReadDicom's result
    std::string console; ///< everything printed on the host console
    std::vector<FieldFacts> fields;
};

/// Runs vxReadDicom in silent mode on the names, header only (delayed) or
/// with every pixel read at once; the fields are summarised and released.
LoadOutcome loadFiles(const std::vector<std::string> &names, bool delayed);

/// The console line "reading NAME failed: ..." of that name, or "".
std::string failureLine(const std::string &console, const std::string &name);

/// Whether the console has the line "+ NAME" (the file was read).
bool readLine(const std::string &console, const std::string &name);

/// Points TMPDIR at a fresh folder for the lifetime of the object, so that a
/// test sees every temporary file the reader makes.
class WatchedTempDir
{
public:
    WatchedTempDir();
    ~WatchedTempDir();
    WatchedTempDir(const WatchedTempDir &) = delete;
    WatchedTempDir &operator=(const WatchedTempDir &) = delete;
    /// The names of the files left in it.
    std::vector<std::string> leftovers() const;
    std::string path() const { return dir.string(); }

private:
    std::filesystem::path dir;
    std::optional<std::string> previous;
};

using vxtest::ScopedEnv;

} // namespace hostile
