// The files of a directory sink: names, the counter, writing and rotation.
#include "log_files.hpp"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace VT::Logging::v2::impl {

std::time_t (*rotation_clock)() = [] {
    return std::time(nullptr);
};

namespace {

namespace fs = boost::filesystem;

[[noreturn]] void throw_file_error(char const* what, fs::path const& file, int error)
{
    throw fs::filesystem_error(what, file,
                               boost::system::error_code(error, boost::system::generic_category()));
}

// Walks a file name pattern: `literal` gets each run of plain text (a "%%" as "%"),
// `placeholder` the letter of each placeholder and, for the counter, its width ("%05N", "%-3N",
// "%2.2N": the printf-like counter format Boost.Log takes). Returns false at a placeholder that
// file names do not support.
template <class Literal, class Placeholder>
bool parse_pattern(std::string const& pattern, Literal&& literal, Placeholder&& placeholder)
{
    auto const digits_from = [&](std::size_t at) {
        return std::min(pattern.find_first_not_of("0123456789", at), pattern.size());
    };
    std::size_t plain = 0;
    for (std::size_t i = pattern.find('%'); i != std::string::npos; i = pattern.find('%', plain)) {
        literal(std::string_view(pattern).substr(plain, i - plain));
        std::size_t at = i + 1;
        if (at < pattern.size() &&
            std::string_view("0 +-").find(pattern[at]) != std::string::npos) {
            ++at;
        }
        auto const width_from = at;
        at = digits_from(at);
        int const width =
            at > width_from ? std::stoi(pattern.substr(width_from, at - width_from)) : 0;
        if (at < pattern.size() && pattern[at] == '.') {
            at = digits_from(at + 1);
        }
        char const letter = at < pattern.size() ? pattern[at] : '\0';
        if (letter == 'N') {
            placeholder(letter, width);
        } else if (at == i + 1 && letter == '%') {
            literal("%");
        } else if (at == i + 1 && letter &&
                   std::string_view("YymdHMSf").find(letter) != std::string::npos) {
            placeholder(letter, 0);
        } else {
            return false;
        }
        plain = at + 1;
    }
    literal(std::string_view(pattern).substr(plain));
    return true;
}

// The instant's local calendar fields; the epoch when the system cannot convert it.
std::tm local_time(std::time_t instant)
{
    std::tm local{};
    if (!::localtime_r(&instant, &local)) {
        std::time_t epoch = 0;
        ::gmtime_r(&epoch, &local);
    }
    return local;
}

// 00:00:00 local time of the day after `now`'s; a day after `now` when the system cannot tell.
std::time_t next_local_midnight(std::time_t now)
{
    std::tm local{};
    if (!::localtime_r(&now, &local)) {
        return now + 24 * 60 * 60;
    }
    local.tm_mday += 1;
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    std::time_t const midnight = std::mktime(&local);
    return midnight == -1 || midnight <= now ? now + 24 * 60 * 60 : midnight;
}

} // namespace

std::string file_name_problem(std::string const& file_name)
{
    bool has_counter = false;
    if (!parse_pattern(
            file_name, [](std::string_view) {},
            [&](char letter, int) { has_counter = has_counter || letter == 'N'; })) {
        return "has a placeholder other than %Y, %y, %m, %d, %H, %M, %S, %f, %N (with a width "
               "such as %2N) and %% in its file name";
    }
    if (!has_counter) {
        return "has no file counter (%N, %2N...) in its file name: without one a file would be "
               "rotated into itself, and neither the rotation size nor the total size could be "
               "kept";
    }
    return {};
}

file_name_pattern::file_name_pattern(std::string name)
    : pattern_(std::move(name))
{
    if (auto const problem = file_name_problem(pattern_); !problem.empty()) {
        throw std::invalid_argument("log file name \"" + pattern_ + "\" " + problem);
    }
    std::string expression;
    bool counter_seen = false;
    parse_pattern(
        pattern_,
        [&](std::string_view text) {
            for (char const c : text) {
                if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) {
                    expression += '\\';
                }
                expression += c;
            }
        },
        [&](char letter, int) {
            expression += letter != 'N' ? ".+?" : counter_seen ? "[0-9]+" : "([0-9]+)";
            counter_seen = counter_seen || letter == 'N';
        });
    names_ = std::regex(expression);
}

std::string file_name_pattern::file_name(std::tm const& local, long microseconds,
                                         unsigned counter) const
{
    std::string name;
    parse_pattern(
        pattern_, [&](std::string_view text) { name += text; },
        [&](char letter, int counter_width) {
            // The field's value and its width, zero-filled.
            auto const [value, width] = [&]() -> std::pair<long, int> {
                switch (letter) {
                case 'N':
                    return {counter, counter_width};
                case 'Y':
                    return {local.tm_year + 1900L, 4};
                case 'y':
                    return {local.tm_year % 100, 2};
                case 'm':
                    return {local.tm_mon + 1, 2};
                case 'd':
                    return {local.tm_mday, 2};
                case 'H':
                    return {local.tm_hour, 2};
                case 'M':
                    return {local.tm_min, 2};
                case 'S':
                    return {local.tm_sec, 2};
                default:
                    return {microseconds, 6};
                }
            }();
            fmt::format_to(std::back_inserter(name), "{:0{}}", value, width);
        });
    return name;
}

long long file_name_pattern::highest_counter(fs::path const& directory) const
{
    long long highest = -1;
    boost::system::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::smatch match;
        std::string const name = entry->path().filename().string();
        // Nine digits at most, so that the counter never wraps.
        if (std::regex_match(name, match, names_) && match[1].length() <= 9) {
            highest = std::max(highest, std::stoll(match[1]));
        }
    }
    return highest;
}

log_file_backend::log_file_backend(fs::path const& pattern, std::uintmax_t rotation_size,
                                   std::uintmax_t max_total_size)
    : names_(pattern.filename().string())
    , rotation_size_(rotation_size)
    , directory_(log_directory::get(pattern.parent_path(), max_total_size))
    , next_counter_(static_cast<unsigned>(names_.highest_counter(directory_->path()) + 1))
{
}

log_file_backend::~log_file_backend()
{
    close_file(false);
}

void log_file_backend::consume(boost::log::record_view const&, string_type const& line)
{
    std::uintmax_t const size = line.size() + (line.empty() || line.back() != '\n');
    if (fd_ >= 0 &&
        ((file_size_ > 0 && file_size_ + size > rotation_size_) || day_over(rotation_clock()))) {
        rotate();
    }
    // A remover that deletes every new file at once would keep this going: a few tries, then
    // the line is reported lost.
    for (int tries = 0; tries < 8; ++tries) {
        if (fd_ < 0) {
            open_next_file();
        }
        write(line);
        if (!file_removed()) {
            return;
        }
        close_file(false);
    }
    throw_file_error("the log file was removed as each line was written to it",
                     directory_->path() / file_name_, ENOENT);
}

void log_file_backend::store_file(fs::path const& file)
{
    directory_->store_file(file);
}

void log_file_backend::open_next_file()
{
    auto const now = std::chrono::system_clock::now();
    auto const seconds = std::chrono::system_clock::to_time_t(now);
    auto const microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() %
        1000000;
    std::tm const local = local_time(seconds);
    bool directory_made = false;
    // A name taken (by another process with the same pattern, or by a link planted there) is
    // skipped; so many taken in a row mean something else is wrong.
    for (int taken = 0; taken < 1000;) {
        auto const name = names_.file_name(local, static_cast<long>(microseconds), next_counter_);
        auto const path = directory_->path() / name;
        int const fd = ::open(
            path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ++next_counter_;
            fd_ = fd;
            file_name_ = name;
            file_size_ = 0;
            directory_->begin_file(name);
            begin_day(rotation_clock());
            return;
        }
        int const error = errno;
        if (error == EEXIST || error == ELOOP) {
            ++next_counter_;
            ++taken;
        } else if (error == ENOENT && !directory_made) {
            // The directory was removed: it is made again, once.
            fs::create_directories(directory_->path());
            directory_made = true;
        } else if (error != EINTR) {
            throw_file_error("cannot open the log file", path, error);
        }
    }
    throw_file_error("cannot open the log file: a thousand names in a row are taken",
                     directory_->path(), EEXIST);
}

void log_file_backend::close_file(bool retain)
{
    if (fd_ < 0) {
        return;
    }
    ::close(fd_);
    fd_ = -1;
    directory_->end_file(file_name_, retain);
}

void log_file_backend::write(string_type const& line)
{
    bool const newline = line.empty() || line.back() != '\n';
    iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {const_cast<char*>("\n"), 1}};
    std::uintmax_t const before = file_size_;
    iovec* part = parts;
    for (int count = newline ? 2 : 1; count > 0;) {
        ssize_t const written = ::writev(fd_, part, count);
        if (written < 0) {
            int const error = errno;
            if (error == EINTR) {
                continue;
            }
            // A file that holds part of the line is finished; one that holds none of it takes
            // the next line.
            if (file_size_ != before) {
                close_file(true);
            }
            throw_file_error("cannot write the log file", directory_->path() / file_name_, error);
        }
        file_size_ += static_cast<std::uintmax_t>(written);
        auto left = static_cast<std::size_t>(written);
        for (; count > 0 && left >= part->iov_len; ++part, --count) {
            left -= part->iov_len;
        }
        if (count > 0) {
            part->iov_base = static_cast<char*>(part->iov_base) + left;
            part->iov_len -= left;
        }
    }
}

// Whether the file has been unlinked, or its directory removed, since it was opened. On Linux,
// statx for the link count alone costs a fraction of fstat.
bool log_file_backend::file_removed() const noexcept
{
#if defined(__linux__)
    struct statx status;
    return ::statx(fd_, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_NLINK, &status) != 0 ||
           status.stx_nlink == 0;
#else
    struct stat status;
    return ::fstat(fd_, &status) != 0 || status.st_nlink == 0;
#endif
}

void log_file_backend::begin_day(std::time_t now)
{
    earliest_ = now;
    midnight_ = next_local_midnight(now);
}

// A reading before `earliest_` takes its place, so a clock set back rotates at the first
// midnight it reaches again, not days later.
bool log_file_backend::day_over(std::time_t now)
{
    if (now >= midnight_) {
        return true;
    }
    if (now < earliest_) {
        begin_day(now);
    }
    return false;
}

} // namespace VT::Logging::v2::impl
