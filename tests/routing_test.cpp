// Routing: sink handles, markers on the tree, and which records reach which sink.
#include "test_support.hpp"

#include "logger_source.hpp"
#include "logger_tree.hpp"

#include <gtest/gtest.h>

#include <boost/log/sources/logger.hpp>
#include <boost/log/sources/record_ostream.hpp>

#include <optional>

namespace {

using namespace vtlog_test;
using v2::log_level;

constexpr log_level info = log_level::info;

TEST(SinkHandle, EmptySinkHasNoWrapperAndUnwrapsToNothing)
{
    auto empty = std::make_shared<v2::sink::base>(boost::log::attribute_name("nothing"),
                                                  boost::shared_ptr<boost::log::sinks::sink>());
    EXPECT_FALSE(empty->wrapper);
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(empty));
    EXPECT_FALSE(v2::sink::detail::get_unwrapped_sink(nullptr));

    capture_sink sink;
    auto inner = v2::sink::detail::get_unwrapped_sink(sink.handle);
    ASSERT_TRUE(inner);
    EXPECT_NE(inner, sink.handle->wrapper);
    EXPECT_TRUE(dynamic_cast<boost::log::sinks::synchronous_sink<capture_backend>*>(inner.get()));
}

TEST(Routing, AttachingTwiceOrDetachingAStrangerReportsIt)
{
    v2::logger_source source;
    capture_sink sink, stranger("stranger");
    EXPECT_TRUE(source.add_sink(sink.handle));
    EXPECT_FALSE(source.add_sink(sink.handle));
    EXPECT_FALSE(source.remove_sink(stranger.handle));
    EXPECT_TRUE(source.remove_sink(sink.handle));
    EXPECT_FALSE(source.remove_sink(sink.handle));
}

TEST(Routing, LoggersFeedTheSinksAttachedWhileTheyLog)
{
    v2::logger_source source;
    source.start_logging(info);
    capture_sink sink;
    auto before = source.get_child_logger("before");
    source.add_sink(sink.handle);
    auto after_add = source.get_child_logger("after.add");
    v2::log_str(before, info, "1");
    v2::log_str(after_add, info, "2");
    source.remove_sink(sink.handle);
    auto after_remove = source.get_child_logger("after.remove");
    v2::log_str(after_remove, info, "3");
    v2::log_str(before, info, "4");
    EXPECT_EQ(sink.backend->records(),
              (std::vector<captured_record>{{"before", "1"}, {"after.add", "2"}}));
}

TEST(Routing, HandlesSharingANameShareOneMarker)
{
    v2::logger_source source;
    source.start_logging(info);
    capture_sink first("shared name"), second("shared name");
    source.add_sink(first.handle);
    source.add_sink(second.handle);
    auto l = source.get_child_logger("l");
    v2::log_str(l, info, "both");
    source.remove_sink(first.handle);
    v2::log_str(l, info, "neither");
    EXPECT_EQ(first.backend->messages(), std::vector<std::string>{"both"});
    EXPECT_EQ(second.backend->messages(), std::vector<std::string>{"both"});
    EXPECT_EQ(source.get_data()->sinks.size(), 1u) << "the second stays attached, unfed";
}

TEST(Routing, DroppedHandleNoLongerReceives)
{
    v2::logger_source source;
    source.start_logging(info);
    capture_sink dropped("shared name"), attached("shared name");
    source.add_sink(attached.handle);
    auto l = source.get_child_logger("l");
    dropped.handle.reset(); // its marker is still on the tree, through `attached`
    v2::log_str(l, info, "only the attached one");
    EXPECT_TRUE(dropped.backend->records().empty());
    EXPECT_EQ(attached.backend->messages(), std::vector<std::string>{"only the attached one"});
}

TEST(Routing, FinishedSourceFeedsNoSinkThoughItKeepsThem)
{
    capture_sink sink;
    std::optional<v2::logger> survivor;
    std::shared_ptr<v2::logger_source::data> d;
    {
        v2::logger_source source;
        source.add_sink(sink.handle);
        source.start_logging(info);
        survivor = source.get_child_logger("s");
        d = source.get_data();
    }
    EXPECT_EQ(d->sinks.count(sink.handle), 1u);
    EXPECT_FALSE(d->root);
    v2::log_str(*survivor, info, "after finish");
    EXPECT_TRUE(sink.backend->records().empty());
}

TEST(Routing, RecordsFromOutsideAnySourceAreRejected)
{
    v2::logger_source source;
    source.start_logging(info);
    capture_sink sink;
    source.add_sink(sink.handle);
    boost::log::sources::logger plain;
    BOOST_LOG(plain) << "not ours";
    EXPECT_TRUE(sink.backend->records().empty());
}

} // namespace
