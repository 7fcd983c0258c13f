// Counts the calling thread's calls of the C allocator: every block the process takes, whether
// through operator new, a class's own operator new (Boost.Log's attribute values have one), or
// malloc directly (FILE buffers). The definitions here take the place of the C library's for
// the whole process; each counts and forwards to glibc's own entry points. Elsewhere, and in
// sanitizer builds (whose allocator must stay in place), only operator new is counted.
#include "allocations.hpp"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VTLOG_PEERS_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VTLOG_PEERS_SANITIZED
#endif
#endif

#if defined(__GLIBC__) && !defined(VTLOG_PEERS_SANITIZED)

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) noexcept
{
    ++vtlog_bench::thread_allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++vtlog_bench::thread_allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept
{
    ++vtlog_bench::thread_allocations;
    return __libc_realloc(block, size);
}
} // extern "C"

#else

void* operator new(std::size_t size)
{
    ++vtlog_bench::thread_allocations;
    if (void* const p = std::malloc(size ? size : 1)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    return ::operator new(size);
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

#endif
