// The side-by-side workloads as Boost.Log configured by hand runs them: one shared severity and
// channel logger, the common attributes, a core filter on the severity, and each workload's sink
// registered for its run only. Same names and texts as vtlog_workloads.cpp.
#include "peer_common.hpp"

#include <benchmark/benchmark.h>
#include <boost/core/null_deleter.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/scoped_attribute.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <ctime>
#include <ios>
#include <iostream>
#include <limits>
#include <memory>
#include <ostream>
#include <string>

namespace vtlog_peers {
std::ostream& operator<<(std::ostream&, never_formatted const&)
{
    formatted_by_mistake();
}
} // namespace vtlog_peers

namespace {

namespace peers = vtlog_peers;
namespace logging = boost::log;
namespace sinks = boost::log::sinks;
namespace expr = boost::log::expressions;

using logger_type = logging::sources::severity_channel_logger_mt<int, std::string>;
constexpr int debug = 1;
constexpr int info = 2;
constexpr int warning = 3;

// The common attributes ("TimeStamp" in local time, "ThreadID"...) once per process, and a
// core that passes records at `threshold` and above to no sink yet.
void reset_core(int threshold)
{
    static bool const common = [] {
        logging::add_common_attributes();
        return true;
    }();
    (void)common;
    auto const core = logging::core::get();
    core->remove_all_sinks();
    core->set_filter(expr::attr<int>("Severity") >= threshold);
}

class discarding_backend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    void consume(logging::record_view const&) {}
};

// 1. A call below the logger's level, with arguments that would need formatting.
void BM_FilteredCall(benchmark::State& state)
{
    reset_core(warning);
    logging::core::get()->add_sink(
        boost::make_shared<sinks::synchronous_sink<discarding_backend>>());
    logger_type l(logging::keywords::channel = peers::filtered_domain);
    int const bytes = 1234;
    std::string const host = "example.org";
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        BOOST_LOG_SEV(l, debug) << "sent " << bytes << " bytes to " << host
                                << peers::never_formatted{};
    }
    peers::report_allocations(state, before, "allocs/op");
    reset_core(info);
}
BENCHMARK(BM_FilteredCall)->Apply(vtlog_bench::fixed_iterations);

// 2. One file line, flushed before the call returns, from one then two threads sharing the
// logger. Each thread names itself with a scoped thread tag, Boost.Log's own way.
struct line_names {
    logging::attribute_name const time_stamp{"TimeStamp"};
    logging::attribute_name const thread_id{"ThreadID"};
    logging::attribute_name const thread_name{"ThreadName"};
    logging::attribute_name const channel{"Channel"};
    logging::attribute_name const message{"Message"};
};

// The local UTC offset as "+hh:mm", read once: the time stamp attribute gives local time only.
std::string utc_offset_text()
{
    std::time_t const now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    long const minutes = local.tm_gmtoff / 60;
    long const size = minutes < 0 ? -minutes : minutes;
    return fmt::format("{}{:02}:{:02}", minutes < 0 ? '-' : '+', size / 60, size % 60);
}

// Writes `value` as exactly `width` decimal digits (the fields below always fit).
char* put_digits(char* out, long value, int width)
{
    for (int i = width - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return out + width;
}

// time TAB thread-id:thread-name TAB [domain] TAB message; the back end adds the newline. The
// time is written digit by digit, as libVTLog writes its time text, with no format string
// read at run time.
void file_line(logging::record_view const& record, logging::formatting_ostream& out)
{
    static line_names const names;
    static std::string const offset = utc_offset_text();
    auto const& values = record.attribute_values();
    if (auto const time = logging::extract<boost::posix_time::ptime>(names.time_stamp, values)) {
        auto const date = time->date().year_month_day();
        auto const clock = time->time_of_day();
        char text[23];
        char* end = put_digits(text, date.year, 4);
        *end++ = '-';
        end = put_digits(end, date.month, 2);
        *end++ = '-';
        end = put_digits(end, date.day, 2);
        *end++ = ' ';
        end = put_digits(end, clock.hours(), 2);
        *end++ = ':';
        end = put_digits(end, clock.minutes(), 2);
        *end++ = ':';
        end = put_digits(end, clock.seconds(), 2);
        *end++ = '.';
        end = put_digits(end, clock.total_milliseconds() % 1000, 3);
        out.write(text, end - text);
        out.write(offset.data(), static_cast<std::streamsize>(offset.size()));
    }
    out << '\t';
    if (auto const id = logging::extract<logging::thread_id>(names.thread_id, values)) {
        out << id.get();
        if (auto const name = logging::extract<std::string>(names.thread_name, values)) {
            out << ':' << name.get();
        }
    }
    out << "\t[" << logging::extract<std::string>(names.channel, values) << "]\t"
        << logging::extract<std::string>(names.message, values);
}

// The same back end settings as the library's directory sink: appending, size rotation, daily
// rotation at midnight, the directory's total bounded, a flush after every record.
struct file_logging {
    file_logging()
    {
        auto backend = boost::make_shared<sinks::text_file_backend>();
        backend->set_open_mode(std::ios_base::out | std::ios_base::binary | std::ios_base::app);
        backend->set_file_name_pattern((files.dir / "bench %2N.log").string());
        backend->set_time_based_rotation(sinks::file::rotation_at_time_point(0, 0, 0));
        backend->set_rotation_size(peers::rotation_size);
        backend->set_file_collector(sinks::file::make_collector(
            logging::keywords::target = files.dir.string(),
            logging::keywords::max_size = peers::max_total_size,
            logging::keywords::min_free_space = 0,
            logging::keywords::max_files = std::numeric_limits<unsigned long>::max()));
        backend->scan_for_files(sinks::file::scan_all, true);
        backend->auto_flush(true);
        sink = boost::make_shared<sinks::synchronous_sink<sinks::text_file_backend>>(backend);
        sink->set_formatter(&file_line);
        reset_core(info);
        logging::core::get()->add_sink(sink);
    }
    ~file_logging() { logging::core::get()->remove_sink(sink); }

    peers::scratch files;
    boost::shared_ptr<sinks::synchronous_sink<sinks::text_file_backend>> sink;
    logger_type logger{logging::keywords::channel = peers::file_domain};
};

void BM_FileLine(benchmark::State& state)
{
    // Made by the first thread before, and destroyed after, the loop: the other threads wait for
    // it at the start and the end of the loop.
    static std::unique_ptr<file_logging> shared;
    if (state.thread_index() == 0) {
        shared = std::make_unique<file_logging>();
    }
    BOOST_LOG_SCOPED_THREAD_TAG("ThreadName", peers::thread_name(state));
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        BOOST_LOG_SEV(shared->logger, info) << peers::file_message;
    }
    state.SetItemsProcessed(state.iterations());
    peers::report_allocations(state, before, "allocs/op");
    if (state.thread_index() == 0) {
        shared.reset();
    }
}
BENCHMARK(BM_FileLine)->Threads(1)->Threads(2)->UseRealTime()->Apply(vtlog_bench::fixed_iterations);

// 3. One console line, "[domain] message", written with Boost.Log's formatting expressions to a
// stream back end on std::cout that flushes after every record; the script runs this program
// with standard output on /dev/null.
void BM_ConsoleLine(benchmark::State& state)
{
    reset_core(info);
    auto backend = boost::make_shared<sinks::text_ostream_backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&std::cout, boost::null_deleter()));
    backend->auto_flush(true);
    auto const sink =
        boost::make_shared<sinks::synchronous_sink<sinks::text_ostream_backend>>(backend);
    sink->set_formatter(expr::stream << '[' << expr::attr<std::string>("Channel") << "] "
                                     << expr::smessage);
    logging::core::get()->add_sink(sink);
    logger_type l(logging::keywords::channel = peers::console_domain);
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        BOOST_LOG_SEV(l, info) << peers::console_message;
    }
    peers::report_allocations(state, before, "allocs/op");
    logging::core::get()->remove_sink(sink);
}
BENCHMARK(BM_ConsoleLine)->Apply(vtlog_bench::fixed_iterations);

// 4. Boost.Log has no early queue; the nearest is an asynchronous sink whose feeding thread is
// not started: records wait in its queue, detached from their threads, until feed_records
// writes them, here into a back end that discards them.
void BM_EarlyQueue(benchmark::State& state)
{
    using clock = peers::early_queue_figures::clock;
    peers::early_queue_figures figures;
    reset_core(info);
    logger_type l(logging::keywords::channel = peers::early_domain);
    for (auto _ : state) {
        auto const bytes_before = peers::heap_in_use();
        auto const sink = boost::make_shared<sinks::asynchronous_sink<discarding_backend>>(
            boost::make_shared<discarding_backend>(), false);
        logging::core::get()->add_sink(sink);
        auto const start = clock::now();
        for (long n = 0; n < peers::early_held; ++n) {
            BOOST_LOG_SEV(l, info) << "request " << n << " sent to host";
        }
        auto const held = clock::now();
        auto const held_bytes = peers::heap_in_use() - bytes_before;
        auto const replay = clock::now();
        sink->feed_records();
        figures.add(held - start, clock::now() - replay, held_bytes);
        logging::core::get()->remove_sink(sink);
    }
    figures.report(state);
}
BENCHMARK(BM_EarlyQueue)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
