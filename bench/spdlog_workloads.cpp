// The side-by-side workloads as spdlog (compiled library, synchronous loggers) runs them; same
// names and texts as vtlog_workloads.cpp.
#include "peer_common.hpp"

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <memory>
#include <string>

namespace {

namespace peers = vtlog_peers;

// 1. A call below the logger's level, with arguments that would need formatting.
void BM_FilteredCall(benchmark::State& state)
{
    spdlog::logger l(peers::filtered_domain, std::make_shared<spdlog::sinks::null_sink_mt>());
    l.set_level(spdlog::level::warn);
    int const bytes = 1234;
    std::string const host = "example.org";
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        l.debug("sent {} bytes to {}{}", bytes, host, peers::never_formatted{});
    }
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_FilteredCall)->Apply(vtlog_bench::fixed_iterations);

// 2. One file line, flushed before the call returns. spdlog has no thread names, so the line
// gets its name field from a flag of our own that prints the calling thread's name.
thread_local std::string current_thread_name;

class thread_name_flag : public spdlog::custom_flag_formatter {
public:
    void format(spdlog::details::log_msg const&, std::tm const&,
                spdlog::memory_buf_t& dest) override
    {
        dest.append(current_thread_name.data(),
                    current_thread_name.data() + current_thread_name.size());
    }
    std::unique_ptr<spdlog::custom_flag_formatter> clone() const override
    {
        return std::make_unique<thread_name_flag>();
    }
};

// Time with milliseconds and UTC offset, thread id and name, [domain], message; tab-separated.
struct file_logging {
    file_logging()
        : logger(peers::file_domain, std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                                         (files.dir / "bench.log").string(), peers::rotation_size,
                                         peers::max_total_size / peers::rotation_size - 1))
    {
        auto formatter = std::make_unique<spdlog::pattern_formatter>();
        formatter->add_flag<thread_name_flag>('*').set_pattern(
            "%Y-%m-%d %H:%M:%S.%e%z\t%t:%*\t[%n]\t%v");
        logger.set_formatter(std::move(formatter));
        logger.set_level(spdlog::level::info);
        logger.flush_on(spdlog::level::trace);
    }
    peers::scratch files;
    spdlog::logger logger;
};

void BM_FileLine(benchmark::State& state)
{
    static file_logging shared;
    current_thread_name = peers::thread_name(state);
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        shared.logger.info(peers::file_message);
    }
    state.SetItemsProcessed(state.iterations());
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_FileLine)->Threads(1)->Threads(2)->UseRealTime()->Apply(vtlog_bench::fixed_iterations);

// 3. One console line, "[domain] message"; the script runs this program with standard output
// on /dev/null. The sink writes with fwrite and flushes after every line.
void BM_ConsoleLine(benchmark::State& state)
{
    spdlog::logger l(peers::console_domain, std::make_shared<spdlog::sinks::stdout_sink_mt>());
    l.set_pattern("[%n] %v");
    l.set_level(spdlog::level::info);
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        l.info(peers::console_message);
    }
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_ConsoleLine)->Apply(vtlog_bench::fixed_iterations);

// 4. spdlog's nearest feature to an early queue is its backtrace: a ring that holds formatted
// messages the logger does not write (its level is "off" here) until dump_backtrace writes
// them all to the sinks, here one that discards them. The ring's slots are allocated when it is
// enabled, so they count in the bytes held.
void BM_EarlyQueue(benchmark::State& state)
{
    using clock = peers::early_queue_figures::clock;
    peers::early_queue_figures figures;
    for (auto _ : state) {
        auto const bytes_before = peers::heap_in_use();
        spdlog::logger l(peers::early_domain, std::make_shared<spdlog::sinks::null_sink_mt>());
        l.set_level(spdlog::level::off);
        l.enable_backtrace(peers::early_held);
        auto const start = clock::now();
        for (long n = 0; n < peers::early_held; ++n) {
            l.info("request {} sent to host", n);
        }
        auto const held = clock::now();
        auto const held_bytes = peers::heap_in_use() - bytes_before;
        auto const replay = clock::now();
        l.dump_backtrace();
        figures.add(held - start, clock::now() - replay, held_bytes);
    }
    figures.report(state);
}
BENCHMARK(BM_EarlyQueue)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
