// A node's Boost.Log source logger: the message attributes every node shares, and the values
// of one message.
#include "node_logger.hpp"

#include "assert.hpp"
#include "attribute_values.hpp"
#include "process_lifetime.hpp"
#include "record_names.hpp"

#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/core/core.hpp>

#include <array>

namespace VT::Logging::v2::impl {
namespace {

// Yields one member of the message whose record the calling thread is opening. Stateless, so
// every node shares the same two attributes.
template <boost::log::attribute_value message_values::*Member>
class current_message_attribute : public boost::log::attribute::impl {
public:
    boost::log::attribute_value get_value() override
    {
        auto const* const values = current_message;
        VT_ASSERT(values);
        return values->*Member;
    }
};

template <boost::log::attribute_value message_values::*Member>
boost::log::attribute const& message_attribute()
{
    static process_lifetime<boost::log::attribute> const attribute(
        new current_message_attribute<Member>());
    return *attribute;
}

void insert_or_replace(boost::log::attribute_set& attributes,
                       boost::log::attribute_name const& name,
                       boost::log::attribute const& attribute)
{
    auto inserted = attributes.insert(name, attribute);
    if (!inserted.second) {
        inserted.first->second = attribute;
    }
}

// The named levels share one immutable value each, so their records allocate none; any other
// level gets a value of its own.
boost::log::attribute_value level_value(log_level level)
{
    using value_type = boost::log::attributes::attribute_value_impl<log_level>;
    constexpr auto named_levels = static_cast<std::size_t>(log_level::critical) + 1;
    // Never destroyed, so threads that log while the process exits still find them.
    static process_lifetime<std::array<boost::log::attribute_value, named_levels>> const named([] {
        std::array<boost::log::attribute_value, named_levels> values;
        for (std::size_t i = 0; i < named_levels; ++i) {
            values[i] = boost::log::attribute_value(new value_type(static_cast<log_level>(i)));
        }
        return values;
    }());
    auto const index = static_cast<std::size_t>(level);
    if (index < named_levels) {
        return (*named)[index];
    }
    return boost::log::attribute_value(new value_type(level));
}

thread_local thread_reusable_value<message_view_value> thread_message_value;

// A value viewing `text`, the thread's own one when no record of an earlier call holds it.
boost::log::attribute_value message_value(std::string_view text)
{
    auto* const value = thread_message_value.take();
    value->view(text);
    return boost::log::attribute_value(value);
}

} // namespace

void vt_logger::set_up_message_attributes_before_sharing()
{
    auto const& names = record_names::get();
    insert_or_replace(attributes(), names.severity, message_attribute<&message_values::level>());
    insert_or_replace(attributes(), names.message, message_attribute<&message_values::message>());
}

boost::log::record vt_logger::open_message(logger::data const& node, log_level level,
                                           std::string_view text)
{
    if (!core()->get_logging_enabled()) {
        return {};
    }
    return open_message_record(node, level_value(level), message_value(text));
}

} // namespace VT::Logging::v2::impl
