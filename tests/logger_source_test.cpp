// Lifecycle of a logger source and the path of a message through it.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <gtest/gtest.h>

#include <boost/log/core/core.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace vtlog_test;
using v2::log_level;

log_level level(int value)
{
    return static_cast<log_level>(value);
}

TEST(LoggerSource, ConcurrentFirstUseCreatesOneData)
{
    for (int round = 0; round < 50; ++round) {
        v2::logger_source source;
        std::shared_ptr<v2::logger_source::data> seen[2];
        std::atomic<int> ready{0};
        auto take = [&](int i) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
                std::this_thread::yield();
            }
            seen[i] = source.get_data();
        };
        std::thread other(take, 0);
        take(1);
        other.join();
        ASSERT_EQ(seen[0], seen[1]);
        ASSERT_TRUE(seen[0]->root);
        EXPECT_EQ(seen[0]->root->source, seen[0]);
    }
}

TEST(LoggerSource, HeldMessagesAreReplayedInOrderThroughTheLevelFilter)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    auto net = source.get_child_logger("net");
    auto db = source.get_child_logger("db");

    counting_text low("too quiet");
    v2::log_str(net, level(3), "first");
    net.log(level(1), low);
    v2::log_str(db, level(5), "second");
    v2::log_str(net, level(3), "third");
    EXPECT_EQ(low.calls(), 1) << "text is taken when held, whatever the level";
    EXPECT_TRUE(sink.backend->records().empty()) << "nothing is written before the start";

    source.start_logging(level(3));
    v2::log_str(db, level(3), "after");

    std::vector<captured_record> const expected{
        {"net", "first"}, {"db", "second"}, {"net", "third"}, {"db", "after"}};
    EXPECT_EQ(sink.backend->records(), expected);
    EXPECT_EQ(low.calls(), 1);
}

TEST(LoggerSource, ReplayUsesTheLevelAsItStandsAtTheStart)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    auto quiet = source.get_child_logger("quiet");
    v2::log_str(quiet, level(2), "held");
    source.set_child_log_level("quiet", level(4));
    source.start_logging(level(0));
    EXPECT_TRUE(sink.backend->records().empty());
}

TEST(LoggerSource, RunningSourceFiltersWithoutAskingForText)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    source.start_logging(level(2));
    auto l = source.get_child_logger("a.b");

    counting_text below("below"), at("at");
    l.log(level(1), below);
    l.log(level(2), at);
    EXPECT_EQ(below.calls(), 0);
    EXPECT_EQ(at.calls(), 1);
    EXPECT_EQ(sink.backend->records(), (std::vector<captured_record>{{"a.b", "at"}}));
}

TEST(LoggerSource, BlankTextsAreNotLoggedAndTextsAreTrimmed)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    auto l = source.get_child_logger("x");
    v2::log_str(l, level(0), " \t\n ");
    v2::log_str(l, level(0), std::string_view("\0\0", 2));
    v2::log_str(l, level(0), "");
    v2::log_str(l, level(0), "\n  two\twords \n inside\n\t ");
    source.start_logging(level(0));
    v2::log_str(l, level(0), "   \t");
    v2::log_str(l, level(0), std::string_view("\0 late \0", 8));
    EXPECT_EQ(sink.backend->messages(), (std::vector<std::string>{"two\twords \n inside", "late"}));
}

TEST(LoggerSource, SecondStartChangesTheRootLevelThenThrows)
{
    v2::logger_source source;
    auto l = source.get_child_logger("a");
    source.start_logging(level(1));
    try {
        source.start_logging(level(4));
        FAIL() << "no exception";
    } catch (std::invalid_argument const& e) {
        EXPECT_TRUE(std::string(e.what()).find(":  run Assertion c == state::enqueueing failed.") !=
                    std::string::npos)
            << e.what();
        EXPECT_EQ(std::string(e.what()).rfind("VTLog/v2/log:", 0), 0u);
    }
    EXPECT_EQ(l.get_log_level(), level(4));
}

TEST(LoggerSource, DestroyingAnUnstartedSourceDiscardsWhatItHeld)
{
    capture_sink sink;
    std::optional<v2::logger> survivor;
    {
        v2::logger_source source;
        source.add_sink(sink.handle);
        survivor = source.get_child_logger("left.behind");
        v2::log_str(*survivor, level(5), "never written");
    }
    counting_text after("after the end");
    survivor->log(level(5), after);
    EXPECT_EQ(after.calls(), 0);
    EXPECT_EQ(survivor->get_domain(), "left.behind");
    EXPECT_EQ(survivor->get_log_level(), level(0));
    EXPECT_TRUE(sink.backend->records().empty());
}

TEST(LoggerSource, LoggerOutlivingARunningSourceWritesNothing)
{
    capture_sink sink;
    std::optional<v2::logger> survivor;
    {
        v2::logger_source source;
        source.add_sink(sink.handle);
        source.start_logging(level(0));
        survivor = source.get_child_logger("svc");
        v2::log_str(*survivor, level(0), "while running");
    }
    counting_text after("after");
    survivor->log(level(9), after);
    EXPECT_EQ(after.calls(), 0);
    EXPECT_EQ(sink.backend->messages(), std::vector<std::string>{"while running"});
}

TEST(LoggerSource, HeldRecordKeepsItsNodeAliveAndIsWrittenWithItsChannel)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    std::weak_ptr<v2::logger::data> node;
    {
        auto l = source.get_child_logger("short.lived");
        auto parent = source.get_data()->root->children.at("short").lock();
        node = parent->children.at("lived");
        v2::log_str(l, level(0), "held");
    }
    EXPECT_FALSE(node.expired()) << "the queued record holds the node";
    source.start_logging(level(0));
    EXPECT_TRUE(node.expired()) << "the replayed record released it";
    EXPECT_EQ(sink.backend->records(), (std::vector<captured_record>{{"short.lived", "held"}}));
}

TEST(LoggerSource, DisabledCoreHoldsAndWritesNothing)
{
    v2::logger_source source;
    capture_sink sink;
    source.add_sink(sink.handle);
    auto l = source.get_child_logger("off");
    boost::log::core::get()->set_logging_enabled(false);
    v2::log_str(l, level(0), "held while disabled");
    EXPECT_TRUE(source.get_data()->queue.empty());
    source.start_logging(level(0));
    v2::log_str(l, level(0), "written while disabled");
    boost::log::core::get()->set_logging_enabled(true);
    v2::log_str(l, level(0), "enabled");
    EXPECT_EQ(sink.backend->messages(), std::vector<std::string>{"enabled"});
}

TEST(LoggerSource, TwoSourcesNeverSeeEachOthersRecords)
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

    EXPECT_EQ(first_sink.backend->messages(),
              (std::vector<std::string>{"held by first", "from first"}));
    EXPECT_EQ(second_sink.backend->messages(), std::vector<std::string>{"from second"});
}

// Several threads log numbered messages while another thread starts the source. Every message
// is written at most once, in per-thread order, and its text is taken once. The only messages
// not written are those that met the reported overlap (the start switched the state, and the
// start-up marker had not yet left the tree): they throw the redo_ptr assertion instead.
class numbered_text : public v2::log_function_ref {
public:
    numbered_text(int thread, int number, std::atomic<int>& calls)
        : text_("t" + std::to_string(thread) + " " + std::to_string(number))
        , calls_(calls)
    {
    }
    std::string_view get_str() const override
    {
        calls_.fetch_add(1, std::memory_order_relaxed);
        return text_;
    }

private:
    std::string text_;
    std::atomic<int>& calls_;
};

TEST(LoggerSourceRace, MessagesRacingTheStartAreWrittenExactlyOnce)
{
    constexpr int threads = 3;
    constexpr int max_messages = 4000;
    constexpr int before_start = 40;
    constexpr int after_start = 40;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int overlaps_seen = 0;
    int rounds = 0;

    for (; rounds < 200 && std::chrono::steady_clock::now() < deadline; ++rounds) {
        v2::logger_source source;
        capture_sink sink;
        source.add_sink(sink.handle);
        std::vector<std::vector<std::atomic<int>>> calls(threads);
        std::vector<std::vector<int>> overlapped(threads);
        std::vector<int> logged(threads, 0);
        std::atomic<int> warmed_up{0};
        std::atomic<bool> started{false};

        auto log_numbered = [&](int t) {
            auto l = source.get_child_logger("race.t" + std::to_string(t));
            calls[t] = std::vector<std::atomic<int>>(max_messages);
            int since_start = 0;
            int k = 0;
            for (; k < max_messages && since_start < after_start; ++k) {
                if (k == before_start) {
                    warmed_up.fetch_add(1);
                }
                if (started.load()) {
                    ++since_start;
                }
                try {
                    l.log(level(0), numbered_text(t, k, calls[t][k]));
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
        for (auto const& r : sink.backend->records()) {
            int t = 0, k = 0;
            ASSERT_EQ(std::sscanf(r.message.c_str(), "t%d %d", &t, &k), 2) << r.message;
            ASSERT_EQ(r.channel, "race.t" + std::to_string(t));
            written[t].push_back(k);
        }
        for (int t = 0; t < threads; ++t) {
            ASSERT_TRUE(std::is_sorted(written[t].begin(), written[t].end()));
            ASSERT_EQ(std::adjacent_find(written[t].begin(), written[t].end()), written[t].end())
                << "a message was written twice";
            std::vector<int> all = written[t];
            all.insert(all.end(), overlapped[t].begin(), overlapped[t].end());
            std::sort(all.begin(), all.end());
            ASSERT_EQ(all.size(), static_cast<std::size_t>(logged[t]))
                << "thread " << t << " lost messages, or one was both written and reported";
            for (int k = 0; k < logged[t]; ++k) {
                ASSERT_EQ(all[k], k);
                ASSERT_EQ(calls[t][k].load(), 1) << "text of t" << t << " " << k;
            }
            overlaps_seen += static_cast<int>(overlapped[t].size());
        }
    }
    RecordProperty("rounds", rounds);
    RecordProperty("overlaps", overlaps_seen);
}

} // namespace
