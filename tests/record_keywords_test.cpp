// The public record keywords: what Boost.Log filters, formatters and back ends of users read.
#include "test_support.hpp"

#include <boost/log/expressions.hpp>
#include <boost/log/sinks/syslog_backend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>

#include <sstream>

namespace {

using namespace vtlog_test;
namespace expr = boost::log::expressions;
namespace sinks = boost::log::sinks;
namespace record = v2::record;

// One line per record of what the keywords yield, copied out while the record lives: whether
// the message is owned (std::string) or viewed, the texts, the level, the syslog level a severity
// mapping by the keyword's name gives, and whether it has a time.
class keyword_backend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    void consume(boost::log::record_view const& r)
    {
        auto text = [](auto const& value) {
            return value ? std::string(value.get()) : std::string("<missing>");
        };
        auto const& values = r.attribute_values();
        bool const owned =
            values[record::message.get_name()].get_type().type_info() == typeid(std::string);
        auto const severity = r[record::severity];
        std::string const time = text(r[record::time_string]);
        lines.push_back((owned ? "owned " : "viewed ") + text(r[record::message]) + " [" +
                        text(r[record::channel]) + "] <" + text(r[record::thread_name]) + "> " +
                        (severity ? std::to_string(static_cast<int>(severity.get())) : "none") +
                        " syslog " + std::to_string(syslog_levels(r)) +
                        (time.size() == 29 && time[0] != '?' ? "" : " bad time " + time));
    }
    std::vector<std::string> lines;
    sinks::syslog::custom_severity_mapping<v2::log_level> syslog_levels{
        record::severity.get_name()};
};

// A written record views the caller's text; a held one owns a copy. Both must read back the
// same through the keywords and a stream formatter made of them, and a sink's filter must be able
// to test the severity keyword.
TEST(RecordKeywords, TextsExtractAsViewsFromWrittenAndHeldRecords)
{
    auto const backend = boost::make_shared<keyword_backend>();
    backend->syslog_levels[level(3)] = sinks::syslog::warning;
    backend->syslog_levels[level(4)] = sinks::syslog::error;
    auto const frontend = boost::make_shared<sinks::synchronous_sink<keyword_backend>>(backend);
    frontend->set_filter(record::severity >= level(3));
    auto const text = boost::make_shared<sinks::synchronous_sink<sinks::text_ostream_backend>>();
    auto const stream = boost::make_shared<std::ostringstream>();
    text->locked_backend()->add_stream(stream);
    text->set_formatter(expr::stream << record::channel << ": " << record::message);
    v2::logger_source source;
    source.add_sink(
        std::make_shared<v2::sink::base>(boost::log::attribute_name("keyword sink"), frontend));
    source.add_sink(std::make_shared<v2::sink::base>(boost::log::attribute_name("text"), text));
    auto const l = source.get_child_logger("net.curl");

    v2::set_current_thread_name("main");
    v2::log_str(l, level(3), "  held until start\n");
    v2::set_current_thread_name("");
    source.start_logging(level(2));
    v2::log_str(l, level(2), "below the sink's filter");
    v2::log_str(l, level(4), "written at once");
    EXPECT_EQ(backend->lines, (Strings{"owned held until start [net.curl] <main> 3 syslog 4",
                                       "viewed written at once [net.curl] <> 4 syslog 3"}));
    EXPECT_EQ(stream->str(), "net.curl: held until start\nnet.curl: below the sink's filter\n"
                             "net.curl: written at once\n");
}

} // namespace
