// The largest allocation request of the process: noted by the allocator's entry points before
// glibc's, or under AddressSanitizer, whose allocator must stay, by its hook.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace {
std::atomic<size_t> largest{0};
void note(size_t n)
{
    size_t seen = largest.load(std::memory_order_relaxed);
    while (n > seen && !largest.compare_exchange_weak(seen, n, std::memory_order_relaxed))
        ;
}
} // namespace

size_t largestAllocation()
{
    return largest.load();
}
void resetLargestAllocation()
{
    largest.store(0);
}

#ifdef __SANITIZE_ADDRESS__ // GCC and Clang
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *, size_t),
                                                         void (*)(const volatile void *));
[[maybe_unused]] static const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, size_t n) { note(n); }, [](const volatile void *) {});
#else
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void *malloc(size_t n)
{
    return note(n), __libc_malloc(n);
}
void *calloc(size_t count, size_t n)
{
    return note(count && n > SIZE_MAX / count ? SIZE_MAX : count * n), __libc_calloc(count, n);
}
void *realloc(void *p, size_t n)
{
    return note(n), __libc_realloc(p, n);
}
void *memalign(size_t alignment, size_t n)
{
    return note(n), __libc_memalign(alignment, n);
}
void *aligned_alloc(size_t alignment, size_t n)
{
    return memalign(alignment, n);
}
int posix_memalign(void **out, size_t alignment, size_t n)
{
    return (*out = memalign(alignment, n)) || !n ? 0 : ENOMEM;
}
}
#endif
