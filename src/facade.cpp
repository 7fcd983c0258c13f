// The first-generation façade: one process-wide source, started once with a LogConfig.
#include "VTLog/VTLog.hpp"

#include "directory_sink.hpp"
#include "process_lifetime.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

#include <unistd.h>

namespace VT::Logging {
namespace {

// The process-wide state. It is constant-initialised, so it exists before any code runs, and
// it is never destroyed, so a thread that still logs or asks for a logger while the process
// exits finds it working.
struct process_state {
    v2::logger_source source;
    std::shared_ptr<v2::sink::base> directory_logger;
};
v2::impl::process_lifetime<process_state> state;
v2::logger_source& logger_source = state->source;
std::shared_ptr<v2::sink::base>& directory_logger = state->directory_logger;

void start_logging_(LogConfig const& config)
{
    for (auto const& [domain, level] : config.domain_levels) {
        logger_source.set_child_log_level(domain, level);
    }
    logger_source.start_logging(config.level);
}

} // namespace

void start_logging(LogConfig const& config)
{
    int const pid = static_cast<int>(::getpid());
    auto const file_name = fmt::format("Vantorel %Y-%m-%d %H-%M-%S {} %2N.log", pid);
    auto const pattern = config.log_directory / file_name;
    directory_logger = v2::sink::get_dir(pattern.string(), config.rotation_size, config.max_size);
    logger_source.add_sink(directory_logger);
    logger_source.add_sink(v2::sink::get_stdout());
    start_logging_(config);
}

void start_logging(LogConfig const& config, v2::logger_source source)
{
    // The replaced source is not finished, so its loggers keep holding what they log. Its tree
    // and its state refer to each other; kept here for the life of the process, they stay
    // reachable instead of living on unowned.
    struct replaced_sources {
        std::mutex mutex;
        std::vector<std::shared_ptr<v2::logger_source::data>> kept;
    };
    static v2::impl::process_lifetime<replaced_sources> replaced;
    auto previous = logger_source.get_data();
    {
        std::lock_guard<std::mutex> lock(replaced->mutex);
        replaced->kept.push_back(std::move(previous));
    }
    logger_source = std::move(source);
    start_logging_(config);
}

v2::logger_source& get_logger_source()
{
    return logger_source;
}

v2::logger get_logger(std::string domain)
{
    return logger_source.get_child_logger(std::move(domain));
}

v2::logger get_global_logger()
{
    return logger_source.get_child_logger("Global");
}

VT::filesystem::path GetDefaultLogDir()
{
    // Never destroyed, so an exit handler or a thread during exit still finds it.
    static v2::impl::process_lifetime<VT::filesystem::path> const log_dir(
        []() -> VT::filesystem::path {
            char const* home = std::getenv("HOME");
            if (!home) {
                return {};
            }
            return VT::filesystem::path(home) / "Library/Logs/Vantorel";
        }());
    return *log_dir;
}

bool ShouldSetCurlVerbose(LogConfig const& config)
{
    return static_cast<int>(config.level) == 0 || config.domain_levels.count("Network.Curl") > 0;
}

namespace detail2 {

std::shared_ptr<v2::sink::base> get_directory_logger()
{
    return directory_logger;
}

void add_log_file(boost::filesystem::path const& file)
{
    v2::impl::add_log_file(directory_logger, file);
}

} // namespace detail2
} // namespace VT::Logging
