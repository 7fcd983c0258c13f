// Counts heap allocations and live bytes of the whole process (the library included), by
// replacing the global operator new and delete. Include in exactly one file of a benchmark.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace vtlog_bench {

inline std::atomic<long long> allocations{0};
inline std::atomic<long long> live_bytes{0};

// Each block carries its size in front, so delete can subtract it.
constexpr std::size_t header = alignof(std::max_align_t);

inline void* counted_alloc(std::size_t size)
{
    auto* block = static_cast<unsigned char*>(std::malloc(size + header));
    if (!block) {
        throw std::bad_alloc();
    }
    *reinterpret_cast<std::size_t*>(block) = size;
    allocations.fetch_add(1, std::memory_order_relaxed);
    live_bytes.fetch_add(static_cast<long long>(size), std::memory_order_relaxed);
    return block + header;
}

inline void counted_free(void* p) noexcept
{
    if (!p) {
        return;
    }
    auto* block = static_cast<unsigned char*>(p) - header;
    live_bytes.fetch_sub(static_cast<long long>(*reinterpret_cast<std::size_t*>(block)),
                         std::memory_order_relaxed);
    std::free(block);
}

// Bytes in use on the heap, mapped blocks included. Boost.Log allocates attribute values with its
// own operator new, which the replacements below do not see, so glibc's own count is used where
// there is one.
inline long long heap_in_use()
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
    auto const info = mallinfo2();
    return static_cast<long long>(info.uordblks + info.hblkhd);
#else
    return live_bytes.load(std::memory_order_relaxed);
#endif
}

} // namespace vtlog_bench

void* operator new(std::size_t size)
{
    return vtlog_bench::counted_alloc(size);
}
void* operator new[](std::size_t size)
{
    return vtlog_bench::counted_alloc(size);
}
void operator delete(void* p) noexcept
{
    vtlog_bench::counted_free(p);
}
void operator delete[](void* p) noexcept
{
    vtlog_bench::counted_free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    vtlog_bench::counted_free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    vtlog_bench::counted_free(p);
}
