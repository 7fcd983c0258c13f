// The files of a directory sink: a Boost.Log back end that writes each line straight into a file
// of its own making.
#pragma once

#include "log_directory.hpp"

#include <boost/filesystem/path.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/frontend_requirements.hpp>

#include <cstdint>
#include <ctime>
#include <memory>
#include <regex>
#include <string>

namespace VT::Logging::v2::impl {

// The clock of the midnight rotation: std::time, replaced by tests only.
extern std::time_t (*rotation_clock)();

// Why `file_name` cannot name a sink's files (no counter, or a placeholder of another kind), or
// an empty text when it can.
std::string file_name_problem(std::string const& file_name);

// A file name in Boost.Log's pattern syntax: %Y, %y, %m, %d, %H, %M, %S and %f stand for the
// local time a file is begun, %N (or %2N, zero-filled to a width) for the file counter, %% for
// a percent sign.
class file_name_pattern {
public:
    // Throws std::invalid_argument naming `name` and its file_name_problem, if it has one.
    explicit file_name_pattern(std::string name);

    std::string file_name(std::tm const& local, long microseconds, unsigned counter) const;
    // The highest counter among the names in `directory` that this pattern makes; -1 for none.
    long long highest_counter(boost::filesystem::path const& directory) const;

private:
    std::string pattern_;
    std::regex names_; // group 1 is the counter
};

// The back end of a directory sink. Each line is written with one system call, so it is in the
// file when the logging call returns. A file is begun:
// - before a line that would take the current one past the rotation size (an empty file takes
//   any line);
// - once the clock reaches the first local midnight after its earliest reading since the current
//   file was opened: the opening time, or the time the clock was set back to, so that a file
//   rotates at the first midnight the clock reaches, never days late; setting the clock back
//   begins no file by itself;
// - when the current file was removed (by anyone: a person, retention of another sink or
//   process): the link count is read after each write, and a line written into a removed file
//   is written again into the new one;
// - after a failed write that left part of a line in the file, so no line continues a torn one.
// Files are created anew, after the highest counter in the directory, with O_EXCL and
// O_NOFOLLOW: a name already taken, by a file or a symbolic link, is skipped, so no file holds
// lines of two runs and no line goes through a link. A failed write or open throws a
// Boost.Filesystem error naming the file, out of the logging call or into the Boost.Log
// exception handler; a failed open leaves nothing behind.
class log_file_backend : public boost::log::sinks::basic_formatted_sink_backend<
                             char, boost::log::sinks::synchronized_feeding> {
public:
    // `pattern`: the directory, then a file name pattern. Throws as file_name_pattern and
    // log_directory::get do.
    log_file_backend(boost::filesystem::path const& pattern, std::uintmax_t rotation_size,
                     std::uintmax_t max_total_size);
    ~log_file_backend();
    log_file_backend(log_file_backend const&) = delete;
    log_file_backend& operator=(log_file_backend const&) = delete;

    void consume(boost::log::record_view const& record, string_type const& line);

    // Hands a file written elsewhere to the directory (see log_directory::store_file).
    void store_file(boost::filesystem::path const& file);

private:
    void open_next_file();
    void close_file(bool retain);
    void rotate() { close_file(true); }
    // Writes `line` and a newline unless it ends in one. Throws on failure.
    void write(string_type const& line);
    bool file_removed() const noexcept;
    void begin_day(std::time_t now);
    bool day_over(std::time_t now);

    file_name_pattern const names_;
    std::uintmax_t const rotation_size_;
    std::shared_ptr<log_directory> const directory_;
    unsigned next_counter_;
    int fd_ = -1;
    std::string file_name_;
    std::uintmax_t file_size_ = 0;
    // The earliest clock reading since the current file was opened, and the first local
    // midnight after it, where the file's day ends.
    std::time_t earliest_ = 0;
    std::time_t midnight_ = 0;
};

} // namespace VT::Logging::v2::impl
