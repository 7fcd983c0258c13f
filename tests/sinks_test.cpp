// Sinks: the console line, sink handles, markers on the tree, and which records reach which sink.
#include "test_support.hpp"

#include "logger_source.hpp"

namespace {

using namespace vtlog_test;

struct Routing : ::testing::Test {
    Routing() { source.start_logging(level(0)); }
    v2::logger_source source;
    capture_sink sink;
};

// The console line, byte for byte: the domain, then the message ending in one newline.
TEST_F(Routing, ConsoleLinesAreTheDomainThenTheMessageEndingInOneNewlineFlushedPerRecord)
{
    EXPECT_EQ(v2::sink::get_stdout(), v2::sink::get_stdout());
    EXPECT_NE(v2::sink::get_stdout(), v2::sink::get_stderr());
    stream_capture<std::cout> out;
    stream_capture<std::cerr> err;
    source.add_sink(v2::sink::get_stdout());
    v2::log_str(source.get_child_logger("Network.Curl"), level(0), "connected");
    v2::log_str(v2::logger(source.get_data()->root), level(0), "from the root");
    EXPECT_EQ(out.str(), "[Network.Curl] connected\nfrom the root\n");
    EXPECT_EQ(out.flushes, 2);

    // Records made outside any tree, straight into the core, carrying the marker.
    for (char const* message : {"two\n  lines\n", ""}) { // raw: loggers trim and never log ""
        log_as_caller(message, {v2::sink::get_stderr()->name}, "a.b");
    }
    EXPECT_EQ(err.str(), "[a.b] two\n  lines\n[a.b] \n");
}

// A sink gets the records of its source's loggers, old or new, until it is removed, and any record
// with its marker, whoever made it (missing fields written empty); no others. Null sinks are
// refused and change nothing.
TEST_F(Routing, LoggersFeedTheSinksAttachedWhileTheyLog)
{
    temp_dir dir;
    auto const directory = v2::sink::get_dir((dir.root / "log %2N.txt").string(), 1 << 20, 1 << 20);
    capture_sink stranger("stranger");
    auto before = source.get_child_logger("before");
    EXPECT_TRUE(source.add_sink(sink.handle));
    EXPECT_FALSE(source.add_sink(sink.handle)) << "already attached";
    v2::log_str(before, level(0), "1");
    v2::log_str(source.get_child_logger("after.add"), level(0), "2");
    log_as_caller("not ours", {});
    EXPECT_FALSE(source.remove_sink(stranger.handle));
    EXPECT_TRUE(source.remove_sink(sink.handle));
    v2::log_str(source.get_child_logger("after.remove"), level(0), "3");
    v2::log_str(before, level(0), "4");
    log_as_caller("marked", {sink.handle->name, directory->name});
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
    EXPECT_EQ(sink.lines(), (Strings{"[before] 1", "[after.add] 2", "marked"}));
    EXPECT_EQ(text_in(dir.root), "marked\n") << "the domain field empty, its tabs kept";
}

// Markers are named by the sink and counted per tree: every handle of a carried name is fed;
// detaching one source (twice) or finishing another leaves it fed by the rest; a holding tree
// feeds it at its start; removing any handle of the name unmarks the tree; a dropped one gets none.
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
    for (std::string const round : {"few", "many"}) {
        crowd.resize(round == "many" ? 20 : 0);
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
}

// A record opened while another is routed on the same thread is routed by its own markers, not by
// the summary of the other's names that the sinks asked last (after a crowd) read.
TEST_F(Routing, ARecordOpenedInsideAnothersFilterIsRoutedByItsOwnMarkers)
{
    std::vector<capture_sink> crowd(20);
    capture_sink outer("outer"), nested("nested");
    source.add_sink(outer.handle);
    outer.frontend->set_filter([&, opened = false](auto const&) mutable {
        if (!std::exchange(opened, true)) {
            log_as_caller("inner", {nested.handle->name});
        }
        return true;
    });
    v2::log_str(source.get_child_logger("l"), level(0), "outer");
    EXPECT_EQ(outer.lines(), Strings{"[l] outer"});
    EXPECT_EQ(nested.lines(), Strings{"inner"});
}

} // namespace
