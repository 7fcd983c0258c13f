// Routing: a record reaches exactly the sinks whose markers it carries (the markers are put on
// a source's tree when a sink is attached to it).
#include "routing.hpp"

#include "record_names.hpp"

#include <boost/log/attributes/value_extraction.hpp>

namespace VT::Logging::v2::impl {

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

} // namespace VT::Logging::v2::impl
