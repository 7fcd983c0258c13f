// Helpers shared by the tests: capturing sinks and streams, a start line for racing threads,
// thrown texts, a bounded child process, and a temporary directory with its files.
#pragma once

#include "VTLog/v2/record.hpp"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace vtlog_test {

namespace v2 = VT::Logging::v2;
namespace fs = boost::filesystem;
using Strings = std::vector<std::string>;

inline auto const level = [](int value) {
    return static_cast<v2::log_level>(value);
};

// Keeps every record as "[channel] message", or the message alone when it has no channel.
struct capture_backend
    : boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
    void consume(boost::log::record_view const& record)
    {
        auto const channel = record[v2::record::channel];
        lines.push_back((channel ? "[" + std::string(channel.get()) + "] " : "") +
                        std::string(record[v2::record::message].get()));
    }
    Strings lines;
};

// A library sink handle over a capturing back end, routed by `name`.
struct capture_sink {
    using frontend_type = boost::log::sinks::synchronous_sink<capture_backend>;
    explicit capture_sink(std::string const& name = "test sink")
        : handle(std::make_shared<v2::sink::base>(boost::log::attribute_name(name), frontend))
    {
    }
    Strings lines() const { return frontend->locked_backend()->lines; } // while others log

    boost::shared_ptr<frontend_type> frontend = boost::make_shared<frontend_type>();
    std::shared_ptr<v2::sink::base> handle;
};

inline boost::log::attributes::constant<v2::sink::is_sink> const marker(v2::sink::is_sink{});

// Pushes a record as a caller's own Boost.Log logger would: the message `text`, the markers named
// and, if given, a channel.
inline void log_as_caller(std::string_view text,
                          std::initializer_list<boost::log::attribute_name> markers,
                          std::optional<std::string_view> channel = {})
{
    using text_value = boost::log::attributes::constant<std::string_view>;
    boost::log::attribute_set attributes;
    attributes.insert(v2::record::message.get_name(), text_value(text));
    if (channel) {
        attributes.insert(v2::record::channel.get_name(), text_value(*channel));
    }
    for (auto const& name : markers) {
        attributes.insert(name, marker);
    }
    if (auto record = boost::log::core::get()->open_record(attributes)) {
        boost::log::core::get()->push_record(std::move(record));
    }
}

// Takes over the output of `stream` until destroyed, counting its flushes.
template <std::ostream& stream>
struct stream_capture : std::stringbuf {
    ~stream_capture() override { stream.rdbuf(original); }
    int sync() override { return ++flushes, 0; }
    std::streambuf* const original = stream.rdbuf(this);
    int flushes = 0;
};

// Releases `waiting` threads at once (a one-shot barrier, C++17 has none).
struct start_line {
    void arrive_and_wait()
    {
        for (--waiting; waiting > 0;) {
            std::this_thread::yield();
        }
    }
    std::atomic<int> waiting;
};

// The what() of the `E` that `call` throws, or "no exception".
template <class E, class F>
std::string thrown_text(F const& call)
{
    try {
        call();
    } catch (E const& e) {
        return e.what();
    }
    return "no exception";
}

// `call` throws std::invalid_argument with "<module>:<line>:  <function> Assertion <...> failed.".
inline void expect_assertion(std::function<void()> const& call, std::string const& module,
                             std::string const& function_and_expression)
{
    std::string const text = thrown_text<std::invalid_argument>(call);
    std::string const tail = ":  " + function_and_expression + " failed.";
    auto const head = text.size() > tail.size() ? text.size() - tail.size() : 0;
    EXPECT_TRUE(text.substr(head) == tail &&
                std::regex_match(text.substr(0, head), std::regex(module + ":[0-9]+")))
        << text << ", expected " << function_and_expression;
}

// Runs `body` in a child that must exit within `seconds` with no failed expectation: a hang
// (ended by SIGALRM), a crash or a failure fails the test. No static destructor runs there.
template <class F>
void expect_completes_in_child(unsigned seconds, F const& body)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(seconds);
            body();
            std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

// A fresh directory, removed with all it holds when the test ends.
struct temp_dir {
    fs::path const root = fs::temp_directory_path() / fs::unique_path("vtlog-%%%%-%%%%-%%%%");
    temp_dir() { fs::create_directories(root); }
    ~temp_dir() { fs::remove_all(root, ignored); }
    boost::system::error_code ignored;
};

// The files of `dir` in name order, which is counter order for the log file names of the tests.
inline std::vector<fs::path> files_in(fs::path const& dir)
{
    std::vector<fs::path> files(fs::directory_iterator{dir}, fs::directory_iterator{});
    std::sort(files.begin(), files.end());
    return files;
}

// The text of the file, or of the directory's files in order, less what `cut` matches: by
// default the fields before the message of each log file line.
inline std::string text_in(fs::path const& where,
                           std::string const& cut = "[^\t\n]*\t[^\t\n]*\t[^\t\n]*\t")
{
    std::string text;
    for (auto const& file : fs::is_directory(where) ? files_in(where) : std::vector{where}) {
        std::ifstream in(file.string(), std::ios::binary);
        text.append(std::istreambuf_iterator<char>(in), {});
    }
    return std::regex_replace(text, std::regex(cut), "");
}

} // namespace vtlog_test
