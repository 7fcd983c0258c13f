// Prints one line through an installed libVTLog, naming the message's record keyword:
// "[Consumer] installed 3 headers (ggmessage)".
#include <VTLog/VTLog.hpp>
#include <VTLog/v2/record.hpp>

int main()
{
    namespace v2 = VT::Logging::v2;
    v2::logger_source source;
    source.add_sink(v2::sink::get_stdout());
    source.start_logging(v2::log_level::info);
    v2::log_fmt(source.get_child_logger("Consumer"), v2::log_level::info,
                "installed {} headers ({})", 3, v2::record::message.get_name().string());
}
