// The first-generation façade: one-call start-up, its globals, the default directory.
#include "test_support.hpp"

#include "logger_source.hpp"
#include <VTLog/VTLog.hpp>

namespace {

namespace Logging = VT::Logging;
using namespace vtlog_test;

// The working or the home directory, however spelled (an empty directory is the default with
// HOME unset), is refused, and what was held waits for a start with a usable directory. A file
// added to the directory then (not before) joins its retention.
TEST(Facade, HeldMessagesWaitThroughRefusedStartsThenReachFileAndStandardOutput)
{
    temp_dir temp;
    fs::path const dir = temp.root / "logs";
    Logging::LogConfig config{level(2), {{"Quiet", level(4)}}, dir.string(), 3000, 1000};
    stream_capture<std::cout> out;
    v2::log_str(Logging::get_logger("Network.Curl"), level(3), "held and shown");
    v2::log_str(Logging::get_logger("Network.Curl"), level(1), "held and dropped");
    v2::log_str(Logging::get_global_logger(), level(4), "global");
    fs::current_path(temp.root);
    ::setenv("HOME", (temp.root / "home").c_str(), 1);
    for (auto const& [directory, reason] :
         {std::pair<std::string, std::string>{"", "the working directory"},
          {temp.root.string() + "//.", "the working directory"},
          {"home/../home/", "the home directory"}}) {
        config.log_directory = directory;
        auto const what =
            thrown_text<std::invalid_argument>([&] { Logging::start_logging(config); });
        EXPECT_NE(what.find(reason), std::string::npos) << directory << ": " << what;
    }
    EXPECT_TRUE(files_in(temp.root).empty());
    expect_assertion([] { Logging::detail2::add_log_file("/nonexistent"); }, "VTLog/VTLog",
                     "add_log_file Assertion wrapper_logger");
    config.log_directory = dir.string();
    Logging::start_logging(config);
    v2::log_str(Logging::get_logger("Quiet.Part"), level(3), "too low");
    v2::log_str(Logging::get_logger("Quiet.Part"), level(5), "loud");

    EXPECT_EQ(out.str(), "[Network.Curl] held and shown\n[Global] global\n[Quiet.Part] loud\n");
    auto const files = files_in(dir);
    ASSERT_EQ(files.size(), 1u);
    std::regex const name("Vantorel \\d{4}-\\d\\d-\\d\\d \\d\\d-\\d\\d-\\d\\d " +
                          std::to_string(::getpid()) + " 00\\.log");
    EXPECT_TRUE(std::regex_match(files[0].filename().string(), name)) << files[0];
    EXPECT_EQ(text_in(dir), "held and shown\nglobal\nloud\n");
    EXPECT_EQ(Logging::get_logger_source().get_data()->sinks,
              (std::unordered_set<std::shared_ptr<v2::sink::base>>{
                  Logging::detail2::get_directory_logger(), v2::sink::get_stdout()}));
    expect_assertion([&] { Logging::start_logging(config); }, "VTLog/v2/log",
                     "run Assertion c == state::enqueueing");

    auto const extra = temp.root / "report.txt", stored = dir / "report.txt";
    std::ofstream(extra.string()) << std::string(1500, 'x');
    Logging::detail2::add_log_file(extra);
    EXPECT_TRUE(!fs::exists(extra) && fs::exists(stored));
    // Lines enough to rotate several times: the added file, the oldest, goes first.
    for (int i = 0; i < 60; ++i) {
        v2::log_str(Logging::get_logger("Fill"), level(2), std::string(100, 'm'));
    }
    EXPECT_FALSE(fs::exists(stored));
}

TEST(FacadeSource, TwoArgumentStartInstallsTheGivenSourceAndNoSink)
{
    // The replaced source is not finished: its loggers keep holding their messages. It must
    // not outlive the process unreachable (the ASan build's leak check sees that).
    auto before = Logging::get_logger("Old");
    v2::log_str(before, level(5), "held by the old tree");
    capture_sink sink;
    v2::logger_source own;
    own.add_sink(sink.handle);
    v2::log_str(own.get_child_logger("Mine"), level(2), "held by mine, below its level");
    Logging::start_logging({level(2), {{"Mine", level(4)}}, {}, 0, 0}, std::move(own));
    v2::log_str(Logging::get_logger("Mine"), level(5), "after");
    v2::log_str(Logging::get_logger("Other"), level(2), "other");
    EXPECT_TRUE(before.is_enabled(level(0))) << "still holding";
    EXPECT_EQ(sink.lines(), (Strings{"[Mine] after", "[Other] other"}));
    EXPECT_EQ(Logging::get_logger_source().get_data()->sinks.size(), 1u);
}

// The default directory is fixed at the first call, so each case makes that call in a child.
TEST(FacadeDefaultDir, FollowsHomeAtTheFirstCallOnly)
{
    for (auto const& [home, directory] : // HOME (unset when null), directory
         {std::pair<char const*, char const*>{"/Users/someone/",
                                              "/Users/someone/Library/Logs/Vantorel"},
          {"", "Library/Logs/Vantorel"},
          {nullptr, ""}}) {
        expect_completes_in_child(30, [home = home, directory = directory] {
            home ? ::setenv("HOME", home, 1) : ::unsetenv("HOME");
            EXPECT_EQ(Logging::GetDefaultLogDir().string(), directory);
            ::setenv("HOME", "/elsewhere", 1);
            EXPECT_EQ(Logging::GetDefaultLogDir().string(), directory);
        });
    }
    EXPECT_EQ((VT::filesystem::path("logs") / "/abs").string(), "/abs") << "as std::filesystem";
}

} // namespace
