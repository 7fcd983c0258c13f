// The texts of broken invariants.
#include "assert.hpp"
#include "logger_source.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Assertion, TextNamesModuleLineFunctionAndExpression)
{
    int const line = __LINE__ + 2;
    auto const check = [](int const* ptr) {
        VT_ASSERT(ptr);
    };
    int const value = 1;
    EXPECT_NO_THROW(check(&value));
    try {
        check(nullptr);
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_STREQ(e.what(), ("VTLog/v2/log:" + std::to_string(line) +
                                ":  operator() Assertion ptr failed.")
                                   .c_str());
    }
    EXPECT_THROW(VT_ASSERT_IN("VTLog/VTLog", 1 + 1 == 3), std::invalid_argument);
}

TEST(AbortDeathTest, EnumOutOfRangeTerminatesWithTypeAndValue)
{
    using state = VT::Logging::v2::logger_source::data::state;
    EXPECT_DEATH(
        VT::AbortEnumOutOfRange(static_cast<state>(7)),
        "Value of enum type N2VT7Logging2v213logger_source4data5stateE has invalid value 7");
}

} // namespace
