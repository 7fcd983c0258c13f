// The path of one message: the level test (shared with is_enabled), lazy text, the record, and
// the early queue.
#include "message_path.hpp"

#include "assert.hpp"
#include "attribute_values.hpp"
#include "logger_source.hpp"
#include "logger_tree.hpp"
#include "record_names.hpp"
#include "routing.hpp"

#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/record_view.hpp>
#include <boost/log/sinks/sink.hpp>
#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace VT::Logging::v2 {
namespace {

using state = logger_source::data::state;

// Holds the records of enqueueing sources: it takes every record that carries the
// "enqueueing sink" marker and appends it, minus its transient attributes and owned by its node,
// to its source's queue. A record that arrives after its source switched to running is handed back
// to its logging thread to be redone.
class queueing_sink : public boost::log::sinks::sink {
public:
    queueing_sink()
        : boost::log::sinks::sink(true)
        , name(impl::record_names::get().enqueueing_sink)
    {
    }

    // Never destroyed: it stays registered with the core while the process exits.
    static boost::shared_ptr<queueing_sink> const& get()
    {
        static auto const* const instance =
            new boost::shared_ptr<queueing_sink>(boost::make_shared<queueing_sink>());
        return *instance;
    }

    bool will_consume(boost::log::attribute_value_set const& values) override
    {
        return impl::carries_marker(values, name);
    }

    void consume(boost::log::record_view const& r) override { consume_impl(r, false); }

    bool try_consume(boost::log::record_view const& r) override { return consume_impl(r, true); }

    void flush() override {}

private:
    bool consume_impl(boost::log::record_view const& r, bool try_only) const
    {
        auto const& names = impl::record_names::get();
        auto const source_ptr =
            boost::log::extract<logger_source::data*>(names.source_data_ptr, r.attribute_values());
        logger_source::data* const logger_ptr = source_ptr ? *source_ptr : nullptr;
        VT_ASSERT(logger_ptr);

        std::unique_lock<std::mutex> lock(logger_ptr->mutex, std::defer_lock);
        if (try_only) {
            if (!lock.try_lock()) {
                return false;
            }
        } else {
            lock.lock();
        }
        switch (auto const c = logger_ptr->current.load()) {
        case state::finished:
            break;
        case state::running: {
            auto const redo_ptr =
                boost::log::extract<std::shared_ptr<bool>>(names.redo_ptr, r.attribute_values());
            VT_ASSERT(redo_ptr);
            VT_ASSERT(*redo_ptr);
            **redo_ptr = true;
            break;
        }
        case state::enqueueing:
            logger_ptr->queue.push_back(hold(r));
            break;
        default:
            AbortEnumOutOfRange(c);
        }
        return true;
    }

    // The record as it is held: owned by its node, which the logging thread keeps alive while
    // the record is consumed here, and without its transient attributes.
    static logger_source::data::held_record hold(boost::log::record_view const& r)
    {
        auto const node = boost::log::extract<logger::data*>(
            impl::record_names::get().logger_data_ptr, r.attribute_values());
        VT_ASSERT(node);
        return {(*node)->shared_from_this(), remove_transient_attrs(r)};
    }

    static boost::log::attribute_value_set remove_transient_attrs(boost::log::record_view const& r)
    {
        auto const& values = r.attribute_values();
        auto const removable_attrs = boost::log::extract<std::vector<boost::log::attribute_name>>(
            impl::record_names::get().transient_attrs, values);
        VT_ASSERT(removable_attrs);
        auto const& removable = removable_attrs.get();
        boost::log::attribute_value_set kept(values.size() - removable.size());
        for (auto const& value : values) {
            if (std::find(removable.begin(), removable.end(), value.first) == removable.end()) {
                kept.insert(value.first, value.second);
            }
        }
        return kept;
    }

    boost::log::attribute_name const name;
};

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

// Asks for the text the first time, with no lock of the library held, so that the text function
// may look up loggers and log itself. False when the text is blank: nothing is to be logged.
bool take_text(logger_source::data::message& m)
{
    if (m.text.empty()) {
        m.text = trim(m.function->get_str());
    }
    return !m.text.empty();
}

// The test that decides whether a message is worth its text: on a running source, its level
// against the logger's (a relaxed load: a level set concurrently may take effect a message
// late); before the start, always (the replay filters it against the levels of that moment);
// once finished, never.
inline bool accepts(logger::data const& node, log_level level) noexcept
{
    auto const current = node.source->current.load();
    if (current == state::running) {
        return level >= node.level.load(std::memory_order_relaxed);
    }
    return current == state::enqueueing;
}

// The named levels share one immutable value each, so their records allocate none; any other
// level gets a value of its own.
boost::log::attribute_value level_value(log_level level)
{
    using value_type = boost::log::attributes::attribute_value_impl<log_level>;
    constexpr auto named_levels = static_cast<std::size_t>(log_level::critical) + 1;
    // Never destroyed, so threads that log while the process exits still find them.
    static auto const* const named = [] {
        auto* values = new std::array<boost::log::attribute_value, named_levels>();
        for (std::size_t i = 0; i < named_levels; ++i) {
            (*values)[i] = boost::log::attribute_value(new value_type(static_cast<log_level>(i)));
        }
        return values;
    }();
    auto const index = static_cast<std::size_t>(level);
    if (index < named_levels) {
        return (*named)[index];
    }
    return boost::log::attribute_value(new value_type(level));
}

thread_local impl::thread_reusable_value<impl::message_view_value> thread_message_value;

// A value viewing `text`, the thread's own one when no record of an earlier call holds it.
boost::log::attribute_value message_value(std::string_view text)
{
    auto* const value = thread_message_value.take();
    value->view(text);
    return boost::log::attribute_value(value);
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

namespace impl {

boost::shared_ptr<boost::log::sinks::sink> queueing_sink_instance()
{
    return queueing_sink::get();
}

} // namespace impl

boost::log::record logger_source::data::make_record(message& m)
{
    auto& node_logger = m.logger->source_logger;
    if (!node_logger.logging_core()->get_logging_enabled()) {
        return {};
    }
    return node_logger.open_message_record(*m.logger, level_value(m.level), message_value(m.text));
}

void logger_source::data::add_log_message(message& m)
{
    logger::data& node = *m.logger;
    for (;;) {
        switch (auto const c = current.load()) {
        case state::running:
            if (m.level < node.level.load(std::memory_order_relaxed) || !take_text(m)) {
                return;
            }
            if (auto record = make_record(m)) {
                node.source_logger.push_record(std::move(record));
            }
            return;
        case state::finished:
            return;
        case state::enqueueing:
            break;
        default:
            AbortEnumOutOfRange(c);
        }

        // Enqueueing: the text is taken first, whatever the level (the level is tested at
        // replay). Then the node's mutex keeps the record's markers and its transient list in
        // agreement, and the second state test closes the race with `run`.
        if (!take_text(m)) {
            return;
        }
        std::unique_lock<std::mutex> node_lock(node.mutex);
        if (current.load() != state::enqueueing) {
            continue;
        }
        auto record = make_record(m);
        if (!record) {
            return;
        }
        auto const& names = impl::record_names::get();
        std::vector<boost::log::attribute_name> transient;
        transient.reserve(node.sink_attributes.size() + 2);
        for (auto const& sink_marker : node.sink_attributes) {
            transient.push_back(sink_marker.first);
        }
        node_lock.unlock();

        transient.push_back(names.redo_ptr);
        auto redo = std::make_shared<bool>(false);
        auto& values = record.attribute_values();
        values.insert(
            names.redo_ptr,
            boost::log::attribute_value(
                new boost::log::attributes::attribute_value_impl<std::shared_ptr<bool>>(redo)));
        transient.push_back(names.transient_attrs);
        values.insert(names.transient_attrs,
                      boost::log::attribute_value(
                          new boost::log::attributes::attribute_value_impl<
                              std::vector<boost::log::attribute_name>>(std::move(transient))));
        node.source_logger.push_record(std::move(record));
        if (!*redo) {
            return;
        }
        // The source started while the record was in flight: log it again as running.
    }
}

void logger::log(log_level level, log_function_ref const& text) const
{
    logger::data* node = node_.get();
    // The hot path: a message below its logger's level ends here, with one load of the state and
    // one of the level, before any message is built.
    if (!accepts(*node, level)) {
        return;
    }
    logger_source::data::message m{node, level, &text, {}};
    node->source->add_log_message(m);
}

bool logger::is_enabled(log_level level) const noexcept
{
    return accepts(*node_, level);
}

void log_str(logger const& l, log_level level, std::string_view text)
{
    l.log(level, constant_logger(text));
}

void detail::log_formatted(logger const& l, log_level level, fmt::string_view format,
                           fmt::format_args args)
{
    l.log(level, format_text(format, args));
}

} // namespace VT::Logging::v2
