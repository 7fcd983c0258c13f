// The files under a directory sink's back end: counter, replacement of removed files, daily
// rotation and write errors.
#include "log_files.hpp"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/make_shared.hpp>
#include <boost/system/error_code.hpp>
#include <boost/version.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <ostream>
#include <regex>
#include <streambuf>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VT::Logging::v2::impl {

std::time_t (*rotation_clock)() = [] {
    return std::time(nullptr);
};

namespace {

namespace fs = boost::filesystem;
namespace file = boost::log::sinks::file;

// A regular expression for the file names of a Boost.Log file name pattern (a file name, no
// directory): the first counter placeholder (%N, %2N...) is group 1, other placeholders match
// any text, "%%" is a percent sign.
std::string name_expression(std::string const& pattern)
{
    std::string expression;
    bool counter_seen = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        char const c = pattern[i];
        if (c != '%' || i + 1 == pattern.size()) {
            if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) {
                expression += '\\';
            }
            expression += c;
            continue;
        }
        auto const end = pattern.find_first_not_of("0123456789", i + 1);
        if (end == std::string::npos) {
            expression += ".*";
            break;
        }
        if (pattern[end] == '%') {
            expression += '%';
        } else if (pattern[end] == 'N') {
            expression += counter_seen ? "[0-9]+" : "([0-9]+)";
            counter_seen = true;
        } else {
            expression += ".+?";
        }
        i = end;
    }
    return expression;
}

// A collector that only counts: given to a back end for one scan of its pattern's directory,
// it raises the counter past every matching file, however many of them the directory's real
// collector already holds.
class counter_scan : public file::collector {
public:
    explicit counter_scan(fs::path directory)
        : directory_(std::move(directory))
    {
    }

    // Never called: the real collector replaces this one before the first file is written.
    void store_file(fs::path const&) override {}

#if BOOST_VERSION < 107900
    std::uintmax_t scan_for_files(file::scan_method, fs::path const& pattern,
                                  unsigned int* counter) override
    {
        return scan(pattern, counter);
    }
#else
    // Boost 1.79 reports the highest counter found, and asks whether a file is stored.
    file::scan_result scan_for_files(file::scan_method, fs::path const& pattern) override
    {
        unsigned int next = 0;
        file::scan_result result;
        result.found_count = scan(pattern, &next);
        if (next > 0) {
            result.last_file_counter = next - 1;
        }
        return result;
    }

    bool is_in_storage(fs::path const&) const override
    {
        return false;
    }
#endif

private:
    std::uintmax_t scan(fs::path const& pattern, unsigned int* counter) const
    {
        std::regex const names(name_expression(pattern.filename().string()));
        std::uintmax_t matching = 0;
        boost::system::error_code error;
        for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
             entry.increment(error)) {
            std::smatch match;
            std::string const name = entry->path().filename().string();
            if (!std::regex_match(name, match, names)) {
                continue;
            }
            ++matching;
            // Nine digits at most, so that the counter never wraps.
            if (counter && match[1].matched && match[1].length() <= 9) {
                *counter = std::max(*counter, static_cast<unsigned>(std::stoul(match[1])) + 1);
            }
        }
        return matching;
    }

    fs::path const directory_;
};

// The back end's lines go to the current file through this buffer and a descriptor of its own:
// the back end's file stream stays open but idle. Unlike a file stream's buffer it keeps nothing
// back after a failed write, which a later flush would otherwise write again after the torn
// part; and it can tell, with one system call, whether the file has been removed.
class line_buffer : public std::streambuf {
public:
    line_buffer() { reset(); }
    ~line_buffer() override { close(); }
    line_buffer(line_buffer const&) = delete;
    line_buffer& operator=(line_buffer const&) = delete;

    // Opens `file` for appending; throws a Boost.Filesystem error naming it when it cannot.
    void open(fs::path const& file)
    {
        close();
        fd_ = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (fd_ < 0) {
            throw_error("cannot open the log file", file);
        }
        file_ = file;
    }

    // Writes what is pending, ignoring errors (they were or will be reported by a flush).
    void close() noexcept
    {
        if (fd_ < 0) {
            return;
        }
        try {
            write_pending();
        } catch (...) {
        }
        ::close(fd_);
        fd_ = -1;
    }

    // Whether the file has been unlinked, or its directory removed, since it was opened. Asked
    // before every line: on Linux, statx for the link count alone costs a fraction of fstat.
    bool removed() const noexcept
    {
#if defined(__linux__)
        struct statx status;
        return fd_ < 0 ||
               ::statx(fd_, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_NLINK, &status) != 0 ||
               status.stx_nlink == 0;
#else
        struct stat status;
        return fd_ < 0 || ::fstat(fd_, &status) != 0 || status.st_nlink == 0;
#endif
    }

private:
    int_type overflow(int_type c) override
    {
        write_pending();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    int sync() override
    {
        write_pending();
        return 0;
    }

    // The end of the file: the back end reads it once a file is opened, so a file continued
    // from an earlier run counts its earlier bytes toward the rotation size.
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode) override
    {
        off_type const end = offset == 0 && way == std::ios_base::cur && fd_ >= 0
                                 ? ::lseek(fd_, 0, SEEK_END)
                                 : off_type(-1);
        return pos_type(end < 0 ? end : end + (pptr() - pbase()));
    }

    // Throws on failure; the pending bytes are dropped either way.
    void write_pending()
    {
        char const* data = pbase();
        auto left = static_cast<std::size_t>(pptr() - pbase());
        reset();
        while (left > 0) {
            ssize_t const written = ::write(fd_, data, left);
            if (written < 0 && errno != EINTR) {
                throw_error("cannot write the log file", file_);
            }
            if (written > 0) {
                data += written;
                left -= static_cast<std::size_t>(written);
            }
        }
    }

    void reset()
    {
        setp(buffer_.data(), buffer_.data() + buffer_.size());
    }

    [[noreturn]] static void throw_error(char const* what, fs::path const& file)
    {
        throw fs::filesystem_error(
            what, file, boost::system::error_code(errno, boost::system::generic_category()));
    }

    std::array<char, 4096> buffer_;
    int fd_ = -1;
    fs::path file_;
};

// 00:00:00 local time of the day after `now`'s.
std::time_t next_local_midnight(std::time_t now)
{
    std::tm local{};
    ::localtime_r(&now, &local);
    local.tm_mday += 1;
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

// What the handlers of one back end share. The back end owns the handlers and they own this;
// nothing owns the back end in return (the open handler keeps a plain pointer to it, used only
// while the back end calls it), so there is no cycle.
struct file_state {
    line_buffer lines;
    // The back end stream's own buffer, put back before the stream is closed.
    std::streambuf* stream_buffer = nullptr;
    // The earliest clock reading since the current file was opened (the opening time, unless the
    // clock went back) and the first local midnight after it, where the file's day ends.
    std::time_t earliest = 0;
    std::time_t midnight = 0;

    // Begins the file's day at `now`.
    void begin_day(std::time_t now)
    {
        earliest = now;
        midnight = next_local_midnight(now);
    }

    // Whether the file's day is over at `now`. A reading before `earliest` takes its place, so a
    // clock set back rotates at the first midnight it reaches again, not days later.
    bool day_over(std::time_t now)
    {
        if (now >= midnight) {
            return true;
        }
        if (now < earliest) {
            begin_day(now);
        }
        return false;
    }
};

} // namespace

void continue_file_counter(boost::log::sinks::text_file_backend& backend,
                           boost::filesystem::path const& pattern)
{
    backend.set_file_collector(boost::make_shared<counter_scan>(pattern.parent_path()));
    backend.scan_for_files(file::scan_matching, true);
    backend.set_file_collector({});
}

void guard_log_files(boost::log::sinks::text_file_backend& backend)
{
    auto const state = std::make_shared<file_state>();
    auto* const files = &backend;
    backend.set_open_handler([state, files](std::ostream& stream) {
        state->lines.open(files->get_current_file_name());
        state->stream_buffer = stream.rdbuf(&state->lines);
        stream.exceptions(std::ios_base::badbit);
        state->begin_day(rotation_clock());
    });
    backend.set_close_handler([state](std::ostream& stream) {
        stream.exceptions(std::ios_base::goodbit);
        if (state->stream_buffer) {
            stream.rdbuf(state->stream_buffer);
            state->stream_buffer = nullptr;
        }
        state->lines.close();
    });
    // Asked before every record while a file is open. A removed file is replaced before the
    // line is written; the back end makes the directory again if it went too.
    backend.set_time_based_rotation(
        [state] { return state->lines.removed() || state->day_over(rotation_clock()); });
}

} // namespace VT::Logging::v2::impl
