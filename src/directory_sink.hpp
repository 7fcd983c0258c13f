// The Boost.Log types of a directory sink, named here so that code beside it can reach the
// sink's file collector.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/shared_ptr.hpp>

#include <utility>

namespace VT::Logging::v2::impl {

// A text file back end that remembers its file collector. Boost.Log's back end keeps the
// collector to itself, yet files that did not come from this back end (extra log files of the
// same directory) must be stored through the very collector that prunes the rotated files.
//
// The way there from a directory sink handle:
//
//   sink::detail::get_unwrapped_sink(handle)        boost::shared_ptr<sinks::sink>
//     -> boost::dynamic_pointer_cast<directory_frontend>
//     -> locked_backend()                           holds the front end's lock, so a file is
//     -> get_file_collector()->store_file(path)     never stored in the middle of a rotation
class directory_backend : public boost::log::sinks::text_file_backend {
public:
    using collector_ptr = boost::shared_ptr<boost::log::sinks::file::collector>;

    // Hides the base class's function of the same name so that the collector in use and the
    // one remembered cannot differ. get_dir is the only code that sets it.
    void set_file_collector(collector_ptr collector)
    {
        text_file_backend::set_file_collector(collector);
        collector_ = std::move(collector);
    }

    // The collector given to set_file_collector, or an empty pointer.
    collector_ptr const& get_file_collector() const noexcept { return collector_; }

private:
    collector_ptr collector_;
};

// The front end of every directory sink; its formatter writes the file line.
using directory_frontend = boost::log::sinks::synchronous_sink<directory_backend>;

// A seam for tests, empty otherwise: get_dir calls it with the registry locked, just before it
// looks the pattern up, so a test can let a sink die at that very moment.
VTLOG_API extern void (*get_dir_lookup_hook)();

} // namespace VT::Logging::v2::impl
