// Routing: attaching a sink puts its marker on every node of a source's tree; a record reaches
// exactly the sinks whose markers its node carries.
#include "routing.hpp"
#include "assert.hpp"
#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <vector>

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

// The walks below are the only writers of the root's markers, and all run under the source's
// mutex (or before the data is shared), so the root's markers may be read here without its own.
void logger_source::data::add_sink(boost::log::attribute_name const& name)
{
    VT_ASSERT(root);
    if (root->sink_attributes.count(name) == 0) {
        impl::marker_count(name).fetch_add(1, std::memory_order_relaxed);
    }
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
    bool const carried = root->sink_attributes.count(name) > 0;
    root->apply_to_subtree([&name](logger::data& node) {
        auto const marker = node.sink_attributes.find(name);
        if (marker != node.sink_attributes.end()) {
            auto const position = marker->second;
            node.sink_attributes.erase(marker);
            node.source_logger.remove_attribute(position);
        }
        return true;
    });
    if (carried) {
        impl::marker_count(name).fetch_sub(1, std::memory_order_relaxed);
    }
}

void logger_source::data::remove_all_sinks()
{
    VT_ASSERT(root);
    std::vector<boost::log::attribute_name> carried;
    carried.reserve(root->sink_attributes.size());
    for (auto const& marker : root->sink_attributes) {
        carried.push_back(marker.first);
    }
    root->apply_to_subtree([](logger::data& node) {
        for (auto const& marker : node.sink_attributes) {
            node.source_logger.remove_attribute(marker.second);
        }
        node.sink_attributes.clear();
        return true;
    });
    for (auto const& name : carried) {
        impl::marker_count(name).fetch_sub(1, std::memory_order_relaxed);
    }
}

std::atomic<std::size_t>& impl::marker_count(boost::log::attribute_name const& name)
{
    // Never destroyed and never shrunk: filters keep the counters' addresses for as long as the
    // process runs, its exit included.
    struct counters {
        std::mutex mutex;
        std::unordered_map<boost::log::attribute_name::id_type, std::atomic<std::size_t>> by_name;
    };
    static auto& all = *new counters();
    std::lock_guard<std::mutex> lock(all.mutex);
    return all.by_name.try_emplace(name.id(), 0).first->second;
}

} // namespace VT::Logging::v2
