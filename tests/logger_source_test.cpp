// Lifecycle of a logger source and the path of a message through it.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/block_on_overflow.hpp>
#include <boost/log/sinks/bounded_fifo_queue.hpp>

#include <future>

namespace {

using namespace vtlog_test;
namespace sinks = boost::log::sinks;

// Logs numbered messages while `more(k)`: each must be written once and in order, or else
// reported as overlapping the start, never both, and its text asked for once.
struct numbered_writer {
    template <class More>
    void run(v2::logger const& l, More const& more)
    {
        prefix = "[" + std::string(l.get_domain()) + "] ";
        for (int k = 0; more(k); ++k) {
            seen.push_back(0), asked.push_back(0);
            auto const what = thrown_text<std::invalid_argument>([&] {
                l.log(level(0), v2::lazy_text([&] { return ++asked[k], std::to_string(k); }));
            });
            if (what != "no exception") {
                EXPECT_NE(what.find("consume_impl Assertion redo_ptr failed."), std::string::npos)
                    << what;
                ++seen[k];
            }
        }
    }
    void expect_each_written_once(Strings const& lines)
    {
        std::vector<int> written;
        for (auto const& line : lines) {
            if (line.rfind(prefix, 0) == 0) {
                written.push_back(std::stoi(line.substr(prefix.size())));
                ++seen.at(written.back());
            }
        }
        EXPECT_TRUE(std::is_sorted(written.begin(), written.end())) << "out of order";
        EXPECT_EQ(seen, std::vector<int>(seen.size(), 1))
            << "lost, repeated, or written and reported";
        EXPECT_EQ(asked, seen) << "a text asked for other than once";
    }

    std::string prefix;
    std::vector<int> seen, asked; // the reports and lines, the text calls of each message
};

// A second source, running meanwhile, neither sees nor feeds the holding one's sink.
TEST(LoggerSource, HeldMessagesAreTrimmedAndReplayedInOrderThroughTheLevelsAtTheStart)
{
    capture_sink sink, other_sink("other sink");
    v2::logger_source source, other;
    source.add_sink(sink.handle);
    other.add_sink(other_sink.handle);
    auto net = source.get_child_logger("net");
    auto db = source.get_child_logger("db");
    int asked = 0;
    auto const text = [&asked] {
        return ++asked, "asked";
    };
    auto const core = boost::log::core::get();
    v2::log_str(net, level(3), "\n  two\twords \n inside\n\t ");
    net.log(level(1), v2::lazy_text(text));
    for (auto blank : {std::string_view(" \t\n "), std::string_view(), std::string_view("\0", 1)}) {
        v2::log_str(db, level(9), blank);
    }
    core->set_logging_enabled(false);
    v2::log_str(db, level(9), "held while disabled");
    core->set_logging_enabled(true);
    std::weak_ptr<v2::logger::data> dropped_node;
    {
        auto const dropped = source.get_child_logger("dropped");
        dropped_node = source.get_data()->root->children.at("dropped");
        v2::log_str(dropped, level(5), "no handle left");
    }
    v2::log_str(source.get_child_logger("quiet"), level(3), "raised before the start");
    source.set_child_log_level("quiet", level(4));
    other.start_logging(level(0));
    v2::log_str(other.get_child_logger("net"), level(3), "other source");
    EXPECT_EQ(asked, 1) << "text is taken when held, whatever the level";
    EXPECT_FALSE(dropped_node.expired()) << "the held record owns its node";
    EXPECT_TRUE(sink.lines().empty());

    source.start_logging(level(3));
    EXPECT_TRUE(dropped_node.expired()) << "the replayed record released it";
    net.log(level(2), v2::lazy_text(text));
    v2::log_str(db, level(3), std::string_view("\0 after \0", 9));
    core->set_logging_enabled(false);
    v2::log_str(db, level(3), "written while disabled");
    core->set_logging_enabled(true);
    EXPECT_EQ(asked, 1) << "a running source filters before asking for text";
    EXPECT_EQ(sink.lines(),
              (Strings{"[net] two\twords \n inside", "[dropped] no handle left", "[db] after"}));
    EXPECT_EQ(other_sink.lines(), Strings{"[net] other source"});

    expect_assertion([&] { source.start_logging(level(4)); }, "VTLog/v2/log",
                     "run Assertion c == state::enqueueing");
    EXPECT_EQ(net.get_log_level(), level(4)) << "a second start still sets the root level";
}

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
        std::atomic<bool> started{false}, gave_up{false};
        auto const give_up = steady::now() + std::chrono::seconds(20);
        start_line first_use{threads + 1};
        std::vector<std::thread> running;
        for (int t = 0; t < threads; ++t) {
            running.emplace_back([&, t] {
                first_use.arrive_and_wait();
                int since_start = 0;
                writers[t].run(source.get_child_logger(std::to_string(t)), [&](int k) {
                    warmed_up.fetch_add(k == warm_up);
                    gave_up = gave_up || steady::now() > give_up;
                    return (since_start += started.load()) <= after_start && !gave_up;
                });
            });
        }
        first_use.arrive_and_wait();
        for (auto const& sink : sinks) {
            source.add_sink(sink.handle);
        }
        while (warmed_up.load() < threads) {
            std::this_thread::yield();
        }
        source.start_logging(level(0));
        started = true;
        for (auto& thread : running) {
            thread.join();
        }
        EXPECT_FALSE(gave_up) << "start_logging returned only once the writers stopped";
        for (auto& writer : writers) {
            writer.expect_each_written_once(sinks[0].lines());
        }
        ASSERT_FALSE(HasFailure()) << "round " << round;
        if (round == 0) { // the slow first round takes no time from the others
            deadline = steady::now() + std::chrono::seconds(20);
        }
    }
}

// A text function may look up loggers and log through any, its own included, holding or running,
// while another thread changes the sinks.
TEST(LoggerSourceReentry, TextFunctionsMayLookUpLoggersAndLogWhileSinksChange)
{
    expect_completes_in_child(60, [] {
        constexpr int rounds = 1000;
        for (bool started : {false, true}) {
            v2::logger_source source;
            capture_sink sink, toggled("toggled");
            source.add_sink(sink.handle);
            if (started) {
                source.start_logging(level(0));
            }
            auto net = source.get_child_logger("Net");
            auto db = source.get_child_logger("Db");
            start_line start{2};
            std::thread toggler([&] {
                start.arrive_and_wait();
                for (int i = 0; i < rounds; ++i) {
                    source.add_sink(toggled.handle);
                    source.remove_sink(toggled.handle);
                }
            });
            start.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                net.log(level(1), v2::lazy_text([&] {
                            v2::log_str(source.get_child_logger("Net.Curl"), level(1), "looked up");
                            v2::log_str(net.get_child_logger("Tls"), level(1), "child");
                            v2::log_str(net, level(1), "same logger");
                            v2::log_str(db, level(1), "elsewhere");
                            return "outer";
                        }));
            }
            toggler.join();
            if (!started) {
                source.start_logging(level(0));
            }
            auto const lines = sink.lines();
            ASSERT_EQ(lines.size(), 5u * rounds);
            EXPECT_EQ(Strings(lines.begin(), lines.begin() + 5),
                      (Strings{"[Net.Curl] looked up", "[Net.Tls] child", "[Net] same logger",
                               "[Db] elsewhere", "[Net] outer"}));
        }
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
        if (first_line.empty()) { // read by the test once this back end is destroyed
            first_line = std::string(record[v2::record::channel].get()) + " " +
                         std::string(record[v2::record::message].get());
        }
    }

    inline static std::weak_ptr<v2::sink::base> handle;
    inline static std::atomic<bool> consuming{false};
    inline static std::string first_line;
    inline static std::promise<void> destroyed;
};

// Its queue has a mutex, which ThreadSanitizer follows.
using holding_sink =
    sinks::asynchronous_sink<holding_backend,
                             sinks::bounded_fifo_queue<16, sinks::block_on_overflow>>;

// The sink's feeding thread never ends up waiting for itself, and the record keeps its channel.
TEST(LoggerSourceLifetime, AsynchronousSinkHoldingRecordsOutlivesTheSource)
{
    expect_completes_in_child(30, [] {
        auto handle = std::make_shared<v2::sink::base>(boost::log::attribute_name("async sink"),
                                                       boost::make_shared<holding_sink>());
        holding_backend::handle = handle;
        {
            v2::logger_source source;
            source.add_sink(handle);
            source.start_logging(level(0));
            auto l = source.get_child_logger("async");
            for (auto text : {"first", "second", "third"}) {
                v2::log_str(l, level(0), text);
            }
        }
        while (!holding_backend::consuming) {
            std::this_thread::yield();
        }
        handle.reset();
        ASSERT_EQ(holding_backend::destroyed.get_future().wait_for(std::chrono::seconds(10)),
                  std::future_status::ready);
        EXPECT_EQ(holding_backend::first_line, "async first");
    });
}

} // namespace
