// Interning the record attribute names once, so no logging call looks a name up.
#include "record_names.hpp"

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/detail/default_attribute_names.hpp>

#include <type_traits>

namespace VT::Logging::v2::impl {

// Nothing to destroy at exit: records made while the process exits still find their names.
static_assert(std::is_trivially_destructible_v<record_names>);

record_names const& record_names::get()
{
    namespace defaults = boost::log::aux::default_attribute_names;
    static record_names const names{
        defaults::severity(),
        defaults::channel(),
        defaults::thread_id(),
        boost::log::attribute_name("ggmessage"),
        boost::log::attribute_name("logger data ptr"),
        boost::log::attribute_name("source data ptr"),
        boost::log::attribute_name("redo ptr"),
        boost::log::attribute_name("transient attrs"),
        boost::log::attribute_name("enqueueing sink"),
        boost::log::attribute_name("time string"),
        boost::log::attribute_name("thread name"),
    };
    return names;
}

} // namespace VT::Logging::v2::impl
