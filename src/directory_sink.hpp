// What code beside the directory sink may reach of it, none of it exported.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/shared_ptr.hpp>

#include <memory>

namespace VT::Logging::v2::impl {

// The file collector of the live directory sink `handle`, or an empty pointer when `handle` is
// not one. Boost.Log's back end keeps its collector to itself, yet files that did not come from
// the back end (extra log files of the directory) must be stored through the very collector that
// prunes the rotated ones. Takes the registry's mutex, so call it before locking the back end;
// store files with the back end locked, so that a file is never stored in the middle of a
// rotation:
//
//   collector = get_file_collector(handle)
//   sink::detail::get_unwrapped_sink(handle)
//     -> boost::dynamic_pointer_cast<synchronous_sink<text_file_backend>>
//     -> locked_backend()                            held while
//     -> collector->store_file(path)
boost::shared_ptr<boost::log::sinks::file::collector>
get_file_collector(std::shared_ptr<sink::base> const& handle);

// A seam for tests, empty otherwise: get_dir calls it with the registry locked, just before it
// looks the pattern up, so a test can let a sink die at that very moment.
extern void (*get_dir_lookup_hook)();

} // namespace VT::Logging::v2::impl
