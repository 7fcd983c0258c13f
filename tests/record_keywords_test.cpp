// The public record keywords: what Boost.Log filters, formatters and back ends of users read.
#include "test_support.hpp"

#include <boost/log/expressions.hpp>
#include <boost/log/sinks/syslog_backend.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

using namespace vtlog_test;
namespace expr = boost::log::expressions;
namespace sinks = boost::log::sinks;
namespace record = v2::record;

// The text a keyword reads from a record, if any.
auto const text = [](auto const& value) -> std::string {
    return value ? std::string(value.get()) : "<missing>";
};

// One line per record of what the keywords read: the message owned or viewed, texts, level; the
// time must be real. Once the sink logs from inside itself: the record's values must not change.
struct keyword_backend : sinks::basic_sink_backend<sinks::synchronized_feeding> {
    void consume(boost::log::record_view const& r)
    {
        auto const line = describe(r), time = text(r[record::time_string]);
        if (auto const l = std::exchange(inner, std::nullopt)) {
            v2::log_str(*l, level(9), "logged by the sink");
            EXPECT_EQ(describe(r) + text(r[record::time_string]), line + time)
                << "changed under it";
        }
        EXPECT_TRUE(time.size() == 29 && time[0] != '?') << line << " at " << time;
        lines.push_back(line);
    }

    static std::string describe(boost::log::record_view const& r)
    {
        bool const owned = bool(boost::log::extract<std::string>(record::message.get_name(), r));
        return (owned ? "owned " : "viewed ") + text(r[record::message]) + " [" +
               text(r[record::channel]) + "] <" + text(r[record::thread_name]) + "> " +
               std::to_string(static_cast<int>(r[record::severity].get()));
    }

    std::optional<v2::logger> inner; // the logger the sink logs through once
    std::vector<std::string> lines;
};

// Held records own their text, written ones view it: all read back through the keywords, also one
// logged from inside the sink; a sink's filter tests the severity keyword. A syslog back end over
// UDP, formatted and mapped with the keywords, sends to a socket on 127.0.0.1 (the daemon).
TEST(RecordKeywords, HeldWrittenAndNestedRecordsReadBackAndReachSyslog)
{
    int const daemon = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_TRUE(daemon >= 0 && ::bind(daemon, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                ::getsockname(daemon, reinterpret_cast<sockaddr*>(&address), &length) == 0);
    auto const syslog = boost::make_shared<sinks::syslog_backend>(
        boost::log::keywords::use_impl = sinks::syslog::udp_socket_based);
    syslog->set_target_address("127.0.0.1", ntohs(address.sin_port));
    sinks::syslog::custom_severity_mapping<v2::log_level> levels(record::severity.get_name());
    levels[level(3)] = sinks::syslog::error;
    syslog->set_severity_mapper(levels);
    auto const to_syslog =
        boost::make_shared<sinks::synchronous_sink<sinks::syslog_backend>>(syslog);
    to_syslog->set_formatter(expr::stream << record::channel << ": " << record::message);
    to_syslog->set_filter(record::severity == level(3));

    auto const backend = boost::make_shared<keyword_backend>();
    auto const frontend = boost::make_shared<sinks::synchronous_sink<keyword_backend>>(backend);
    frontend->set_filter(record::severity >= level(3));
    v2::logger_source source;
    source.add_sink(std::make_shared<v2::sink::base>(boost::log::attribute_name("keys"), frontend));
    source.add_sink(
        std::make_shared<v2::sink::base>(boost::log::attribute_name("syslog"), to_syslog));
    auto const l = source.get_child_logger("net.curl");
    v2::log_str(l, level(3), "  held until start\n");
    source.start_logging(level(2));
    v2::log_str(l, level(2), "below the sink's filter");
    backend->inner = source.get_child_logger("inner");
    v2::log_str(l, level(4), "written at once");
    EXPECT_EQ(backend->lines, (Strings{"owned held until start [net.curl] <> 3",
                                       "viewed logged by the sink [inner] <> 9",
                                       "viewed written at once [net.curl] <> 4"}));

    pollfd ready{daemon, POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, 10000), 1) << "no datagram";
    char buffer[2048];
    std::string const packet(buffer,
                             std::max<ssize_t>(::recv(daemon, buffer, sizeof buffer, 0), 0));
    ::close(daemon);
    // <priority> is the default facility, user (1), * 8 + severity error (3).
    EXPECT_EQ(packet.rfind("<11>", 0), 0u) << packet;
    EXPECT_NE(packet.find("net.curl: held until start"), std::string::npos) << packet;
}

} // namespace
