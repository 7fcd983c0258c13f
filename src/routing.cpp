// Routing: attaching a sink puts its marker on every node of a source's tree; a record reaches
// exactly the sinks whose markers it carries.
#include "routing.hpp"
#include "assert.hpp"
#include "logger_source.hpp"
#include "logger_tree.hpp"
#include "record_names.hpp"

#include <boost/log/attributes/value_extraction.hpp>

#include <mutex>
#include <stdexcept>

namespace VT::Logging::v2 {

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

namespace impl {

record_routing::record_routing(logger::data const* node) noexcept
    : outer(current_routing)
    , node(node)
{
    current_routing = this;
}

record_routing::~record_routing()
{
    current_routing = outer;
}

// A summary costs about as much as six searches, and once made saves about three quarters of
// each later one. After this many searches of one record, the next asker makes it: with 100
// sinks or more, a record costs about 25 instructions for each sink that does not take it, and
// with few sinks no summary is made for nothing.
constexpr unsigned searches_before_summary = 16;

bool record_routing::refutes(boost::log::attribute_value_set const& values,
                             boost::log::attribute_name const& name)
{
    if (!node) {
        return false;
    }
    if (&values == summarised || (node_element && recognise(values))) {
        return lacks(name);
    }
    if (node_element) {
        return false;
    }
    if (&values != acquired) {
        values.begin(); // acquires every value, so that a search looks no further than the set
        acquired = &values;
    }
    if (++searches <= searches_before_summary || !recognise(values)) {
        return false;
    }
    return lacks(name);
}

bool record_routing::recognise(boost::log::attribute_value_set const& values)
{
    auto const found = values.find(record_names::get().logger_data_ptr);
    if (found == values.end()) {
        return false;
    }
    if (node_element) {
        if (&*found != node_element) {
            return false;
        }
    } else {
        auto const claimed = found->second.extract<logger::data*>();
        if (!claimed || claimed.get() != node) {
            return false;
        }
        summarise(values);
        node_element = &*found;
    }
    summarised = &values;
    return true;
}

void record_routing::summarise(boost::log::attribute_value_set const& values)
{
    for (auto const& value : values) {
        auto const id = value.first.id();
        names[(id >> 6) % names.size()] |= std::uint64_t(1) << (id & 63);
    }
}

bool carries_marker(boost::log::attribute_value_set const& values,
                    boost::log::attribute_name const& marker)
{
    record_routing* const routing = current_routing;
    if (routing && routing->refutes(values, marker)) {
        return false;
    }
    auto const found = values.find(marker);
    return found != values.end() && bool(found->second);
}

} // namespace impl
} // namespace VT::Logging::v2
