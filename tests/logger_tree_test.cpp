// The logger tree: paths, levels and their inheritance, pins, node lifetimes, churn.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <boost/algorithm/string/join.hpp>
#include <boost/thread/thread.hpp>

#include <set>

namespace {

using namespace vtlog_test;

// A dotted path names one node per domain, whatever its extra dots; one of dots only is refused.
// A set level shields its subtree and pins its node until it is reset.
TEST(LoggerTree, DottedPathsNameNodesWhoseLevelsAreInheritedUntilSetAndPinnedUntilReset)
{
    v2::logger_source source;
    auto early = source.get_child_logger("..app...db.");
    EXPECT_EQ(early.get_domain().data(), source.get_child_logger("app.db").get_domain().data());
    EXPECT_EQ(early.get_log_level(), level(0)) << "the root starts at 0";
    source.set_child_log_level("app", level(3));
    auto const app = source.get_child_logger("app");
    auto late = app.get_child_logger(".net.http");
    EXPECT_EQ(late.get_domain(), "app.net.http");
    EXPECT_EQ(app.get_child_logger("").get_domain().data(), app.get_domain().data());
    EXPECT_EQ(early.get_log_level(), level(3));
    EXPECT_EQ(late.get_log_level(), level(3)) << "a new node starts with its parent's level";
    EXPECT_EQ(source.get_child_logger("other.db").get_log_level(), level(0)) << "another node";

    source.set_child_log_level("app.net", level(5));
    source.start_logging(level(1));
    EXPECT_EQ(early.get_log_level(), level(3)) << "an explicit branch shields its subtree";
    EXPECT_EQ(late.get_log_level(), level(5));
    source.reset_child_log_level("app");
    EXPECT_EQ(early.get_log_level(), level(1)) << "follows its parent again";
    EXPECT_EQ(late.get_log_level(), level(5));
    source.set_child_log_level("app.net", level(2));
    EXPECT_EQ(late.get_log_level(), level(2));
    EXPECT_EQ(source.get_data()->pinned_children.size(), 1u) << "one pin per domain";

    source.set_child_log_level("pinned.leaf", level(4));
    auto const& children = source.get_data()->root->children;
    std::weak_ptr<v2::logger::data> leaf = children.at("pinned").lock()->children.at("leaf");
    EXPECT_FALSE(leaf.expired()) << "no handle names it, the pin holds it";
    source.reset_child_log_level("pinned.leaf");
    EXPECT_TRUE(leaf.expired());
    EXPECT_EQ(children.count("pinned"), 0u) << "its ancestors went with it";
    EXPECT_EQ(source.get_child_logger("pinned.leaf").get_log_level(), level(1))
        << "a fresh node with the inherited level";
    EXPECT_EQ(children.count("pinned"), 0u) << "the handle was the node's last holder";

    for (auto const& refused : std::initializer_list<std::function<void()>>{
             [&] { source.get_child_logger(""); }, [&] { source.get_child_logger("..."); },
             [&] { source.set_child_log_level("", level(1)); },
             [&] { source.reset_child_log_level("."); },
             [&] {
                 app.get_child_logger("..");
             }}) {
        expect_assertion(refused, "VTLog/v2/log",
                         "make_or_get_descendant Assertion !child_name.empty()");
    }
}

TEST(LoggerTreeDeathTest, NullNodeTerminates)
{
    EXPECT_DEATH(v2::logger(std::shared_ptr<v2::logger::data>()),
                 "VTLog/v2/log:[0-9]+:  logger Assertion d failed.");
}

// Paths are walked without recursion: one past the limit is refused cleanly on a secondary
// thread's small stack (512 KiB on macOS), and a tree as deep as the limit takes every walk.
TEST(LoggerTreeDeathTest, DeepPathsAreRefusedCleanlyOnASmallStack)
{
    expect_completes_in_child(60, [] {
        boost::thread::attributes small_stack;
        small_stack.set_stack_size(512 * 1024);
        boost::thread worker(small_stack, [] {
            auto const path = [](std::size_t components) {
                return boost::algorithm::join(Strings(components, "c"), ".");
            };
            v2::logger_source source;
            capture_sink sink;
            auto const deepest = source.get_child_logger(path(v2::max_domain_depth));
            auto const too_deep = path(3000);
            for (auto const& [call, components] :
                 std::initializer_list<std::pair<std::function<void()>, std::size_t>>{
                     {[&] { source.get_child_logger(too_deep); }, 3000},
                     {[&] { source.set_child_log_level(too_deep, level(1)); }, 3000},
                     {[&] { source.reset_child_log_level(too_deep); }, 3000},
                     {[&] { source.get_child_logger("c").get_child_logger(path(2999)); }, 3000},
                     {[&] { deepest.get_child_logger("one.more"); }, v2::max_domain_depth + 2}}) {
                EXPECT_EQ(thrown_text<std::invalid_argument>(call),
                          "the domain would have " + std::to_string(components) +
                              " components, more than max_domain_depth (32)");
            }
            EXPECT_EQ(source.get_data()->pinned_children.size(), 0u) << "nothing was pinned";
            source.set_child_log_level("c", level(3));
            source.add_sink(sink.handle);
            source.start_logging(level(1));
            EXPECT_EQ(deepest.get_log_level(), level(3));
            source.reset_child_log_level("c");
            EXPECT_EQ(deepest.get_log_level(), level(1));
        });
        worker.join();
    });
}

// Threads make and drop loggers on overlapping paths while others change sinks and levels; then
// every live node carries exactly the root's markers.
TEST(LoggerTreeRace, ChurnKeepsTheMarkerInvariant)
{
    v2::logger_source source;
    capture_sink sinks[] = {capture_sink("a"), capture_sink("b"), capture_sink("c")};
    std::vector<v2::logger> kept;
    start_line start{4};
    auto churn = [&](auto step) {
        return std::thread([&, step] {
            start.arrive_and_wait();
            for (int i = 0; i < 300; ++i) {
                step(i);
            }
        });
    };
    std::thread threads[] = {
        churn([&](int i) {
            v2::log_str(source.get_child_logger("x.y" + std::to_string(i % 7) + ".z"), level(1),
                        "churn");
        }),
        churn([&](int i) {
            auto l = source.get_child_logger("x.y" + std::to_string(i % 5));
            if (i % 50 == 0) {
                kept.push_back(l);
            }
            l.get_child_logger("w.v");
        }),
        churn([&](int i) {
            i % 2 == 0 ? source.add_sink(sinks[i % 3].handle)
                       : source.remove_sink(sinks[(i + 1) % 3].handle);
        }),
        churn([&](int i) {
            auto const path = "x.y" + std::to_string(i % 4);
            i % 3 == 0 ? source.reset_child_log_level(path)
                       : source.set_child_log_level(path, level(i % 6));
        }),
    };
    for (auto& t : threads) {
        t.join();
    }

    auto const markers_of = [](v2::logger::data& node) {
        std::set<std::string> names;
        for (auto const& marker : node.sink_attributes) {
            names.insert(marker.first.string());
            EXPECT_EQ(node.source_logger.get_attributes().count(marker.first), 1u);
        }
        return names;
    };
    auto const root = source.get_data()->root;
    auto const expected = markers_of(*root);
    int visited = 0;
    root->apply_to_subtree([&](v2::logger::data& node) {
        ++visited;
        EXPECT_EQ(markers_of(node), expected) << "node '" << node.domain << "'";
        return true;
    });
    EXPECT_GT(visited, 1);
}

} // namespace
