// The level test of a message, offered to callers so they can skip building its text.
#include "logger_source.hpp"
#include "logger_tree.hpp"

namespace VT::Logging::v2 {

bool logger::is_enabled(log_level level) const noexcept
{
    using state = logger_source::data::state;
    logger::data const& node = *node_;
    switch (node.source->current.load()) {
    case state::running:
        return level >= node.level.load(std::memory_order_relaxed);
    case state::enqueueing:
        return true; // held: start_logging filters it against the levels of that moment
    case state::finished:
        break;
    }
    return false;
}

} // namespace VT::Logging::v2
