// A library sink handle over a Boost.Log back end that drops every record: the pipeline up to
// the sink, without the cost of writing.
#pragma once

#include <VTLog/v2/log.hpp>

#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <memory>
#include <string>

namespace vtlog_bench {

class discarding_backend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
public:
    void consume(boost::log::record_view const&) {}
};

inline std::shared_ptr<VT::Logging::v2::sink::base>
discarding_sink(std::string const& name = "discard")
{
    return std::make_shared<VT::Logging::v2::sink::base>(
        boost::log::attribute_name(name),
        boost::make_shared<boost::log::sinks::synchronous_sink<discarding_backend>>());
}

} // namespace vtlog_bench
