// The message path: a filtered call against its floor, a written message into a discarding
// sink, and the early queue (capture cost, bytes held, replay rate).
#include "allocations.hpp"
#include "discarding_sink.hpp"
#include "filtered_floor.hpp"
#include "fixed_iterations.hpp"

#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>
#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/attribute_value_set.hpp>
#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {
struct never_formatted;
}

// Formatting this argument is a bug: a filtered message must never be formatted.
template <>
struct fmt::formatter<never_formatted> {
    constexpr auto parse(fmt::format_parse_context& ctx) { return ctx.begin(); }
    auto format(never_formatted const&, fmt::format_context&) const -> fmt::appender
    {
        throw std::logic_error("filtered message was formatted");
    }
};

namespace {

namespace v2 = VT::Logging::v2;
using v2::log_level;

// A text that would cost real formatting; it fails loudly if a filtered call ever asks for it.
class never_needed : public v2::log_function_ref {
public:
    std::string_view get_str() const override { throw std::logic_error("filtered text was built"); }
};

class formatted : public v2::log_function_ref {
public:
    explicit formatted(long n)
        : n_(n)
    {
    }
    std::string_view get_str() const override
    {
        int const size = std::snprintf(buffer_, sizeof buffer_, "request %ld sent to host", n_);
        return {buffer_, static_cast<std::size_t>(size)};
    }

private:
    long n_;
    mutable char buffer_[64];
};

using vtlog_bench::discarding_sink;

void BM_FilteredFloor(benchmark::State& state)
{
    vtlog_bench::floor_logger l{log_level::warning};
    never_needed text;
    for (auto _ : state) {
        vtlog_bench::floor_log(&l, log_level::debug, text);
    }
}
BENCHMARK(BM_FilteredFloor)->Apply(vtlog_bench::fixed_iterations);

void BM_FilteredCall(benchmark::State& state)
{
    v2::logger_source source;
    source.start_logging(log_level::warning);
    auto l = source.get_child_logger("bench.filtered");
    never_needed text;
    auto const before = vtlog_bench::thread_allocations;
    for (auto _ : state) {
        l.log(log_level::debug, text);
    }
    vtlog_bench::report_allocations(state, before, "allocs/call");
}
BENCHMARK(BM_FilteredCall)->Apply(vtlog_bench::fixed_iterations);

// The same filtered message written two ways, both building their text source per call as a
// caller does: a hand-written log_function_ref that would format the same message into its own
// buffer, and log_fmt. Neither formats: both would throw.
struct never_formatted {};

class hand_written_text : public v2::log_function_ref {
public:
    hand_written_text(int const& bytes, std::string const& host)
        : bytes_(bytes)
        , host_(host)
    {
    }
    std::string_view get_str() const override
    {
        auto const written =
            fmt::format_to_n(buffer_, sizeof buffer_, format_, bytes_, host_, never_formatted{});
        return {buffer_, written.size};
    }

private:
    fmt::format_string<int const&, std::string const&, never_formatted> format_ =
        "sent {} bytes to {}{}";
    int const& bytes_;
    std::string const& host_;
    mutable char buffer_[500];
};

template <class Log>
void filtered_message(benchmark::State& state, Log log)
{
    v2::logger_source source;
    source.start_logging(log_level::warning);
    auto const l = source.get_child_logger("bench.filtered");
    int const bytes = 1234;
    std::string const host = "example.org";
    auto const before = vtlog_bench::thread_allocations;
    for (auto _ : state) {
        log(l, bytes, host);
    }
    vtlog_bench::report_allocations(state, before, "allocs/call");
}

void BM_FilteredHandWritten(benchmark::State& state)
{
    filtered_message(state, [](v2::logger const& l, int const& bytes, std::string const& host) {
        l.log(log_level::debug, hand_written_text(bytes, host));
    });
}
BENCHMARK(BM_FilteredHandWritten)->Apply(vtlog_bench::fixed_iterations);

void BM_FilteredLogFmt(benchmark::State& state)
{
    filtered_message(state, [](v2::logger const& l, int const& bytes, std::string const& host) {
        v2::log_fmt(l, log_level::debug, "sent {} bytes to {}{}", bytes, host, never_formatted{});
    });
}
BENCHMARK(BM_FilteredLogFmt)->Apply(vtlog_bench::fixed_iterations);

void BM_WrittenToDiscardingSink(benchmark::State& state)
{
    v2::logger_source source;
    source.add_sink(discarding_sink());
    source.start_logging(log_level::info);
    auto l = source.get_child_logger("bench.written");
    long n = 0;
    auto const before = vtlog_bench::thread_allocations;
    for (auto _ : state) {
        l.log(log_level::info, formatted(++n));
    }
    vtlog_bench::report_allocations(state, before, "allocs/msg");
}
BENCHMARK(BM_WrittenToDiscardingSink);

// The same message through log_fmt: its formatting is the part of a written call that log_fmt
// adds.
void BM_WrittenLogFmt(benchmark::State& state)
{
    v2::logger_source source;
    source.add_sink(discarding_sink());
    source.start_logging(log_level::info);
    auto l = source.get_child_logger("bench.written");
    long n = 0;
    for (auto _ : state) {
        v2::log_fmt(l, log_level::info, "request {} sent to host", ++n);
    }
}
BENCHMARK(BM_WrittenLogFmt)->Apply(vtlog_bench::fixed_iterations);

// range(0) messages held before the start, then the start replays them into a discarding sink.
void BM_EarlyQueue(benchmark::State& state)
{
    long const held = state.range(0);
    double capture_ns = 0, replay_ns = 0, bytes = 0;
    for (auto _ : state) {
        v2::logger_source source;
        source.add_sink(discarding_sink());
        auto l = source.get_child_logger("bench.early");
        auto const bytes_before = vtlog_bench::heap_in_use();
        auto const t0 = std::chrono::steady_clock::now();
        for (long n = 0; n < held; ++n) {
            l.log(log_level::info, formatted(n));
        }
        auto const t1 = std::chrono::steady_clock::now();
        bytes += double(vtlog_bench::heap_in_use() - bytes_before) / held;
        source.start_logging(log_level::info);
        auto const t2 = std::chrono::steady_clock::now();
        capture_ns += std::chrono::duration<double, std::nano>(t1 - t0).count() / held;
        replay_ns += std::chrono::duration<double, std::nano>(t2 - t1).count();
    }
    auto const rounds = double(state.iterations());
    state.counters["capture_ns/msg"] = capture_ns / rounds;
    state.counters["held_bytes/msg"] = bytes / rounds;
    state.counters["replay_msgs/s"] = held / (replay_ns / rounds / 1e9);
}
BENCHMARK(BM_EarlyQueue)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// The floor of the bytes held per message: the held form of a record is a Boost.Log
// attribute_value_set of its 11 values; here every value is shared, so only the container counts.
void BM_HeldSetFloor(benchmark::State& state)
{
    std::vector<boost::log::attribute_name> names;
    for (int i = 0; i < 11; ++i) {
        names.emplace_back("held " + std::to_string(i));
    }
    boost::log::attribute_value const shared(
        new boost::log::attributes::attribute_value_impl<int>(0));
    double bytes = 0;
    for (auto _ : state) {
        std::vector<boost::log::attribute_value_set> held;
        held.reserve(1000);
        auto const before = vtlog_bench::heap_in_use();
        for (int n = 0; n < 1000; ++n) {
            held.emplace_back(names.size());
            for (auto const& name : names) {
                held.back().insert(name, shared);
            }
        }
        bytes += double(vtlog_bench::heap_in_use() - before) / 1000;
    }
    state.counters["held_bytes/msg"] = bytes / double(state.iterations());
}
BENCHMARK(BM_HeldSetFloor)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
