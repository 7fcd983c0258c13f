// The time attribute per record (and the parts of its cost), the thread-name attribute, and a
// console line written to standard output redirected to /dev/null.
#include "allocations.hpp"

#include "time_text.hpp"

#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>
#include <boost/date_time/c_local_time_adjustor.hpp>
#include <boost/log/attributes/attribute.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>

#include <chrono>
#include <fstream>
#include <iostream>
#include <string_view>

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

// What every record pays: the clock reading and the value's allocation (range(0) == 0); and
// what a record whose line shows its time pays, the text read once: local conversion and
// printing (range(0) == 1).
void BM_TimeAttribute(benchmark::State& state)
{
    auto time = global_attribute("time string");
    if (!time) {
        state.SkipWithError("no \"time string\" attribute");
        return;
    }
    bool const read = state.range(0) != 0;
    auto const before = vtlog_bench::thread_allocations;
    for (auto _ : state) {
        auto const value = time.get_value();
        if (read) {
            benchmark::DoNotOptimize(value.extract<std::string_view>());
        }
        benchmark::DoNotOptimize(value);
    }
    vtlog_bench::report_allocations(state, before, "allocs/record");
}
BENCHMARK(BM_TimeAttribute)->ArgName("read")->Arg(0)->Arg(1);

void BM_ThreadNameAttribute(benchmark::State& state)
{
    v2::set_current_thread_name("bench thread");
    auto name = global_attribute("thread name");
    auto const before = vtlog_bench::thread_allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize(name.get_value());
    }
    vtlog_bench::report_allocations(state, before, "allocs/record");
}
BENCHMARK(BM_ThreadNameAttribute);

// The parts of the time attribute's cost: the clock reading that every record takes, and what
// Boost's microsecond clock adds to it (the calendar date of the reading, through gmtime_r),
// which the attribute defers to the reading of its text.
void BM_TimeClock(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::chrono::system_clock::now());
    }
}
BENCHMARK(BM_TimeClock);

void BM_TimeBoostClock(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(microsec_clock::universal_time());
    }
}
BENCHMARK(BM_TimeBoostClock);

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
        auto const before = vtlog_bench::thread_allocations;
        for (auto _ : state) {
            v2::log_str(l, v2::log_level::info, "connected to example.org:443 in 12 ms");
        }
        vtlog_bench::report_allocations(state, before, "allocs/record");
    }
    std::cout.rdbuf(original);
}
BENCHMARK(BM_ConsoleLine);

} // namespace

BENCHMARK_MAIN();
