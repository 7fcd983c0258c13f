// Error text over a stand-in error library, whose errors are pointers to their parts.
#include "error_text.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

struct fake_error {
    std::optional<std::string> domain;
    std::optional<std::int64_t> code;
    std::optional<std::string> description;
    std::optional<std::string> failure_reason;
    std::optional<std::string> recovery_suggestion;
    fake_error const* underlying = nullptr;
    std::optional<std::string> string_text; // set when the object is a string, not an error
};

// Errors are equal when they are the same object, which is what a self-reference is.
struct fake_access {
    using error = fake_error const*;
    static std::optional<std::string> string_instead_of_error(error e) { return e->string_text; }
    static std::optional<std::string> description(error e) { return e->description; }
    static std::optional<std::string> failure_reason(error e) { return e->failure_reason; }
    static std::optional<std::string> recovery_suggestion(error e)
    {
        return e->recovery_suggestion;
    }
    static std::optional<error> underlying(error e)
    {
        return e->underlying ? std::optional<error>(e->underlying) : std::nullopt;
    }
    static std::optional<std::int64_t> code(error e) { return e->code; }
    static std::optional<std::string> domain(error e) { return e->domain; }
    static bool same(error a, error b) { return a == b; }
};

fake_error make_error(std::string domain, std::int64_t code, std::string description)
{
    fake_error e;
    e.domain = std::move(domain);
    e.code = code;
    e.description = std::move(description);
    return e;
}

std::string text(fake_error const& e, bool one_line, std::uint32_t depth)
{
    return VT::Logging::detail::error_log_text<fake_access>(&e, one_line, depth);
}

// The exact comparisons also show that no layout ends in a line break.
class ErrorText : public ::testing::Test {
protected:
    fake_error outer = make_error("D1", 5, "outer");
    fake_error inner = make_error("D2", 7, "inner");
    fake_error deepest = make_error("D3", 9, "deepest");
};

TEST_F(ErrorText, ChainOfTwoInEachLayout)
{
    outer.underlying = &inner;
    EXPECT_EQ(text(outer, true, 0), "D1(5): outer [ Underlying D2(7): inner ]");
    EXPECT_EQ(text(outer, true, 4), "D1(5): outer [ Underlying D2(7): inner ]");
    EXPECT_EQ(text(outer, false, 1), "D1(5): outer\n|--D2(7): inner");
    EXPECT_EQ(text(outer, false, 0), "D1(5): outerD2(7): inner");
}

TEST_F(ErrorText, ChainOfThreeInEachLayoutWithOneTabPerLevelBelowTheFirst)
{
    outer.underlying = &inner;
    inner.underlying = &deepest;
    EXPECT_EQ(text(outer, true, 0),
              "D1(5): outer [ Underlying D2(7): inner [ Underlying D3(9): deepest ] ]");
    EXPECT_EQ(text(outer, false, 1), "D1(5): outer\n|--D2(7): inner\n\t|--D3(9): deepest");
    EXPECT_EQ(text(outer, false, 0), "D1(5): outerD2(7): inner\n|--D3(9): deepest");
    EXPECT_EQ(text(outer, false, 3), "D1(5): outer\n\t\t|--D2(7): inner\n\t\t\t|--D3(9): deepest");
}

TEST(ErrorTextParts, EachPartOnlyWhenPresent)
{
    fake_error e = make_error("D1", 5, "outer");
    e.failure_reason = "reason";
    e.recovery_suggestion = "suggestion";
    EXPECT_EQ(text(e, true, 0), "D1(5): outer - reason - suggestion");
    e.description.reset();
    EXPECT_EQ(text(e, false, 1), "D1(5) - reason - suggestion");
    e.failure_reason.reset();
    EXPECT_EQ(text(e, true, 0), "D1(5) - suggestion");

    fake_error bare;
    EXPECT_EQ(text(bare, true, 0), "<null>(0)");
    bare.description = ""; // present though empty
    EXPECT_EQ(text(bare, true, 0), "<null>(0): ");
}

TEST(ErrorTextParts, CodeIsSigned64BitAndTextsAreNotFormatStrings)
{
    EXPECT_EQ(text(make_error("D", -9000000000, "d"), true, 0), "D(-9000000000): d");
    EXPECT_EQ(text(make_error("{}", 1, "{0} {:>9} %@ %s"), true, 0), "{}(1): {0} {:>9} %@ %s");
}

TEST_F(ErrorText, SelfReferenceEndsTheChain)
{
    outer.underlying = &outer;
    EXPECT_EQ(text(outer, true, 0), "D1(5): outer");
    EXPECT_EQ(text(outer, false, 1), "D1(5): outer");

    outer.underlying = &inner;
    inner.underlying = &inner;
    EXPECT_EQ(text(outer, true, 0), "D1(5): outer [ Underlying D2(7): inner ]");
    EXPECT_EQ(text(outer, false, 2), "D1(5): outer\n\t|--D2(7): inner");
}

TEST_F(ErrorText, StringInPlaceOfAnErrorThrowsAtAnyDepth)
{
    auto const message_of = [this](bool one_line) {
        try {
            text(outer, one_line, 0);
        } catch (std::invalid_argument const& e) {
            return std::string(e.what());
        }
        return std::string("no exception");
    };
    outer.string_text = "top text";
    EXPECT_EQ(message_of(true), "Error: Expected CFErrorRef, but received CFStringRef: top text");

    outer.string_text.reset();
    outer.underlying = &inner;
    inner.underlying = &deepest;
    deepest.string_text = "deep {} text";
    EXPECT_EQ(message_of(true),
              "Error: Expected CFErrorRef, but received CFStringRef: deep {} text");
    EXPECT_EQ(message_of(false),
              "Error: Expected CFErrorRef, but received CFStringRef: deep {} text");
}

} // namespace
