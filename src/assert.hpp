// Reporting of broken invariants: always on, thrown as exceptions with a fixed text.
#pragma once

#include <stdexcept>
#include <string>
#include <typeinfo>

namespace VT {

// Throws a copy of `e`. In a non-throwing function this ends the process through std::terminate.
template <class E>
[[noreturn]] void Abort(E const& e)
{
    throw e;
}

// Reports an enumeration value outside its enumerators. Non-throwing: it terminates the process.
template <class E>
[[noreturn]] void AbortEnumOutOfRange(E value) noexcept
{
    Abort(std::domain_error("Value of enum type " + std::string(typeid(E).name()) +
                            " has invalid value " + std::to_string(static_cast<int>(value))));
}

namespace detail {

// "<source>:<line>:  <function> Assertion <expression> failed."
[[noreturn]] inline void assertion_failed(char const* source, int line, char const* function,
                                          char const* expression)
{
    Abort(std::invalid_argument(std::string(source) + ":" + std::to_string(line) + ":  " +
                                function + " Assertion " + expression + " failed."));
}

} // namespace detail
} // namespace VT

// `source` names the module ("VTLog/v2/log" or "VTLog/VTLog"), whatever file the check is in.
#define VT_ASSERT_IN(source, expression)                                                           \
    ((expression) ? void()                                                                         \
                  : ::VT::detail::assertion_failed(source, __LINE__, __func__, #expression))

// Checks of the second-generation library.
#define VT_ASSERT(expression) VT_ASSERT_IN("VTLog/v2/log", expression)
