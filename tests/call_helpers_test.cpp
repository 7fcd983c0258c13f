// The inline call helpers: log_fmt and lazy_text format only what is logged.
#include "test_support.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vtlog_test;
using v2::log_level;

// An argument whose formatting is counted.
struct counted_arg {
    int* formatted;
};

} // namespace

template <>
struct fmt::formatter<counted_arg> : fmt::formatter<int> {
    auto format(counted_arg const& arg, fmt::format_context& ctx) const
    {
        return fmt::formatter<int>::format(++*arg.formatted, ctx);
    }
};

namespace {

TEST(CallHelpers, LogFmtFormatsOnlyWhatIsLogged)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    source.start_logging(log_level::info);
    auto l = source.get_child_logger("fmt");
    int formatted = 0;
    v2::log_fmt(l, log_level::debug, "filtered {}", counted_arg{&formatted});
    EXPECT_EQ(formatted, 0);
    std::string const host = "example";
    v2::log_fmt(l, log_level::info, "sent {} bytes to {} ({})", 42, host, counted_arg{&formatted});
    v2::log_fmt(l, log_level::info, FMT_STRING("{:0>4}|{}"), 7, std::string(600, 'x'));
    EXPECT_EQ(formatted, 1);
    EXPECT_EQ(sink.backend->messages(),
              (std::vector<std::string>{"sent 42 bytes to example (1)",
                                        "0007|" + std::string(600, 'x')}));
}

TEST(CallHelpers, LazyTextRunsOnlyWhenLoggedAndKeepsItsResult)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    source.start_logging(log_level::info);
    auto l = source.get_child_logger("lazy");
    int calls = 0;
    auto describe = [&] {
        return "built " + std::to_string(++calls);
    };
    l.log(log_level::debug, v2::lazy_text(describe));
    l.log(log_level::warning, v2::lazy_text(describe));
    l.log(log_level::warning, v2::lazy_text([] { return "a literal"; }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sink.backend->messages(), (std::vector<std::string>{"built 1", "a literal"}));
}

TEST(CallHelpers, BadRuntimeFormatThrowsWhenLogged)
{
    v2::logger_source source;
    source.start_logging(log_level::info);
    auto l = source.get_child_logger("bad");
    std::string const format = "{:d}";
    EXPECT_NO_THROW(v2::log_fmt(l, log_level::debug, fmt::runtime(format), "text"));
    EXPECT_THROW(v2::log_fmt(l, log_level::info, fmt::runtime(format), "text"), fmt::format_error);
}

} // namespace
