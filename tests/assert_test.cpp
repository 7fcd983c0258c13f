// The texts of broken invariants.
#include "test_support.hpp"

#include "assert.hpp"
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

} // namespace
