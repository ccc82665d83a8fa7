#pragma once

#include <cstddef>

namespace hostile {

/// The largest single request to the C allocator (operator new goes through it)
/// since the last reset; under AddressSanitizer, of the requests that succeeded.
size_t largestAllocation();
void resetLargestAllocation();

} // namespace hostile
