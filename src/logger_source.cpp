// A logger source: lazy creation, the early queue and its replay at start-up, finish, the levels
// of its tree's branches and the sinks attached to it.
#include "logger_source.hpp"

#include "assert.hpp"
#include "logger_tree.hpp"
#include "process_lifetime.hpp"
#include "record_attributes.hpp"
#include "record_names.hpp"

#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record_view.hpp>
#include <boost/log/sinks/sink.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>

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
        static impl::process_lifetime<boost::shared_ptr<queueing_sink>> const instance(
            boost::make_shared<queueing_sink>());
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

// What every source of the process shares: Boost's common attributes, the time and thread-name
// attributes, and the sink that holds records of enqueueing sources.
void set_up_process_once()
{
    static bool const done = [] {
        boost::log::add_common_attributes();
        impl::add_record_attributes(*boost::log::core::get());
        boost::log::core::get()->add_sink(queueing_sink::get());
        return true;
    }();
    (void)done;
}

} // namespace

logger_source::data::data()
    : core(boost::log::core::get())
{
}

logger_source::data::~data() = default;

void logger_source::data::make_root()
{
    VT_ASSERT(!root);
    root = std::make_shared<logger::data>(shared_from_this());
    set_up_process_once();
    add_sink(impl::record_names::get().enqueueing_sink);
}

std::shared_ptr<logger_source::data> logger_source::get_data()
{
    std::shared_ptr<data> ptr = std::atomic_load(&data_);
    if (ptr) {
        return ptr;
    }
    auto candidate = std::make_shared<data>();
    candidate->make_root();
    if (std::atomic_compare_exchange_strong(&data_, &ptr, candidate)) {
        return candidate;
    }
    // Another thread installed its data first. Finishing the unused candidate breaks the cycle
    // between it and its root, so it is freed.
    candidate->finish();
    VT_ASSERT(ptr);
    return ptr;
}

logger_source::~logger_source()
{
    if (auto d = std::atomic_load(&data_)) {
        d->finish();
    }
}

void logger_source::start_logging(log_level level)
{
    auto d = get_data();
    d->root->set_level(level, false);
    d->run();
}

void logger_source::data::run()
{
    std::unique_lock<std::mutex> lock(mutex);
    state const c = current.load();
    VT_ASSERT(c == state::enqueueing);

    boost::log::attribute_value const marker(
        new boost::log::attributes::attribute_value_impl<sink::is_sink>(sink::is_sink{}));

    // Batches are replayed without the mutex while the backlog halves from one batch to the
    // next, so loggers on other threads keep going: what they log meanwhile lands in the fresh
    // queue. Once a batch is more than half the one before (others log about as fast as the
    // sinks write), it is replayed with the mutex held, and new messages wait in the queueing
    // sink until the switch to running. So the call replays at most twice what was held when it
    // began, plus what was logged during its last unlocked batch.
    auto const& names = impl::record_names::get();
    auto previous_batch = std::numeric_limits<std::size_t>::max();
    while (!queue.empty()) {
        std::vector<held_record> batch;
        batch.swap(queue);
        bool const catching_up = batch.size() <= previous_batch / 2;
        previous_batch = batch.size();
        if (catching_up) {
            lock.unlock();
        }
        // `node_owner` keeps the node alive until the batch is released, after its record.
        for (auto& [node_owner, values] : batch) {
            auto const logger_data_ptr_ptr =
                boost::log::extract<logger::data*>(names.logger_data_ptr, values);
            VT_ASSERT(logger_data_ptr_ptr);
            VT_ASSERT(*logger_data_ptr_ptr);
            auto const level_ptr = boost::log::extract<log_level>(names.severity, values);
            VT_ASSERT(level_ptr);
            logger::data& node = **logger_data_ptr_ptr;
            if (*level_ptr < node.level.load(std::memory_order_relaxed)) {
                continue;
            }
            {
                std::lock_guard<std::mutex> node_lock(node.mutex);
                for (auto const& sink_marker : node.sink_attributes) {
                    if (sink_marker.first != names.enqueueing_sink) {
                        values.insert(sink_marker.first, marker);
                    }
                }
            }
            if (auto record = core->open_record(std::move(values))) {
                core->push_record(std::move(record));
            }
        }
        batch = {};
        if (catching_up) {
            lock.lock();
            VT_ASSERT(current.load() == state::enqueueing);
        }
    }
    current.exchange(state::running);
    remove_sink(names.enqueueing_sink);
}

bool logger_source::data::hold(logger::data& node, log_level level, std::string_view text)
{
    // The node's mutex keeps the record's markers and its transient list in agreement, and the
    // state test under it closes the race with `run`.
    std::unique_lock<std::mutex> node_lock(node.mutex);
    if (current.load() != state::enqueueing) {
        return false;
    }
    auto record = node.source_logger.open_message(node, level, text);
    if (!record) {
        return true;
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
    // Set when the source started while the record was in flight.
    return !*redo;
}

void logger_source::data::finish()
{
    std::lock_guard<std::mutex> lock(mutex);
    state const c = current.load();
    VT_ASSERT(c != state::finished);
    current.exchange(state::finished);
    remove_all_sinks();
    pinned_children.clear();
    queue.clear();
    root.reset();
}

void logger_source::set_child_log_level(std::string path, log_level new_level)
{
    auto source = get_data();
    auto node = source->root->make_or_get_descendant(path);
    node->set_level(new_level, false);
    std::lock_guard<std::mutex> lock(source->mutex);
    source->pinned_children.emplace(node->domain, node);
}

void logger_source::reset_child_log_level(std::string path)
{
    auto source = get_data();
    auto node = source->root->make_or_get_descendant(path);
    node->reset_level();
    std::lock_guard<std::mutex> lock(source->mutex);
    source->pinned_children.erase(node->domain);
}

logger logger_source::get_child_logger(std::string path)
{
    return logger(get_data()->root->make_or_get_descendant(path));
}

bool logger_source::add_sink(std::shared_ptr<sink::base> sink)
{
    if (!sink) {
        throw std::invalid_argument("logger_source::add_sink: the sink is null");
    }
    auto d = get_data();
    std::lock_guard<std::mutex> lock(d->mutex);
    d->add_sink(sink->name);
    return d->sinks.insert(std::move(sink)).second;
}

bool logger_source::remove_sink(std::shared_ptr<sink::base> sink)
{
    if (!sink) {
        throw std::invalid_argument("logger_source::remove_sink: the sink is null");
    }
    auto d = get_data();
    std::lock_guard<std::mutex> lock(d->mutex);
    d->remove_sink(sink->name);
    // `sink` still holds the handle, so it is never destroyed under the source's mutex.
    return d->sinks.erase(sink) > 0;
}

void logger_source::data::add_sink(boost::log::attribute_name const& name)
{
    VT_ASSERT(root);
    root->apply_to_subtree([&name](logger::data& node) {
        auto const added = node.add_sink_attribute(name);
        if (added.second) {
            node.sink_attributes.emplace(name, added.first);
        }
        return true;
    });
}

void logger_source::data::remove_sink(boost::log::attribute_name const& name)
{
    VT_ASSERT(root);
    root->apply_to_subtree([&name](logger::data& node) {
        auto const marker = node.sink_attributes.find(name);
        if (marker != node.sink_attributes.end()) {
            auto const position = marker->second;
            node.sink_attributes.erase(marker);
            node.source_logger.remove_marker(position);
        }
        return true;
    });
}

void logger_source::data::remove_all_sinks()
{
    VT_ASSERT(root);
    root->apply_to_subtree([](logger::data& node) {
        for (auto const& marker : node.sink_attributes) {
            node.source_logger.remove_marker(marker.second);
        }
        node.sink_attributes.clear();
        return true;
    });
}

} // namespace VT::Logging::v2
