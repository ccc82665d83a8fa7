#pragma once

// Shared pieces of the fuzz targets: a quiet console, a private scratch folder
// for targets that must read their input from a file, and a check that turns
// a broken promise of the code under test into a crash libFuzzer reports.

#include <cstddef>
#include <cstdint>
#include <string>

namespace vxfuzz {

/// Sends the host console (and with it DCMTK's log) nowhere, so that a run
/// prints only libFuzzer's lines. Call once from LLVMFuzzerInitialize.
void quietConsole();

/// A folder of this process, in memory (/dev/shm) when the system has one,
/// removed with its files when the process exits normally.
const std::string &scratchDir();

/// Writes the bytes to `name` in the scratch folder and returns its path.
std::string writeScratchFile(const char *name, const uint8_t *data, size_t size);

[[noreturn]] void checkFailed(const char *condition, const char *file, int line);

} // namespace vxfuzz

/// A promise of the code under test (not an input condition): aborts with the
/// condition when it does not hold, which libFuzzer reports as a crash.
#define VXFUZZ_CHECK(condition)                                                                    \
    do {                                                                                           \
        if (!(condition))                                                                          \
            ::vxfuzz::checkFailed(#condition, __FILE__, __LINE__);                                 \
    } while (0)
