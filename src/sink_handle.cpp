// The sink handle: registration of a caller's Boost.Log sink behind the routing filter.
#include "VTLog/v2/log.hpp"

#include "record_names.hpp"
#include "routing.hpp"

#include <boost/log/attributes/attribute_value_set.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/sink.hpp>
#include <boost/make_shared.hpp>

namespace VT::Logging::v2::sink {
namespace {

// Admits a record only if it carries the sink's marker (its logger's source has the sink
// attached, or the caller marked the record) and not the enqueueing marker (its source is still
// holding records); only then is the inner sink's own filter consulted. Every registered sink is
// asked about every record, so the marker test is made cheap (routing.hpp).
class filtering_sink_wrapper : public boost::log::sinks::sink {
public:
    filtering_sink_wrapper(boost::shared_ptr<boost::log::sinks::sink> inner_sink,
                           boost::log::attribute_name name, boost::log::attribute_name enqueueing)
        : boost::log::sinks::sink(inner_sink->is_cross_thread())
        , inner(std::move(inner_sink))
        , sink_name(name)
        , enqueueing_name(enqueueing)
    {
    }

    // Most records lack the marker, and most of those are refuted at a glance.
    bool will_consume(boost::log::attribute_value_set const& attrs) override
    {
        return !impl::lacks_marker_at_a_glance(attrs, sink_name) && admits(attrs);
    }

    void consume(boost::log::record_view const& record) override { inner->consume(record); }

    bool try_consume(boost::log::record_view const& record) override
    {
        return inner->try_consume(record);
    }

    void flush() override { inner->flush(); }

    boost::shared_ptr<boost::log::sinks::sink> const inner;

private:
    // Kept out of will_consume, whose quick refusal then saves no registers.
    [[gnu::noinline]] bool admits(boost::log::attribute_value_set const& attrs) const
    {
        return impl::carries_marker(attrs, sink_name) &&
               !impl::carries_marker(attrs, enqueueing_name) && inner->will_consume(attrs);
    }

    boost::log::attribute_name const sink_name;
    boost::log::attribute_name const enqueueing_name;
};

boost::shared_ptr<boost::log::sinks::sink> wrap(boost::shared_ptr<boost::log::sinks::sink> sink,
                                                boost::log::attribute_name name)
{
    if (!sink) {
        return {};
    }
    return boost::make_shared<filtering_sink_wrapper>(std::move(sink), name,
                                                      impl::record_names::get().enqueueing_sink);
}

} // namespace

base::base(boost::log::attribute_name name, boost::shared_ptr<boost::log::sinks::sink> sink)
    : core(boost::log::core::get())
    , name(name)
    , wrapper(wrap(std::move(sink), name))
{
    if (wrapper) {
        core->add_sink(wrapper);
    }
}

base::~base()
{
    if (wrapper) {
        core->remove_sink(wrapper);
    }
}

namespace detail {

boost::shared_ptr<boost::log::sinks::sink>
get_unwrapped_sink(std::shared_ptr<base> const& handle) noexcept
{
    if (!handle || !handle->wrapper) {
        return {};
    }
    auto const* filter = dynamic_cast<filtering_sink_wrapper const*>(handle->wrapper.get());
    return filter ? filter->inner : boost::shared_ptr<boost::log::sinks::sink>();
}

} // namespace detail
} // namespace VT::Logging::v2::sink
