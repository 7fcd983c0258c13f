// Logging while the process exits: threads that keep logging as main returns never crash it, and
// exit handlers still find the library working.
#include "test_support.hpp"

#include "VTLog/VTLog.hpp"

namespace {

using namespace vtlog_test;

std::string handler_pattern; // of the directory sink that the child's exit handler looks up

// The child: threads log through the façade's source (into `log_directory` if given) and an
// application's own, both destroyed at exit, as the process exits. The exit handler registered
// first runs last, after the statics built later are destroyed: it must still find get_dir and
// GetDefaultLogDir working, or the child ends with status 3.
[[noreturn]] void log_while_exiting(int threads, char const* log_directory)
{
    boost::log::core::get(); // built before the handler, so destroyed after it runs
    std::atexit([] {
        if (v2::sink::get_dir(handler_pattern, 1 << 20, 1 << 20) !=
                v2::sink::get_dir(handler_pattern, 1, 1) ||
            VT::Logging::GetDefaultLogDir().string() != "/home/at exit/Library/Logs/Vantorel") {
            std::_Exit(3);
        }
    });
    ::setenv("HOME", "/home/at exit", 1);
    (void)VT::Logging::GetDefaultLogDir();
    (void)v2::sink::get_dir(handler_pattern, 1 << 20, 1 << 20);
    static v2::logger_source app_source;
    int const null_output = ::open("/dev/null", O_WRONLY);
    ::dup2(null_output, STDOUT_FILENO);
    ::dup2(null_output, STDERR_FILENO);
    auto& facade = VT::Logging::get_logger_source();
    if (log_directory) {
        VT::Logging::start_logging({level(0), {}, log_directory, 1 << 20, 1 << 16});
    } else {
        facade.add_sink(v2::sink::get_stdout());
        facade.start_logging(level(0));
    }
    app_source.add_sink(v2::sink::get_stderr());
    app_source.start_logging(level(0));

    start_line all_logging{threads + 1};
    for (int t = 0; t < threads; ++t) {
        std::thread([t, &all_logging, &facade] {
            v2::set_current_thread_name("worker " + std::to_string(t));
            auto const own = app_source.get_child_logger("app.t" + std::to_string(t));
            for (int k = 0;; ++k) {
                v2::log_str(own, level(1), "from the application's source");
                auto const domain = "facade.t" + std::to_string(k % 4);
                v2::log_str(VT::Logging::get_logger(domain), level(1), "through the façade");
                if (k % 16 == t) {
                    facade.set_child_log_level(domain, level(k % 3));
                    facade.add_sink(v2::sink::get_stderr());
                }
                if (k == 0) {
                    all_logging.arrive_and_wait();
                }
            }
        }).detach();
    }
    all_logging.arrive_and_wait();
    std::exit(0);
}

TEST(ExitStress, ThreadsLoggingWhileMainReturnsNeverCrashTheProcess)
{
    temp_dir const directory, handler_directory;
    handler_pattern = (handler_directory.root / "exit %2N.log").string();
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int runs = 0;
    for (; runs < 2000 && std::chrono::steady_clock::now() < end; ++runs) {
        pid_t const child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            log_while_exiting(1 + runs % 4, runs % 2 ? directory.root.c_str() : nullptr);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "run " << runs << ": wait status " << status;
    }
    RecordProperty("runs", runs);
}

} // namespace
