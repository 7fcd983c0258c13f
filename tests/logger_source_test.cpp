// Lifecycle of a logger source and the path of a message through it, the call helpers'
// included: log_fmt and lazy_text format only what is logged.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/block_on_overflow.hpp>
#include <boost/log/sinks/bounded_fifo_queue.hpp>

#include <fmt/format.h>

#include <future>

// An argument that counts how often it is formatted.
struct counted_arg {
    int* formatted;
};

template <>
struct fmt::formatter<counted_arg> : fmt::formatter<int> {
    auto format(counted_arg const& arg, fmt::format_context& ctx) const
    {
        return fmt::formatter<int>::format(++*arg.formatted, ctx);
    }
};

namespace {

using namespace vtlog_test;
namespace sinks = boost::log::sinks;

// A second source, running meanwhile, neither sees nor feeds the holding one's sink.
TEST(LoggerSource, HeldMessagesAreTrimmedAndReplayedInOrderThroughTheLevelsAtTheStart)
{
    capture_sink sink, other_sink("other sink");
    v2::logger_source source, other;
    source.add_sink(sink.handle);
    other.add_sink(other_sink.handle);
    auto net = source.get_child_logger("net");
    auto db = source.get_child_logger("db");
    auto const core = boost::log::core::get();
    v2::log_str(net, level(3), "\n  two\twords \n inside\n\t ");
    for (auto blank : {std::string_view(" \t\n "), std::string_view(), std::string_view("\0", 1)}) {
        v2::log_str(db, level(9), blank);
    }
    core->set_logging_enabled(false);
    v2::log_str(db, level(9), "held while disabled");
    core->set_logging_enabled(true);
    v2::log_str(source.get_child_logger("dropped"), level(5), "no handle left");
    auto const& children = source.get_data()->root->children;
    ASSERT_EQ(children.count("dropped"), 1u) << "the held record owns its node";
    std::weak_ptr<v2::logger::data> const dropped_node = children.at("dropped");
    v2::log_str(source.get_child_logger("quiet"), level(3), "raised before the start");
    source.set_child_log_level("quiet", level(4));
    other.start_logging(level(0));
    v2::log_str(other.get_child_logger("net"), level(3), "other source");
    EXPECT_TRUE(sink.lines().empty());

    source.start_logging(level(3));
    EXPECT_TRUE(dropped_node.expired()) << "the replayed record released it";
    v2::log_str(db, level(3), std::string_view("\0 after \0", 9));
    core->set_logging_enabled(false);
    v2::log_str(db, level(3), "written while disabled");
    core->set_logging_enabled(true);
    EXPECT_EQ(sink.lines(),
              (Strings{"[net] two\twords \n inside", "[dropped] no handle left", "[db] after"}));
    EXPECT_EQ(other_sink.lines(), Strings{"[net] other source"});

    expect_assertion([&] { source.start_logging(level(4)); }, "VTLog/v2/log",
                     "run Assertion c == state::enqueueing");
    EXPECT_EQ(net.get_log_level(), level(4)) << "a second start still sets the root level";
}

// Only what is logged or held is formatted (so a bad format throws only then), a text function
// once. log_fmt tests the level before it builds its text, and must agree with `log`: before the
// start every level is held (levels can be negative), after it the logger's level decides, and a
// logger outliving its source, started or not, writes nothing and asks for no text.
TEST(CallHelpers, FormatAndTextFunctionRunOnlyForWhatIsLogged)
{
    capture_sink sink;
    std::optional<v2::logger> l, unstarted;
    int formatted = 0, calls = 0;
    auto describe = [&] {
        return "built " + std::to_string(++calls);
    };
    {
        v2::logger_source source, never_started;
        source.add_sink(sink.handle);
        never_started.add_sink(sink.handle);
        l = source.get_child_logger("l");
        unstarted = never_started.get_child_logger("unstarted");
        v2::log_fmt(*unstarted, level(0), "dropped with its source");
        EXPECT_TRUE(l->is_enabled(level(-9)));
        v2::log_fmt(*l, level(-5), "held {}", 1);
        v2::log_fmt(*l, level(-9), "held {}", counted_arg{&formatted});
        source.start_logging(level(-6));
        EXPECT_FALSE(l->is_enabled(level(-7)));
        EXPECT_TRUE(l->is_enabled(level(-6)));
        v2::log_fmt(*l, level(-7), "filtered {}", counted_arg{&formatted});
        v2::log_fmt(*l, level(-6), "sent {} bytes to {} ({})", 42, std::string("example"),
                    counted_arg{&formatted});
        v2::log_fmt(*l, level(2), FMT_STRING("{:0>4}|{}"), 7, std::string(600, 'x'));
        std::string const bad = "{:d}";
        EXPECT_NO_THROW(v2::log_fmt(*l, level(-7), fmt::runtime(bad), "text"));
        EXPECT_THROW(v2::log_fmt(*l, level(-6), fmt::runtime(bad), "text"), fmt::format_error);
        l->log(level(-7), v2::lazy_text(describe));
        l->log(level(-6), v2::lazy_text(describe));
        l->log(level(-6), v2::lazy_text([] { return "a literal"; }));
    }
    for (auto const& left : {*l, *unstarted}) {
        EXPECT_FALSE(left.is_enabled(level(100)));
        v2::log_fmt(left, level(100), "finished {}", counted_arg{&formatted});
        left.log(level(100), v2::lazy_text(describe));
    }
    EXPECT_EQ(formatted, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(unstarted->get_domain(), "unstarted");
    EXPECT_EQ(sink.lines(),
              (Strings{"[l] held 1", "[l] sent 42 bytes to example (2)",
                       "[l] 0007|" + std::string(600, 'x'), "[l] built 1", "[l] a literal"}));
}

// Logs numbered messages from one thread. Each must be written once and in order, or else be
// reported as overlapping the start (never both), and its text must be asked for once.
struct numbered_writer {
    // Logs the next message; returns how many this writer has logged.
    int log_next(v2::logger const& l)
    {
        auto const k = asked.size();
        asked.push_back(0);
        outcomes.emplace_back();
        auto const what = thrown_text<std::invalid_argument>(
            [&] { l.log(level(0), v2::lazy_text([&] { return ++asked[k], std::to_string(k); })); });
        if (what != "no exception") {
            EXPECT_NE(what.find("consume_impl Assertion redo_ptr failed."), std::string::npos)
                << what;
            outcomes[k] += "reported ";
        }
        return static_cast<int>(asked.size());
    }
    void expect_each_written_once(std::string const& prefix, Strings const& lines)
    {
        int last = 0;
        for (auto const& line : lines) {
            if (line.rfind(prefix, 0) == 0) {
                int const k = std::stoi(line.substr(prefix.size()));
                EXPECT_GE(k, last) << "out of order";
                last = k;
                outcomes.at(k) += "written ";
            }
        }
        for (std::size_t k = 0; k < asked.size(); ++k) {
            EXPECT_TRUE(outcomes[k] == "written " || outcomes[k] == "reported ")
                << "message " << k << ": " << (outcomes[k].empty() ? "lost" : outcomes[k]);
            EXPECT_EQ(asked[k], 1) << "text calls of message " << k;
        }
    }

    std::vector<int> asked; // per message: its text calls
    Strings outcomes;       // per message: "written " or "reported ", once
};

// Threads log numbered messages while the source starts mid-stream. In the first round the replay
// is slower than the writers (33 sinks): the start returns all the same.
TEST(LoggerSourceRace, MessagesRacingTheStartAreWrittenExactlyOnce)
{
    constexpr int threads = 3, warm_up = 40, after_start = 40;
    using steady = std::chrono::steady_clock;
    auto deadline = steady::time_point::max();
    for (int round = 0; round < 200 && steady::now() < deadline; ++round) {
        v2::logger_source source;
        std::vector<capture_sink> sinks(round == 0 ? 33 : 1);
        std::vector<numbered_writer> writers(threads);
        std::atomic<int> warmed_up{0};
        std::atomic<bool> started{false};
        auto const give_up = steady::now() + std::chrono::seconds(20);
        start_line first_use{threads + 1};
        std::vector<std::thread> running;
        for (int t = 0; t < threads; ++t) {
            running.emplace_back([&, t] {
                first_use.arrive_and_wait();
                auto const l = source.get_child_logger(std::to_string(t));
                for (int since_start = 0; since_start <= after_start && steady::now() < give_up;) {
                    warmed_up += writers[t].log_next(l) == warm_up;
                    since_start += started;
                }
            });
        }
        first_use.arrive_and_wait();
        for (auto const& sink : sinks) {
            source.add_sink(sink.handle);
        }
        while (warmed_up < threads) {
            std::this_thread::yield();
        }
        source.start_logging(level(0));
        started = true;
        for (auto& thread : running) {
            thread.join();
        }
        EXPECT_TRUE(steady::now() < give_up) << "start_logging returned only once writers stopped";
        for (int t = 0; t < threads; ++t) {
            writers[t].expect_each_written_once("[" + std::to_string(t) + "] ", sinks[0].lines());
        }
        ASSERT_FALSE(HasFailure()) << "round " << round;
        if (round == 0) { // the slow first round takes no time from the others
            deadline = steady::now() + std::chrono::seconds(20);
        }
    }
}

// A text function may look up loggers and log through any, its own included, holding, starting
// or running, while another thread changes the sinks.
TEST(LoggerSourceReentry, TextFunctionsMayLookUpLoggersAndLogWhileSinksChange)
{
    expect_completes_in_child(60, [] {
        constexpr int rounds = 1000; // holding, then as many running
        v2::logger_source source;
        capture_sink sink, toggled("toggled");
        source.add_sink(sink.handle);
        auto net = source.get_child_logger("Net");
        std::atomic<bool> done{false};
        start_line start{2};
        std::thread toggler([&] {
            start.arrive_and_wait();
            while (!done) {
                source.add_sink(toggled.handle);
                source.remove_sink(toggled.handle);
            }
        });
        start.arrive_and_wait();
        for (int i = 0; i < 2 * rounds; ++i) {
            if (i == rounds) {
                source.start_logging(level(0));
            }
            net.log(level(1), v2::lazy_text([&] {
                        v2::log_str(source.get_child_logger("Net.Curl"), level(1), "looked up");
                        v2::log_str(net.get_child_logger("Tls"), level(1), "child");
                        v2::log_str(net, level(1), "same logger");
                        return "outer";
                    }));
        }
        done = true;
        toggler.join();
        auto const lines = sink.lines();
        Strings const one_round{"[Net.Curl] looked up", "[Net.Tls] child", "[Net] same logger",
                                "[Net] outer"};
        ASSERT_EQ(lines.size(), 2 * rounds * one_round.size());
        EXPECT_EQ(Strings(lines.begin(), lines.begin() + 4), one_round) << "held";
        EXPECT_EQ(Strings(lines.end() - 4, lines.end()), one_round) << "running";
    });
}

// Holds its first record until the test alone names the sink, so that queued records outlive
// the source and its loggers. One per child process.
struct holding_backend : sinks::basic_sink_backend<sinks::concurrent_feeding> {
    ~holding_backend() { destroyed.set_value(); }
    void consume(boost::log::record_view const& record)
    {
        consuming = true;
        // Counted without locking: a temporary owner here could become the last one, and the
        // sink would then be destroyed on its own feeding thread.
        while (handle.use_count() > 1) {
            std::this_thread::yield();
        }
        if (first.lines.empty()) { // read by the test once this back end is destroyed
            first.consume(record);
        }
    }

    inline static std::weak_ptr<v2::sink::base> handle;
    inline static std::atomic<bool> consuming{false};
    inline static capture_backend first;
    inline static std::promise<void> destroyed;
};

// The sink's feeding thread never ends up waiting for itself, and the record keeps its channel.
TEST(LoggerSourceLifetime, AsynchronousSinkHoldingRecordsOutlivesTheSource)
{
    expect_completes_in_child(30, [] {
        // Its queue has a mutex, which ThreadSanitizer follows.
        using holding_sink =
            sinks::asynchronous_sink<holding_backend,
                                     sinks::bounded_fifo_queue<16, sinks::block_on_overflow>>;
        auto handle = std::make_shared<v2::sink::base>(boost::log::attribute_name("async sink"),
                                                       boost::make_shared<holding_sink>());
        holding_backend::handle = handle;
        {
            v2::logger_source source;
            source.add_sink(handle);
            source.start_logging(level(0));
            for (auto text : {"first", "second", "third"}) {
                v2::log_str(source.get_child_logger("async"), level(0), text);
            }
        }
        while (!holding_backend::consuming) {
            std::this_thread::yield();
        }
        handle.reset();
        ASSERT_EQ(holding_backend::destroyed.get_future().wait_for(std::chrono::seconds(10)),
                  std::future_status::ready);
        EXPECT_EQ(holding_backend::first.lines, Strings{"[async] first"});
    });
}

} // namespace
