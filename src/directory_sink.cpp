// The directory sink: rotating log files pruned by total size, one live sink per pattern.
#include "directory_sink.hpp"

#include "assert.hpp"
#include "formatted_text.hpp"
#include "log_files.hpp"
#include "process_lifetime.hpp"
#include "record_names.hpp"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ios>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include <stdlib.h> // realpath

namespace VT::Logging::v2 {

void (*impl::get_dir_lookup_hook)() = nullptr;

namespace sink {
namespace {

namespace sinks = boost::log::sinks;

using frontend = sinks::synchronous_sink<impl::log_file_backend>;

struct sink_lookup {
    std::weak_ptr<base> handle;
    // The handle the entry was made for. It stays comparable after `handle` has expired, which
    // lets a dying sink tell its own entry from one that a newer sink has taken over.
    base const* identity;
};

// The live directory sinks, keyed by pattern (exact bytes: "logs/a" and "logs//a" are two
// sinks even though they name the same files).
struct pattern_registry {
    std::mutex mutex;
    std::unordered_map<std::string, sink_lookup> sinks;
};

// Never destroyed, so a sink that dies or a get_dir made while the process exits finds it.
pattern_registry& registry()
{
    static impl::process_lifetime<pattern_registry> data;
    return *data;
}

// A directory sink's handle; it takes its entry out of the registry when it dies.
//
// Between the last reference being dropped and this destructor taking the registry lock, the
// entry is expired but present, and get_dir may already have replaced it:
//
//   thread A: last reset() ... ~pattern_sink waits for the lock ............ finds B's entry
//   thread B:          get_dir: entry expired -> builds a new sink, records it
//
// so the destructor erases the entry only if it still names this handle.
class pattern_sink : public base {
public:
    pattern_sink(boost::log::attribute_name name, boost::shared_ptr<sinks::sink> frontend,
                 std::string pattern)
        : base(name, std::move(frontend))
        , pattern(std::move(pattern))
    {
    }

    ~pattern_sink()
    {
        auto& registered = registry();
        std::lock_guard<std::mutex> lock(registered.mutex);
        auto const entry = registered.sinks.find(pattern);
        if (entry != registered.sinks.end() && entry->second.identity == this) {
            registered.sinks.erase(entry);
        }
    }

    std::string const pattern;
};

// "00" to "ff", so that a thread identifier is written a byte at a time.
constexpr std::array<char, 512> hex_pairs = [] {
    std::array<char, 512> pairs{};
    for (int i = 0; i < 256; ++i) {
        pairs[2 * i] = "0123456789abcdef"[i / 16];
        pairs[2 * i + 1] = "0123456789abcdef"[i % 16];
    }
    return pairs;
}();

// The length of Boost.Log's text form of a thread identifier: "0x" and two digits per byte.
constexpr std::size_t thread_id_width = 2 + 2 * sizeof(boost::log::thread_id::native_type);

char* put(char* out, std::string_view text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

// Boost.Log's text form of a thread identifier: "0x" and the native value in lower-case
// hexadecimal digits, as many as it has nibbles.
char* put_thread_id(char* out, boost::log::thread_id const& id)
{
    auto const native = id.native_id();
    *out++ = '0';
    *out++ = 'x';
    for (int byte = static_cast<int>(sizeof(native)) - 1; byte >= 0; --byte) {
        std::memcpy(out, &hex_pairs[2 * ((native >> (8 * byte)) & 0xff)], 2);
        out += 2;
    }
    return out;
}

// The bytes of `word` that are control characters, each marked by its top bit. Each byte is
// taken apart on its low seven bits, so no carry crosses bytes: adding 1 reaches 0x80 only from
// 0x7f, adding 0x60 stays below 0x80 only from below 0x20; bytes from 0x80 up are never marked.
constexpr std::uint64_t control_bytes(std::uint64_t word)
{
    constexpr std::uint64_t ones = 0x0101010101010101u, highs = ones * 0x80;
    auto const low = word & (ones * 0x7f);
    return ((low + ones) | ~(low + ones * 0x60)) & ~word & highs;
}

template <class Word>
std::uint64_t load(char const* at)
{
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

template <class Word>
void store(char* at, std::uint64_t word)
{
    auto const narrow = static_cast<Word>(word);
    std::memcpy(at, &narrow, sizeof narrow);
}

// Copies `text` to `out` and returns its control bytes as control_bytes marks them, zero when
// there is nothing to escape. Thread names and domains are short and most have nothing to escape,
// so the copy is made eight bytes at a time and checked on the way, the last word overlapping the
// one before; a shorter text is copied as two overlapping halves, or as its first, middle and
// last bytes.
[[gnu::always_inline]] inline std::uint64_t copy_marking_controls(char* out, std::string_view text)
{
    char const* const data = text.data();
    std::size_t const size = text.size();
    if (size >= 8) {
        std::uint64_t controls = 0;
        for (std::size_t at = 0; at + 8 < size; at += 8) {
            auto const word = load<std::uint64_t>(data + at);
            controls |= control_bytes(word);
            store<std::uint64_t>(out + at, word);
        }
        auto const last = load<std::uint64_t>(data + size - 8);
        store<std::uint64_t>(out + size - 8, last);
        return controls | control_bytes(last);
    }
    if (size >= 4) {
        auto const first = load<std::uint32_t>(data), last = load<std::uint32_t>(data + size - 4);
        store<std::uint32_t>(out, first);
        store<std::uint32_t>(out + size - 4, last);
        return control_bytes(first | last << 32);
    }
    if (size == 0) {
        return 0;
    }
    auto const first = load<std::uint8_t>(data), middle = load<std::uint8_t>(data + size / 2),
               last = load<std::uint8_t>(data + size - 1);
    store<std::uint8_t>(out, first);
    store<std::uint8_t>(out + size / 2, middle);
    store<std::uint8_t>(out + size - 1, last);
    constexpr std::uint64_t plain_filler = 0x6161616161000000u; // "a", never escaped
    return control_bytes(first | middle << 8 | last << 16 | plain_filler);
}

// Writes `text` with its control characters escaped, so that a thread name or a domain can
// neither begin a line nor a field: "\n", "\t", "\r", and "\xHH" for the others (0x00 to 0x1f,
// 0x7f). At most four bytes for each byte. Backslashes are left as they are: escapes are for
// reading, and a backslash forges nothing.
char* put_escaped(char* out, std::string_view text)
{
    for (unsigned char const c : text) {
        if (c >= 0x20 && c != 0x7f) {
            *out++ = static_cast<char>(c);
            continue;
        }
        *out++ = '\\';
        if (c == '\n' || c == '\t' || c == '\r') {
            *out++ = c == '\n' ? 'n' : c == '\t' ? 't' : 'r';
        } else {
            *out++ = 'x';
            out = put(out, std::string_view(&hex_pairs[2 * c], 2));
        }
    }
    return out;
}

// Writes `name` escaped at `out` in `fields`, after making room for the escapes; returns its end.
[[gnu::cold]] char* put_escaped_name(fmt::memory_buffer& fields, char* out, std::string_view name)
{
    auto const offset = out - fields.data();
    fields.resize(fields.size() + 3 * name.size());
    return put_escaped(fields.data() + offset, name);
}

// Writes a thread name or a domain at `out` in `fields`, which has room for it unescaped, and
// returns its end.
[[gnu::always_inline]] inline char* put_name(fmt::memory_buffer& fields, char* out,
                                             std::string_view name)
{
    return copy_marking_controls(out, name) == 0 ? out + name.size()
                                                 : put_escaped_name(fields, out, name);
}

// One file line; the back end adds the final newline. Fields are separated by tabs, and every
// line after the first of a message is indented under the message column:
//
//   2024-05-01 09:30:12.045+02:00 TAB 0x00007f1c2a4b5740:main TAB [Network.Curl] TAB first line
//   TAB TAB TAB second line
//
// The thread name appears only when the thread has one; the root logger's domain field is empty.
// Both have their control characters escaped (see put_escaped); the message is written as it is.
// The fields before the message are measured, then written to the stream at once.
void full_formatter(boost::log::record_view const& record, boost::log::formatting_ostream& out)
{
    auto const& names = impl::record_names::get();
    auto const& values = record.attribute_values();
    auto const message = boost::log::extract<std::string_view>(names.message, values);
    if (!message) {
        return;
    }
    auto const time = impl::get_time(record);
    auto const id = boost::log::extract<boost::log::thread_id>(names.thread_id, values);
    std::string_view thread_name;
    if (id) {
        if (auto const name = boost::log::extract<std::string_view>(names.thread_name, values)) {
            thread_name = *name;
        }
    }
    auto const channel = boost::log::extract<std::string_view>(names.channel, values);

    // Room for the fields as they are; a name to escape makes more, and the unused end is left out.
    fmt::memory_buffer fields;
    fields.resize(time.size() + 3 + (id ? thread_id_width : 0) +
                  (thread_name.empty() ? 0 : 1 + thread_name.size()) +
                  (channel ? 2 + channel->size() : 0));
    char* field = put(fields.data(), time);
    *field++ = '\t';
    if (id) {
        field = put_thread_id(field, id.get());
        if (!thread_name.empty()) {
            *field++ = ':';
            field = put_name(fields, field, thread_name);
        }
    }
    *field++ = '\t';
    if (channel) {
        *field++ = '[';
        field = put_name(fields, field, *channel);
        *field++ = ']';
    }
    *field++ = '\t';
    impl::begin_text(out);
    impl::append_text(out, std::string_view(fields.data(), field - fields.data()));

    std::string_view text = *message;
    for (auto end = text.find('\n'); end != std::string_view::npos && end + 1 < text.size();
         end = text.find('\n')) {
        impl::append_text(out, text.substr(0, end + 1));
        impl::append_text(out, "\t\t\t");
        text.remove_prefix(end + 1);
    }
    impl::append_text(out, text);
}

// The real path of the absolute `directory`: ".", ".." and links resolved as far as the path
// exists; a missing name is taken as written, since it is no link and the sink will make it a
// directory. What is resolved so far holds neither links nor dots, so ".." is its parent.
std::string real_directory(std::string_view directory)
{
    std::string real = "/";
    for (std::size_t begin = 0, end = 0; begin < directory.size(); begin = end + 1) {
        end = std::min(directory.find('/', begin), directory.size());
        auto const name = directory.substr(begin, end - begin);
        if (name.empty() || name == ".") {
            continue;
        }
        if (name == "..") {
            real.erase(std::max<std::size_t>(real.rfind('/'), 1));
            continue;
        }
        std::string next = real.size() > 1 ? real + '/' : real;
        next += name;
        std::unique_ptr<char, decltype(&std::free)> const found(::realpath(next.c_str(), nullptr),
                                                                &std::free);
        if (!found && errno != ENOENT) {
            throw boost::filesystem::filesystem_error(
                "cannot judge the log directory", next,
                boost::system::error_code(errno, boost::system::system_category()));
        }
        real = found ? std::string(found.get()) : std::move(next);
    }
    return real;
}

// Whether `outer` is the directory `inner` or one above it; both are real paths.
bool holds(std::string const& outer, std::string const& inner)
{
    return inner.compare(0, outer.size(), outer) == 0 &&
           (outer.size() == inner.size() || outer == "/" || inner[outer.size()] == '/');
}

[[noreturn]] void refuse(std::string const& pattern, std::string const& reason)
{
    throw std::invalid_argument("log file pattern \"" + pattern + "\" " + reason);
}

// Refuses a pattern that names no file, whose files could not be rotated (no counter), or whose
// files would share a directory with anything but logs: every file of a log directory counts
// toward the size limit and may be deleted, so the working directory, the home directory and
// every directory above one of them (the file-system root at last) are never taken for one,
// however spelled.
void check_pattern(std::string const& pattern)
{
    auto const slash = pattern.rfind('/');
    auto const file_name =
        std::string_view(pattern).substr(slash == std::string::npos ? 0 : slash + 1);
    if (pattern.empty()) {
        refuse(pattern, "is empty");
    }
    if (file_name.empty() || file_name == "." || file_name == "..") {
        refuse(pattern, "names no file");
    }
    if (auto const problem = impl::file_name_problem(std::string(file_name)); !problem.empty()) {
        refuse(pattern, problem);
    }

    boost::system::error_code no_working_directory;
    auto const working = boost::filesystem::current_path(no_working_directory).string();
    std::string directory = slash == std::string::npos ? "" : pattern.substr(0, slash + 1);
    if (directory.empty() || directory.front() != '/') {
        if (no_working_directory) {
            throw boost::filesystem::filesystem_error(
                "cannot judge the log directory of \"" + pattern + "\"", no_working_directory);
        }
        directory = working + '/' + directory;
    }
    auto const real = real_directory(directory);
    auto const judge = [&](std::string const& kept, char const* what) {
        if (holds(real, kept)) {
            refuse(pattern, "would keep its files in " + real + ", " +
                                (real == kept ? "" : "a directory above ") + what +
                                "; every file of a log directory counts toward its size limit "
                                "and may be deleted, so it must be one given over to the logs");
        }
    };
    judge("/", "the file-system root");
    if (!no_working_directory) {
        judge(real_directory(working), "the working directory");
    }
    if (char const* home = std::getenv("HOME");
        home && (*home == '/' || (*home && !no_working_directory))) {
        judge(real_directory(*home == '/' ? home : working + '/' + home), "the home directory");
    }
}

boost::shared_ptr<frontend> make_frontend(boost::filesystem::path const& path,
                                          unsigned long rotation_size, unsigned long max_total_size)
{
    auto made = boost::make_shared<frontend>(
        boost::make_shared<impl::log_file_backend>(path, rotation_size, max_total_size));
    made->set_formatter(&full_formatter);
    return made;
}

} // namespace

std::shared_ptr<base> get_dir(std::string pattern, unsigned long rotation_size,
                              unsigned long max_total_size)
{
    check_pattern(pattern);
    auto& registered = registry();
    // Declared before the lock so that a handle dropped by an exception is destroyed after the
    // unlock: its destructor takes the same lock.
    std::shared_ptr<pattern_sink> made;
    std::lock_guard<std::mutex> lock(registered.mutex);
    if (impl::get_dir_lookup_hook) {
        impl::get_dir_lookup_hook();
    }

    auto const entry = registered.sinks.find(pattern);
    if (entry != registered.sinks.end()) {
        if (auto live = entry->second.handle.lock()) {
            return live;
        }
    }

    auto sink = make_frontend(pattern, rotation_size, max_total_size);
    made = std::make_shared<pattern_sink>(boost::log::attribute_name("pattern sink " + pattern),
                                          std::move(sink), pattern);
    // An expired entry belongs to a sink whose destructor is waiting for this lock; taking the
    // entry over is what its identity test expects.
    sink_lookup const lookup{made, made.get()};
    if (entry != registered.sinks.end()) {
        entry->second = lookup;
    } else {
        registered.sinks.emplace(std::move(pattern), lookup);
    }
    return made;
}

} // namespace sink

void impl::add_log_file(std::shared_ptr<sink::base> const& wrapper_logger,
                        boost::filesystem::path const& file)
{
    VT_ASSERT_IN("VTLog/VTLog", wrapper_logger);
    auto const boost_sink = sink::detail::get_unwrapped_sink(wrapper_logger);
    VT_ASSERT_IN("VTLog/VTLog", boost_sink);
    auto const boost_logger = boost::dynamic_pointer_cast<sink::frontend>(boost_sink);
    VT_ASSERT_IN("VTLog/VTLog", boost_logger);
    // Locked, so that the file is never stored in the middle of a rotation.
    boost_logger->locked_backend()->store_file(file);
}

} // namespace VT::Logging::v2
