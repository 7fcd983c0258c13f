// The "time string" and "thread name" attributes, and the time text they are made of.
#include "test_support.hpp"

#include "time_text.hpp"

#include <gtest/gtest.h>

#include <fmt/printf.h>

#include <boost/log/attributes/constant.hpp>

#include <array>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace vtlog_test;
using namespace boost::posix_time;
using boost::gregorian::date;
using v2::impl::fallback_time_text;

constexpr auto info = v2::log_level::info;

// Keeps each record's message, time text and thread name, copied while the logging thread
// still owns the values. The front end's lock serialises consume().
struct attributes_backend
    : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
    void consume(boost::log::record_view const& record)
    {
        auto const text = [&](char const* name) {
            return std::string(boost::log::extract_or_default<std::string_view>(
                name, record.attribute_values(), std::string_view("<none>")));
        };
        seen.push_back(
            {text("ggmessage"), std::string(v2::impl::get_time(record)), text("thread name")});
    }
    std::vector<std::array<std::string, 3>> seen; // message, time, thread name
};

struct RecordAttributes : ::testing::Test {
    RecordAttributes() { source.add_sink(handle); }

    boost::shared_ptr<attributes_backend> backend = boost::make_shared<attributes_backend>();
    std::shared_ptr<v2::sink::base> handle = std::make_shared<v2::sink::base>(
        boost::log::attribute_name("attributes sink"),
        boost::make_shared<boost::log::sinks::synchronous_sink<attributes_backend>>(backend));
    v2::logger_source source;
    v2::logger node{source.get_child_logger("a")};
};

TEST(TimeText, FieldsAreTruncatedAndFallbacksKeepTheWidth)
{
    auto const day = [](time_duration t, v2::impl::tz_offset o) {
        return v2::impl::format_time(date(2024, 5, 1), t, o);
    };
    EXPECT_EQ(day(hours(23) + minutes(59) + seconds(59) + microseconds(999999), {false, 5, 30}),
              "2024-05-01 23:59:59.999+05:30");
    EXPECT_EQ(day(microseconds(45678), {false, 0, 0}), "2024-05-01 00:00:00.045+00:00");
    EXPECT_EQ(day(hours(1), v2::impl::unknown_tz), "2024-05-01 01:00:00.000-00:00");
    EXPECT_EQ(fallback_time_text, R"(????-??-?? ??:??:??.???-??:??)");
    EXPECT_EQ(day(hours(123) + minutes(4), {true, 7, 5}), "2024-05-01 123:04:00.000-07:05")
        << "a field wider than its column is printed whole";
    for (int i = 0; i < 500; ++i) {
        date const d = date(1400, 1, 1) + boost::gregorian::days(i * 6007);
        auto const t =
            microseconds(static_cast<long long>(i) * 172'799'999'983LL % 86'400'000'000LL);
        v2::impl::tz_offset const o{i % 2 == 0, i % 25, i % 60};
        auto const ymd = d.year_month_day();
        ASSERT_EQ(v2::impl::format_time(d, t, o),
                  fmt::sprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d%c%02d:%02d", int(ymd.year),
                               int(ymd.month), int(ymd.day), int(t.hours()), int(t.minutes()),
                               int(t.seconds()), int(t.total_microseconds() / 1000 % 1000),
                               o.negative ? '-' : '+', o.hours, o.minutes));
    }

    // The local conversion is unusable: the UTC time with "-00:00", or no time at all.
    ptime const utc(date(2024, 5, 1), hours(7) + microseconds(12345));
    using v2::impl::format_local;
    EXPECT_EQ(format_local(utc, ptime(not_a_date_time)), "2024-05-01 07:00:00.012-00:00");
    EXPECT_EQ(format_local(utc, utc - hours(25)), "2024-05-01 07:00:00.012-00:00");
    EXPECT_EQ(format_local(utc, utc + hours(24) + minutes(59)), "2024-05-02 07:59:00.012+24:59");
    EXPECT_EQ(format_local(utc, utc - hours(3) - minutes(30) - seconds(45)),
              "2024-05-01 03:29:15.012-03:30")
        << "seconds of the offset are dropped";
    EXPECT_EQ(v2::impl::local_time_text(ptime(pos_infin)), fallback_time_text);
    EXPECT_EQ(v2::impl::local_time_text(ptime(date(1969, 12, 31), hours(23))), fallback_time_text);
}

TEST_F(RecordAttributes, TimeIsTheLocalTimeOfTheCall)
{
    source.start_logging(info);
    ptime const utc(date(2024, 5, 1), hours(7) + minutes(30) + seconds(12) + microseconds(45678));
    std::pair<char const*, char const*> const zones[] = {
        {"UTC0", "2024-05-01 07:30:12.045+00:00"},
        {"XXX-2", "2024-05-01 09:30:12.045+02:00"},
        {"<+0530>-5:30", "2024-05-01 13:00:12.045+05:30"},
        {"<-03>3", "2024-05-01 04:30:12.045-03:00"},
    };
    for (auto const& [tz, expected] : zones) {
        ::setenv("TZ", tz, 1);
        ::tzset();
        EXPECT_EQ(v2::impl::local_time_text(utc), expected) << tz;
        auto const before = v2::impl::local_time_text(microsec_clock::universal_time());
        v2::log_str(node, info, tz);
        auto const after = v2::impl::local_time_text(microsec_clock::universal_time());
        // One zone, one width: text order is time order.
        auto const time = backend->seen.back()[1];
        EXPECT_TRUE(before <= time && time <= after) << before << " " << time << " " << after;
        EXPECT_EQ(time.substr(23), std::string_view(expected).substr(23)) << tz;
    }
}

TEST(GetTime, RecordWithoutUsableTimeGivesTheFallback)
{
    // No source exists, so "time string" is not registered: a record has only what it is
    // opened with.
    auto const core = boost::log::core::get();
    auto const raw = boost::make_shared<boost::log::sinks::synchronous_sink<capture_backend>>();
    core->add_sink(raw);
    boost::log::attribute_set mistyped;
    mistyped.insert("time string", boost::log::attributes::constant<int>(1));
    for (auto const& attributes : {boost::log::attribute_set(), mistyped}) {
        auto record = core->open_record(attributes);
        ASSERT_TRUE(record);
        EXPECT_EQ(v2::impl::get_time(record.lock()), fallback_time_text);
    }
    core->remove_sink(raw);
}

TEST_F(RecordAttributes, ThreadNameIsTheOneSetBeforeTheCall)
{
    // Held records are detached from their threads: they keep the name of the call even when
    // the thread renames itself or ends before they are written.
    v2::log_str(node, info, "unnamed");
    v2::set_current_thread_name("first");
    v2::log_str(node, info, "first");
    v2::set_current_thread_name("a second name, long enough to need a new buffer");
    std::thread([&] {
        v2::set_current_thread_name("gone");
        v2::log_str(node, info, "ended");
    }).join();
    source.start_logging(info);
    v2::log_str(node, info, "renamed");

    std::thread([&] { v2::log_str(node, info, "fresh thread"); }).join();

    std::map<std::string, std::string> name_of;
    for (auto const& r : backend->seen) {
        name_of[r[0]] = r[2];
    }
    EXPECT_EQ(name_of, (std::map<std::string, std::string>{
                           {"unnamed", ""},
                           {"first", "first"},
                           {"ended", "gone"},
                           {"renamed", "a second name, long enough to need a new buffer"},
                           {"fresh thread", ""}}));
}

} // namespace
