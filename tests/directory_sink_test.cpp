// The directory sink: one sink per pattern, the file line, rotation, retention and faults.
#include "test_support.hpp"

#include "directory_sink.hpp"
#include "log_files.hpp"
#include "logger_source.hpp"

#include <boost/lexical_cast.hpp>
#include <boost/log/detail/thread_id.hpp>
#include <boost/log/utility/exception_handler.hpp>

#include <sys/resource.h>
#if defined(__linux__)
#include <sys/mount.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#define VTLOG_TEST_ASAN 1
#elif defined(__has_feature)
#define VTLOG_TEST_ASAN __has_feature(address_sanitizer)
#endif

namespace {

using namespace vtlog_test;

constexpr auto info = v2::log_level::info;
constexpr unsigned long big = 1ul << 30;

class DirectorySink : public ::testing::Test {
protected:
    DirectorySink()
    {
        fs::create_directories(logs);
        source.start_logging(info);
        v2::impl::rotation_clock = [] {
            if (!doomed.empty()) {
                fs::remove_all(std::exchange(doomed, {}));
            }
            return now;
        };
    }
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

    // The rotation clock reads `now`, after removing `doomed` (with all it holds) if it is set.
    static inline std::time_t now = std::time(nullptr);
    static inline fs::path doomed;
    temp_dir dir; // a fresh directory with "logs", removed after all that may write there
    fs::path const logs = dir.root / "logs";
    std::string const pattern = (logs / "log %2N.txt").string();
    v2::logger_source source;
};

// `dying` dies on another thread within get_dir's lock, so its destructor runs after the lookup,
// its file still open. Each new sink continues after the highest counter (of an earlier run's
// file, then of `dying`'s), so no file holds lines of two sinks.
TEST_F(DirectorySink, OneSinkPerExactPatternWhileItLivesThenASuccessorWithTheNewSizes)
{
    std::ofstream((logs / "log 03.txt").string()) << "an earlier run\n";
    static auto dying = v2::sink::get_dir(pattern, big, big);
    static std::thread dying_thread;
    EXPECT_EQ(v2::sink::get_dir(pattern, 10, 10), dying);
    EXPECT_NE(v2::sink::get_dir((logs / "Log %2N.txt").string(), big, big), dying);
    EXPECT_NE(v2::sink::get_dir(pattern + " ", big, big), dying);
    source.add_sink(dying);
    std::string const dying_lines = log_lines(2, "dying ");
    source.remove_sink(dying);
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
    std::ofstream((logs / "log 05.txt").string())
        << "taken meanwhile\n";                    // skipped, not appended to
    log_lines(3, "a line longer than ten bytes "); // a file each: the later call's sizes
    EXPECT_EQ(files_in(logs), (std::vector<fs::path>{logs / "log 03.txt", logs / "log 04.txt",
                                                     logs / "log 05.txt", logs / "log 06.txt",
                                                     logs / "log 07.txt", logs / "log 08.txt"}));
    EXPECT_EQ(text_in(logs / "log 03.txt", "") + text_in(logs / "log 05.txt", ""),
              "an earlier run\ntaken meanwhile\n");
    EXPECT_EQ(text_in(logs / "log 04.txt"), dying_lines);
}

// Refused patterns name themselves and the reason, and touch no file. Without a counter a file
// would rotate into itself; retention deletes any file of a log directory, so the working and home
// directories and those above are refused under any spelling (generated from steps). One below
// is a log directory; an unusable directory names its path and is not remembered.
TEST_F(DirectorySink, RefusesABadPatternOrDirectoryAndTouchesNothing)
{
    auto const work = dir.root / "work", home = dir.root / "home";
    for (auto const& place : {work, home, dir.root}) {
        fs::create_directories(place / "sub");
        fs::create_directory_symlink(".", place / "here");
        std::ofstream((place / "decoy 00.log").string()) << std::string(1000, 'd');
    }
    fs::create_directory_symlink(home, work / "home link");
    fs::current_path(work);
    ::setenv("HOME", home.c_str(), 1);
    auto const listing = [&] {
        return std::vector{files_in(work), files_in(home), files_in(dir.root)};
    };
    auto const before = listing();
    std::vector<std::pair<std::string, std::string>> spellings = {
        {"", "is empty"},
        {"new/", "names no file"},
        {"new/.", "names no file"},
        {"new/plain.log", "has no file counter"},
        {"new/%Y-%m-%d.log", "has no file counter"},
        {"new/100%%N.log", "has no file counter"},
        {"new/%2N/a.log", "has no file counter"},
        {"app %2N.log", "the working directory"}};
    for (char const* root : {"", "/", "/.", "/..", "//..", "/./../"}) {
        spellings.emplace_back(root + std::string("/app %2N.log"), "the file-system root");
    }
    char const* const steps[] = {".", "sub/..", "gone/..", "here", ""}; // "" repeats a slash
    for (auto const& [start, reason] : std::initializer_list<std::pair<std::string, std::string>>{
             {".", "the working directory"},
             {work.string(), "the working directory"},
             {"../work", "the working directory"},
             {home.string(), "the home directory"},
             {"home link", "the home directory"},
             {"..", "a directory above the working directory"},
             {"home link/..", "a directory above the working directory"}}) {
        for (int pick = 0; pick < 1 + 5 + 25; ++pick) { // no step, each step, each pair of steps
            std::string directory = start;
            for (int rest = pick; rest > 0; rest = (rest - 1) / 5) {
                directory += "/" + std::string(steps[(rest - 1) % 5]);
            }
            spellings.emplace_back(directory + "/app %2N.log", reason);
        }
    }
    for (auto const& [spelling, reason] : spellings) {
        auto const what =
            thrown_text<std::invalid_argument>([p = spelling] { v2::sink::get_dir(p, 100, 200); });
        EXPECT_NE(what.find("\"" + spelling + "\" "), std::string::npos) << what;
        EXPECT_NE(what.find(reason), std::string::npos) << spelling << ": " << what;
    }
    for (auto const& below : {"sub/./app %2N.log", "here//sub/app %2N.log", "home link/sub/x %N"}) {
        auto const sink = v2::sink::get_dir(below, 100, 200);
        source.add_sink(sink);
        log_lines(5, "enough to rotate ");
        source.remove_sink(sink);
    }
    EXPECT_EQ(listing(), before) << "a file was made or deleted outside the log directories";

    fs::remove(logs);
    std::ofstream(logs.string()) << "a file where the directory should be";
    auto const what = thrown_text<fs::filesystem_error>([&] { v2::sink::get_dir(pattern, 1, 1); });
    EXPECT_NE(what.find(logs.string()), std::string::npos) << what;
    fs::remove(logs);
    v2::sink::get_dir(pattern, big, big);
    EXPECT_TRUE(fs::is_directory(logs));
}

// The file byte for byte but for the time and the thread id (in Boost.Log's text form). Control
// characters in a thread name or a domain are escaped, so neither can begin a line or a field.
TEST_F(DirectorySink, FileLineLayout)
{
    source.add_sink(v2::sink::get_dir(pattern, big, big));
    v2::set_current_thread_name("main");
    v2::log_str(source.get_child_logger("Net.Curl"), info, "sent");
    v2::log_str(v2::logger(source.get_data()->root), info, "first\nsecond\n\nfourth\n");
    v2::set_current_thread_name("x\n2024-05-01 00:00:00.000+00:00\t0x1:y");
    v2::log_str(source.get_child_logger("A\tb\r\\.\n[Forged]\x01\x7f\x1f"), info, "forged?");
    v2::set_current_thread_name("\x1b");
    v2::log_str(source.get_child_logger("ab\tc"), info, "short");
    v2::set_current_thread_name("");
    v2::log_str(source.get_child_logger("t"), info, "unnamed");
    auto const thread_id = boost::lexical_cast<std::string>(boost::log::aux::this_thread::get_id());
    EXPECT_EQ(text_in(logs, R"(\d{4}-\d\d-\d\d (\d\d:){2}\d\d\.\d{3}[+-]\d\d:\d\d\t)" + thread_id),
              ":main\t[Net.Curl]\tsent\n"
              ":main\t\tfirst\n\t\t\tsecond\n\t\t\t\n\t\t\tfourth\n"
              ":x\\n2024-05-01 00:00:00.000+00:00\\t0x1:y\t"
              "[A\\tb\\r\\.\\n[Forged]\\x01\\x7f\\x1f]\tforged?\n"
              ":\\x1b\t[ab\\tc]\tshort\n"
              "\t[t]\tunnamed\n");
}

// A child forked while threads log may find their locks held for good; it can still exec.
TEST_F(DirectorySink, AChildForkedWhileThreadsLogCanExec)
{
    source.add_sink(v2::sink::get_dir(pattern, 1 << 16, 1 << 20));
    expect_completes_in_child(60, [&] { // the loggers run until the child's _Exit
        start_line all_logging{3};
        for (int t = 0; t < 2; ++t) {
            std::thread([&] {
                all_logging.arrive_and_wait();
                for (;;) {
                    v2::log_str(source.get_child_logger("t"), info, "a line while forking");
                }
            }).detach();
        }
        all_logging.arrive_and_wait();
        for (int child = 0; child < 20; ++child) {
            pid_t const pid = ::fork();
            if (pid == 0) {
                ::execl("/bin/sh", "sh", "-c", "exit 7", static_cast<char*>(nullptr));
                ::_exit(127);
            }
            int status = 0;
            EXPECT_EQ(::waitpid(pid, &status, 0), pid);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
        }
    });
}

// A file rotates at the first local midnight after the earliest clock reading since it opened:
// a clock set back rotates at the first midnight it reaches again, and begins no file itself.
TEST_F(DirectorySink, RotatesAtTheFirstMidnightAfterTheOpeningOrTheClockGoingBack)
{
    source.add_sink(v2::sink::get_dir(pattern, big, big));
    // Each line's local clock, and the files there are once it is written.
    for (auto const& [clock, files] : {std::pair{"2024-05-01 23:59:30", 1u},
                                       {"2024-05-02 00:00:30", 2u},
                                       {"2024-05-02 12:00:00", 2u},
                                       {"2024-05-01 23:59:50", 2u},
                                       {"2024-05-02 00:00:10", 3u},
                                       {"2024-05-03 00:00:10", 4u},
                                       {"2024-04-24 12:00:00", 4u},
                                       {"2024-04-25 00:00:05", 5u}}) {
        std::tm local{};
        ::strptime(clock, "%Y-%m-%d %H:%M:%S", &local);
        local.tm_isdst = -1;
        now = std::mktime(&local);
        log_lines(1, "line ");
        EXPECT_EQ(files_in(logs).size(), files) << clock;
    }
}

// Links planted at the names the sink takes next are skipped, never written through. Retention
// runs at the first rotation and deletes the oldest files whatever their names, also links (never
// their targets) and files made after the sink started; two patterns share the smaller budget.
TEST_F(DirectorySink, RetentionDeletesTheOldestFilesUnderOneBudgetPerDirectory)
{
    auto const outside = dir.root / "outside", missing = dir.root / "missing";
    std::ofstream(outside.string()) << "not a log\n";
    // Name order is the opposite of age, and one of them matches the pattern.
    for (auto const& [name, hours_ago] : {std::pair{"a new", 1}, {"log 50.txt", 2}, {"z old", 3}}) {
        std::ofstream((logs / name).string()) << std::string(1000, 'x');
        fs::last_write_time(logs / name, std::time(nullptr) - hours_ago * 3600);
    }
    auto const small = v2::sink::get_dir((logs / "small %2N.txt").string(), 300, 1500);
    source.add_sink(v2::sink::get_dir(pattern, 300, big));
    fs::create_symlink(outside, logs / "log 51.txt"); // after the sink took stock
    fs::create_symlink(missing, logs / "log 52.txt");
    log_lines(6, "line ");
    EXPECT_TRUE(fs::exists(logs / "a new"));
    EXPECT_FALSE(fs::exists(logs / "log 50.txt") || fs::exists(logs / "z old"));
    for (int i = 0; i < 10; ++i) {
        std::ofstream((logs / ("other " + std::to_string(i))).string()) << std::string(1000, 'x');
    }
    log_lines(60, "a line of the larger budget ");
    EXPECT_LE(text_in(logs, "").size(), 1500u + 300u) << "the kept files and the current one";
    EXPECT_EQ(text_in(outside, ""), "not a log\n");
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_FALSE(fs::is_symlink(logs / "log 51.txt") || fs::is_symlink(logs / "log 52.txt"));
}

#if defined(__linux__)
// A full file system: the failing call reports it, by throwing or to the core's handler, earlier
// lines stay whole, and once there is space lines go on from a line's start in a new file.
TEST_F(DirectorySink, AFullDiskIsReportedAndTheSinkRecovers)
{
    if (::mount("tmpfs", logs.c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "needs root to mount a 64 KiB tmpfs: " << std::strerror(errno);
    }
    std::shared_ptr<void> const unmount(nullptr,
                                        [&](void*) { ::umount2(logs.c_str(), MNT_DETACH); });
    std::ofstream((logs / "ballast").string()) << std::string(20000, 'b');
    source.add_sink(v2::sink::get_dir(pattern, big, big));
    Strings reported;
    std::string written;
    for (int i = 1000; i < 1600 && reported.size() < 6; ++i) {
        if (reported.size() == 3) { // three failures thrown, the next three to the handler
            boost::log::core::get()->set_exception_handler(
                boost::log::make_exception_handler<std::exception>(
                    [&](std::exception const& e) { reported.push_back(e.what()); }));
        }
        std::string const text = "line " + std::to_string(i) + std::string(130, '.');
        auto const before = reported.size();
        try {
            v2::log_str(source.get_child_logger("t"), info, text);
        } catch (std::exception const& e) {
            reported.push_back(e.what());
        }
        written += reported.size() == before ? text + '\n' : "";
    }
    ASSERT_EQ(reported.size(), 6u) << "the disk never filled up";
    fs::remove(logs / "ballast");
    written += log_lines(3, "after ");
    boost::log::core::get()->set_exception_handler({});
    std::string lines;
    for (auto const& file : files_in(logs)) {
        std::string const text = text_in(file);
        lines += text.substr(0, text.rfind('\n') + 1); // a torn last line is a failed call's
    }
    EXPECT_EQ(lines, written);
    for (auto const& report : reported) {
        EXPECT_NE(report.find(logs.string()), std::string::npos) << report;
    }
}
#endif

// A removal between the look at the file and the write (by the clock, read just before it) does
// not lose the line: it is written again into a new file, in the directory made again.
TEST_F(DirectorySink, ALineWrittenIntoAFileRemovedMeanwhileIsWrittenAgain)
{
    source.add_sink(v2::sink::get_dir(pattern, big, big));
    for (bool const whole_directory : {false, true}) {
        log_lines(2, "gone ");
        doomed = whole_directory ? logs : files_in(logs).back();
        std::string const kept = log_lines(2, "kept ");
        EXPECT_EQ(text_in(logs), kept);
    }
}

// An open file takes one descriptor, even the last one free; with none free the call reports it
// and leaves no file; once there are, the next call writes.
TEST_F(DirectorySink, OneDescriptorPerFileAndAFailedOpenLeavesNoFile)
{
#if VTLOG_TEST_ASAN
    GTEST_SKIP() << "UBSan's type checks open a pipe, so they fail once descriptors are spent";
#endif
    rlimit const few{256, 256};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    source.add_sink(v2::sink::get_dir((logs / "one %2N.txt").string(), big, big));
    auto const two = v2::sink::get_dir((logs / "two %2N.txt").string(), big, big);
    std::vector<int> spent;
    for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        spent.push_back(fd);
    }
    ::close(spent.back());
    spent.pop_back();
    std::string const written = log_lines(1, "with the last descriptor ");
    source.add_sink(two);
    auto const what = thrown_text<fs::filesystem_error>([&] { log_lines(1, "with none "); });
    for (int const fd : spent) {
        ::close(fd);
    }
    EXPECT_NE(what.find((logs / "two 00.txt").string()), std::string::npos) << what;
    EXPECT_EQ(files_in(logs), std::vector<fs::path>{logs / "one 00.txt"});
    EXPECT_EQ(text_in(logs / "one 00.txt"), written + "with none 10\n");
    std::string const after = log_lines(1, "after ");
    EXPECT_EQ(text_in(logs / "two 00.txt"), after);
}

} // namespace
