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

// Only what is logged is formatted (so a bad format throws only then), its text function once.
TEST(CallHelpers, FormatAndTextFunctionRunOnlyForWhatIsLogged)
{
    capture_sink sink;
    v2::logger_source source;
    source.add_sink(sink.handle);
    source.start_logging(level(2));
    auto const l = source.get_child_logger("l");
    int formatted = 0;
    v2::log_fmt(l, level(1), "filtered {}", counted_arg{&formatted});
    v2::log_fmt(l, level(2), "sent {} bytes to {} ({})", 42, std::string("example"),
                counted_arg{&formatted});
    v2::log_fmt(l, level(2), FMT_STRING("{:0>4}|{}"), 7, std::string(600, 'x'));
    EXPECT_EQ(formatted, 1);
    std::string const bad = "{:d}";
    EXPECT_NO_THROW(v2::log_fmt(l, level(1), fmt::runtime(bad), "text"));
    EXPECT_THROW(v2::log_fmt(l, level(2), fmt::runtime(bad), "text"), fmt::format_error);

    int calls = 0;
    auto describe = [&] {
        return "built " + std::to_string(++calls);
    };
    l.log(level(1), v2::lazy_text(describe));
    l.log(level(3), v2::lazy_text(describe));
    l.log(level(3), v2::lazy_text([] { return "a literal"; }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sink.lines(),
              (Strings{"[l] sent 42 bytes to example (1)", "[l] 0007|" + std::string(600, 'x'),
                       "[l] built 1", "[l] a literal"}));
}

// log_fmt's level test must agree with `log`: before the start every level is held (even negative
// ones), after it the logger's level decides; a logger outliving its source writes nothing.
TEST(CallHelpers, IsEnabledAgreesWithWhatLogKeepsInEveryState)
{
    for (bool started : {false, true}) {
        capture_sink sink;
        std::optional<v2::logger> l;
        {
            v2::logger_source source;
            source.add_sink(sink.handle);
            l = source.get_child_logger("left.behind");
            EXPECT_TRUE(l->is_enabled(level(-9)));
            v2::log_fmt(*l, level(-5), "held {}", 1);
            v2::log_fmt(*l, level(-9), "held {}", 2);
            if (started) {
                source.start_logging(level(-6));
                EXPECT_FALSE(l->is_enabled(level(-7)));
                EXPECT_TRUE(l->is_enabled(level(-6)));
                v2::log_fmt(*l, level(-7), "filtered {}", 3);
                v2::log_fmt(*l, level(-6), "running {}", 4);
            }
        }
        EXPECT_FALSE(l->is_enabled(level(100)));
        v2::log_fmt(*l, level(100), "finished {}", 5);
        l->log(level(100), v2::lazy_text([]() -> std::string { throw std::logic_error("asked"); }));
        EXPECT_EQ(l->get_domain(), "left.behind");
        Strings const written{"[left.behind] held 1", "[left.behind] running 4"};
        EXPECT_EQ(sink.lines(), started ? written : Strings{});
    }
}

} // namespace
