// The inline call helpers: log_fmt and lazy_text format only what is logged.
#include "test_support.hpp"

#include <fmt/format.h>

#include <optional>

// An argument that counts how often it is formatted.
struct counted_arg {
    int* formatted;
};

template <>
struct fmt::formatter<counted_arg> : fmt::formatter<int> {
    auto format(counted_arg const& arg, fmt::format_context& ctx) const
    {
        return fmt::formatter<int>::format(++*arg.formatted, ctx);
    }
};

namespace {

using namespace vtlog_test;

// Only what is logged or held is formatted (so a bad format throws only then), a text function
// once. log_fmt tests the level before it builds its text, and must agree with `log`: before the
// start every level is held (levels can be negative), after it the logger's level decides, and a
// logger outliving its source, started or not, writes nothing and asks for no text.
TEST(CallHelpers, FormatAndTextFunctionRunOnlyForWhatIsLogged)
{
    capture_sink sink;
    std::optional<v2::logger> l, unstarted;
    int formatted = 0, calls = 0;
    auto describe = [&] {
        return "built " + std::to_string(++calls);
    };
    {
        v2::logger_source source, never_started;
        source.add_sink(sink.handle);
        never_started.add_sink(sink.handle);
        l = source.get_child_logger("l");
        unstarted = never_started.get_child_logger("unstarted");
        v2::log_fmt(*unstarted, level(0), "dropped with its source");
        EXPECT_TRUE(l->is_enabled(level(-9)));
        v2::log_fmt(*l, level(-5), "held {}", 1);
        v2::log_fmt(*l, level(-9), "held {}", counted_arg{&formatted});
        source.start_logging(level(-6));
        EXPECT_FALSE(l->is_enabled(level(-7)));
        EXPECT_TRUE(l->is_enabled(level(-6)));
        v2::log_fmt(*l, level(-7), "filtered {}", counted_arg{&formatted});
        v2::log_fmt(*l, level(-6), "sent {} bytes to {} ({})", 42, std::string("example"),
                    counted_arg{&formatted});
        v2::log_fmt(*l, level(2), FMT_STRING("{:0>4}|{}"), 7, std::string(600, 'x'));
        std::string const bad = "{:d}";
        EXPECT_NO_THROW(v2::log_fmt(*l, level(-7), fmt::runtime(bad), "text"));
        EXPECT_THROW(v2::log_fmt(*l, level(-6), fmt::runtime(bad), "text"), fmt::format_error);
        l->log(level(-7), v2::lazy_text(describe));
        l->log(level(-6), v2::lazy_text(describe));
        l->log(level(-6), v2::lazy_text([] { return "a literal"; }));
    }
    for (auto const& left : {*l, *unstarted}) {
        EXPECT_FALSE(left.is_enabled(level(100)));
        v2::log_fmt(left, level(100), "finished {}", counted_arg{&formatted});
        left.log(level(100), v2::lazy_text(describe));
    }
    EXPECT_EQ(formatted, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(unstarted->get_domain(), "unstarted");
    EXPECT_EQ(sink.lines(),
              (Strings{"[l] held 1", "[l] sent 42 bytes to example (2)",
                       "[l] 0007|" + std::string(600, 'x'), "[l] built 1", "[l] a literal"}));
}

} // namespace
