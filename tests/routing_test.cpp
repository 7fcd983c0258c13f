// Routing: sink handles, markers on the tree, and which records reach which sink.
#include "test_support.hpp"

#include "logger_source.hpp"

#include <boost/log/sources/logger.hpp>
#include <boost/log/sources/record_ostream.hpp>

namespace {

using namespace vtlog_test;

struct Routing : ::testing::Test {
    Routing() { source.start_logging(level(0)); }
    v2::logger_source source;
    capture_sink sink;
};

// A sink receives the records of every logger of its source, made before or after it was
// attached, until it is removed; records logged outside any source never reach it. Its handle
// unwraps to the sink it was made with.
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
    EXPECT_EQ(sink.lines(), (Strings{"[before] 1", "[after.add] 2"}));
    EXPECT_TRUE(stranger.lines().empty());
    EXPECT_TRUE(dynamic_cast<boost::log::sinks::synchronous_sink<capture_backend>*>(
        v2::sink::detail::get_unwrapped_sink(sink.handle).get()));
}

TEST_F(Routing, NullSinksAreRefusedAndChangeNothing)
{
    source.add_sink(sink.handle);
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(nullptr));
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(std::make_shared<v2::sink::base>(
        boost::log::attribute_name("nothing"), boost::shared_ptr<boost::log::sinks::sink>())));
    EXPECT_EQ(thrown_text<std::invalid_argument>([&] { source.add_sink(nullptr); }),
              "logger_source::add_sink: the sink is null");
    EXPECT_EQ(thrown_text<std::invalid_argument>([&] { source.remove_sink(nullptr); }),
              "logger_source::remove_sink: the sink is null");
    v2::log_str(source.get_child_logger("l"), level(0), "still routed");
    EXPECT_EQ(sink.lines(), Strings{"[l] still routed"});
    EXPECT_EQ(source.get_data()->sinks.size(), 1u);
}

// Markers are named by the sink and counted per tree. Every handle of an attached name is fed,
// attached or not, and a dropped one is gone from the core. Detaching from one source, twice, or
// finishing another leaves the name fed by the tree that still carries it; a tree still holding
// keeps its records from the sink until it starts. Removing any handle of the name strips its
// markers from that tree.
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

} // namespace
