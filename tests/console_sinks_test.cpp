// The standard-output and standard-error sinks: the console line, byte for byte.
#include "test_support.hpp"

#include "logger_source.hpp"

namespace {

using namespace VT::Logging::v2;

TEST(ConsoleSinks, DomainThenMessageEndingInOneNewlineFlushedPerRecord)
{
    EXPECT_EQ(sink::get_stdout(), sink::get_stdout());
    EXPECT_NE(sink::get_stdout(), sink::get_stderr());
    vtlog_test::stream_capture<std::cout> out;
    vtlog_test::stream_capture<std::cerr> err;
    logger_source source;
    source.add_sink(sink::get_stdout());
    source.start_logging(log_level::info);
    log_str(source.get_child_logger("Network.Curl"), log_level::info, "connected");
    log_str(logger(source.get_data()->root), log_level::info, "from the root");
    EXPECT_EQ(out.str(), "[Network.Curl] connected\nfrom the root\n");
    EXPECT_EQ(out.flushes, 2);

    // Records made outside any tree, straight into the core, carrying the marker.
    for (char const* message : {"two\n  lines\n", ""}) { // raw: loggers trim and never log ""
        vtlog_test::log_as_caller(message, {sink::get_stderr()->name}, "a.b");
    }
    EXPECT_EQ(err.str(), "[a.b] two\n  lines\n[a.b] \n");
}

} // namespace
