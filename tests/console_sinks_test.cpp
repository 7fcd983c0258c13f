// The standard-output and standard-error sinks: the console line, byte for byte.
#include "test_support.hpp"

#include "logger_source.hpp"

#include <gtest/gtest.h>

#include <boost/log/attributes/constant.hpp>

#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace {

using namespace vtlog_test;

constexpr auto info = v2::log_level::info;

// Takes over a standard stream's output while it lives, counting the flushes.
class stream_capture : public std::stringbuf {
public:
    explicit stream_capture(std::ostream& stream)
        : stream_(stream)
        , original_(stream.rdbuf(this))
    {
    }
    ~stream_capture() override { stream_.rdbuf(original_); }

    int flushes = 0;

protected:
    int sync() override
    {
        ++flushes;
        return 0;
    }

private:
    std::ostream& stream_;
    std::streambuf* const original_;
};

TEST(ConsoleSinks, StdoutLineIsDomainThenMessage)
{
    EXPECT_EQ(v2::sink::get_stdout(), v2::sink::get_stdout());
    EXPECT_NE(v2::sink::get_stdout(), v2::sink::get_stderr());

    stream_capture out(std::cout);
    v2::logger_source source;
    source.add_sink(v2::sink::get_stdout());
    source.start_logging(info);
    v2::log_str(source.get_child_logger("Network.Curl"), info, "connected");
    v2::log_str(v2::logger(source.get_data()->root), info, "from the root");
    v2::log_str(source.get_child_logger("net"), info, "two\n  lines");
    EXPECT_EQ(out.str(), "[Network.Curl] connected\n"
                         "from the root\n"
                         "[net] two\n  lines\n");
    EXPECT_EQ(out.flushes, 3);
}

TEST(ConsoleSinks, StderrLineEndsWithExactlyOneNewline)
{
    // Raw records, routed by the sinks' names, carry what the library's loggers never make
    // (their messages are trimmed and never empty).
    auto const push = [](char const* sink, std::optional<std::string_view> channel,
                         std::optional<std::string_view> message) {
        namespace attrs = boost::log::attributes;
        boost::log::attribute_set set;
        set.insert(sink, attrs::constant<v2::sink::is_sink>({}));
        if (channel) {
            set.insert("Channel", attrs::constant<std::string_view>(*channel));
        }
        if (message) {
            set.insert("ggmessage", attrs::constant<std::string_view>(*message));
        }
        if (auto record = boost::log::core::get()->open_record(set)) {
            boost::log::core::get()->push_record(std::move(record));
        }
    };
    stream_capture err(std::cerr);
    auto const handle = v2::sink::get_stderr();
    push("stderr sink", "a.b", "ends with a newline\n");
    push("stderr sink", "a.b", "");
    push("stderr sink", std::nullopt, "root");
    push("stderr sink", "a.b", std::nullopt);
    push("stdout sink", "a.b", "for the other sink");
    EXPECT_EQ(err.str(), "[a.b] ends with a newline\n"
                         "[a.b] \n"
                         "root\n"
                         "\n");
}

} // namespace
