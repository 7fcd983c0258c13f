// What the per-record shortcuts must not change: the counts that let a sink's filter skip its
// look-ups, and the values a thread reuses from one record to the next.
#include "test_support.hpp"

#include <optional>

namespace {

using namespace vtlog_test;

// Markers are counted per tree: detaching from one source, twice, or finishing another leaves
// the sink fed by the source it is still attached to, and so is a twin handle of the same name
// that was never attached. A finished or started tree is no longer holding records, but one
// that still is keeps its records from the sinks.
TEST(PerfGuard, CountsFollowEverySourceOfASink)
{
    capture_sink sink;
    capture_sink twin;
    v2::logger_source kept, detached, holding;
    kept.add_sink(sink.handle);
    detached.add_sink(sink.handle);
    holding.add_sink(sink.handle);
    kept.start_logging(level(0));
    detached.start_logging(level(0));
    {
        v2::logger_source finished;
        finished.add_sink(sink.handle);
        finished.start_logging(level(0));
    }
    EXPECT_TRUE(detached.remove_sink(sink.handle));
    EXPECT_FALSE(detached.remove_sink(sink.handle));

    v2::log_str(holding.get_child_logger("h"), level(0), "held");
    v2::log_str(detached.get_child_logger("d"), level(0), "dropped");
    v2::log_str(kept.get_child_logger("k"), level(0), "live");
    EXPECT_EQ(sink.lines(), Strings{"[k] live"});
    holding.start_logging(level(0));
    EXPECT_EQ(sink.lines(), (Strings{"[k] live", "[h] held"}));
    EXPECT_EQ(twin.lines(), sink.lines());
}

// Logs a second message from inside the sink while the first record is being written, then
// reads the first record again: its message, level and time must still be its own.
struct reentrant_backend
    : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
    void consume(boost::log::record_view const& record)
    {
        auto const before = describe(record);
        if (inner) {
            auto const l = *inner;
            inner.reset();
            v2::log_str(l, level(9), "inner message");
        }
        lines.push_back(before);
        lines.push_back(describe(record));
    }

    static std::string describe(boost::log::record_view const& r)
    {
        auto const text = [](auto const& value) {
            return value ? std::string(value.get()) : "none";
        };
        auto const severity = r[v2::record::severity];
        return text(r[v2::record::message]) + " " +
               (severity ? std::to_string(static_cast<int>(severity.get())) : "none") + " " +
               text(r[v2::record::time_string]);
    }

    std::optional<v2::logger> inner; // logs once from inside the sink
    Strings lines;
};

TEST(PerfGuard, ARecordKeepsItsValuesWhileTheThreadLogsAgain)
{
    auto backend = boost::make_shared<reentrant_backend>();
    auto handle = std::make_shared<v2::sink::base>(
        boost::log::attribute_name("reentrant"),
        boost::make_shared<boost::log::sinks::synchronous_sink<reentrant_backend>>(backend));
    v2::logger_source source;
    source.add_sink(handle);
    source.start_logging(level(0));
    backend->inner = source.get_child_logger("inner");
    v2::log_str(source.get_child_logger("outer"), level(2), "outer message");

    ASSERT_EQ(backend->lines.size(), 4u);
    EXPECT_EQ(backend->lines[0].rfind("inner message 9 ", 0), 0u) << backend->lines[0];
    EXPECT_EQ(backend->lines[2].rfind("outer message 2 ", 0), 0u) << backend->lines[2];
    EXPECT_EQ(backend->lines[3], backend->lines[2]) << "the outer record changed under it";
    EXPECT_EQ(backend->lines[2].size(), std::string("outer message 2 ").size() + 29);
}

} // namespace
