// The message path's process-wide piece: the sink that holds records of enqueueing sources.
#pragma once

#include <boost/log/sinks/sink.hpp>
#include <boost/shared_ptr.hpp>

namespace VT::Logging::v2::impl {

// The one queueing sink of the process, created on first use. Registered with the core once,
// by the first source that is created; it stays registered until the process exits.
boost::shared_ptr<boost::log::sinks::sink> queueing_sink_instance();

} // namespace VT::Logging::v2::impl
