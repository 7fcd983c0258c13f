// The second-generation interface on its own: a logger_source with the standard-output and a
// directory sink, a level per branch, named threads, messages held until start-up, log_fmt and
// lazy_text. It prints the log file it wrote and leaves its folder in place.
//
//   vtlog_second_generation [--dir DIR]
#include <VTLog/v2/log.hpp>

#include <boost/filesystem.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace fs = boost::filesystem;
namespace v2 = VT::Logging::v2;
using v2::log_level;

namespace {

std::string describe_cache(int& builds)
{
    ++builds;
    return "cache: 12 entries, 3 stale";
}

void print_files(fs::path const& directory)
{
    for (auto const& entry : fs::directory_iterator(directory)) {
        std::cout << "\n--- " << entry.path().string() << "\n";
        std::ifstream file(entry.path().string());
        std::cout << file.rdbuf();
    }
}

} // namespace

int main(int argc, char** argv)
try {
    fs::path directory = fs::temp_directory_path() / fs::unique_path("vtlog-example-%%%%-%%%%");
    if (argc == 3 && std::string(argv[1]) == "--dir") {
        directory = argv[2];
    } else if (argc != 1) {
        std::cerr << "usage: " << argv[0] << " [--dir DIR]\n";
        return EXIT_FAILURE;
    }
    v2::set_current_thread_name("main");

    // Loggers work before any sink is attached: these messages are held, then filtered by the
    // levels in force when start_logging replays them.
    v2::logger_source source;
    auto const app = source.get_child_logger("App");
    v2::log_str(app, log_level::info, "held before start_logging, then replayed");
    v2::log_str(app, log_level::debug, "held, then dropped: App logs info and above");

    source.add_sink(v2::sink::get_stdout());
    source.add_sink(v2::sink::get_dir((directory / "example %Y-%m-%d %2N.log").string(),
                                      1024 * 1024, 8 * 1024 * 1024));
    source.set_child_log_level("Storage", log_level::debug);   // the whole branch, debug included
    source.set_child_log_level("Network", log_level::warning); // the whole branch, warnings only
    source.start_logging(log_level::info);                     // everything else

    int cache_descriptions = 0;
    std::thread storage([&] {
        v2::set_current_thread_name("storage");
        auto const index = source.get_child_logger("Storage.Index");
        v2::log_fmt(index, log_level::debug, "indexed {} entries in {:.1f} ms", 1200, 3.47);
        index.log(log_level::debug,
                  v2::lazy_text([&] { return describe_cache(cache_descriptions); }));
    });
    std::thread network([&] {
        v2::set_current_thread_name("network");
        auto const curl = source.get_child_logger("Network.Curl");
        // Below the branch's level: the function never runs.
        curl.log(log_level::info,
                 v2::lazy_text([&] { return describe_cache(cache_descriptions); }));
        v2::log_fmt(curl, log_level::error, "connect to {}:{} failed", "example.org", 443);
    });
    storage.join();
    network.join();

    v2::log_str(app, log_level::info, "a message on two lines:\nthe file indents the second");
    std::cout << "\nthe cache was described " << cache_descriptions << " time(s)\n";
    print_files(directory);
    std::cout << "\nThe log files are left in " << directory.string() << "\n";
    return EXIT_SUCCESS;
} catch (std::exception const& e) {
    std::cerr << "vtlog_second_generation: " << e.what() << "\n";
    return EXIT_FAILURE;
}
