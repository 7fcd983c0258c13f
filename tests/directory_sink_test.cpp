// The directory sink: one sink per pattern, the file line, rotation, retention and faults.
#include "test_support.hpp"

#include "directory_sink.hpp"
#include "logger_source.hpp"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <boost/log/attributes/current_thread_id.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace vtlog_test;
namespace fs = boost::filesystem;

constexpr auto info = v2::log_level::info;
constexpr unsigned long big = 1ul << 30;

std::string read_file(fs::path const& path)
{
    std::ifstream in(path.string(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The files of `dir` in name order, which is counter order for the patterns used here.
std::vector<fs::path> files_in(fs::path const& dir)
{
    std::vector<fs::path> files(fs::directory_iterator{dir}, fs::directory_iterator{});
    std::sort(files.begin(), files.end());
    return files;
}

// The message column of every line of the files of `dir`, in order.
std::vector<std::string> messages_in(fs::path const& dir)
{
    std::vector<std::string> messages;
    for (auto const& file : files_in(dir)) {
        std::istringstream lines(read_file(file));
        for (std::string line; std::getline(lines, line);) {
            auto const tab = line.find('\t', line.find('\t', line.find('\t') + 1) + 1);
            messages.push_back(tab == std::string::npos ? "<not a file line>"
                                                        : line.substr(tab + 1));
        }
    }
    return messages;
}

// How Boost.Log prints the calling thread's identifier.
std::string this_thread_id()
{
    auto const id = boost::log::attributes::current_thread_id().get_value();
    std::ostringstream text;
    text << id.extract<boost::log::thread_id>();
    return text.str();
}

// A fresh directory, removed after everything that may still write into it.
struct temp_dir {
    temp_dir() { fs::create_directories(logs); }
    ~temp_dir()
    {
        boost::system::error_code ignored;
        fs::remove_all(root, ignored);
    }
    fs::path const root = fs::temp_directory_path() / fs::unique_path("vtlog-dir-%%%%-%%%%-%%%%");
    fs::path const logs = root / "logs";
};

class DirectorySink : public ::testing::Test {
protected:
    std::string pattern() const { return (logs / "log %2N.txt").string(); }

    // A running source that feeds `sink`; `log` writes on its logger "t".
    void start(std::shared_ptr<v2::sink::base> const& sink)
    {
        source.add_sink(sink);
        source.start_logging(info);
        t.emplace(source.get_child_logger("t"));
    }
    void log(std::string const& text) { v2::log_str(*t, info, text); }

    temp_dir const dir;
    fs::path const& root = dir.root;
    fs::path const& logs = dir.logs;
    v2::logger_source source;
    std::optional<v2::logger> t;
};

TEST_F(DirectorySink, OneSinkPerPatternByteForByteAndTheFirstSizesStay)
{
    auto const sink = v2::sink::get_dir(pattern(), big, big);
    EXPECT_EQ(v2::sink::get_dir(pattern(), 10, 10), sink);
    for (auto const& other : {(logs / "Log %2N.txt").string(), (logs / "log %2N.txt ").string(),
                              logs.string() + "//log %2N.txt"}) {
        EXPECT_NE(v2::sink::get_dir(other, big, big), sink) << other;
    }
    start(sink);
    for (int i = 0; i < 20; ++i) {
        log("a line longer than ten bytes");
    }
    EXPECT_EQ(files_in(logs).size(), 1u) << "the second call's rotation size was used";
}

TEST_F(DirectorySink, AfterTheLastReleaseANewSinkTakesTheNewSizes)
{
    v2::sink::get_dir(pattern(), big, big).reset();
    auto const renewed = v2::sink::get_dir(pattern(), 300, big);
    EXPECT_EQ(v2::sink::get_dir(pattern(), big, big), renewed);
    start(renewed);
    for (int i = 0; i < 20; ++i) {
        log("line " + std::to_string(i));
    }
    EXPECT_GT(files_in(logs).size(), 3u);
}

// The last reference to `dying` is dropped on another thread while get_dir holds the registry
// lock, so the sink's destructor waits until get_dir has put its successor in the entry.
std::shared_ptr<v2::sink::base> dying;
std::thread dying_thread;

void let_the_sink_die()
{
    v2::impl::get_dir_lookup_hook = nullptr;
    std::weak_ptr<v2::sink::base> const watch = dying;
    dying_thread = std::thread([] { dying.reset(); });
    while (!watch.expired()) { // expires before the destructor asks for the lock
        std::this_thread::yield();
    }
}

TEST_F(DirectorySink, ADyingSinkLeavesItsSuccessorsEntryAlone)
{
    dying = v2::sink::get_dir(pattern(), big, big);
    v2::impl::get_dir_lookup_hook = &let_the_sink_die;
    auto const successor = v2::sink::get_dir(pattern(), big, big);
    dying_thread.join();
    EXPECT_EQ(v2::sink::get_dir(pattern(), big, big), successor);
}

// Many threads ask for the same patterns while their sinks come and go; every call made while
// a sink lives must return that sink.
TEST_F(DirectorySink, ConcurrentGetAndReleaseNeverSplitsAPattern)
{
    constexpr int threads = 6;
    std::string const patterns[] = {pattern(), (logs / "other %2N.txt").string()};
    start_line start(threads);
    std::atomic<int> split{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < threads; ++w) {
        workers.emplace_back([&, w] {
            auto const& mine = patterns[w % 2];
            start.arrive_and_wait();
            for (int i = 0; i < 200; ++i) {
                auto const held = v2::sink::get_dir(mine, big, big);
                if (v2::sink::get_dir(mine, big, big) != held) {
                    ++split;
                }
            }
        });
    }
    for (auto& w : workers) {
        w.join();
    }
    EXPECT_EQ(split.load(), 0);
}

TEST_F(DirectorySink, AnUnusableDirectoryFailsWithItsPathAndIsNotRemembered)
{
    fs::remove(logs);
    std::ofstream(logs.string()) << "a file where the directory should be";
    auto const nested = (logs / "sub" / "log %2N.txt").string();
    try {
        v2::sink::get_dir(nested, big, big);
        FAIL() << "no exception";
    } catch (fs::filesystem_error const& e) {
        EXPECT_NE(std::string(e.what()).find(logs.string()), std::string::npos) << e.what();
    }
    fs::remove(logs);
    start(v2::sink::get_dir(nested, big, big));
    log("usable now");
    EXPECT_EQ(messages_in(logs / "sub"), std::vector<std::string>{"usable now"});
}

TEST_F(DirectorySink, FileLineLayout)
{
    start(v2::sink::get_dir(pattern(), big, big));
    v2::set_current_thread_name("main");
    v2::log_str(source.get_child_logger("Network.Curl"), info, "request sent");
    v2::log_str(v2::logger(source.get_data()->root), info, "first\nsecond\n\nfourth\n");
    v2::set_current_thread_name("");
    log("renamed to nothing");
    std::string other_id;
    std::thread([&] {
        other_id = this_thread_id();
        log("never named");
    }).join();

    auto const id = this_thread_id();
    EXPECT_TRUE(std::regex_match(id, std::regex("0x[0-9a-f]+"))) << id;
    std::string const expected_rest[] = {
        "\t" + id + ":main\t[Network.Curl]\trequest sent\n",
        "\t" + id + ":main\t\tfirst\n\t\t\tsecond\n\t\t\t\n\t\t\tfourth\n",
        "\t" + id + "\t[t]\trenamed to nothing\n",
        "\t" + other_id + "\t[t]\tnever named\n",
    };
    std::regex const time("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d");
    std::string text = read_file(files_in(logs).at(0));
    for (auto const& rest : expected_rest) {
        ASSERT_GE(text.size(), 29 + rest.size()) << text;
        EXPECT_TRUE(std::regex_match(text.substr(0, 29), time)) << text.substr(0, 29);
        EXPECT_EQ(text.substr(29, rest.size()), rest);
        text.erase(0, 29 + rest.size());
    }
    EXPECT_EQ(text, "");
}

// A file is rotated before the line that would take it to the rotation size.
TEST_F(DirectorySink, RotatesBeforeALineWouldReachTheSize)
{
    constexpr unsigned long limit = 1000;
    start(v2::sink::get_dir(pattern(), limit, big));
    std::vector<std::string> logged;
    for (int i = 0; i < 60; ++i) {
        logged.push_back(std::string(static_cast<std::size_t>(i % 7) * 10, '.') + "line " +
                         std::to_string(i));
        log(logged.back());
    }
    EXPECT_EQ(messages_in(logs), logged);
    auto const files = files_in(logs);
    ASSERT_GT(files.size(), 3u);
    EXPECT_EQ(files[0].filename(), "log 00.txt");
    for (std::size_t i = 0; i + 1 < files.size(); ++i) {
        auto const size = fs::file_size(files[i]);
        auto const next = read_file(files[i + 1]);
        EXPECT_LT(size, limit);
        EXPECT_GE(size + next.find('\n') + 1, limit) << files[i] << " rotated too early";
    }
}

TEST_F(DirectorySink, RetentionDeletesTheOldestFilesWhateverTheirNamesAtTheFirstRotation)
{
    // Name order is the opposite of age, and one of them matches the pattern.
    auto const now = std::time(nullptr);
    std::pair<char const*, int> const existing[] = {
        {"a newest.dat", 1}, {"log 50.txt", 2}, {"z oldest.bin", 3}};
    for (auto const& [name, hours_ago] : existing) {
        std::ofstream((logs / name).string()) << std::string(1000, 'x');
        fs::last_write_time(logs / name, now - hours_ago * 3600);
    }
    start(v2::sink::get_dir(pattern(), 300, 1500));
    log("before any rotation");
    EXPECT_EQ(files_in(logs).size(), 4u) << "nothing is deleted before a rotation";
    for (int i = 0; i < 5; ++i) {
        log("filler line " + std::to_string(i));
    }
    EXPECT_TRUE(fs::exists(logs / "a newest.dat"));
    EXPECT_FALSE(fs::exists(logs / "log 50.txt"));
    EXPECT_FALSE(fs::exists(logs / "z oldest.bin"));
}

TEST_F(DirectorySink, AppendsToAnExistingFile)
{
    std::ofstream((logs / "log 00.txt").string()) << "line of an earlier run\n";
    start(v2::sink::get_dir(pattern(), big, big));
    log("continued");
    auto const text = read_file(logs / "log 00.txt");
    EXPECT_EQ(text.rfind("line of an earlier run\n", 0), 0u) << text;
    EXPECT_EQ(messages_in(logs).back(), "continued");
}

// The way to a sink's file collector, for files that this sink did not write.
TEST_F(DirectorySink, TheCollectorIsReachableThroughTheHandle)
{
    auto const sink = v2::sink::get_dir(pattern(), big, big);
    auto const frontend = boost::dynamic_pointer_cast<v2::impl::directory_frontend>(
        v2::sink::detail::get_unwrapped_sink(sink));
    ASSERT_TRUE(frontend);
    auto const collector = frontend->locked_backend()->get_file_collector();
    ASSERT_TRUE(collector);
    std::ofstream((root / "extra.log").string()) << "kept with the logs";
    collector->store_file(root / "extra.log");
    EXPECT_EQ(read_file(logs / "extra.log"), "kept with the logs");
}

using DirectorySinkDeathTest = DirectorySink;

// The child dies without running a destructor or flushing a buffer; what it logged must
// already be in the files.
TEST_F(DirectorySinkDeathTest, EveryLineIsOnDiskWhenTheCallReturns)
{
    GTEST_FLAG_SET(death_test_style, "fast"); // the child must see this test's directory
    std::vector<std::string> logged;
    for (int i = 0; i < 50; ++i) {
        logged.push_back("line " + std::to_string(i));
    }
    EXPECT_EXIT(
        {
            start(v2::sink::get_dir(pattern(), 1000, big));
            for (auto const& line : logged) {
                log(line);
            }
            std::_Exit(7);
        },
        ::testing::ExitedWithCode(7), "");
    EXPECT_GT(files_in(logs).size(), 1u);
    EXPECT_EQ(messages_in(logs), logged);
}

// Boost.Log writes on into the removed file until the next rotation, which makes the
// directory again; lines from then on are whole and in order.
TEST_F(DirectorySink, DirectoryRemovedUnderARunningSinkIsMadeAgainAtTheNextRotation)
{
    start(v2::sink::get_dir(pattern(), 500, big));
    log("before");
    fs::remove_all(logs);
    for (int i = 0; i < 30; ++i) {
        log("after " + std::to_string(i));
    }
    auto const recovered = messages_in(logs);
    ASSERT_FALSE(recovered.empty());
    auto const first = 30 - static_cast<int>(recovered.size());
    ASSERT_GE(first, 1) << "lines before the rotation belong to the removed file";
    for (int i = first; i < 30; ++i) {
        EXPECT_EQ(recovered[static_cast<std::size_t>(i - first)], "after " + std::to_string(i));
    }
}

// The directory is moved away and a file put in its place: the moved lines stay whole, the
// next rotation fails the logging call with the path, and the sink works again (on any
// thread: no lock was left held) once the path is usable.
TEST_F(DirectorySink, BlockedDirectoryFailsTheCallWithItsPathThenRecovers)
{
    start(v2::sink::get_dir(pattern(), 500, big));
    log("before");
    fs::rename(logs, root / "moved");
    std::ofstream(logs.string()) << "in the way";
    int failures = 0;
    for (int i = 0; i < 30; ++i) {
        try {
            log("blocked " + std::to_string(i));
        } catch (std::exception const& e) {
            ++failures;
            EXPECT_NE(std::string(e.what()).find(logs.string()), std::string::npos) << e.what();
        }
    }
    EXPECT_GT(failures, 0);
    auto const moved = messages_in(root / "moved");
    ASSERT_GE(moved.size(), 2u);
    EXPECT_EQ(moved[0], "before");
    EXPECT_EQ(moved[1], "blocked 0");

    fs::remove(logs);
    std::thread([&] { log("recovered"); }).join();
    log("recovered again");
    EXPECT_EQ(messages_in(logs), (std::vector<std::string>{"recovered", "recovered again"}));
}

} // namespace
