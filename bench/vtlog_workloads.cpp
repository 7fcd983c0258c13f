// The side-by-side workloads as libVTLog runs them. spdlog_workloads.cpp and
// boostlog_workloads.cpp run the same ones, under the same names, in processes of their own.
#include "discarding_sink.hpp"
#include "peer_common.hpp"

#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>

#include <memory>
#include <optional>
#include <string>

namespace {

namespace v2 = VT::Logging::v2;
namespace peers = vtlog_peers;
using v2::log_level;

// 1. A call below the logger's level, with arguments that would need formatting.
void BM_FilteredCall(benchmark::State& state)
{
    v2::logger_source source;
    source.start_logging(log_level::warning);
    auto const l = source.get_child_logger(peers::filtered_domain);
    int const bytes = 1234;
    std::string const host = "example.org";
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        v2::log_fmt(l, log_level::debug, "sent {} bytes to {}{}", bytes, host,
                    peers::never_formatted{});
    }
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_FilteredCall)->Apply(vtlog_bench::fixed_iterations);

// 2. One file line, flushed before the call returns, from one then two threads sharing the
// logger.
struct file_logging {
    file_logging()
    {
        auto const pattern = (files.dir / "bench %2N.log").string();
        source.add_sink(v2::sink::get_dir(pattern, peers::rotation_size, peers::max_total_size));
        source.start_logging(log_level::info);
        logger.emplace(source.get_child_logger(peers::file_domain));
    }
    peers::scratch files;
    v2::logger_source source;
    std::optional<v2::logger> logger;
};

void BM_FileLine(benchmark::State& state)
{
    static file_logging shared;
    v2::set_current_thread_name(peers::thread_name(state));
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        v2::log_str(*shared.logger, log_level::info, peers::file_message);
    }
    state.SetItemsProcessed(state.iterations());
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_FileLine)->Threads(1)->Threads(2)->UseRealTime()->Apply(vtlog_bench::fixed_iterations);

// 3. One console line; the script runs this program with standard output on /dev/null.
void BM_ConsoleLine(benchmark::State& state)
{
    v2::logger_source source;
    source.add_sink(v2::sink::get_stdout());
    source.start_logging(log_level::info);
    auto const l = source.get_child_logger(peers::console_domain);
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        v2::log_str(l, log_level::info, peers::console_message);
    }
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_ConsoleLine)->Apply(vtlog_bench::fixed_iterations);

// 4. 100,000 messages held before the start, then the start writes them into a sink that
// discards them.
void BM_EarlyQueue(benchmark::State& state)
{
    using clock = peers::early_queue_figures::clock;
    peers::early_queue_figures figures;
    for (auto _ : state) {
        v2::logger_source source;
        source.add_sink(vtlog_bench::discarding_sink());
        auto const l = source.get_child_logger(peers::early_domain);
        auto const bytes_before = peers::heap_in_use();
        auto const start = clock::now();
        for (long n = 0; n < peers::early_held; ++n) {
            v2::log_fmt(l, log_level::info, "request {} sent to host", n);
        }
        auto const held = clock::now();
        auto const held_bytes = peers::heap_in_use() - bytes_before;
        auto const replay = clock::now();
        source.start_logging(log_level::info);
        figures.add(held - start, clock::now() - replay, held_bytes);
    }
    figures.report(state);
}
BENCHMARK(BM_EarlyQueue)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
