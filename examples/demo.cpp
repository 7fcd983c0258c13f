// A tour of libVTLog: loggers used before configuration, one-call start-up, named threads on
// several domains with their own levels, a multi-line message, size rotation and retention, and
// the console and file formats side by side.
//
//   vtlog_demo [--dir DIR] [--rotation-size BYTES] [--max-size BYTES] [--messages N] [--help]
#include <VTLog/VTLog.hpp>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace fs = boost::filesystem;
namespace v2 = VT::Logging::v2;
using v2::log_level;

namespace {

char const usage[] =
    "usage: vtlog_demo [--dir DIR] [--rotation-size BYTES] [--max-size BYTES] [--messages N]\n"
    "  --dir DIR              folder of the log files, created if missing\n"
    "                         (default: a new folder under the temporary directory)\n"
    "  --rotation-size BYTES  start a new file before a line would take one past this size\n"
    "                         (default 1024)\n"
    "  --max-size BYTES       at each rotation, delete the oldest files beyond this total\n"
    "                         (default 3072)\n"
    "  --messages N           messages written by the network thread (default 200)\n"
    "  --help                 print this and exit\n";

struct options {
    fs::path directory = fs::temp_directory_path() / fs::unique_path("vtlog-demo-%%%%-%%%%");
    unsigned long rotation_size = 1024;
    unsigned long max_size = 3 * 1024;
    int messages = 200;
    bool help = false;
};

options parse(int argc, char** argv)
{
    options o;
    for (int i = 1; i < argc; i += 2) {
        std::string const flag = argv[i];
        if (flag == "--help" || flag == "-h") {
            o.help = true;
            return o;
        }
        if (i + 1 == argc) {
            throw std::invalid_argument(flag + " needs a value (see --help)");
        }
        std::string const value = argv[i + 1];
        if (flag == "--dir") {
            o.directory = value;
        } else if (flag == "--rotation-size") {
            o.rotation_size = std::stoul(value);
        } else if (flag == "--max-size") {
            o.max_size = std::stoul(value);
        } else if (flag == "--messages") {
            o.messages = std::stoi(value);
        } else {
            throw std::invalid_argument("unknown option " + flag + " (see --help)");
        }
    }
    return o;
}

void worker(std::string const& thread_name, std::string const& domain, int messages)
{
    v2::set_current_thread_name(thread_name);
    auto const log = VT::Logging::get_logger(domain);
    for (int i = 0; i < messages; ++i) {
        auto const level = i % 10 == 0 ? log_level::warning : log_level::debug;
        v2::log_str(log, level, domain + " message " + std::to_string(i));
    }
}

void show_directory(fs::path const& directory)
{
    std::vector<fs::path> files{fs::directory_iterator(directory), fs::directory_iterator{}};
    std::sort(files.begin(), files.end());
    std::cout << "\n--- " << directory.string() << " (" << files.size() << " files)\n";
    for (auto const& f : files) {
        std::cout << "  " << fs::file_size(f) << "\t" << f.filename().string() << "\n";
    }
    if (files.empty()) {
        return;
    }
    std::cout << "(file counters missing from the start were deleted by retention)\n";
    std::cout << "\n--- first lines of " << files.front().filename().string() << "\n";
    std::ifstream oldest(files.front().string());
    std::string line;
    for (int shown = 0; shown < 8 && std::getline(oldest, line); ++shown) {
        std::cout << line << "\n";
    }
}

} // namespace

int main(int argc, char** argv)
try {
    options const o = parse(argc, argv);
    if (o.help) {
        std::cout << usage;
        return EXIT_SUCCESS;
    }
    fs::create_directories(o.directory);
    v2::set_current_thread_name("main");

    // Loggers work before logging is configured: these messages are held.
    auto const app = VT::Logging::get_logger("Demo.App");
    v2::log_str(app, log_level::info, "logged before start_logging, replayed by it");
    v2::log_str(app, log_level::debug, "below the start level: held, then dropped");

    VT::Logging::LogConfig config{
        log_level::info,      {{"Network.Curl", log_level::warning}, {"Storage", log_level::debug}},
        o.directory.string(), o.max_size,
        o.rotation_size,
    };
    std::cout << "Logging into " << o.directory.string() << " (rotation at " << o.rotation_size
              << " bytes, at most " << o.max_size << " bytes kept)\n\n";
    VT::Logging::start_logging(config);
    std::cout << "curl verbose: " << std::boolalpha << VT::Logging::ShouldSetCurlVerbose(config)
              << "\n";

    v2::log_str(VT::Logging::get_global_logger(), log_level::info,
                "a message on two lines:\nthe second is indented in the file");

    // Network.Curl shows only its warnings; Storage shows everything, debug included.
    std::thread network(worker, "network", "Network.Curl", o.messages);
    std::thread storage(worker, "storage", "Storage.Index", o.messages / 10);
    network.join();
    storage.join();

    v2::log_str(app, log_level::info, "done");
    show_directory(o.directory);
    std::cout << "\nThe log files are left in " << o.directory.string() << "\n";
    return EXIT_SUCCESS;
} catch (std::exception const& e) {
    std::cerr << "vtlog_demo: " << e.what() << "\n";
    return EXIT_FAILURE;
}
