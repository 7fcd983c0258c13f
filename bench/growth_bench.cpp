// How costs grow: a record against the number of sinks registered in the process, the tree
// operations against the size of the tree.
#include "discarding_sink.hpp"
#include "fixed_iterations.hpp"

#include <VTLog/v2/log.hpp>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace {

namespace v2 = VT::Logging::v2;
using v2::log_level;

// A record that reaches one discarding sink, while range(0) - 1 other sinks are registered with
// the core. Each other sink is attached to no source (range(1) == 0), or to a running source of
// its own, as in a process of several components (range(1) == 1): the cost that every sink of
// the process adds to every record.
void BM_RecordWithSinksRegistered(benchmark::State& state)
{
    std::vector<std::shared_ptr<v2::sink::base>> others;
    std::vector<v2::logger_source> other_sources(state.range(1) ? state.range(0) - 1 : 0);
    for (long i = 1; i < state.range(0); ++i) {
        others.push_back(vtlog_bench::discarding_sink("other " + std::to_string(i)));
    }
    for (std::size_t i = 0; i < other_sources.size(); ++i) {
        other_sources[i].add_sink(others[i]);
        other_sources[i].start_logging(log_level::info);
    }
    v2::logger_source source;
    source.add_sink(vtlog_bench::discarding_sink());
    source.start_logging(log_level::info);
    auto const l = source.get_child_logger("bench.sinks");
    for (auto _ : state) {
        v2::log_str(l, log_level::info, "request 12345 sent to host example.org");
    }
}
BENCHMARK(BM_RecordWithSinksRegistered)
    ->ArgsProduct({{1, 10, 100, 1000}, {0, 1}})
    ->Apply(vtlog_bench::fixed_iterations);

// `nodes` loggers below `source`'s root: "tree", its children "tree.0" to "tree.99", and their
// children "tree.<i % 100>.<i>". The handles keep the nodes alive.
std::vector<v2::logger> grow_tree(v2::logger_source& source, long nodes)
{
    std::vector<v2::logger> loggers;
    loggers.push_back(source.get_child_logger("tree"));
    for (long i = 1; i < nodes; ++i) {
        auto const path = i <= 100 ? "tree." + std::to_string(i - 1)
                                   : "tree." + std::to_string(i % 100) + "." + std::to_string(i);
        loggers.push_back(source.get_child_logger(path));
    }
    return loggers;
}

// A running source with a tree of range(0) loggers.
struct tree {
    explicit tree(long nodes)
        : loggers(grow_tree(source, nodes))
    {
        source.start_logging(log_level::info);
    }
    v2::logger_source source;
    std::vector<v2::logger> const loggers;
};

// Sets the level of the branch that holds the whole tree, which every inheriting node follows.
void BM_SetChildLogLevel(benchmark::State& state)
{
    tree t(state.range(0));
    bool warning = false;
    for (auto _ : state) {
        warning = !warning;
        t.source.set_child_log_level("tree", warning ? log_level::warning : log_level::info);
    }
}
BENCHMARK(BM_SetChildLogLevel)->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Attaches a sink to the tree and detaches it again.
void BM_AddAndRemoveSink(benchmark::State& state)
{
    tree t(state.range(0));
    auto const sink = vtlog_bench::discarding_sink();
    for (auto _ : state) {
        t.source.add_sink(sink);
        t.source.remove_sink(sink);
    }
}
BENCHMARK(BM_AddAndRemoveSink)->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Starts a source whose tree was built, and a sink attached, while it was enqueueing; nothing
// is held, so this is the walk of the tree alone.
void BM_StartLogging(benchmark::State& state)
{
    auto const sink = vtlog_bench::discarding_sink();
    for (auto _ : state) {
        state.PauseTiming();
        auto source = std::make_unique<v2::logger_source>();
        auto loggers = grow_tree(*source, state.range(0));
        source->add_sink(sink);
        state.ResumeTiming();
        source->start_logging(log_level::info);
        state.PauseTiming();
        source.reset();
        loggers.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartLogging)->Arg(10)->Iterations(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StartLogging)->Arg(1000)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StartLogging)->Arg(100000)->Iterations(5)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
