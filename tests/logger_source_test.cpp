// Lifecycle of a logger source and the path of a message through it.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <boost/log/core/core.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/block_on_overflow.hpp>
#include <boost/log/sinks/bounded_fifo_queue.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <optional>

namespace {

using namespace vtlog_test;
using Strings = std::vector<std::string>;

struct LoggerSource : ::testing::Test {
    LoggerSource() { source.add_sink(sink.handle); }
    capture_sink sink;
    v2::logger_source source;
};

TEST(LoggerSourceRace, ConcurrentFirstUseCreatesOneData)
{
    for (int round = 0; round < 50; ++round) {
        v2::logger_source source;
        std::shared_ptr<v2::logger_source::data> seen[2];
        start_line start(2);
        auto take = [&](int i) {
            start.arrive_and_wait();
            seen[i] = source.get_data();
        };
        std::thread other(take, 0);
        take(1);
        other.join();
        ASSERT_EQ(seen[0], seen[1]);
        EXPECT_EQ(seen[0]->root->source, seen[0]);
    }
}

TEST_F(LoggerSource, HeldMessagesAreReplayedInOrderThroughTheLevelsAtTheStart)
{
    auto net = source.get_child_logger("net");
    auto db = source.get_child_logger("db");
    int asked = 0;
    auto const text = [&asked] {
        return "asked " + std::to_string(++asked);
    };
    v2::log_str(net, level(3), "first");
    net.log(level(1), v2::lazy_text(text));
    v2::log_str(db, level(5), "second");
    v2::log_str(source.get_child_logger("quiet"), level(3), "raised before the start");
    source.set_child_log_level("quiet", level(4));
    v2::log_str(net, level(3), "third");
    EXPECT_EQ(asked, 1) << "text is taken when held, whatever the level";
    EXPECT_TRUE(sink.lines().empty()) << "nothing is written before the start";

    source.start_logging(level(3));
    net.log(level(2), v2::lazy_text(text));
    v2::log_str(db, level(3), "after");
    EXPECT_EQ(asked, 1) << "a running source filters before asking for text";
    EXPECT_EQ(sink.lines(), (Strings{"[net] first", "[db] second", "[net] third", "[db] after"}));
}

TEST_F(LoggerSource, BlankTextsAreNotLoggedAndTextsAreTrimmed)
{
    auto l = source.get_child_logger("x");
    for (auto blank :
         {std::string_view(" \t\n "), std::string_view(), std::string_view("\0\0", 2)}) {
        v2::log_str(l, level(0), blank);
    }
    v2::log_str(l, level(0), "\n  two\twords \n inside\n\t ");
    source.start_logging(level(0));
    v2::log_str(l, level(0), "   \t");
    v2::log_str(l, level(0), std::string_view("\0 late \0", 8));
    EXPECT_EQ(sink.lines(), (Strings{"[x] two\twords \n inside", "[x] late"}));
}

TEST_F(LoggerSource, SecondStartChangesTheRootLevelThenThrows)
{
    auto l = source.get_child_logger("a");
    source.start_logging(level(1));
    expect_assertion([&] { source.start_logging(level(4)); }, "VTLog/v2/log",
                     "run Assertion c == state::enqueueing");
    EXPECT_EQ(l.get_log_level(), level(4));
}

TEST(LoggerSourceLifetime, LoggersOutlivingTheirSourceWriteNothingAndAskForNothing)
{
    for (bool started : {false, true}) {
        capture_sink sink;
        std::optional<v2::logger> survivor;
        {
            v2::logger_source source;
            source.add_sink(sink.handle);
            survivor = source.get_child_logger("left.behind");
            v2::log_str(*survivor, level(5), "held, or written if started");
            if (started) {
                source.start_logging(level(0));
            }
        }
        survivor->log(level(9),
                      v2::lazy_text([]() -> std::string { throw std::logic_error("asked"); }));
        EXPECT_EQ(survivor->get_domain(), "left.behind");
        EXPECT_EQ(sink.lines(),
                  started ? Strings{"[left.behind] held, or written if started"} : Strings{});
    }
}

TEST_F(LoggerSource, HeldRecordKeepsItsNodeAlive)
{
    std::weak_ptr<v2::logger::data> node;
    {
        auto l = source.get_child_logger("short");
        node = source.get_data()->root->children.at("short");
        v2::log_str(l, level(0), "held");
    }
    EXPECT_FALSE(node.expired()) << "the queued record holds the node";
    source.start_logging(level(0));
    EXPECT_TRUE(node.expired()) << "the replayed record released it";
    EXPECT_EQ(sink.lines(), Strings{"[short] held"});
}

TEST_F(LoggerSource, DisabledCoreHoldsAndWritesNothing)
{
    auto l = source.get_child_logger("off");
    boost::log::core::get()->set_logging_enabled(false);
    v2::log_str(l, level(0), "held while disabled");
    EXPECT_TRUE(source.get_data()->queue.empty());
    source.start_logging(level(0));
    v2::log_str(l, level(0), "written while disabled");
    boost::log::core::get()->set_logging_enabled(true);
    v2::log_str(l, level(0), "enabled");
    EXPECT_EQ(sink.lines(), Strings{"[off] enabled"});
}

TEST(LoggerSourceIsolation, TwoSourcesNeverSeeEachOthersRecords)
{
    v2::logger_source first, second;
    capture_sink first_sink("first sink"), second_sink("second sink");
    first.add_sink(first_sink.handle);
    second.add_sink(second_sink.handle);
    v2::log_str(first.get_child_logger("same"), level(0), "held by first");
    second.start_logging(level(0));
    v2::log_str(second.get_child_logger("same"), level(0), "from second");
    first.start_logging(level(0));
    v2::log_str(first.get_child_logger("same"), level(0), "from first");
    EXPECT_EQ(first_sink.lines(), (Strings{"[same] held by first", "[same] from first"}));
    EXPECT_EQ(second_sink.lines(), Strings{"[same] from second"});
}

// Several threads log numbered messages while the main thread starts the source mid-stream.
// Each message is written at most once, in per-thread order, its text taken once. The only
// messages not written met the reported overlap (state switched, start-up marker still on the
// tree): they throw the redo_ptr assertion instead.
TEST(LoggerSourceRace, MessagesRacingTheStartAreWrittenExactlyOnce)
{
    constexpr int threads = 3, max_messages = 4000, warm_up = 40, after_start = 40;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int overlaps = 0, rounds = 0;
    for (; rounds < 200 && std::chrono::steady_clock::now() < deadline; ++rounds) {
        v2::logger_source source;
        capture_sink sink;
        source.add_sink(sink.handle);
        std::vector<std::vector<std::atomic<int>>> calls(threads);
        std::vector<std::vector<int>> overlapped(threads);
        std::vector<int> logged(threads);
        std::atomic<int> warmed_up{0};
        std::atomic<bool> started{false};

        auto log_numbered = [&](int t) {
            auto l = source.get_child_logger("t" + std::to_string(t));
            calls[t] = std::vector<std::atomic<int>>(max_messages);
            int k = 0;
            for (int since_start = 0; k < max_messages && since_start < after_start; ++k) {
                warmed_up.fetch_add(k == warm_up);
                since_start += started.load();
                auto const text = std::to_string(k);
                try {
                    l.log(level(0), v2::lazy_text([&] {
                              ++calls[t][k];
                              return text;
                          }));
                } catch (std::invalid_argument const& e) {
                    ASSERT_NE(std::string(e.what()).find("consume_impl Assertion redo_ptr failed."),
                              std::string::npos)
                        << e.what();
                    overlapped[t].push_back(k);
                }
            }
            logged[t] = k;
        };
        std::vector<std::thread> writers;
        for (int t = 0; t < threads; ++t) {
            writers.emplace_back(log_numbered, t);
        }
        while (warmed_up.load() < threads) {
            std::this_thread::yield();
        }
        source.start_logging(level(0));
        started = true;
        for (auto& w : writers) {
            w.join();
        }

        std::vector<std::vector<int>> written(threads);
        for (auto const& line : sink.lines()) {
            int t = 0, k = 0;
            ASSERT_EQ(std::sscanf(line.c_str(), "[t%d] %d", &t, &k), 2) << line;
            written[t].push_back(k);
        }
        for (int t = 0; t < threads; ++t) {
            auto& all = written[t];
            ASSERT_TRUE(std::is_sorted(all.begin(), all.end())) << "per-thread order";
            all.insert(all.end(), overlapped[t].begin(), overlapped[t].end());
            std::sort(all.begin(), all.end());
            ASSERT_EQ(all.size(), std::size_t(logged[t])) << "lost, or both written and reported";
            for (int k = 0; k < logged[t]; ++k) {
                ASSERT_EQ(all[k], k) << "thread " << t;
                ASSERT_EQ(calls[t][k].load(), 1) << "text of " << t << " " << k;
            }
            overlaps += static_cast<int>(overlapped[t].size());
        }
    }
    RecordProperty("rounds", rounds);
    RecordProperty("overlaps", overlaps);
}

// A text function may use the library: look up loggers of its own source and log through any
// logger, its own included, whether the source is holding or running.
TEST(LoggerSourceReentry, TextFunctionsMayLookUpLoggersAndLog)
{
    expect_completes_in_child(30, [] {
        for (bool started : {false, true}) {
            v2::logger_source source;
            capture_sink sink;
            source.add_sink(sink.handle);
            if (started) {
                source.start_logging(level(0));
            }
            auto net = source.get_child_logger("Net");
            net.log(level(1), v2::lazy_text([&] {
                        v2::log_str(source.get_child_logger("Net.Curl"), level(1), "looked up");
                        v2::log_str(net.get_child_logger("Tls"), level(1), "child");
                        v2::log_str(net, level(1), "same logger");
                        return "outer";
                    }));
            if (!started) {
                source.start_logging(level(0));
            }
            EXPECT_EQ(sink.lines(), (Strings{"[Net.Curl] looked up", "[Net.Tls] child",
                                             "[Net] same logger", "[Net] outer"}))
                << (started ? "running" : "held");
        }
    });
}

// A text that logs through another logger of its source, while another thread attaches and
// detaches a sink: the walk of the tree and the held message must not wait for each other.
TEST(LoggerSourceReentry, TextLoggingElsewhereRacesSinkChanges)
{
    expect_completes_in_child(60, [] {
        constexpr int rounds = 2000;
        v2::logger_source source;
        capture_sink sink;
        auto net = source.get_child_logger("Net");
        auto db = source.get_child_logger("Db");
        start_line start(2);
        std::thread writer([&] {
            start.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                net.log(level(0), v2::lazy_text([&] {
                            v2::log_str(db, level(0), "inner");
                            return "outer";
                        }));
            }
        });
        start.arrive_and_wait();
        for (int i = 0; i < rounds; ++i) {
            source.add_sink(sink.handle);
            source.remove_sink(sink.handle);
        }
        writer.join();
        EXPECT_EQ(source.get_data()->queue.size(), std::size_t(2 * rounds));
    });
}

// One thread logs without pause across start_logging, faster than the replay writes (each
// record goes to several sinks). The call returns all the same, and every message is written
// once and in order (or reports the overlap instead).
TEST(LoggerSourceRace, StartReturnsWhileAnotherThreadKeepsLogging)
{
    v2::logger_source source;
    capture_sink sink;
    std::vector<capture_sink> slow_down;
    for (int i = 0; i < 32; ++i) {
        slow_down.emplace_back("extra sink " + std::to_string(i));
        source.add_sink(slow_down.back().handle);
    }
    source.add_sink(sink.handle);
    auto l = source.get_child_logger("busy");
    std::atomic<bool> started{false};
    std::atomic<int> logged{0};
    bool outlasted_guard = false;
    std::vector<int> overlapped;
    std::thread writer([&] {
        auto const guard = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (int k = 0; !started.load(); ++k) {
            if (std::chrono::steady_clock::now() > guard) {
                outlasted_guard = true;
                break;
            }
            try {
                v2::log_str(l, level(0), std::to_string(k));
            } catch (std::invalid_argument const&) {
                overlapped.push_back(k);
            }
            logged.store(k + 1);
        }
    });
    while (logged.load() < 1000) {
        std::this_thread::yield();
    }
    auto const start_began = std::chrono::steady_clock::now();
    source.start_logging(level(0));
    started = true;
    RecordProperty("start_logging_us",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(
                                        std::chrono::steady_clock::now() - start_began)
                                        .count()));
    writer.join();
    EXPECT_FALSE(outlasted_guard) << "start_logging returned only once the writer gave up";

    std::vector<int> written;
    for (auto const& line : sink.lines()) {
        int k = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "[busy] %d", &k), 1) << line;
        written.push_back(k);
    }
    ASSERT_TRUE(std::is_sorted(written.begin(), written.end()));
    written.insert(written.end(), overlapped.begin(), overlapped.end());
    std::sort(written.begin(), written.end());
    ASSERT_EQ(written.size(), std::size_t(logged.load()));
    for (int k = 0; k < logged.load(); ++k) {
        ASSERT_EQ(written[k], k);
    }
}

// What the test sees of a caller's asynchronous sink.
struct async_sink_observations {
    std::atomic<bool> consuming{false};
    Strings lines; // written by the feeding thread, read once the back end is destroyed
    std::promise<void> destroyed;
};

// The back end of a caller's asynchronous sink. It holds its first record until the sink handle
// is named by the test alone, so the records it still holds outlive the source and its loggers.
class holding_backend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
public:
    explicit holding_backend(async_sink_observations& seen)
        : seen_(seen)
    {
    }
    ~holding_backend() { seen_.destroyed.set_value(); }

    void consume(boost::log::record_view const& record)
    {
        seen_.consuming = true;
        while (handle.lock().use_count() > 2) { // the test's and this temporary one
            std::this_thread::yield();
        }
        auto const& values = record.attribute_values();
        seen_.lines.push_back(
            std::string(*boost::log::extract<std::string_view>("Channel", values)) + " " +
            std::string(*boost::log::extract<std::string_view>("ggmessage", values)));
    }

    std::weak_ptr<v2::sink::base> handle;

private:
    async_sink_observations& seen_;
};

// A caller's asynchronous sink still holds records when the source and its loggers are gone;
// its feeding thread never ends up waiting for itself, and the held record keeps its channel.
TEST(LoggerSourceLifetime, AsynchronousSinkHoldingRecordsOutlivesTheSource)
{
    expect_completes_in_child(30, [] {
        async_sink_observations seen;
        auto backend = boost::make_shared<holding_backend>(seen);
        auto handle = std::make_shared<v2::sink::base>(
            boost::log::attribute_name("async sink"),
            boost::make_shared<boost::log::sinks::asynchronous_sink<
                holding_backend,
                boost::log::sinks::bounded_fifo_queue<16, boost::log::sinks::block_on_overflow>>>(
                backend));
        backend->handle = handle;
        backend.reset();
        {
            v2::logger_source source;
            source.add_sink(handle);
            source.start_logging(level(0));
            auto l = source.get_child_logger("async");
            for (auto text : {"first", "second", "third"}) {
                v2::log_str(l, level(0), text);
            }
        }
        while (!seen.consuming) {
            std::this_thread::yield();
        }
        handle.reset();
        ASSERT_EQ(seen.destroyed.get_future().wait_for(std::chrono::seconds(10)),
                  std::future_status::ready)
            << "the asynchronous sink was never destroyed";
        ASSERT_FALSE(seen.lines.empty());
        EXPECT_EQ(seen.lines.front(), "async first");
    });
}

} // namespace
