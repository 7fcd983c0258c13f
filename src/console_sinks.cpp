// The process-wide standard-output and standard-error sinks: "[domain] message" per line.
#include "VTLog/v2/log.hpp"

#include "formatted_text.hpp"
#include "process_lifetime.hpp"
#include "record_names.hpp"

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>

#include <iostream>
#include <ostream>
#include <string_view>

namespace VT::Logging::v2::sink {
namespace {

// The console line without its newline (the back end adds one unless the message ends with
// one): "[" domain "] " then the message as it is, embedded newlines included. The root
// logger has no channel and so no prefix. A record without a message gives an empty line.
void simple_formatter(boost::log::record_view const& record, boost::log::formatting_ostream& out)
{
    auto const& names = impl::record_names::get();
    auto const& values = record.attribute_values();
    auto const message = boost::log::extract<std::string_view>(names.message, values);
    if (!message) {
        return;
    }
    impl::begin_text(out);
    if (auto const channel = boost::log::extract<std::string_view>(names.channel, values)) {
        impl::append_text(out, "[");
        impl::append_text(out, *channel);
        impl::append_text(out, "] ");
    }
    impl::append_text(out, *message);
}

// A front end writing to `stream`, which it never owns or closes. Its lock makes each record's
// text, newline and flush one unit, so lines of different threads never interleave.
boost::shared_ptr<boost::log::sinks::sink> get_ostream_frontend(std::ostream& stream)
{
    using backend_type = boost::log::sinks::basic_text_ostream_backend<char>;
    auto backend = boost::make_shared<backend_type>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&stream, boost::null_deleter()));
    backend->auto_flush(true);
    auto frontend = boost::make_shared<boost::log::sinks::synchronous_sink<backend_type>>(backend);
    frontend->set_formatter(&simple_formatter);
    return frontend;
}

} // namespace

// Both handles are never destroyed (like the streams they write to), so a thread that logs or
// asks for them while the process exits never meets a destroyed one.
std::shared_ptr<base> get_stdout()
{
    static impl::process_lifetime<std::shared_ptr<base>> const handle(std::make_shared<base>(
        boost::log::attribute_name("stdout sink"), get_ostream_frontend(std::cout)));
    return *handle;
}

std::shared_ptr<base> get_stderr()
{
    static impl::process_lifetime<std::shared_ptr<base>> const handle(std::make_shared<base>(
        boost::log::attribute_name("stderr sink"), get_ostream_frontend(std::cerr)));
    return *handle;
}

} // namespace VT::Logging::v2::sink
