#include "assert.hpp"

#include <gtest/gtest.h>

namespace {

enum class colour : int { red = 0, green = 1 };

TEST(Assertion, FailedCheckThrowsInvalidArgumentWithModuleLineFunctionAndExpression)
{
    int const expected_line = __LINE__ + 2;
    auto const check = [](int const* ptr) {
        VT_ASSERT(ptr);
    };
    try {
        check(nullptr);
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_EQ(std::string(e.what()), "VTLog/v2/log:" + std::to_string(expected_line) +
                                             ":  operator() Assertion ptr failed.");
    }
    int const value = 1;
    EXPECT_NO_THROW(check(&value));
}

TEST(Assertion, ModuleOfTheFacade)
{
    EXPECT_THROW(VT_ASSERT_IN("VTLog/VTLog", 1 + 1 == 3), std::invalid_argument);
    try {
        VT_ASSERT_IN("VTLog/VTLog", 1 + 1 == 3);
    } catch (std::invalid_argument const& e) {
        EXPECT_EQ(std::string(e.what()), "VTLog/VTLog:" + std::to_string(__LINE__ - 2) +
                                             ":  TestBody Assertion 1 + 1 == 3 failed.");
    }
}

TEST(AbortDeathTest, AbortThrowsACopy)
{
    EXPECT_THROW(VT::Abort(std::runtime_error("x")), std::runtime_error);
}

TEST(AbortDeathTest, EnumOutOfRangeTerminatesWithTypeAndValue)
{
    EXPECT_DEATH(VT::AbortEnumOutOfRange(static_cast<colour>(7)),
                 "Value of enum type .*colour.* has invalid value 7");
}

} // namespace
