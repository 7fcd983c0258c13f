// The texts of failures: broken invariants, and error chains over a stand-in error library whose
// errors are pointers to their parts.
#include "test_support.hpp"

#include "assert.hpp"
#include "error_text.hpp"
#include "logger_source.hpp"

namespace {

TEST(Assertion, TextNamesModuleLineFunctionAndExpression)
{
    int const value = 1;
    int const line = __LINE__ + 2;
    auto const check = [](int const* ptr) {
        VT_ASSERT(ptr);
    };
    EXPECT_NO_THROW(check(&value));
    EXPECT_EQ(vtlog_test::thrown_text<std::invalid_argument>([&] { check(nullptr); }),
              "VTLog/v2/log:" + std::to_string(line) + ":  operator() Assertion ptr failed.");
    vtlog_test::expect_assertion([] { VT_ASSERT_IN("VTLog/VTLog", 1 + 1 == 3); }, "VTLog/VTLog",
                                 "operator() Assertion 1 + 1 == 3");
}

TEST(AbortDeathTest, EnumOutOfRangeTerminatesWithTypeAndValue)
{
    using state = VT::Logging::v2::logger_source::data::state;
    EXPECT_DEATH(VT::AbortEnumOutOfRange(static_cast<state>(7)),
                 "Value of enum type .*state.* has invalid value 7");
}

using text = std::optional<std::string>;

struct fake_error {
    text domain;
    std::optional<std::int64_t> code{};
    text description{}, failure_reason{}, recovery_suggestion{};
    std::optional<fake_error const*> underlying{};
    text string_text{}; // set when the object is a string, not an error
};

struct fake_access {
    using error = fake_error const*;
    static text string_instead_of_error(error e) { return e->string_text; }
    static text description(error e) { return e->description; }
    static text failure_reason(error e) { return e->failure_reason; }
    static text recovery_suggestion(error e) { return e->recovery_suggestion; }
    static std::optional<error> underlying(error e) { return e->underlying; }
    static std::optional<std::int64_t> code(error e) { return e->code; }
    static text domain(error e) { return e->domain; }
    static bool same(error a, error b) { return a == b; } // the same object, as a self-reference
};

std::string text_of(fake_error const& e, bool one_line, std::uint32_t depth)
{
    return VT::Logging::detail::error_log_text<fake_access>(&e, one_line, depth);
}

// Each layout of a chain, up to a self-reference, and each part only when present, never read
// as a format. The exact comparisons also show that no layout ends in a line break.
TEST(ErrorText, ChainAndPartsInEachLayout)
{
    fake_error deepest{"D3", 9, "deepest"}, inner{"D2", 7, "inner", {}, {}, &deepest};
    fake_error outer{"D1", 5, "outer", {}, {}, &inner}, full{"D1", 5, "outer", "why", "do"};
    fake_error no_description{"D1", 5, {}, "why", "do"}, formats{"{}", -9'000'000'000, "{0} %@"};
    fake_error looped{"D2", 7, "inner"}, above_loop{"D1", 5, "outer", {}, {}, &looped};
    looped.underlying = &looped;
    for (auto const& [e, one_line, depth, expected] :
         {std::tuple{&outer, true, 4,
                     "D1(5): outer [ Underlying D2(7): inner [ Underlying D3(9): deepest ] ]"},
          {&outer, false, 0, "D1(5): outerD2(7): inner\n|--D3(9): deepest"},
          {&outer, false, 1, "D1(5): outer\n|--D2(7): inner\n\t|--D3(9): deepest"},
          {&above_loop, false, 3, "D1(5): outer\n\t\t|--D2(7): inner"},
          {&looped, true, 0, "D2(7): inner"},
          {&full, true, 0, "D1(5): outer - why - do"},
          {&no_description, false, 1, "D1(5) - why - do"},
          {&formats, true, 0, "{}(-9000000000): {0} %@"}}) {
        EXPECT_EQ(text_of(*e, one_line, depth), expected);
    }
    EXPECT_EQ(text_of({}, true, 0), "<null>(0)");
}

TEST(ErrorText, StringInPlaceOfAnErrorThrowsAtAnyDepth)
{
    fake_error string{}, above{"D1", 5, "above", {}, {}, &string};
    string.string_text = "a {} text";
    for (auto const* e : {&string, &above}) {
        EXPECT_EQ(vtlog_test::thrown_text<std::invalid_argument>([&] { text_of(*e, false, 1); }),
                  "Error: Expected CFErrorRef, but received CFStringRef: a {} text");
    }
}

} // namespace
