// The files under a directory sink's text file back end: where its counter starts, when a file
// is replaced, and how a failed write reaches the logging call.
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/log/sinks/text_file_backend.hpp>

#include <ctime>

namespace VT::Logging::v2::impl {

// Sets the file counter of `backend` (whose file name pattern is `pattern`) after the highest
// counter among the files of the pattern's directory whose names match it, so a new sink never
// reopens an earlier run's file. Counts the files itself: the directory's collector, shared by
// every sink of the directory in the process, ignores files it already holds. Leaves the back
// end without a collector; set one next.
void continue_file_counter(boost::log::sinks::text_file_backend& backend,
                           boost::filesystem::path const& pattern);

// Installs on `backend`, before its first record, the handlers that keep each line whose call
// returned in a file of the directory:
// - a new file is begun before the next line once the current one has been removed (by anyone,
//   retention of another sink or process included), and once the clock reaches the first local
//   midnight after its earliest reading since the current file was opened: the opening time,
//   or the time the clock was set back to, so that a file rotates at the first midnight the
//   clock reaches again, never days late; setting the clock back never begins a file by itself;
// - lines are written through a buffer that keeps nothing back after a failed write, and a
//   failed write or flush throws a Boost.Filesystem error naming the file out of the logging
//   call (or into the Boost.Log exception handler); the next line then begins a new file.
void guard_log_files(boost::log::sinks::text_file_backend& backend);

// The clock of the midnight rotation: std::time, replaced by tests only.
extern std::time_t (*rotation_clock)();

} // namespace VT::Logging::v2::impl
