// Routing: attaching a sink puts its marker on every node of a source's tree; a record reaches
// exactly the sinks whose markers its node carries.
#include "routing.hpp"
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
    if (!d->sinks.insert(sink).second) {
        return false;
    }
    // Counted before the first marker appears (routing.hpp).
    impl::count_attachment(*sink, true);
    d->add_sink(sink->name);
    return true;
}

bool logger_source::remove_sink(std::shared_ptr<sink::base> sink)
{
    if (!sink) {
        throw std::invalid_argument("logger_source::remove_sink: the sink is null");
    }
    auto d = get_data();
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->sinks.count(sink) == 0) {
        return false;
    }
    d->remove_sink(sink->name);
    // Uncounted after the last marker is gone (routing.hpp).
    impl::count_attachment(*sink, false);
    // `sink` still holds the handle, so it is never destroyed under the source's mutex.
    d->sinks.erase(sink);
    return true;
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
