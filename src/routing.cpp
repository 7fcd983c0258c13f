// Routing: attaching a sink puts its marker on every node of a source's tree; a record reaches
// exactly the sinks whose markers its node carries.
#include "assert.hpp"
#include "logger_source.hpp"
#include "logger_tree.hpp"

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
            node.source_logger.remove_attribute(position);
        }
        return true;
    });
}

void logger_source::data::remove_all_sinks()
{
    VT_ASSERT(root);
    root->apply_to_subtree([](logger::data& node) {
        for (auto const& marker : node.sink_attributes) {
            node.source_logger.remove_attribute(marker.second);
        }
        node.sink_attributes.clear();
        return true;
    });
}

} // namespace VT::Logging::v2
