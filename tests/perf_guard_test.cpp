// What the per-record shortcuts must not change: the counts that let a sink's filter skip its
// look-ups, and the values a thread reuses from one record to the next.
#include "test_support.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>

#include <optional>
#include <string>

namespace {

using namespace vtlog_test;
using Strings = std::vector<std::string>;

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
class reentrant_backend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
public:
    explicit reentrant_backend(std::optional<v2::logger>& inner)
        : inner_(inner)
    {
    }

    void consume(boost::log::record_view const& record)
    {
        auto const before = describe(record);
        if (inner_) {
            auto const l = *inner_;
            inner_.reset();
            v2::log_str(l, level(9), "inner message");
        }
        lines.push_back(before);
        lines.push_back(describe(record));
    }

    Strings lines;

private:
    static std::string describe(boost::log::record_view const& record)
    {
        auto const& values = record.attribute_values();
        return std::string(boost::log::extract_or_default<std::string_view>("ggmessage", values,
                                                                            std::string_view())) +
               " " +
               std::to_string(static_cast<int>(
                   boost::log::extract_or_default<v2::log_level>("Severity", values, level(-1)))) +
               " " +
               std::string(boost::log::extract_or_default<std::string_view>("time string", values,
                                                                            std::string_view()));
    }

    std::optional<v2::logger>& inner_;
};

TEST(PerfGuard, ARecordKeepsItsValuesWhileTheThreadLogsAgain)
{
    std::optional<v2::logger> inner;
    auto backend = boost::make_shared<reentrant_backend>(inner);
    auto handle = std::make_shared<v2::sink::base>(
        boost::log::attribute_name("reentrant"),
        boost::make_shared<boost::log::sinks::synchronous_sink<reentrant_backend>>(backend));
    v2::logger_source source;
    source.add_sink(handle);
    source.start_logging(level(0));
    inner = source.get_child_logger("inner");
    v2::log_str(source.get_child_logger("outer"), level(2), "outer message");

    ASSERT_EQ(backend->lines.size(), 4u);
    EXPECT_EQ(backend->lines[0].rfind("inner message 9 ", 0), 0u) << backend->lines[0];
    EXPECT_EQ(backend->lines[2].rfind("outer message 2 ", 0), 0u) << backend->lines[2];
    EXPECT_EQ(backend->lines[3], backend->lines[2]) << "the outer record changed under it";
    EXPECT_EQ(backend->lines[2].size(), std::string("outer message 2 ").size() + 29);
}

} // namespace
