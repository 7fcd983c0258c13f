// The path of one message: the level test, the text asked for once, the record, and the core,
// which hands it to the wrapper of every sink whose marker it carries. The early queue is the
// source's.
#include "VTLog/v2/log.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace VT::Logging::v2 {
namespace detail {

struct logger_access {
    static logger::data& node(logger const& l) noexcept { return *l.node_; }
};

} // namespace detail

namespace {

using state = logger_source::data::state;
using detail::admission;

// The one test of a message: on a running source, its level against the logger's (a relaxed
// load: a level set concurrently may take effect a message late); before the start, none (the
// replay filters it against the levels of that moment); once finished, it is dropped.
inline admission admission_of(logger::data const& node, log_level level) noexcept
{
    auto const current = node.source->current.load();
    if (current == state::running) {
        return level >= node.level.load(std::memory_order_relaxed) ? admission::written
                                                                   : admission::dropped;
    }
    return current == state::enqueueing ? admission::held : admission::dropped;
}

// Leading and trailing white space and NUL bytes are not part of a message.
bool is_blank(char c)
{
    return c == '\0' || std::isspace(static_cast<unsigned char>(c));
}

std::string_view trim(std::string_view text)
{
    auto const begin = std::find_if_not(text.begin(), text.end(), is_blank);
    auto const end =
        std::find_if_not(text.rbegin(), std::string_view::reverse_iterator(begin), is_blank).base();
    return text.substr(static_cast<std::size_t>(begin - text.begin()),
                       static_cast<std::size_t>(end - begin));
}

// Opens the record of an admitted message and hands it to the core.
void write(logger::data& node, log_level level, std::string_view text)
{
    if (auto record = node.source_logger.open_message(node, level, text)) {
        node.source_logger.push_record(std::move(record));
    }
}

// The text is asked for once, with no lock of the library held, so that the text function may
// look up loggers and log itself; a blank text is not logged.
void log_admitted(logger::data& node, log_level level, log_function_ref const& function,
                  admission how)
{
    auto const text = trim(function.get_str());
    if (text.empty()) {
        return;
    }
    if (how == admission::written) {
        write(node, level, text);
        return;
    }
    // Held whatever its level, which the replay tests. If the source started while the message
    // was on its way, it is logged as on a running source.
    if (!node.source->hold(node, level, text) && admission_of(node, level) == admission::written) {
        write(node, level, text);
    }
}

class constant_logger final : public log_function_ref {
public:
    explicit constant_logger(std::string_view text)
        : text(text)
    {
    }
    std::string_view get_str() const override { return text; }

private:
    std::string_view const text;
};

// The text of log_fmt, formatted when it is asked for: the usual message stays in the object's
// own 500 bytes, a longer one goes to the heap.
class format_text final : public log_function_ref {
public:
    format_text(fmt::string_view format, fmt::format_args args)
        : format(format)
        , args(args)
    {
    }
    std::string_view get_str() const override
    {
        fmt::vformat_to(fmt::appender(text), format, args);
        return std::string_view(text.data(), text.size());
    }

private:
    fmt::string_view const format;
    fmt::format_args const args;
    mutable fmt::basic_memory_buffer<char, 500> text;
};

} // namespace

void logger::log(log_level level, log_function_ref const& text) const
{
    logger::data& node = *node_;
    // The hot path: a message below its logger's level ends here, with one load of the state and
    // one of the level, before any message is built.
    auto const how = admission_of(node, level);
    if (how != admission::dropped) {
        log_admitted(node, level, text, how);
    }
}

bool logger::is_enabled(log_level level) const noexcept
{
    return admission_of(*node_, level) != admission::dropped;
}

void log_str(logger const& l, log_level level, std::string_view text)
{
    l.log(level, constant_logger(text));
}

admission detail::admit(logger const& l, log_level level) noexcept
{
    return admission_of(logger_access::node(l), level);
}

void detail::log_formatted(logger const& l, log_level level, admission how, fmt::string_view format,
                           fmt::format_args args)
{
    log_admitted(logger_access::node(l), level, format_text(format, args), how);
}

} // namespace VT::Logging::v2
