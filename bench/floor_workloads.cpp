// The floors of the side-by-side workloads, under the same names: what no logging library can
// go below. A filtered call is an out-of-line call doing one load and one comparison; a file or
// console line is one write(2) of a line formatted in advance.
#include "filtered_floor.hpp"
#include "peer_common.hpp"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace {

namespace v2 = VT::Logging::v2;
namespace peers = vtlog_peers;

// A text that is never asked for: the floor filters every call.
class never_needed : public v2::log_function_ref {
public:
    std::string_view get_str() const override { peers::formatted_by_mistake(); }
};

void BM_FilteredCall(benchmark::State& state)
{
    vtlog_bench::floor_logger l{v2::log_level::warning};
    never_needed text;
    auto const before = peers::thread_allocations;
    for (auto _ : state) {
        vtlog_bench::floor_log(&l, v2::log_level::debug, text);
    }
    peers::report_allocations(state, before, "allocs/op");
}
BENCHMARK(BM_FilteredCall)->Apply(vtlog_bench::fixed_iterations);

// libVTLog's file line for this thread, byte for byte in length: time with milliseconds and
// offset, thread id and name, [domain], message, newline.
std::string file_line(benchmark::State const& state)
{
    return "2024-05-01 09:30:12.045+02:00\t0x00007f1c2a4b5740:" + peers::thread_name(state) +
           "\t[" + peers::file_domain + "]\t" + peers::file_message + "\n";
}

struct floor_file {
    floor_file()
        : fd(::open((files.dir / "floor.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                    0644))
    {
        if (fd < 0) {
            throw std::runtime_error("cannot open the floor file");
        }
    }
    ~floor_file() { ::close(fd); }
    floor_file(floor_file const&) = delete;
    floor_file& operator=(floor_file const&) = delete;

    peers::scratch files;
    int const fd;
};

// Every thread appends to the same file, as every thread of a logger writes to the same sink.
void BM_FileLine(benchmark::State& state)
{
    static floor_file file;
    std::string const line = file_line(state);
    unsigned written = 0;
    for (auto _ : state) {
        if (::write(file.fd, line.data(), line.size()) < 0) {
            state.SkipWithError("write failed");
            break;
        }
        // Bounds the file as rotation bounds the sinks' files; once per 64k lines costs nothing.
        if (++written % 65536 == 0 && ::ftruncate(file.fd, 0) != 0) {
            state.SkipWithError("ftruncate failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileLine)->Threads(1)->Threads(2)->UseRealTime()->Apply(vtlog_bench::fixed_iterations);

// Standard output is /dev/null when the script runs this program.
void BM_ConsoleLine(benchmark::State& state)
{
    std::string const line =
        std::string("[") + peers::console_domain + "] " + peers::console_message + "\n";
    for (auto _ : state) {
        if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) {
            state.SkipWithError("write failed");
            break;
        }
    }
}
BENCHMARK(BM_ConsoleLine)->Apply(vtlog_bench::fixed_iterations);

} // namespace

BENCHMARK_MAIN();
