// Counted global allocation functions for the side-by-side programs. They live in a file of
// their own so that no call site sees malloc and free behind new and delete. The aligned and
// nothrow forms are left to the standard library, which builds them on malloc and these.
#include "peer_common.hpp"

#include <cstdlib>
#include <new>

void* operator new(std::size_t size)
{
    ++vtlog_peers::thread_allocations;
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
