// The "time string" and "thread name" attributes, and the time text they are made of.
#include "test_support.hpp"

#include "time_text.hpp"

#include <boost/log/sinks/async_frontend.hpp>
#include <fmt/printf.h>

namespace {

using namespace VT::Logging::v2;
using namespace boost::posix_time;
using boost::gregorian::date;
namespace bl = boost::log;

using clock = std::chrono::system_clock;

// 2024-05-01 23:59:59.999999 UTC (1714608000 is 2024-05-02 00:00:00 UTC).
clock::time_point const evening = clock::from_time_t(1714608000) - std::chrono::microseconds(1);

std::string local_text(clock::time_point utc = clock::now())
{
    impl::time_text out;
    impl::write_local_time(utc, out);
    return fmt::to_string(out);
}

// Reads the time text both ways a formatter can: as the value's std::string and as a view.
struct attributes_backend : bl::sinks::basic_sink_backend<bl::sinks::synchronized_feeding> {
    void consume(bl::record_view const& record)
    {
        names += bl::extract_or_throw<std::string_view>("thread name", record.attribute_values());
        names += '|';
        time = impl::get_time(record);
        EXPECT_EQ(bl::extract_or_throw<std::string>("time string", record.attribute_values()),
                  time);
        times.push_back(time);
    }
    std::string names, time; // of every record, of the last
    std::vector<std::string> times;
};
using attributes_sink = bl::sinks::synchronous_sink<attributes_backend>;

// Milliseconds are truncated; an unknown offset or one of a day or more shows as -00:00; no time
// (no source yet) or one out of range shows the fallback text; offsets from 100 hours take printf.
TEST(RecordAttributes, TimeTextIsTruncatedLocalTimeWithItsOffset)
{
    ptime const utc(date(2024, 5, 1), hours(23) + minutes(59) + seconds(59) + microseconds(999999));
    for (auto const& [local, expected] : {std::pair{utc, "2024-05-01 23:59:59.999+00:00"},
                                          {ptime(not_a_date_time), "2024-05-01 23:59:59.999-00:00"},
                                          {utc - hours(25), "2024-05-01 23:59:59.999-00:00"},
                                          {utc + minutes(1499), "2024-05-03 00:58:59.999+24:59"}}) {
        EXPECT_EQ(fmt::to_string(impl::format_local(utc, local)), expected);
    }
    EXPECT_EQ(local_text(clock::from_time_t(-86400)), impl::fallback_time_text);
    bl::core::get()->add_sink(boost::make_shared<attributes_sink>());
    auto record = bl::core::get()->open_record(bl::attribute_set());
    ASSERT_TRUE(record);
    EXPECT_EQ(impl::get_time(record.lock()), impl::fallback_time_text);
    for (int i = 0; i < 500; ++i) {
        date const d = date(1400, 1, 1) + boost::gregorian::days(i * 6007);
        auto const t = microseconds(i * 172'799'999'983LL % 86'400'000'000LL);
        ASSERT_EQ(fmt::to_string(impl::format_time(d, t, {i % 2 == 0, i % 125, i % 60})),
                  fmt::sprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d%c%02d:%02d", +d.year(),
                               +d.month(), +d.day(), t.hours(), t.minutes(), t.seconds(),
                               t.fractional_seconds() / 1000, "+-"[i % 2 == 0], i % 125, i % 60));
    }
}

// A held record shows the moment and thread name of its call, not of its replay; each record the
// offset of the zone in force when it was logged.
TEST(RecordAttributes, RecordsCarryTheTimeAndThreadNameOfTheirCall)
{
    auto const backend = boost::make_shared<attributes_backend>();
    logger_source source;
    source.add_sink(std::make_shared<sink::base>(bl::attribute_name("attributes sink"),
                                                 boost::make_shared<attributes_sink>(backend)));
    auto const before_held = local_text();
    log_str(source.get_child_logger("a"), log_level::info, "unnamed");
    auto const after_held = local_text();
    set_current_thread_name("named");
    source.start_logging(log_level::info);
    ASSERT_EQ(backend->times.size(), 1u);
    EXPECT_TRUE(before_held <= backend->time && backend->time <= after_held) << backend->time;
    log_str(source.get_child_logger("a"), log_level::info, "named");
    std::thread([&] { log_str(source.get_child_logger("a"), log_level::info, "unnamed"); }).join();
    EXPECT_EQ(backend->names, "|named||");

    for (auto const& [tz, expected] : {std::pair{"UTC0", "2024-05-01 23:59:59.999+00:00"},
                                       {"XXX-2", "2024-05-02 01:59:59.999+02:00"},
                                       {"<+0530>-5:30", "2024-05-02 05:29:59.999+05:30"},
                                       {"<-03>3", "2024-05-01 20:59:59.999-03:00"}}) {
        ::setenv("TZ", tz, 1);
        ::tzset();
        EXPECT_EQ(local_text(evening), expected);
        auto const before = local_text(); // one zone, one width: text order is time order
        log_str(source.get_child_logger("a"), log_level::info, tz);
        EXPECT_TRUE(before <= backend->time && backend->time <= local_text()) << backend->time;
        EXPECT_EQ(backend->time.substr(23), std::string_view(expected).substr(23)) << tz;
    }
}

// A record for sinks on threads of their own is detached on the logging thread, so two such sinks
// read its time at once without racing, and both read the moment of the call.
TEST(RecordAttributes, SinksOnOtherThreadsReadTheTimeOfTheCall)
{
    using async_sink = bl::sinks::asynchronous_sink<attributes_backend>;
    std::vector<boost::shared_ptr<async_sink>> sinks;
    logger_source source;
    for (auto const* name : {"first", "second"}) {
        sinks.push_back(
            boost::make_shared<async_sink>(boost::make_shared<attributes_backend>(), false));
        source.add_sink(std::make_shared<sink::base>(bl::attribute_name(name), sinks.back()));
    }
    source.start_logging(log_level::info);
    auto const before = local_text();
    log_str(source.get_child_logger("a"), log_level::info, "message");
    auto const after = local_text();

    vtlog_test::start_line line{2};
    std::thread other([&] {
        line.arrive_and_wait();
        sinks[0]->feed_records();
    });
    line.arrive_and_wait();
    sinks[1]->feed_records();
    other.join();
    for (auto const& sink : sinks) {
        auto const times = sink->locked_backend()->times;
        ASSERT_EQ(times.size(), 1u);
        EXPECT_TRUE(before <= times[0] && times[0] <= after) << times[0];
    }
}

} // namespace
