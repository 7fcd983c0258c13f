// What the routing filters read on every record to skip look-ups that cannot succeed.
//
// A record's filters run while the record is opened, under the shared lock of its node's
// Boost.Log logger, and markers are added to and removed from that logger under its exclusive
// lock. Each count below is raised before its first marker is added and lowered after its last
// marker is removed, so a filter that sees a record carrying a marker has a happens-before edge
// from the raise and to the lowering: a relaxed load reads at least one. A zero read therefore
// proves the record carries no such marker.
#pragma once

#include "VTLog/v2/log.hpp"

#include <atomic>
#include <cstddef>

namespace VT::Logging::v2::impl {

// The trees of the process that still carry the "enqueueing sink" marker.
inline std::atomic<std::size_t> trees_enqueueing{0};

// Raises (attached) or lowers the count of sources `sink` is attached to.
void count_attachment(sink::base const& sink, bool attached) noexcept;

} // namespace VT::Logging::v2::impl
