// The first-generation façade: one-call start-up, its globals, the default directory.
#include "test_support.hpp"

#include <VTLog/VTLog.hpp>

#include "logger_source.hpp"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = boost::filesystem;
namespace Logging = VT::Logging;
using vtlog_test::v2::log_level;

struct temp_dir {
    fs::path path = fs::temp_directory_path() / fs::unique_path("vtlog-facade-%%%%-%%%%");
    temp_dir() { fs::create_directories(path); }
    ~temp_dir() { fs::remove_all(path); }
};

Logging::LogConfig config_for(fs::path const& directory, log_level level = log_level::info)
{
    return Logging::LogConfig{level, {}, directory.string(), 1 << 20, 1 << 16};
}

std::vector<fs::path> files_in(fs::path const& directory)
{
    std::vector<fs::path> files{fs::directory_iterator(directory), fs::directory_iterator{}};
    std::sort(files.begin(), files.end());
    return files;
}

std::string read_file(fs::path const& file)
{
    std::ifstream in(file.string(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Swaps std::cout's buffer for a string buffer while it lives.
struct captured_stdout {
    std::ostringstream text;
    std::streambuf* saved = std::cout.rdbuf(text.rdbuf());
    ~captured_stdout() { std::cout.rdbuf(saved); }
};

std::string message_column(std::string const& file_text)
{
    std::string messages;
    std::istringstream lines(file_text);
    for (std::string line; std::getline(lines, line);) {
        messages += line.substr(line.rfind('\t') + 1) + "\n";
    }
    return messages;
}

TEST(Facade, HeldMessagesReachFileAndStandardOutputAtStart)
{
    temp_dir dir;
    captured_stdout out;
    auto net = Logging::get_logger("Network.Curl");
    vtlog_test::v2::log_str(net, log_level::warning, "held and shown");
    vtlog_test::v2::log_str(net, log_level::debug, "held and dropped");
    vtlog_test::v2::log_str(Logging::get_global_logger(), log_level::error, "global");

    auto config = config_for(dir.path);
    config.domain_levels["Quiet"] = log_level::error;
    Logging::start_logging(config);
    vtlog_test::v2::log_str(Logging::get_logger("Quiet.Part"), log_level::warning, "too low");
    vtlog_test::v2::log_str(Logging::get_logger("Quiet.Part"), log_level::critical, "loud");

    EXPECT_EQ(out.text.str(),
              "[Network.Curl] held and shown\n[Global] global\n[Quiet.Part] loud\n");
    auto const files = files_in(dir.path);
    ASSERT_EQ(files.size(), 1u);
    std::regex const name("Vantorel \\d{4}-\\d\\d-\\d\\d \\d\\d-\\d\\d-\\d\\d " +
                          std::to_string(::getpid()) + " 00\\.log");
    EXPECT_TRUE(std::regex_match(files[0].filename().string(), name)) << files[0];
    EXPECT_EQ(message_column(read_file(files[0])), "held and shown\nglobal\nloud\n");
    auto const& attached = Logging::get_logger_source().get_data()->sinks;
    EXPECT_EQ(attached.size(), 2u);
    EXPECT_EQ(attached.count(Logging::detail2::get_directory_logger()), 1u);
    EXPECT_EQ(attached.count(vtlog_test::v2::sink::get_stdout()), 1u);
}

TEST(Facade, SecondStartFailsWithTheRunAssertion)
{
    temp_dir dir;
    captured_stdout out;
    Logging::start_logging(config_for(dir.path));
    try {
        Logging::start_logging(config_for(dir.path));
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_NE(std::string(e.what()).find(":  run Assertion c == state::enqueueing failed."),
                  std::string::npos);
    }
}

TEST(Facade, TwoArgumentStartInstallsTheGivenSourceAndNoSink)
{
    auto before = Logging::get_logger("Old");
    vtlog_test::capture_sink sink;
    VT::Logging::v2::logger_source own;
    own.add_sink(sink.handle);
    vtlog_test::v2::log_str(own.get_child_logger("Mine"), log_level::info, "held by mine");

    Logging::LogConfig config{log_level::info, {{"Mine", log_level::error}}, {}, 0, 0};
    Logging::start_logging(config, std::move(own));
    vtlog_test::v2::log_str(Logging::get_logger("Mine"), log_level::critical, "after");
    vtlog_test::v2::log_str(Logging::get_logger("Other"), log_level::info, "other");
    vtlog_test::v2::log_str(before, log_level::critical, "to the old, unstarted tree");

    EXPECT_EQ(sink.backend->messages(), (std::vector<std::string>{"after", "other"}));
    EXPECT_FALSE(Logging::detail2::get_directory_logger());
    EXPECT_EQ(Logging::get_logger_source().get_data()->sinks.size(), 1u);
}

TEST(Facade, GlobalLoggerIsTheGlobalDomain)
{
    auto global = Logging::get_global_logger();
    EXPECT_EQ(global.get_domain(), "Global");
    EXPECT_EQ(global.get_domain().data(), Logging::get_logger("Global").get_domain().data())
        << "the same node, so the same domain string";
}

TEST(Facade, CurlVerbosity)
{
    Logging::LogConfig config{log_level::trace, {}, {}, 0, 0};
    EXPECT_TRUE(Logging::ShouldSetCurlVerbose(config));
    config.domain_levels["Network"] = log_level::trace;
    config.level = log_level::info;
    EXPECT_FALSE(Logging::ShouldSetCurlVerbose(config));
    config.domain_levels["Network.Curl"] = log_level::critical;
    EXPECT_TRUE(Logging::ShouldSetCurlVerbose(config));
}

TEST(FacadeDefaultDir, HomeSet)
{
    ::setenv("HOME", "/Users/someone", 1);
    EXPECT_EQ(Logging::GetDefaultLogDir().string(), "/Users/someone/Library/Logs/Vantorel");
    ::setenv("HOME", "/elsewhere", 1);
    EXPECT_EQ(Logging::GetDefaultLogDir().string(), "/Users/someone/Library/Logs/Vantorel")
        << "fixed at the first call";
}

TEST(FacadeDefaultDir, HomeEndingInASeparator)
{
    ::setenv("HOME", "/Users/someone/", 1);
    EXPECT_EQ(Logging::GetDefaultLogDir().string(), "/Users/someone/Library/Logs/Vantorel");
}

TEST(FacadeDefaultDir, HomeEmpty)
{
    ::setenv("HOME", "", 1);
    EXPECT_EQ(Logging::GetDefaultLogDir().string(), "Library/Logs/Vantorel");
}

TEST(FacadeDefaultDir, HomeUnsetStaysEmpty)
{
    ::unsetenv("HOME");
    EXPECT_TRUE(Logging::GetDefaultLogDir().empty());
    ::setenv("HOME", "/Users/late", 1);
    EXPECT_TRUE(Logging::GetDefaultLogDir().empty());
}

TEST(FacadePath, JoinsLikeVersionFourPaths)
{
    using VT::filesystem::path;
    EXPECT_EQ((path("a") / "b").string(), "a/b");
    EXPECT_EQ((path("a/") / "b").string(), "a/b");
    EXPECT_EQ((path("") / "b").string(), "b");
    EXPECT_EQ((path("a") / "/abs").string(), "/abs");
    EXPECT_EQ((path("a") / "").string(), "a/");
}

TEST(FacadeLogFiles, AddingBeforeStartFails)
{
    try {
        Logging::detail2::add_log_file("/nonexistent");
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_TRUE(std::regex_match(
            std::string(e.what()),
            std::regex("VTLog/VTLog:[0-9]+:  add_log_file Assertion wrapper_logger failed\\.")))
            << e.what();
    }
}

TEST(FacadeLogFiles, AddedFileJoinsTheDirectoryAndItsRetention)
{
    temp_dir dir, elsewhere;
    captured_stdout out;
    auto config = config_for(dir.path);
    config.max_size = 3000;
    config.rotation_size = 1000;
    Logging::start_logging(config);

    auto const extra = elsewhere.path / "crash report.txt";
    std::ofstream(extra.string()) << std::string(1500, 'x');
    Logging::detail2::add_log_file(extra);
    EXPECT_FALSE(fs::exists(extra));
    EXPECT_TRUE(fs::exists(dir.path / "crash report.txt"));

    // Enough log lines to rotate several times: the added file, the oldest, goes first.
    auto l = Logging::get_logger("Fill");
    for (int i = 0; i < 60; ++i) {
        vtlog_test::v2::log_str(l, log_level::info, std::string(100, 'm'));
    }
    EXPECT_FALSE(fs::exists(dir.path / "crash report.txt"));
    std::uintmax_t total = 0;
    for (auto const& f : files_in(dir.path)) {
        total += fs::file_size(f);
    }
    EXPECT_LE(total, 3000u + 1000u) << "retention keeps the directory near max_size";
}

} // namespace
