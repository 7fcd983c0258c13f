// libVTLog, first-generation interface: one call configures logging for the whole process.
#pragma once

#include <VTLog/v2/log.hpp>

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

namespace VT::filesystem {

// A path held as text. `/` joins like std::filesystem::path (Boost.Filesystem version 4 rules):
// one separator between the parts, none added after a trailing one, and an absolute right-hand
// side replaces the left.
class path {
public:
    path() = default;
    path(std::string text)
        : text_(std::move(text))
    {
    }
    path(char const* text)
        : text_(text)
    {
    }

    std::string const& string() const noexcept { return text_; }
    bool empty() const noexcept { return text_.empty(); }

    friend bool operator==(path const& a, path const& b) { return a.text_ == b.text_; }
    friend bool operator!=(path const& a, path const& b) { return !(a == b); }

private:
    std::string text_;
};

VTLOG_API path operator/(path const& directory, std::string const& name);

} // namespace VT::filesystem

namespace VT::Logging {

// The configuration of the process-wide logging; the library gives no defaults, fill every field.
struct LogConfig {
    v2::log_level level;                                          // level of the root logger
    std::unordered_map<std::string, v2::log_level> domain_levels; // explicit level per domain
    VT::filesystem::path log_directory; // where the log files go: a directory for them alone
    std::uint64_t max_size;             // bytes all files of the directory may take together
    std::uint64_t rotation_size;        // bytes after which a new file is begun
};

// Starts the process-wide source: attaches a directory sink writing
// "Vantorel <date> <time> <pid> <NN>.log" files in `config.log_directory` and the standard-output
// sink, applies `domain_levels`, and starts at `config.level`, replaying what was logged before.
// Every file of `config.log_directory` counts toward `max_size` and may be deleted (see
// v2::sink::get_dir), so it must be a directory given over to the logs. Call once, at start-up,
// before other threads use the façade. Throws what creating the sink throws: std::invalid_argument
// for an empty `log_directory` (GetDefaultLogDir() with HOME unset), Boost.Filesystem errors for
// an unusable one; messages logged so far are then still held for a later start_logging. Throws
// std::invalid_argument when logging was already started.
VTLOG_API void start_logging(LogConfig const& config);

// Makes `source` the process-wide source and starts it with `config`'s levels; attaches no sink
// (the source brings its own) and ignores the directory and sizes. Loggers handed out before
// stay with the previous source.
VTLOG_API void start_logging(LogConfig const& config, v2::logger_source source);

// The process-wide source. Its loggers may be used before start_logging: their messages are held.
VTLOG_API v2::logger_source& get_logger_source();

// The process-wide logger of `domain` (a dotted path). Thread-safe.
VTLOG_API v2::logger get_logger(std::string domain);

// The process-wide logger of the domain "Global". Thread-safe.
VTLOG_API v2::logger get_global_logger();

// $HOME/Library/Logs/Vantorel, or an empty path when HOME is not set (start_logging refuses it);
// fixed at the first call.
VTLOG_API VT::filesystem::path GetDefaultLogDir();

// Whether curl transfers should be verbose: when everything is logged (level 0) or when a level
// is configured for "Network.Curl".
VTLOG_API bool ShouldSetCurlVerbose(LogConfig const& config);

namespace detail2 {

// The directory sink that start_logging(LogConfig const&) attached, or an empty pointer.
VTLOG_API std::shared_ptr<v2::sink::base> get_directory_logger();

// Moves an existing file into the log directory, where it counts toward `max_size` and is
// deleted like the oldest log files. Throws std::invalid_argument before
// start_logging(LogConfig const&), and Boost.Filesystem errors when the file cannot be moved.
// Thread-safe against logging.
VTLOG_API void add_log_file(boost::filesystem::path const& file);

} // namespace detail2
} // namespace VT::Logging

#if defined(__APPLE__)
#include <CF++.hpp>

namespace VT::Logging {

// The log text of a CoreFoundation error and of the chain of its underlying errors.
// With `one_line`, each underlying error follows in " [ Underlying ... ]":
//     D1(5): outer [ Underlying D2(7): inner ]
// Otherwise as a tree: a line break and "|--" before each underlying error, and one tab more per
// level deeper than 1; `depth` is the nesting level of `error`, normally 0 or 1. At depth 0 the
// first underlying error is joined on with no separator ("D1(5): outerD2(7): inner").
// A missing domain prints "<null>", a missing code 0; the text has no final line break; the chain
// stops at an error that is its own underlying error.
// Throws std::invalid_argument when `error`, or any error under it, holds a CFStringRef.
// Exceptions of libCF++ and fmt propagate. Thread-safe.
VTLOG_API std::string to_log_string(CF::Error const& error, bool one_line = true,
                                    std::uint32_t depth = 0);

} // namespace VT::Logging

// Formats a CF::String, and any libCF++ object passed as one, as its CoreFoundation description
// (a string as itself), with the width, fill, alignment and precision of a string.
template <>
struct fmt::formatter<CF::String> : fmt::formatter<fmt::string_view> {
    VTLOG_API fmt::format_context::iterator format(CF::Type const& object,
                                                   fmt::format_context& context) const;
};
#endif // defined(__APPLE__)
