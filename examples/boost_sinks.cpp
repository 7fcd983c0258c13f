// libVTLog records in Boost.Log's own back ends: a syslog back end that sends UDP datagrams to
// 127.0.0.1, and a text-stream back end on standard output. Both are wrapped in sink::base and
// read the records through the keywords of VT::Logging::v2::record.
//
//   vtlog_boost_sinks [--syslog-port PORT]    (default 514, where a syslog daemon listens)
#include <VTLog/v2/record.hpp>

#include <boost/core/null_deleter.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/syslog_backend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/make_shared.hpp>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace expr = boost::log::expressions;
namespace sinks = boost::log::sinks;
namespace v2 = VT::Logging::v2;
namespace record = v2::record;
using v2::log_level;

namespace {

// Standard output: time, domain and thread of each record at info and above.
std::shared_ptr<v2::sink::base> make_console_sink()
{
    auto const backend = boost::make_shared<sinks::text_ostream_backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&std::cout, boost::null_deleter()));
    backend->auto_flush(true);
    auto const frontend =
        boost::make_shared<sinks::synchronous_sink<sinks::text_ostream_backend>>(backend);
    frontend->set_formatter(expr::stream << record::time_string << " [" << record::channel << "] ("
                                         << record::thread_name << ") " << record::message);
    frontend->set_filter(record::severity >= log_level::info);
    return std::make_shared<v2::sink::base>(boost::log::attribute_name("example console"),
                                            frontend);
}

// Syslog over UDP, every level, each mapped to its syslog severity.
std::shared_ptr<v2::sink::base> make_syslog_sink(unsigned short port)
{
    auto const backend = boost::make_shared<sinks::syslog_backend>(
        boost::log::keywords::use_impl = sinks::syslog::udp_socket_based,
        boost::log::keywords::facility = sinks::syslog::user);
    backend->set_target_address("127.0.0.1", port);
    sinks::syslog::custom_severity_mapping<log_level> levels(record::severity.get_name());
    levels[log_level::trace] = sinks::syslog::debug;
    levels[log_level::debug] = sinks::syslog::debug;
    levels[log_level::info] = sinks::syslog::info;
    levels[log_level::warning] = sinks::syslog::warning;
    levels[log_level::error] = sinks::syslog::error;
    levels[log_level::critical] = sinks::syslog::critical;
    backend->set_severity_mapper(levels);
    auto const frontend =
        boost::make_shared<sinks::synchronous_sink<sinks::syslog_backend>>(backend);
    frontend->set_formatter(expr::stream << "vtlog_boost_sinks: [" << record::channel << "] "
                                         << record::message);
    return std::make_shared<v2::sink::base>(boost::log::attribute_name("example syslog"), frontend);
}

} // namespace

int main(int argc, char** argv)
try {
    bool const port_given = argc == 3 && std::string(argv[1]) == "--syslog-port";
    unsigned long const port = port_given ? std::stoul(argv[2]) : 514;
    if ((argc != 1 && !port_given) || port == 0 || port > 65535) {
        std::cerr << "usage: " << argv[0] << " [--syslog-port PORT]\n";
        return EXIT_FAILURE;
    }
    v2::set_current_thread_name("main");

    v2::logger_source source;
    source.add_sink(make_console_sink());
    source.add_sink(make_syslog_sink(static_cast<unsigned short>(port)));
    source.start_logging(log_level::debug);

    auto const net = source.get_child_logger("Network");
    v2::log_fmt(net, log_level::debug, "resolving {}", "example.org"); // syslog only
    v2::log_fmt(net, log_level::warning, "retrying {} in {} s", "example.org", 2);
    v2::log_str(source.get_child_logger("Storage.Index"), log_level::info, "index ready");
    std::cout << "the same records went to syslog at 127.0.0.1:" << port << " over UDP\n";
    return EXIT_SUCCESS;
} catch (std::exception const& e) {
    std::cerr << "vtlog_boost_sinks: " << e.what() << "\n";
    return EXIT_FAILURE;
}
