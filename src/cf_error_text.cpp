// CoreFoundation errors and objects as log text, through the libCF++ wrappers (Apple only).
#if defined(__APPLE__)

#include "VTLog/VTLog.hpp"

#include "error_text.hpp"

#include <CF++.hpp>
#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace {

// Everything error_log_text reads from a CF::Error. A wrapper that is not valid (holds no object
// of its type) is a missing part.
struct cf_error_access {
    static std::optional<std::string> text(CF::String const& string)
    {
        if (!string.IsValid()) {
            return std::nullopt;
        }
        return string.GetValue(kCFStringEncodingUTF8);
    }

    // The CF::String built from a generic object reference is valid only when that object is a
    // CFString; such a string is rendered by the formatter below, i.e. as its own text.
    static std::optional<std::string> string_instead_of_error(CF::Error const& error)
    {
        CF::String const string(error.GetCFObject());
        if (!string.IsValid()) {
            return std::nullopt;
        }
        return fmt::format("{}", string);
    }

    static std::optional<std::string> description(CF::Error const& error)
    {
        return text(error.GetDescription());
    }
    static std::optional<std::string> failure_reason(CF::Error const& error)
    {
        return text(error.GetFailureReason());
    }
    static std::optional<std::string> recovery_suggestion(CF::Error const& error)
    {
        return text(error.GetRecoverySuggestion());
    }
    static std::optional<CF::Error> underlying(CF::Error const& error)
    {
        CF::Error underlying_error = error.GetUnderlyingError();
        if (!underlying_error.IsValid()) {
            return std::nullopt;
        }
        return underlying_error;
    }
    static std::optional<std::int64_t> code(CF::Error const& error)
    {
        CF::Number const number = error.GetCode();
        if (!static_cast<bool>(number)) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(static_cast<long>(number));
    }
    static std::optional<std::string> domain(CF::Error const& error)
    {
        return text(error.GetDomain());
    }
    // libCF++'s comparison of the two wrapped objects.
    static bool same(CF::Error const& a, CF::Error const& b) { return a == b; }
};

// Releases a reference this file was given by a CoreFoundation "Create" function.
struct cf_release {
    void operator()(void const* reference) const noexcept { CFRelease(reference); }
};

} // namespace

namespace VT::Logging {

std::string to_log_string(CF::Error const& error, bool one_line, std::uint32_t depth)
{
    return detail::error_log_text<cf_error_access>(error, one_line, depth);
}

} // namespace VT::Logging

fmt::format_context::iterator fmt::formatter<CF::String>::format(CF::Type const& object,
                                                                 fmt::format_context& context) const
{
    // "%@" gives the object's description; for a string, the string itself. The wrapper takes its
    // own reference, so the created one is released at once, and on every path.
    std::unique_ptr<std::remove_pointer_t<CFStringRef>, cf_release> created(
        CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("%@"), object.GetCFObject()));
    CF::String const description(created.get());
    created.reset();
    std::string const text = description.GetValue(kCFStringEncodingUTF8);
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text), context);
}

#endif // defined(__APPLE__)
