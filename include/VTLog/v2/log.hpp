// libVTLog, second-generation interface: named loggers in a tree, early queueing, sinks.
#pragma once

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record_view.hpp>
#include <boost/log/sinks/sink.hpp>
#include <boost/shared_ptr.hpp>
#include <fmt/core.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#if defined(__GNUC__) || defined(__clang__)
#define VTLOG_API __attribute__((visibility("default")))
#else
#define VTLOG_API
#endif

// What each call throws
//
// A broken invariant throws std::invalid_argument with the text
// "VTLog/v2/log:<line>:  <function> Assertion <expression> failed."; raised inside a function
// that cannot throw, it ends the process through std::terminate. Every call that is not
// noexcept may also throw std::bad_alloc.
//
//   logger::logger(node)            terminates on a null node: "logger Assertion d failed."
//   logger::log, log_str, log_fmt,  what the text throws (text.get_str(), lazy_text's function);
//   lazy_text                       fmt::format_error for a bad format given through
//                                   fmt::runtime; from a directory sink, std::ios_base::failure
//                                   or a Boost.Filesystem error when the line cannot be written,
//                                   unless a Boost.Log exception handler is installed; the
//                                   start-up overlap described at logger::log ("consume_impl
//                                   Assertion redo_ptr failed."). log_fmt with an argument fmt
//                                   cannot format does not compile.
//   logger::get_child_logger        std::invalid_argument for a path of dots only
//                                   ("make_or_get_descendant Assertion !child_name.empty()
//                                   failed.") or one that would give the domain more than
//                                   max_domain_depth components ("the domain would have <n>
//                                   components, more than max_domain_depth (32)"); nothing is
//                                   created
//   logger_source::get_child_logger std::invalid_argument for an empty path as well, with the
//   set_child_log_level,            same texts
//   reset_child_log_level
//   logger_source::start_logging    std::invalid_argument on a second call ("run Assertion
//                                   c == state::enqueueing failed.", the root level already
//                                   set); what the sinks throw while held messages are written
//   logger_source::add_sink,        std::invalid_argument for a null sink, the source unchanged
//   remove_sink
//   sink::base::base                Boost.Log exceptions from registering the sink
//   sink::get_stdout, get_stderr    Boost.Log exceptions on the call that builds the sink; the
//                                   next call tries again
//   sink::get_dir                   std::invalid_argument for an empty pattern, one with no file
//                                   name or no counter (%N) in it, or one whose directory is
//                                   really the working or home directory or one above them
//                                   (retention would delete unrelated files); Boost.Filesystem
//                                   or Boost.Log exceptions naming the path when the folder
//                                   cannot be judged or made
//   logger::get_log_level, get_domain, ~logger_source, sink::detail::get_unwrapped_sink,
//   impl::get_time                  nothing
//   logger_source::get_data, set_current_thread_name    only std::bad_alloc
//   record keywords in a formatter  nothing: a missing value formats as nothing (the keywords
//                                   are in <VTLog/v2/record.hpp>)

// fork(): a child of a process whose other threads may be logging must call exec (or _exit) at
// once and must not log, nor call this library, before it does: a lock that another thread held
// at the fork (Boost.Log's core, a sink's) stays held in the child for good, and its first
// logging call would wait forever. A process that forks while no other thread exists may go on
// logging in the child.

namespace VT::Logging::v2 {

// Severity of a message. A message passes a logger when its level is greater than or equal to
// the logger's level (signed comparison); 0 lets everything through. Any int value is a valid
// level; the named ones are conventional points on the scale. Levels are never printed.
enum class VTLOG_API log_level : std::int32_t {
    trace = 0,
    debug = 1,
    info = 2,
    warning = 3,
    error = 4,
    critical = 5,
};

// The text of one message, produced on demand. `get_str` is called at most once per `log` call,
// synchronously on the calling thread, and only when the message can be logged: never when the
// level is filtered out on a running source or when the source has finished. The view must stay
// valid until `log` returns; the library copies the text if it keeps the record.
// `get_str` runs before the library takes any lock for the message, so it may use the library
// freely: look up loggers, attach sinks, and log through any logger, this one included (such a
// message is written before the one whose text is being made). An exception it throws leaves
// `log` and nothing is logged.
class VTLOG_API log_function_ref {
public:
    virtual std::string_view get_str() const = 0;

protected:
    ~log_function_ref() = default;
};

// The most components a logger's domain may have ("a.b.c" has three). Real domains have a
// handful. A change of level or of sinks holds the lock of every node along a branch at once,
// so the limit keeps that chain short: well below the 64 locks per thread that lock checkers
// such as ThreadSanitizer's can follow.
inline constexpr std::size_t max_domain_depth = 32;

class logger_source;

namespace sink {
class base;
} // namespace sink

namespace detail {
// What a message at a level meets at the moment of the call: log_fmt hands it on with the
// message, so that the level is tested once.
enum class admission { dropped, written, held };
struct logger_access;
} // namespace detail

// A handle to one node of a logger tree. Cheap to copy; copies name the same node. Usable from
// any thread, and after its logger_source has been destroyed (it then writes nothing).
class logger {
public:
    struct data;

    // Terminates the process if `node` is null.
    VTLOG_API explicit logger(std::shared_ptr<data> node) noexcept;

    // Writes one message. On a running source a message below the logger's level costs two loads
    // (the source's state, the logger's level) and a comparison and never asks for its text. Before
    // the source starts, the message is held and filtered when `logger_source::start_logging`
    // replays it. A text that is empty or only white space is not logged. Exceptions from
    // `text.get_str()` and from the sinks (a file that cannot be written) propagate.
    //
    // One overlap is reported rather than hidden: a message logged on another thread in the
    // instant between the source switching to running and the start-up marker leaving the tree
    // makes this call throw std::invalid_argument ("... consume_impl Assertion redo_ptr
    // failed.") and is not written. Start logging before other threads log to avoid it.
    VTLOG_API void log(log_level level, log_function_ref const& text) const;

    // Whether a message at `level` logged now would be written or held: false once the source
    // has finished, and on a running source for a level below this logger's; true before the
    // start, which decides then. It makes the test that `log` makes before asking for a text.
    VTLOG_API bool is_enabled(log_level level) const noexcept;

    // The current level of this logger; read without a lock.
    VTLOG_API log_level get_log_level() const noexcept;

    // The full dotted domain of this logger; valid while any handle to the node lives.
    VTLOG_API std::string_view get_domain() const noexcept;

    // The logger at the dotted `path` below this one, created on first use. Leading, trailing and
    // repeated dots are ignored; an empty path returns this logger. Throws std::invalid_argument,
    // creating nothing, for a path made only of dots and for one that would give the domain more
    // than max_domain_depth components.
    VTLOG_API logger get_child_logger(std::string path) const;

private:
    friend struct detail::logger_access;
    std::shared_ptr<data> node_;
};

// Writes a finished text; same behaviour as `logger::log`.
VTLOG_API void log_str(logger const& l, log_level level, std::string_view text);

// A log_function_ref over any callable returning text (std::string, std::string_view, const
// char*...), for text that is expensive to build: the callable runs only if the message is
// logged, and what it returns is kept until the `log` call returns.
//     l.log(log_level::debug, lazy_text([&] { return describe(request); }));
template <class F>
class lazy_text final : public log_function_ref {
public:
    explicit lazy_text(F make)
        : make_(std::move(make))
    {
    }
    std::string_view get_str() const override
    {
        text_.emplace(make_());
        return std::string_view(*text_);
    }

private:
    F make_;
    mutable std::optional<std::invoke_result_t<F const&>> text_;
};

namespace detail {

// The test of `logger::is_enabled`, with what passes it becomes.
VTLOG_API admission admit(logger const& l, log_level level) noexcept;

// Formats and logs the text of log_fmt, admitted as `how`, through fmt's type-erased arguments:
// compiled once, in the library, so that a call site instantiates none of fmt's formatting.
VTLOG_API void log_formatted(logger const& l, log_level level, admission how,
                             fmt::string_view format, fmt::format_args args);

// Stops the build when fmt cannot format an argument of log_fmt. The check runs in log_fmt
// itself, so the compiler's report names the argument type (Arg in the instantiation it prints)
// and leads to the caller's line; the call into fmt is compiled only when every argument passes,
// so fmt's own report of the argument does not follow it.
template <class Arg>
constexpr bool formattable_argument()
{
    static_assert(fmt::is_formattable<Arg>::value,
                  "log_fmt: fmt cannot format an argument of type Arg; specialise "
                  "fmt::formatter<Arg> or pass a value fmt can format");
    return fmt::is_formattable<Arg>::value;
}

} // namespace detail

// Writes an fmt-style message, formatted only if the message is logged (into a stack buffer,
// on the heap past 500 bytes); otherwise the same behaviour as `logger::log`. The
// arguments are referenced, not copied. The format is checked against the arguments at compile
// time in C++20, and in C++17 when written as FMT_STRING("...") (from <fmt/format.h>); an
// unchecked bad format throws fmt::format_error when the message is logged.
//     log_fmt(net, log_level::info, "sent {} bytes to {}", n, host);
template <class... Args>
void log_fmt(logger const& l, log_level level, fmt::format_string<Args...> format,
             Args const&... args)
{
    if constexpr ((detail::formattable_argument<Args>() && ...)) {
        if (auto const how = detail::admit(l, level); how != detail::admission::dropped) {
            detail::log_formatted(l, level, how, format, fmt::make_format_args(args...));
        }
    }
}

// Owns one logger tree and the pipeline that carries its messages into Boost.Log.
// It starts enqueueing: messages of its loggers are held until `start_logging`, which replays
// them through the level filter into the sinks attached at that moment. Destroying the source
// finishes it: held messages are discarded and its loggers stop writing.
// All members may be called from any thread.
class logger_source {
public:
    struct data;

    logger_source() noexcept = default;
    logger_source(logger_source&& other) noexcept
        : data_(std::atomic_exchange(&other.data_, std::shared_ptr<data>()))
    {
    }
    // Takes over `other`'s tree. The tree this handle held before is dropped without being
    // finished: it lives on while its loggers do.
    logger_source& operator=(logger_source&& other) noexcept
    {
        std::atomic_store(&data_, std::atomic_exchange(&other.data_, std::shared_ptr<data>()));
        return *this;
    }
    logger_source(logger_source const&) = delete;
    logger_source& operator=(logger_source const&) = delete;
    VTLOG_API ~logger_source();

    // The shared state, created on first use by whichever thread needs it first.
    VTLOG_API std::shared_ptr<data> get_data();

    // Sets the root level, replays the held messages through the level filter into the attached
    // sinks, and switches to running. Messages logged meanwhile on other threads are written
    // once each and in order per thread; the call returns in a time set by what is held when it
    // begins, however fast other threads log, because at the end those threads wait for it.
    // A sink must therefore not log through this source while it starts. Throws
    // std::invalid_argument when called a second time (after the root level has been changed),
    // and propagates exceptions of sinks.
    VTLOG_API void start_logging(log_level level);

    // The logger at the dotted `path`, created on first use. Leading, trailing and repeated dots
    // are ignored. Throws std::invalid_argument, creating nothing, for an empty path, a path made
    // only of dots, and a path of more than max_domain_depth components.
    VTLOG_API logger get_child_logger(std::string path);

    // Gives the branch at `path` an explicit level that its ancestors no longer override, and
    // keeps the branch alive so the setting survives while no handle names it. Takes the paths
    // that get_child_logger takes and throws as it does.
    VTLOG_API void set_child_log_level(std::string path, log_level level);

    // Makes the branch at `path` follow its parent's level again and releases it. Takes the paths
    // that get_child_logger takes and throws as it does.
    VTLOG_API void reset_child_log_level(std::string path);

    // Attaches a sink: records of this tree reach it from now on (once the source runs).
    // Returns false if it was already attached. Throws std::invalid_argument for a null sink,
    // leaving the source as it was.
    VTLOG_API bool add_sink(std::shared_ptr<sink::base> sink);

    // Detaches a sink. Records stop reaching every sink with the same routing name. Returns
    // whether this sink was attached. Throws std::invalid_argument for a null sink, leaving the
    // source as it was.
    VTLOG_API bool remove_sink(std::shared_ptr<sink::base> sink);

private:
    std::shared_ptr<data> data_;
};

namespace sink {

// The value type of the routing attributes: only the presence of a marker matters.
struct VTLOG_API is_sink {};

// The library's handle to one Boost.Log sink. The sink is registered with the Boost.Log core
// for as long as the handle lives, behind a filter that admits only records that carry the
// marker `name` (those of the sources the handle is attached to, and any other record given
// that marker, whoever made it) and never records that a source is still holding. Create it with
// std::make_shared; share it by pointer. A record that a sink keeps to write later, on a thread of
// its own (an asynchronous front end), refers to no logger or source of the library, so releasing
// it never destroys a handle there: the handle dies with the last holder of its own, on that
// holder's thread.
class VTLOG_API base : public std::enable_shared_from_this<base> {
public:
    // Registers `sink` (which may be empty) with the core. Propagates Boost.Log exceptions.
    base(boost::log::attribute_name name, boost::shared_ptr<boost::log::sinks::sink> sink);
    ~base();
    base(base const&) = delete;
    base& operator=(base const&) = delete;

    boost::shared_ptr<boost::log::core> const core;
    boost::log::attribute_name const name;
    boost::shared_ptr<boost::log::sinks::sink> const wrapper;
};

namespace detail {
// The Boost.Log sink that `handle` was built with, or an empty pointer.
VTLOG_API boost::shared_ptr<boost::log::sinks::sink>
get_unwrapped_sink(std::shared_ptr<base> const& handle) noexcept;
} // namespace detail

// The process-wide standard-output sink: "[domain] message" per line ("message" alone on the
// root logger), flushed after every record. Every call returns the same handle. Thread-safe.
VTLOG_API std::shared_ptr<base> get_stdout();

// The process-wide standard-error sink, formatted like get_stdout().
VTLOG_API std::shared_ptr<base> get_stderr();

// The sink that writes rotating files named by `pattern` (Boost.Log file-name placeholders: %Y,
// %y, %m, %d, %H, %M, %S, %f and the counter %N, %2N...). The file name must hold a counter: the
// only naming that gives every rotated file a name of its own. The pattern's directory, created if
// missing, must be one given over to the logs: every file in it counts toward `max_total_size`,
// whatever its name and whichever process wrote it, and at each rotation the oldest are deleted
// (files this process writes excepted; links as entries, never their targets) until the total is
// back under it. A directory has one budget: sinks of several patterns in one directory share
// it, the smallest `max_total_size` they were given.
// A file is closed before a line would take it past `rotation_size` bytes (an empty file takes
// any line), and at the first local midnight after the earliest clock reading since it was
// opened. Files are always created anew, after the highest counter in the directory; a name taken
// (by a file or a symbolic link) is skipped, so no file holds lines of two runs and no line goes
// through a link. Each line is in its file when the logging call returns; if the current file
// (or the directory) was removed meanwhile, by anyone, the line is written again into a new file
// (in the directory made again). One descriptor per open file.
// A file line holds the time, the thread identifier and name, the domain and the message,
// separated by tabs; the control characters of the thread name and the domain are escaped ("\n",
// "\t", "\r", "\xHH"; backslashes are left as they are), so neither can begin a line or a field.
// While a sink for `pattern` (compared byte for byte) lives, the same handle is returned and the
// sizes are ignored. Thread-safe.
// Throws std::invalid_argument naming the pattern and why when it is empty, names no file (ends
// in a separator), has no counter or an unknown placeholder in its file name, or when its
// directory, with ".", ".." and links resolved as far as it exists, is the working directory, the
// home directory (HOME), the file-system root or a directory above one of them; Boost.Filesystem
// exceptions naming the path when the directory cannot be resolved or created. A line that
// cannot be written (a full disk), or a file that cannot be opened, makes its logging call throw
// a Boost.Filesystem error naming the file, or reaches the handler set with
// boost::log::core::set_exception_handler. The next line then begins a new file if part of the
// failed one was written.
VTLOG_API std::shared_ptr<base> get_dir(std::string pattern, unsigned long rotation_size,
                                        unsigned long max_total_size);

} // namespace sink

// Names the calling thread in the records it opens from now on (the file line shows it).
// Records already opened keep the name they were made with; each thread has its own name, empty
// until set. Needs no lock.
VTLOG_API void set_current_thread_name(std::string const& name);

namespace impl {
// The local time text of a record ("2024-05-01 09:30:12.045+02:00"), or
// "????-??-?? ??:??:??.???-??:??" when the record has none. Never throws. The view is valid
// while the record lives.
VTLOG_API std::string_view get_time(boost::log::record_view const& record) noexcept;
} // namespace impl

} // namespace VT::Logging::v2
