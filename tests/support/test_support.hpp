// Shared test helpers: a sink that keeps what it receives, and a text source that counts calls.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vtlog_test {

namespace v2 = VT::Logging::v2;

struct captured_record {
    std::string channel; // empty when the record has no "Channel"
    std::string message;
    bool operator==(captured_record const& other) const
    {
        return channel == other.channel && message == other.message;
    }
};

// A Boost.Log back end that keeps every record's channel and message.
class capture_backend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
public:
    void consume(boost::log::record_view const& record)
    {
        auto const& values = record.attribute_values();
        captured_record captured;
        if (auto channel = boost::log::extract<std::string_view>("Channel", values)) {
            captured.channel = std::string(*channel);
        }
        if (auto message = boost::log::extract<std::string_view>("ggmessage", values)) {
            captured.message = std::string(*message);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        records_.push_back(std::move(captured));
    }

    std::vector<captured_record> records() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return records_;
    }

    std::vector<std::string> messages() const
    {
        std::vector<std::string> texts;
        for (auto const& r : records()) {
            texts.push_back(r.message);
        }
        return texts;
    }

private:
    mutable std::mutex mutex_;
    std::vector<captured_record> records_;
};

// A library sink handle over a capturing back end, routed by `name`.
struct capture_sink {
    explicit capture_sink(std::string const& name = "test sink")
        : backend(boost::make_shared<capture_backend>())
        , handle(std::make_shared<v2::sink::base>(
              boost::log::attribute_name(name),
              boost::make_shared<boost::log::sinks::synchronous_sink<capture_backend>>(backend)))
    {
    }

    boost::shared_ptr<capture_backend> backend;
    std::shared_ptr<v2::sink::base> handle;
};

// Releases a fixed number of threads at once (a one-shot barrier, C++17 has none).
class start_line {
public:
    explicit start_line(int threads)
        : waiting_(threads)
    {
    }
    void arrive_and_wait()
    {
        waiting_.fetch_sub(1);
        while (waiting_.load() > 0) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<int> waiting_;
};

// A message text that counts how often the library asked for it.
class counting_text : public v2::log_function_ref {
public:
    explicit counting_text(std::string text)
        : text_(std::move(text))
    {
    }
    std::string_view get_str() const override
    {
        calls_.fetch_add(1, std::memory_order_relaxed);
        return text_;
    }
    int calls() const { return calls_.load(std::memory_order_relaxed); }

private:
    std::string text_;
    mutable std::atomic<int> calls_{0};
};

} // namespace vtlog_test
