// The public record keywords: what Boost.Log filters, formatters and back ends of users read.
#include "test_support.hpp"

#include <boost/log/expressions.hpp>
#include <boost/log/sinks/syslog_backend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>
#include <typeindex>

namespace {

using namespace vtlog_test;
namespace expr = boost::log::expressions;
namespace sinks = boost::log::sinks;
namespace record = v2::record;

// What one record yields through the keywords, copied out while the record lives.
struct extracted {
    std::type_index message_type = typeid(void);
    std::string message, channel, time_string, thread_name;
    std::optional<v2::log_level> severity;
};

class keyword_backend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    void consume(boost::log::record_view const& r)
    {
        auto copy = [](auto const& value) {
            return value ? std::string(value.get()) : std::string("<missing>");
        };
        extracted e;
        e.message_type = r.attribute_values()[record::message.get_name()].get_type().type_info();
        e.message = copy(r[record::message]);
        e.channel = copy(r[record::channel]);
        e.time_string = copy(r[record::time_string]);
        e.thread_name = copy(r[record::thread_name]);
        if (auto const level = r[record::severity]) {
            e.severity = level.get();
        }
        records.push_back(std::move(e));
    }
    std::vector<extracted> records;
};

// A written record views the caller's text; a held one owns a copy. Both must read back the
// same through the keywords.
TEST(RecordKeywords, TextsExtractAsViewsFromWrittenAndHeldRecords)
{
    auto const backend = boost::make_shared<keyword_backend>();
    auto const handle = std::make_shared<v2::sink::base>(
        boost::log::attribute_name("keyword sink"),
        boost::make_shared<sinks::synchronous_sink<keyword_backend>>(backend));
    v2::logger_source source;
    source.add_sink(handle);
    auto const l = source.get_child_logger("net.curl");

    v2::set_current_thread_name("main");
    v2::log_str(l, level(3), "  held until start\n");
    v2::set_current_thread_name("");
    source.start_logging(level(2));
    v2::log_str(l, level(4), "written at once");

    ASSERT_EQ(backend->records.size(), 2u);
    struct expected {
        std::type_index message_type;
        std::string message, thread_name;
        int severity;
    };
    expected const table[] = {
        {typeid(std::string), "held until start", "main", 3},
        {typeid(std::string_view), "written at once", "", 4},
    };
    for (std::size_t i = 0; i < 2; ++i) {
        auto const& got = backend->records[i];
        SCOPED_TRACE(table[i].message);
        EXPECT_EQ(got.message_type, table[i].message_type);
        EXPECT_EQ(got.message, table[i].message);
        EXPECT_EQ(got.channel, "net.curl");
        EXPECT_EQ(got.thread_name, table[i].thread_name);
        EXPECT_EQ(got.time_string.size(), 29u) << got.time_string;
        EXPECT_NE(got.time_string[0], '?') << got.time_string;
        EXPECT_EQ(got.severity, level(table[i].severity));
    }
}

TEST(RecordKeywords, StreamFormatterAndSeverityFilter)
{
    auto const out = boost::make_shared<std::ostringstream>();
    auto const backend = boost::make_shared<sinks::text_ostream_backend>();
    backend->add_stream(out);
    auto const frontend =
        boost::make_shared<sinks::synchronous_sink<sinks::text_ostream_backend>>(backend);
    frontend->set_formatter(expr::stream << record::channel << ": " << record::message);
    frontend->set_filter(record::severity >= v2::log_level::warning);
    auto const handle =
        std::make_shared<v2::sink::base>(boost::log::attribute_name("stream sink"), frontend);

    v2::logger_source source;
    source.add_sink(handle);
    auto const l = source.get_child_logger("storage");
    v2::log_str(l, v2::log_level::error, "held");
    v2::log_str(l, v2::log_level::info, "below the sink's filter");
    source.start_logging(v2::log_level::trace);
    v2::log_fmt(l, v2::log_level::warning, "written {}", 2);
    v2::log_str(source.get_child_logger("storage.index"), v2::log_level::critical, "child");

    EXPECT_EQ(out->str(), "storage: held\nstorage: written 2\nstorage.index: child\n");
}

// A UDP socket on 127.0.0.1 that stands in for a syslog daemon.
class udp_listener {
public:
    udp_listener()
        : fd_(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot open a UDP socket on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
    }
    ~udp_listener() { ::close(fd_); }
    udp_listener(udp_listener const&) = delete;
    udp_listener& operator=(udp_listener const&) = delete;

    unsigned short port() const { return port_; }

    // The next datagram, or "" when none arrives within the time limit.
    std::string receive(int timeout_ms) const
    {
        pollfd ready{fd_, POLLIN, 0};
        if (::poll(&ready, 1, timeout_ms) != 1) {
            return "";
        }
        char buffer[2048];
        auto const size = ::recv(fd_, buffer, sizeof buffer, 0);
        return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : "";
    }

private:
    int fd_;
    unsigned short port_ = 0;
};

TEST(RecordKeywords, SyslogBackendSendsTheFormattedText)
{
    udp_listener const daemon;
    auto const backend = boost::make_shared<sinks::syslog_backend>(
        boost::log::keywords::use_impl = sinks::syslog::udp_socket_based,
        boost::log::keywords::facility = sinks::syslog::user);
    backend->set_target_address("127.0.0.1", daemon.port());
    sinks::syslog::custom_severity_mapping<v2::log_level> levels(record::severity.get_name());
    levels[v2::log_level::error] = sinks::syslog::error;
    backend->set_severity_mapper(levels);
    auto const frontend =
        boost::make_shared<sinks::synchronous_sink<sinks::syslog_backend>>(backend);
    frontend->set_formatter(expr::stream << record::channel << ": " << record::message);
    auto const handle =
        std::make_shared<v2::sink::base>(boost::log::attribute_name("syslog sink"), frontend);

    v2::logger_source source;
    source.add_sink(handle);
    source.start_logging(v2::log_level::trace);
    v2::log_str(source.get_child_logger("net"), v2::log_level::error, "sent through syslog");

    std::string const packet = daemon.receive(10000);
    // <priority> is facility user (1) * 8 + severity error (3).
    EXPECT_EQ(packet.rfind("<11>", 0), 0u) << packet;
    EXPECT_NE(packet.find("net: sent through syslog"), std::string::npos) << packet;
}

} // namespace
