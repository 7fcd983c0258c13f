// The logger tree: paths, levels and their inheritance, pins, node lifetimes, churn.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
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

void expect_assertion(std::function<void()> const& call, std::string const& tail)
{
    try {
        call();
        ADD_FAILURE() << "no exception, expected " << tail;
    } catch (std::invalid_argument const& e) {
        std::string const text = e.what();
        EXPECT_EQ(text.rfind("VTLog/v2/log:", 0), 0u) << text;
        EXPECT_TRUE(text.size() >= tail.size() &&
                    text.compare(text.size() - tail.size(), tail.size(), tail) == 0)
            << text;
    }
}

TEST(LoggerTree, DottedPathsAreNormalised)
{
    v2::logger_source source;
    auto plain = source.get_child_logger("Network.Curl");
    auto dotted = source.get_child_logger("..Network...Curl.");
    EXPECT_EQ(plain.get_domain(), "Network.Curl");
    EXPECT_EQ(dotted.get_domain(), "Network.Curl");
    auto network = source.get_child_logger("Network");
    EXPECT_EQ(network.get_child_logger(".Curl").get_domain(), "Network.Curl");
    EXPECT_EQ(network.get_child_logger("").get_domain(), "Network");
    EXPECT_EQ(source.get_child_logger("Other.Curl").get_domain(), "Other.Curl");

    // One live node per domain: a level set on one handle is seen through the other.
    source.set_child_log_level("Network.Curl", level(7));
    EXPECT_EQ(dotted.get_log_level(), level(7));
    EXPECT_EQ(source.get_child_logger("Other.Curl").get_log_level(), level(0));
}

TEST(LoggerTree, EmptyPathsFailTheirAssertion)
{
    v2::logger_source source;
    std::string const tail = ":  make_or_get_descendant Assertion !child_name.empty() failed.";
    expect_assertion([&] { source.get_child_logger(""); }, tail);
    expect_assertion([&] { source.get_child_logger("..."); }, tail);
    expect_assertion([&] { source.set_child_log_level("", level(1)); }, tail);
    expect_assertion([&] { source.reset_child_log_level("."); }, tail);
    auto l = source.get_child_logger("a");
    expect_assertion([&] { l.get_child_logger(".."); }, tail);
}

TEST(LoggerTreeDeathTest, NullNodeTerminates)
{
    EXPECT_DEATH(v2::logger(std::shared_ptr<v2::logger::data>()),
                 "VTLog/v2/log:[0-9]+:  logger Assertion d failed.");
}

TEST(LoggerTree, LevelsAreInheritedUntilSetExplicitly)
{
    v2::logger_source source;
    auto early = source.get_child_logger("app.db");
    EXPECT_EQ(early.get_log_level(), level(0)) << "the root starts at 0";

    source.set_child_log_level("app", level(3));
    auto late = source.get_child_logger("app.net.http");
    EXPECT_EQ(early.get_log_level(), level(3));
    EXPECT_EQ(late.get_log_level(), level(3)) << "a new node starts with its parent's level";

    source.set_child_log_level("app.net", level(5));
    source.start_logging(level(1));
    EXPECT_EQ(early.get_log_level(), level(3)) << "an explicit branch shields its subtree";
    EXPECT_EQ(late.get_log_level(), level(5));
    EXPECT_EQ(source.get_child_logger("other").get_log_level(), level(1));

    source.reset_child_log_level("app");
    EXPECT_EQ(early.get_log_level(), level(1));
    EXPECT_EQ(late.get_log_level(), level(5)) << "still under its own explicit node";
    source.set_child_log_level("app.net", level(6));
    source.set_child_log_level("app.net", level(2));
    EXPECT_EQ(late.get_log_level(), level(2));
    EXPECT_EQ(source.get_data()->pinned_children.size(), 1u);
}

TEST(LoggerTree, PinsKeepABranchAliveUntilReset)
{
    v2::logger_source source;
    auto d = source.get_data();
    source.set_child_log_level("pinned.leaf", level(4));
    std::weak_ptr<v2::logger::data> leaf =
        d->root->children.at("pinned").lock()->children.at("leaf");
    EXPECT_FALSE(leaf.expired()) << "no handle names it, the pin holds it";
    EXPECT_EQ(source.get_child_logger("pinned.leaf").get_log_level(), level(4));

    source.reset_child_log_level("pinned.leaf");
    EXPECT_TRUE(leaf.expired());
    EXPECT_TRUE(d->root->children.empty()) << "its ancestors went with it";
    source.start_logging(level(2));
    EXPECT_EQ(source.get_child_logger("pinned.leaf").get_log_level(), level(2))
        << "a fresh node with the inherited level";
}

TEST(LoggerTree, ChildrenAreHeldWeaklyAndRemoveThemselves)
{
    v2::logger_source source;
    auto d = source.get_data();
    {
        auto leaf = source.get_child_logger("a.b.c");
        auto parent = source.get_child_logger("a.b");
        EXPECT_EQ(d->root->children.count("a"), 1u);
    }
    EXPECT_TRUE(d->root->children.empty());
}

// Threads create and drop loggers on overlapping paths while others attach and detach sinks and
// change levels. Afterwards every live node carries exactly the root's markers.
TEST(LoggerTreeRace, ChurnKeepsTheMarkerInvariant)
{
    v2::logger_source source;
    capture_sink sinks[] = {capture_sink("churn a"), capture_sink("churn b"),
                            capture_sink("churn c")};
    std::vector<v2::logger> kept;
    constexpr int rounds = 300;
    start_line sync(4);

    std::thread makers[] = {
        std::thread([&] {
            sync.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                auto l = source.get_child_logger("x.y" + std::to_string(i % 7) + ".z");
                v2::log_str(l, level(1), "churn");
            }
        }),
        std::thread([&] {
            sync.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                auto l = source.get_child_logger("x.y" + std::to_string(i % 5));
                if (i % 50 == 0) {
                    kept.push_back(l);
                }
                l.get_child_logger("w").get_child_logger("v");
            }
        }),
        std::thread([&] {
            sync.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                auto& s = sinks[i % 3];
                if (i % 2 == 0) {
                    source.add_sink(s.handle);
                } else {
                    source.remove_sink(sinks[(i + 1) % 3].handle);
                }
            }
        }),
        std::thread([&] {
            sync.arrive_and_wait();
            for (int i = 0; i < rounds; ++i) {
                if (i % 3 == 0) {
                    source.reset_child_log_level("x.y" + std::to_string(i % 4));
                } else {
                    source.set_child_log_level("x.y" + std::to_string(i % 4), level(i % 6));
                }
            }
        }),
    };
    for (auto& t : makers) {
        t.join();
    }

    auto d = source.get_data();
    auto names_of = [](v2::logger::data const& node) {
        std::set<std::string> names;
        for (auto const& marker : node.sink_attributes) {
            names.insert(marker.first.string());
        }
        return names;
    };
    std::set<std::string> const expected = names_of(*d->root);
    int visited = 0;
    d->root->apply_to_subtree([&](v2::logger::data& node) {
        ++visited;
        EXPECT_EQ(names_of(node), expected) << "node '" << node.domain << "'";
        auto const attributes = node.source_logger.get_attributes();
        for (auto const& name : expected) {
            EXPECT_EQ(attributes.count(boost::log::attribute_name(name)), 1u);
        }
        return true;
    });
    EXPECT_GT(visited, 1);
}

} // namespace
