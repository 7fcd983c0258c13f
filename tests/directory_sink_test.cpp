// The directory sink: one sink per pattern, the file line, rotation, retention and faults.
#include "test_support.hpp"

#include "directory_sink.hpp"
#include "logger_source.hpp"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

using namespace vtlog_test;
namespace fs = boost::filesystem;

constexpr auto info = v2::log_level::info;
constexpr unsigned long big = 1ul << 30;

// The files of `dir` in name order, which is counter order for the patterns used here.
std::vector<fs::path> files_in(fs::path const& dir)
{
    std::vector<fs::path> files(fs::directory_iterator{dir}, fs::directory_iterator{});
    std::sort(files.begin(), files.end());
    return files;
}

// The text of the files of `dir` in order less what `cut` matches, by default all but messages.
std::string text_in(fs::path const& dir, std::string const& cut = "[^\t\n]*\t[^\t\n]*\t[^\t\n]*\t")
{
    std::string text;
    for (auto const& file : files_in(dir)) {
        std::ifstream in(file.string(), std::ios::binary);
        text.append(std::istreambuf_iterator<char>(in), {});
    }
    return std::regex_replace(text, std::regex(cut), "");
}

struct temp_dir {
    temp_dir() { fs::create_directories(root / "logs"); }
    ~temp_dir() { fs::remove_all(root, ignored); }
    fs::path const root = fs::temp_directory_path() / fs::unique_path("vtlog-dir-%%%%-%%%%-%%%%");
    boost::system::error_code ignored;
};

class DirectorySink : public ::testing::Test {
protected:
    DirectorySink() { source.start_logging(info); }
    // Logs "<text>10", "<text>11"... (up to 90 lines of one length) and returns them as text.
    std::string log_lines(int count, std::string const& text)
    {
        std::string logged;
        for (int i = 10; i < 10 + count; ++i) {
            v2::log_str(source.get_child_logger("t"), info, text + std::to_string(i));
            logged += text + std::to_string(i) + '\n';
        }
        return logged;
    }

    temp_dir dir; // a fresh directory with "logs", removed after all that may write there
    fs::path const logs = dir.root / "logs";
    std::string const pattern = (logs / "log %2N.txt").string();
    v2::logger_source source;
};

// `dying` dies on another thread within get_dir's lock, so its destructor runs after the lookup.
TEST_F(DirectorySink, OneSinkPerExactPatternWhileItLivesThenASuccessorWithTheNewSizes)
{
    static auto dying = v2::sink::get_dir(pattern, big, big);
    static std::thread dying_thread;
    EXPECT_EQ(v2::sink::get_dir(pattern, 10, 10), dying);
    EXPECT_NE(v2::sink::get_dir((logs / "Log %2N.txt").string(), big, big), dying);
    EXPECT_NE(v2::sink::get_dir(pattern + " ", big, big), dying);
    v2::impl::get_dir_lookup_hook = [] {
        v2::impl::get_dir_lookup_hook = nullptr;
        std::weak_ptr<v2::sink::base> const watch = dying;
        dying_thread = std::thread([] { dying.reset(); });
        while (!watch.expired()) { // expires before the destructor asks for the lock
            std::this_thread::yield();
        }
    };
    auto const successor = v2::sink::get_dir(pattern, 10, big);
    dying_thread.join();
    EXPECT_EQ(v2::sink::get_dir(pattern, big, big), successor);
    source.add_sink(successor);
    log_lines(3, "a line longer than ten bytes ");
    EXPECT_EQ(files_in(logs).size(), 3u) << "not one line per file: the sizes of a later call";
}

TEST_F(DirectorySink, AnUnusableDirectoryFailsWithItsPathAndIsNotRemembered)
{
    fs::remove(logs);
    std::ofstream(logs.string()) << "a file where the directory should be";
    auto const what = thrown_text<fs::filesystem_error>([&] { v2::sink::get_dir(pattern, 1, 1); });
    EXPECT_NE(what.find(logs.string()), std::string::npos) << what;
    fs::remove(logs);
    v2::sink::get_dir(pattern, big, big);
    EXPECT_TRUE(fs::is_directory(logs));
}

// The file after its earlier line, byte for byte but for the time and thread id, which are cut.
TEST_F(DirectorySink, FileLineLayoutAppendedToAnExistingFile)
{
    std::ofstream((logs / "log 00.txt").string()) << "earlier run\n";
    source.add_sink(v2::sink::get_dir(pattern, big, big));
    v2::set_current_thread_name("main");
    v2::log_str(source.get_child_logger("Net.Curl"), info, "sent");
    v2::log_str(v2::logger(source.get_data()->root), info, "first\nsecond\n\nfourth\n");
    v2::set_current_thread_name("");
    v2::log_str(source.get_child_logger("t"), info, "unnamed");
    EXPECT_EQ(text_in(logs, R"(\d{4}-\d\d-\d\d (\d\d:){2}\d\d\.\d{3}[+-]\d\d:\d\d\t0x[0-9a-f]+)"),
              "earlier run\n:main\t[Net.Curl]\tsent\n"
              ":main\t\tfirst\n\t\t\tsecond\n\t\t\t\n\t\t\tfourth\n\t[t]\tunnamed\n");
}

using DirectorySinkDeathTest = DirectorySink;

// The child moves the directory away while it logs and dies without running a destructor.
// Boost.Log writes on into the moved file until a rotation closes it and makes the directory again.
TEST_F(DirectorySinkDeathTest, NoLineIsLostAcrossRotationsAMovedDirectoryAndAnAbruptExit)
{
    GTEST_FLAG_SET(death_test_style, "fast"); // the child must see this test's directory
    auto const moved = dir.root / "moved";
    auto const child = [&] {
        source.add_sink(v2::sink::get_dir(pattern, 1000, big));
        log_lines(40, "before ");
        fs::rename(logs, moved);
        log_lines(40, "after ");
        std::_Exit(7);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(7), "");
    // No sink is attached in this process: log_lines only gives the lines the child logged.
    EXPECT_EQ(text_in(moved) + text_in(logs), log_lines(40, "before ") + log_lines(40, "after "));
    auto const line = text_in(moved, "").find('\n') + 1; // the longest: "before 10"
    for (auto const& file : files_in(moved)) {
        EXPECT_LT(fs::file_size(file), 1000u);
        EXPECT_GE(fs::file_size(file) + line, 1000u) << file << " rotated early";
    }
    EXPECT_GT(files_in(moved).size(), 2u);
}

TEST_F(DirectorySink, RetentionDeletesTheOldestFilesWhateverTheirNamesAtTheFirstRotation)
{
    // Name order is the opposite of age, and one of them matches the pattern.
    for (auto const& [name, hours_ago] : {std::pair{"a new", 1}, {"log 50.txt", 2}, {"z old", 3}}) {
        std::ofstream((logs / name).string()) << std::string(1000, 'x');
        fs::last_write_time(logs / name, fs::last_write_time(logs / name) - hours_ago * 3600);
    }
    source.add_sink(v2::sink::get_dir(pattern, 300, 1500));
    log_lines(6, "line ");
    EXPECT_TRUE(fs::exists(logs / "a new"));
    EXPECT_FALSE(fs::exists(logs / "log 50.txt"));
    EXPECT_FALSE(fs::exists(logs / "z old"));
}

} // namespace
