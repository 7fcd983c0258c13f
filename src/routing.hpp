// What the routing filters read on every record to skip look-ups that cannot succeed: for each
// marker name, the number of trees whose root carries it.
//
// A record's filters run while the record is opened, under the shared lock of its node's
// Boost.Log logger, and markers are added to and removed from that logger under its exclusive
// lock. A tree's count is raised before its first marker is added and lowered after its last
// marker is removed, so a filter that sees a record carrying a marker has a happens-before edge
// from the raise and to the lowering: a relaxed load reads at least one. A zero read therefore
// proves the record carries no marker of that name.
#pragma once

#include <boost/log/attributes/attribute_name.hpp>

#include <atomic>
#include <cstddef>

namespace VT::Logging::v2::impl {

// The count of trees carrying the marker `name`. The counter lives until the process exits,
// so sink filters may keep its address; every handle with the same name shares it, as they
// share the marker.
std::atomic<std::size_t>& marker_count(boost::log::attribute_name const& name);

} // namespace VT::Logging::v2::impl
