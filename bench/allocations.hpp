// Heap figures shared by the benchmark programs: the calling thread's count of allocator calls,
// kept by allocations.cpp (which every program links), and the heap in use.
#pragma once

#include <benchmark/benchmark.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace vtlog_bench {

// Heap allocations made by the calling thread: every malloc, calloc and realloc with glibc,
// only operator new elsewhere and in sanitizer builds. A plain per-thread increment, so that
// counting costs next to nothing on the paths being measured.
inline thread_local long long thread_allocations = 0;

// Reports the allocations of this thread since `before` as a count per iteration (summed over
// the benchmark's threads).
inline void report_allocations(benchmark::State& state, long long before, char const* name)
{
    state.counters[name] =
        benchmark::Counter(double(thread_allocations - before), benchmark::Counter::kAvgIterations);
}

// Bytes in use on the heap, as glibc counts them (every allocator call of the process, whether
// through operator new or malloc); large blocks are mapped on their own and counted apart.
// Elsewhere 0.
inline long long heap_in_use()
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
    auto const info = mallinfo2();
    return static_cast<long long>(info.uordblks + info.hblkhd);
#else
    return 0;
#endif
}

} // namespace vtlog_bench
