// Log text of an error with its chain of underlying errors, on one line or as an indented tree.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace VT::Logging::detail {

// Writes the log text of `error`, an error of some error library, and of the errors under it.
// The text depends only on what `Access` reads, so the same layout serves CoreFoundation errors
// and any stand-in. `Access` provides, for `Error const&` arguments:
//
//   std::optional<std::string>   string_instead_of_error(e)  the text of `e` when the object it
//                                                             holds is a string, not an error
//   std::optional<std::string>   description(e), failure_reason(e), recovery_suggestion(e)
//   std::optional<Error>         underlying(e)
//   std::optional<std::int64_t>  code(e)
//   std::optional<std::string>   domain(e)
//   bool                         same(a, b)                   a and b are equal errors
//
// where std::nullopt means that `e` lacks that part. A part that is present but empty still
// counts as present.
//
// One error: "domain(code)", then ": description", " - failure reason", " - recovery suggestion",
// each only when present; a missing domain prints "<null>", a missing code 0. With `one_line`
// each underlying error follows as " [ Underlying ... ]"; otherwise as a tree, where `depth` is
// the nesting level of `error` (the caller's starting level) and each level deeper than 1 adds
// a tab before "|--":
//
//   one line, any depth:  D1(5): outer [ Underlying D2(7): inner [ Underlying D3(9): deepest ] ]
//   tree from depth 1:    D1(5): outer
//                         |--D2(7): inner
//                         <tab>|--D3(9): deepest
//   tree from depth 0:    D1(5): outerD2(7): inner
//                         |--D3(9): deepest
//
// At depth 0 the first underlying error is joined on with no separator. This is deliberate and
// part of the format: do not add one.
//
// The text never ends in a line break. The chain stops at an error whose underlying error is
// the same error; a longer cycle is not detected. Throws std::invalid_argument when `error`, or
// any error under it, holds a string instead of an error (nothing is returned then); exceptions
// from `Access` and allocation propagate.
template <class Access, class Error>
std::string error_log_text(Error const& error, bool one_line, std::uint32_t depth)
{
    if (auto const text = Access::string_instead_of_error(error)) {
        throw std::invalid_argument(
            fmt::format("Error: Expected CFErrorRef, but received CFStringRef: {}", *text));
    }

    // A fixed order of reads, so that an accessor that throws is always met at the same point.
    auto const description = Access::description(error);
    auto const failure_reason = Access::failure_reason(error);
    auto const recovery_suggestion = Access::recovery_suggestion(error);
    auto const underlying = Access::underlying(error);
    std::int64_t const code = Access::code(error).value_or(0);
    auto const domain = Access::domain(error);

    std::string result = fmt::format(
        "{}({})", domain ? std::string_view(*domain) : std::string_view("<null>"), code);
    auto out = std::back_inserter(result);
    if (description) {
        fmt::format_to(out, ": {}", *description);
    }
    if (failure_reason) {
        fmt::format_to(out, " - {}", *failure_reason);
    }
    if (recovery_suggestion) {
        fmt::format_to(out, " - {}", *recovery_suggestion);
    }

    if (underlying && !Access::same(*underlying, error)) {
        std::string const sub_text = error_log_text<Access>(*underlying, one_line, depth + 1);
        if (one_line) {
            fmt::format_to(out, " [ Underlying {} ]", sub_text);
        } else if (depth == 0) {
            result += sub_text;
        } else {
            result += '\n';
            result.append(depth - 1, '\t');
            fmt::format_to(out, "|--{}", sub_text);
        }
    }
    return result;
}

} // namespace VT::Logging::detail
