// The file line with its per-record flush, from one and two threads, against its floor: one
// write(2) of a line of the same length; and the line that begins a new file, with retention
// taking stock of a directory of 10, 100 and 1,000 files.
#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace {

namespace v2 = VT::Logging::v2;
namespace fs = boost::filesystem;

constexpr char message[] = "request 12345 sent to host example.org";

// A scratch directory for the run; rotation keeps it under 64 MiB however long the run is.
struct scratch {
    scratch() { fs::create_directories(dir); }
    ~scratch()
    {
        boost::system::error_code ignored;
        fs::remove_all(dir, ignored);
    }
    fs::path const dir = fs::temp_directory_path() / fs::unique_path("vtlog-bench-%%%%-%%%%");
};

// One source writing to a directory sink, shared by every benchmark thread.
struct file_logging {
    file_logging()
    {
        source.add_sink(
            v2::sink::get_dir((files.dir / "bench %2N.log").string(), 16ul << 20, 64ul << 20));
        source.start_logging(v2::log_level::info);
        logger.emplace(source.get_child_logger("bench"));
    }
    scratch files;
    v2::logger_source source;
    std::optional<v2::logger> logger;
};

void BM_FileLine(benchmark::State& state)
{
    static file_logging shared;
    for (auto _ : state) {
        v2::log_str(*shared.logger, v2::log_level::info, message);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileLine)->Threads(1)->Threads(2)->UseRealTime();

// Every line rotates (the rotation size is one byte), so each pays for closing its file,
// retention's look at the whole directory and the deletion of the oldest file, and creating the
// next. The directory holds `files` files throughout: the budget keeps exactly that many.
void BM_RotatingLine(benchmark::State& state)
{
    auto const files = static_cast<unsigned long>(state.range(0));
    scratch directory;
    v2::logger_source source;
    auto const sink = v2::sink::get_dir((directory.dir / "bench %6N.log").string(), 1, ~0ul);
    source.add_sink(sink);
    source.start_logging(v2::log_level::info);
    auto const logger = source.get_child_logger("bench");
    for (unsigned long i = 0; i < files; ++i) {
        v2::log_str(logger, v2::log_level::info, message);
    }
    source.remove_sink(sink);
    auto const line_size = fs::file_size(directory.dir / "bench 000000.log");
    auto const bounded =
        v2::sink::get_dir((directory.dir / "next %6N.log").string(), 1, files * line_size);
    source.add_sink(bounded);
    for (auto _ : state) {
        v2::log_str(logger, v2::log_level::info, message);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RotatingLine)->Arg(10)->Arg(100)->Arg(1000);

// The same number of bytes as a file line of `message`: time, thread id, "[bench]", message.
std::string const floor_line = std::string("2024-05-01 09:30:12.045+02:00\t0x00007f1c2a4b5740\t") +
                               "[bench]\t" + message + "\n";

void BM_WriteFloor(benchmark::State& state)
{
    static scratch files;
    static int const fd = [] {
        int const opened = ::open((files.dir / "floor.log").c_str(),
                                  O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (opened < 0) {
            throw std::runtime_error("cannot open the floor file");
        }
        return opened;
    }();
    unsigned written = 0;
    for (auto _ : state) {
        if (::write(fd, floor_line.data(), floor_line.size()) < 0) {
            state.SkipWithError("write failed");
            break;
        }
        // Bounds the file as rotation bounds the sink's; one call per 64k lines costs nothing.
        if (++written % 65536 == 0 && ::ftruncate(fd, 0) != 0) {
            state.SkipWithError("ftruncate failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WriteFloor)->Threads(1)->Threads(2)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
