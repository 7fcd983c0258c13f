// libVTLog, the record keywords: what the filters and formatters of sinks that users build
// themselves read from the records of this library. Apart from <VTLog/v2/log.hpp> because they
// bring Boost.Log's expression templates, which a file that only logs need not compile.
#pragma once

#include <VTLog/v2/log.hpp>

#include <boost/log/detail/default_attribute_names.hpp>
#include <boost/log/expressions/keyword.hpp>

#include <string_view>

// Boost.Log attribute keywords for what every record of this library carries, for the filters
// and formatters of sinks that users build themselves and wrap in sink::base (syslog, a text
// stream, their own back end):
//     frontend->set_formatter(boost::log::expressions::stream
//                             << record::channel << ": " << record::message);
//     frontend->set_filter(record::severity >= log_level::warning);
// The message is not under Boost's own "Message" name, so expressions::smessage finds nothing.
// The texts extract as std::string_view both from records written at once and from records held
// until start_logging. A view is valid while the record lives: a back end that keeps the text
// after consuming the record must copy it. Reading a keyword throws nothing: a missing value
// formats as nothing.
namespace VT::Logging::v2::record {

// The message text, trimmed of leading and trailing white space; never empty.
BOOST_LOG_ATTRIBUTE_KEYWORD(message, "ggmessage", std::string_view)

// The dotted domain of the logger that wrote the record; records of a root logger (such as the
// process-wide façade's global logger) have none.
BOOST_LOG_ATTRIBUTE_KEYWORD(channel, "Channel", std::string_view)

// The level of the message, under Boost.Log's default severity name. Levels have no text form:
// use it in filters, or print static_cast<int> of it in a formatter of your own.
BOOST_LOG_ATTRIBUTE_KEYWORD(severity, boost::log::aux::default_attribute_names::severity(),
                            log_level)

// The local time of the call, as in "2024-05-01 09:30:12.045+02:00" (see impl::get_time).
BOOST_LOG_ATTRIBUTE_KEYWORD(time_string, "time string", std::string_view)

// The name the calling thread gave itself with set_current_thread_name; empty if it has none.
BOOST_LOG_ATTRIBUTE_KEYWORD(thread_name, "thread name", std::string_view)

} // namespace VT::Logging::v2::record
