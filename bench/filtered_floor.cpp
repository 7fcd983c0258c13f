// The floor of a filtered call, in a shared library of its own so that the compiler can neither
// inline it nor specialise it: one call through the dynamic linker, one load, one comparison.
#include "filtered_floor.hpp"

namespace vtlog_bench {

void floor_log(floor_logger const* l, VT::Logging::v2::log_level level,
               VT::Logging::v2::log_function_ref const& text)
{
    if (level < l->level) {
        return;
    }
    text.get_str();
}

} // namespace vtlog_bench
