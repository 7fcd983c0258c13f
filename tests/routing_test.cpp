// Routing: sink handles, markers on the tree, and which records reach which sink.
#include "test_support.hpp"

#include "logger_source.hpp"

#include <boost/log/sources/logger.hpp>
#include <boost/log/sources/record_ostream.hpp>

namespace {

using namespace vtlog_test;
using text_attribute = boost::log::attributes::constant<std::string_view>;

struct Routing : ::testing::Test {
    Routing() { source.start_logging(level(0)); }
    v2::logger_source source;
    capture_sink sink;
};

// A sink receives the records of every logger of its source, made before or after it was
// attached, until it is removed; records logged outside any source never reach it. Null sinks
// are refused and change nothing.
TEST_F(Routing, LoggersFeedTheSinksAttachedWhileTheyLog)
{
    capture_sink stranger("stranger");
    auto before = source.get_child_logger("before");
    EXPECT_TRUE(source.add_sink(sink.handle));
    EXPECT_FALSE(source.add_sink(sink.handle)) << "already attached";
    v2::log_str(before, level(0), "1");
    v2::log_str(source.get_child_logger("after.add"), level(0), "2");
    boost::log::sources::logger plain;
    BOOST_LOG(plain) << "not ours";
    EXPECT_FALSE(source.remove_sink(stranger.handle));
    EXPECT_TRUE(source.remove_sink(sink.handle));
    v2::log_str(source.get_child_logger("after.remove"), level(0), "3");
    v2::log_str(before, level(0), "4");
    EXPECT_TRUE(stranger.lines().empty());
    EXPECT_EQ(v2::sink::detail::get_unwrapped_sink(sink.handle), sink.frontend);
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(nullptr));
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(std::make_shared<v2::sink::base>(
        boost::log::attribute_name("nothing"), boost::shared_ptr<boost::log::sinks::sink>())));
    EXPECT_EQ(thrown_text<std::invalid_argument>([&] { source.add_sink(nullptr); }),
              "logger_source::add_sink: the sink is null");
    EXPECT_EQ(thrown_text<std::invalid_argument>([&] { source.remove_sink(nullptr); }),
              "logger_source::remove_sink: the sink is null");
    EXPECT_TRUE(source.get_data()->sinks.empty());
    EXPECT_EQ(sink.lines(), (Strings{"[before] 1", "[after.add] 2"}));
}

// Markers are named by the sink and counted per tree: every handle of a name carried by a tree is
// fed; detaching one source (twice) or finishing another leaves it fed by the rest; a holding
// tree feeds it at its start; removing any handle of the name unmarks that tree.
TEST_F(Routing, EveryHandleOfANameIsFedByTheTreesCarryingIt)
{
    capture_sink attached_twin, unattached_twin, dropped;
    v2::logger_source detached, holding;
    for (auto* carrier : {&source, &detached, &holding}) {
        carrier->add_sink(sink.handle);
    }
    source.add_sink(attached_twin.handle);
    detached.start_logging(level(0));
    {
        v2::logger_source finished;
        finished.add_sink(sink.handle);
        finished.start_logging(level(0));
    }
    dropped.handle.reset();
    EXPECT_TRUE(detached.remove_sink(sink.handle));
    EXPECT_FALSE(detached.remove_sink(sink.handle));
    v2::log_str(holding.get_child_logger("h"), level(0), "held");
    v2::log_str(detached.get_child_logger("d"), level(0), "detached");
    v2::log_str(source.get_child_logger("k"), level(0), "live");
    EXPECT_EQ(sink.lines(), Strings{"[k] live"});
    holding.start_logging(level(0));
    source.remove_sink(sink.handle);
    v2::log_str(source.get_child_logger("k"), level(0), "unmarked");
    for (auto const* fed : {&sink, &attached_twin, &unattached_twin}) {
        EXPECT_EQ(fed->lines(), (Strings{"[k] live", "[h] held"}));
    }
    EXPECT_TRUE(dropped.lines().empty());
}

// A sink takes every record carrying its marker, here from a caller's own Boost.Log logger, and
// writes the fields it lacks empty. Once its handle is gone, a sink is out of the core.
TEST_F(Routing, ACallersLoggerCarryingMarkersFeedsTheirSinks)
{
    temp_dir dir;
    auto const directory = v2::sink::get_dir((dir.root / "log %2N.txt").string(), 1 << 20, 1 << 20);
    stream_capture<std::cout> out;
    boost::log::sources::logger plain;
    for (auto const& marked : {v2::sink::get_stdout(), directory, sink.handle}) {
        plain.add_attribute(marked->name, marker);
    }
    plain.add_attribute("ggmessage", text_attribute("plain"));
    BOOST_LOG(plain);
    sink.handle.reset();
    BOOST_LOG(plain);
    EXPECT_EQ(out.str(), "plain\nplain\n");
    EXPECT_EQ(text_in(dir.root), "plain\nplain\n") << "the domain field empty, its tabs kept";
    EXPECT_EQ(sink.lines(), Strings{"plain"});
}

// Markers added as thread or global attributes route library records, marked or not, with few
// sinks (each searches the record) and with many (the last ones read a summary of its names).
TEST_F(Routing, MarkersAddedAsThreadOrGlobalAttributesRouteLibraryRecords)
{
    v2::logger_source bare;
    bare.start_logging(level(0));
    auto const core = boost::log::core::get();
    auto const log_both = [&](std::string const& text) {
        v2::log_str(source.get_child_logger("marked"), level(0), text);
        v2::log_str(bare.get_child_logger("bare"), level(0), text);
    };
    std::vector<capture_sink> crowd;
    crowd.reserve(20);
    for (std::string const round : {"few", "many"}) {
        while (round == "many" && crowd.size() < 20) {
            crowd.emplace_back("crowd " + std::to_string(crowd.size()));
        }
        capture_sink attached("attached " + round), target("target " + round);
        source.add_sink(attached.handle);
        log_both("unmarked");
        auto const thread_marker = core->add_thread_attribute(target.handle->name, marker).first;
        log_both("thread");
        core->remove_thread_attribute(thread_marker);
        auto const global_marker = core->add_global_attribute(target.handle->name, marker).first;
        log_both("global");
        core->remove_global_attribute(global_marker);
        log_both("unmarked again");
        EXPECT_EQ(target.lines(),
                  (Strings{"[marked] thread", "[bare] thread", "[marked] global", "[bare] global"}))
            << round;
        EXPECT_EQ(attached.lines(), (Strings{"[marked] unmarked", "[marked] thread",
                                             "[marked] global", "[marked] unmarked again"}))
            << round;
        source.remove_sink(attached.handle);
    }
    for (auto const& other : crowd) {
        EXPECT_TRUE(other.lines().empty());
    }
}

// A record opened while another is routed on the same thread is routed by its own markers.
TEST_F(Routing, ARecordOpenedInsideAnothersFilterIsRoutedByItsOwnMarkers)
{
    capture_sink nested("nested");
    source.add_sink(sink.handle);
    boost::log::sources::logger plain;
    plain.add_attribute(nested.handle->name, marker);
    plain.add_attribute("ggmessage", text_attribute("inner"));
    bool opened = false;
    sink.frontend->set_filter([&](boost::log::attribute_value_set const&) {
        if (!std::exchange(opened, true)) {
            BOOST_LOG(plain);
        }
        return true;
    });
    v2::log_str(source.get_child_logger("l"), level(0), "outer");
    EXPECT_EQ(sink.lines(), Strings{"[l] outer"});
    EXPECT_EQ(nested.lines(), Strings{"inner"});
}

} // namespace
