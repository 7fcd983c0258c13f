// What the side-by-side programs share: the workloads' texts and sizes, a scratch directory, a
// per-thread allocation count and the heap in use (allocations.hpp), and the early-queue
// figures.
#pragma once

#include "allocations.hpp"
#include "fixed_iterations.hpp"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

namespace vtlog_peers {

// The texts and names of the workloads: every system logs these same bytes.
constexpr char filtered_domain[] = "bench.filtered";
constexpr char file_domain[] = "bench";
constexpr char file_message[] = "request 12345 sent to host example.org";
constexpr char console_domain[] = "Network.Curl";
constexpr char console_message[] = "connected to example.org:443 in 12 ms";
constexpr char early_domain[] = "bench.early";
constexpr long early_held = 100000;

// The files of the file line rotate at 16 MiB and the directory is kept under 64 MiB, so a run
// of any length stays bounded.
constexpr unsigned long rotation_size = 16ul << 20;
constexpr unsigned long max_total_size = 64ul << 20;

// The name each benchmark thread gives itself, shown in the file line ("bench 0", "bench 1").
inline std::string thread_name(benchmark::State const& state)
{
    return "bench " + std::to_string(state.thread_index());
}

// An argument that must never be formatted: a filtered call that formats it throws, which
// stops the benchmark.
struct never_formatted {};

[[noreturn]] inline void formatted_by_mistake()
{
    throw std::logic_error("a filtered message was formatted");
}

// A fresh directory under the system's temporary directory (TMPDIR), removed at exit.
struct scratch {
    scratch()
        : dir(std::filesystem::temp_directory_path() /
              ("vtlog-peers-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directories(dir);
    }
    ~scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    scratch(scratch const&) = delete;
    scratch& operator=(scratch const&) = delete;

    std::filesystem::path const dir;
};

using vtlog_bench::heap_in_use;
using vtlog_bench::report_allocations;
using vtlog_bench::thread_allocations;

// The three figures of the early queue, summed over the benchmark's iterations: what holding a
// message costs the caller, what it costs in memory, and how fast the start writes them out.
class early_queue_figures {
public:
    using clock = std::chrono::steady_clock;

    void add(clock::duration capture, clock::duration replay, long long held_bytes)
    {
        capture_ns_ += std::chrono::duration<double, std::nano>(capture).count() / early_held;
        replay_ns_ += std::chrono::duration<double, std::nano>(replay).count();
        bytes_ += double(held_bytes) / early_held;
    }

    void report(benchmark::State& state) const
    {
        auto const rounds = double(state.iterations());
        state.counters["capture_ns/msg"] = capture_ns_ / rounds;
        state.counters["held_bytes/msg"] = bytes_ / rounds;
        state.counters["replay_msgs/s"] = early_held / (replay_ns_ / rounds / 1e9);
    }

private:
    double capture_ns_ = 0;
    double replay_ns_ = 0;
    double bytes_ = 0;
};

} // namespace vtlog_peers

// Takes no format options, and throws if ever asked to format.
template <>
struct fmt::formatter<vtlog_peers::never_formatted> {
    constexpr auto parse(fmt::format_parse_context& context) -> decltype(context.begin())
    {
        return context.begin();
    }
    auto format(vtlog_peers::never_formatted const&, fmt::format_context& context) const
        -> decltype(context.out())
    {
        vtlog_peers::formatted_by_mistake();
    }
};
