// The level test of a message, offered to callers so they can skip building its text.
#include "logger_source.hpp"
#include "logger_tree.hpp"

namespace VT::Logging::v2 {

bool logger::is_enabled(log_level level) const noexcept
{
    using state = logger_source::data::state;
    logger::data const& node = *node_;
    auto const current = node.source->current.load();
    if (current == state::running) {
        return level >= node.level.load(std::memory_order_relaxed);
    }
    // Held while enqueueing: start_logging filters it against the levels of that moment.
    return current == state::enqueueing;
}

} // namespace VT::Logging::v2
