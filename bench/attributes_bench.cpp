// The time attribute per record (and the parts of its cost), the thread-name attribute, and a
// console line written to standard output redirected to /dev/null.
#include "alloc_counter.hpp"

#include "time_text.hpp"

#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>
#include <boost/date_time/c_local_time_adjustor.hpp>
#include <boost/log/attributes/attribute.hpp>
#include <boost/log/core/core.hpp>

#include <fstream>
#include <iostream>

namespace {

namespace v2 = VT::Logging::v2;
using namespace boost::posix_time;

// A global attribute of the core, registered when the first source is created.
boost::log::attribute global_attribute(char const* name)
{
    static v2::logger_source source;
    source.get_data();
    auto const globals = boost::log::core::get()->get_global_attributes();
    auto const found = globals.find(name);
    return found != globals.end() ? found->second : boost::log::attribute();
}

void count_allocations(benchmark::State& state, long long before)
{
    state.counters["allocs/record"] = benchmark::Counter(
        double(vtlog_bench::allocations.load() - before), benchmark::Counter::kAvgIterations);
}

// What every record pays: clock, local conversion, formatting, the value's allocations.
void BM_TimeAttribute(benchmark::State& state)
{
    auto time = global_attribute("time string");
    if (!time) {
        state.SkipWithError("no \"time string\" attribute");
        return;
    }
    auto const before = vtlog_bench::allocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(time.get_value());
    }
    count_allocations(state, before);
}
BENCHMARK(BM_TimeAttribute);

void BM_ThreadNameAttribute(benchmark::State& state)
{
    v2::set_current_thread_name("bench thread");
    auto name = global_attribute("thread name");
    auto const before = vtlog_bench::allocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(name.get_value());
    }
    count_allocations(state, before);
}
BENCHMARK(BM_ThreadNameAttribute);

// The parts of the time attribute's cost.
void BM_TimeClock(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(microsec_clock::universal_time());
    }
}
BENCHMARK(BM_TimeClock);

void BM_TimeLocalConversion(benchmark::State& state)
{
    auto const utc = microsec_clock::universal_time();
    for (auto _ : state) {
        benchmark::DoNotOptimize(boost::date_time::c_local_adjustor<ptime>::utc_to_local(utc));
    }
}
BENCHMARK(BM_TimeLocalConversion);

void BM_TimeFormat(benchmark::State& state)
{
    auto const local = microsec_clock::local_time();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            v2::impl::format_time(local.date(), local.time_of_day(), {false, 2, 0}));
    }
}
BENCHMARK(BM_TimeFormat);

// A whole log call ending in a console line: record, attributes, formatting, write and flush.
void BM_ConsoleLine(benchmark::State& state)
{
    std::filebuf null_device;
    if (!null_device.open("/dev/null", std::ios::out)) {
        state.SkipWithError("cannot open /dev/null");
        return;
    }
    auto* const original = std::cout.rdbuf(&null_device);
    {
        v2::logger_source source;
        source.add_sink(v2::sink::get_stdout());
        source.start_logging(v2::log_level::info);
        auto const l = source.get_child_logger("Network.Curl");
        auto const before = vtlog_bench::allocations.load();
        for (auto _ : state) {
            v2::log_str(l, v2::log_level::info, "connected to example.org:443 in 12 ms");
        }
        count_allocations(state, before);
    }
    std::cout.rdbuf(original);
}
BENCHMARK(BM_ConsoleLine);

} // namespace

BENCHMARK_MAIN();
