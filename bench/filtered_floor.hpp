// The floor of a filtered call (see filtered_floor.cpp).
#pragma once

#include <VTLog/v2/log.hpp>

namespace vtlog_bench {

struct floor_logger {
    VT::Logging::v2::log_level level;
};

void floor_log(floor_logger const* l, VT::Logging::v2::log_level level,
               VT::Logging::v2::log_function_ref const& text);

} // namespace vtlog_bench
