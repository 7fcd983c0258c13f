// What code beside the directory sink may reach of it, none of it exported.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/filesystem/path.hpp>

#include <memory>

namespace VT::Logging::v2::impl {

// Hands `file`, made by the caller, to the directory sink `wrapper_logger`: it counts toward the
// sink's size limit from then on and is deleted in its turn. Never in the middle of a rotation.
// It serves the façade's add_log_file and reports as it: "VTLog/VTLog:...:  add_log_file
// Assertion wrapper_logger failed." (and so on) when `wrapper_logger` is not a directory sink.
void add_log_file(std::shared_ptr<sink::base> const& wrapper_logger,
                  boost::filesystem::path const& file);

// A seam for tests, empty otherwise: get_dir calls it with the registry locked, just before it
// looks the pattern up, so a test can let a sink die at that very moment.
extern void (*get_dir_lookup_hook)();

} // namespace VT::Logging::v2::impl
