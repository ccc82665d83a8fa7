#pragma once

#include <cstddef>

namespace hostile {

/// The largest single allocation asked of the C allocator (malloc, calloc,
/// realloc, the aligned forms, and operator new through them) since the last
/// reset, in bytes. Under AddressSanitizer the sanitizer's hook reports the
/// allocations that succeeded (a failed huge one aborts the process there).
size_t largestAllocation();
void resetLargestAllocation();

} // namespace hostile
