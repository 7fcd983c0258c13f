// Must not compile: fmt has no formatter for the argument. The check expects the report to name
// the line marked below.
#include <VTLog/v2/log.hpp>

namespace {
struct no_formatter {};
} // namespace

void log_unformattable(VT::Logging::v2::logger const& l)
{
    VT::Logging::v2::log_fmt(l, VT::Logging::v2::log_level::info, "{}", no_formatter{}); // caller
}
