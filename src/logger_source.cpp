// A logger source's lifecycle: lazy creation, start-up with the replay of held records, finish.
#include "logger_source.hpp"

#include "assert.hpp"
#include "logger_tree.hpp"
#include "message_path.hpp"
#include "record_attributes.hpp"
#include "record_names.hpp"

#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>

#include <limits>

namespace VT::Logging::v2 {
namespace {

// What every source of the process shares: Boost's common attributes, the time and thread-name
// attributes, and the sink that holds records of enqueueing sources.
void set_up_process_once()
{
    static bool const done = [] {
        boost::log::add_common_attributes();
        impl::add_record_attributes(*boost::log::core::get());
        boost::log::core::get()->add_sink(impl::queueing_sink_instance());
        return true;
    }();
    (void)done;
}

} // namespace

logger_source::data::data()
    : core(boost::log::core::get())
{
}

logger_source::data::~data() = default;

void logger_source::data::make_root()
{
    VT_ASSERT(!root);
    root = std::make_shared<logger::data>(shared_from_this());
    set_up_process_once();
    add_sink(impl::record_names::get().enqueueing_sink);
}

std::shared_ptr<logger_source::data> logger_source::get_data()
{
    std::shared_ptr<data> ptr = std::atomic_load(&data_);
    if (ptr) {
        return ptr;
    }
    auto candidate = std::make_shared<data>();
    candidate->make_root();
    if (std::atomic_compare_exchange_strong(&data_, &ptr, candidate)) {
        return candidate;
    }
    // Another thread installed its data first. Finishing the unused candidate breaks the cycle
    // between it and its root, so it is freed.
    candidate->finish();
    VT_ASSERT(ptr);
    return ptr;
}

logger_source::~logger_source()
{
    if (auto d = std::atomic_load(&data_)) {
        d->finish();
    }
}

void logger_source::start_logging(log_level level)
{
    auto d = get_data();
    d->root->set_level(level, false);
    d->run();
}

void logger_source::data::run()
{
    std::unique_lock<std::mutex> lock(mutex);
    state const c = current.load();
    VT_ASSERT(c == state::enqueueing);

    boost::log::attribute_value const marker(
        new boost::log::attributes::attribute_value_impl<sink::is_sink>(sink::is_sink{}));

    // Batches are replayed without the mutex while the backlog halves from one batch to the
    // next, so loggers on other threads keep going: what they log meanwhile lands in the fresh
    // queue. Once a batch is more than half the one before (others log about as fast as the
    // sinks write), it is replayed with the mutex held, and new messages wait in the queueing
    // sink until the switch to running. So the call replays at most twice what was held when it
    // began, plus what was logged during its last unlocked batch.
    auto const& names = impl::record_names::get();
    auto previous_batch = std::numeric_limits<std::size_t>::max();
    while (!queue.empty()) {
        std::vector<held_record> batch;
        batch.swap(queue);
        bool const catching_up = batch.size() <= previous_batch / 2;
        previous_batch = batch.size();
        if (catching_up) {
            lock.unlock();
        }
        // `node_owner` keeps the node alive until the batch is released, after its record.
        for (auto& [node_owner, values] : batch) {
            auto const logger_data_ptr_ptr =
                boost::log::extract<logger::data*>(names.logger_data_ptr, values);
            VT_ASSERT(logger_data_ptr_ptr);
            VT_ASSERT(*logger_data_ptr_ptr);
            auto const level_ptr = boost::log::extract<log_level>(names.severity, values);
            VT_ASSERT(level_ptr);
            logger::data& node = **logger_data_ptr_ptr;
            if (*level_ptr < node.level.load(std::memory_order_relaxed)) {
                continue;
            }
            {
                std::lock_guard<std::mutex> node_lock(node.mutex);
                for (auto const& sink_marker : node.sink_attributes) {
                    if (sink_marker.first != names.enqueueing_sink) {
                        values.insert(sink_marker.first, marker);
                    }
                }
            }
            if (auto record = core->open_record(std::move(values))) {
                core->push_record(std::move(record));
            }
        }
        batch = {};
        if (catching_up) {
            lock.lock();
            VT_ASSERT(current.load() == state::enqueueing);
        }
    }
    current.exchange(state::running);
    remove_sink(names.enqueueing_sink);
}

void logger_source::data::finish()
{
    std::lock_guard<std::mutex> lock(mutex);
    state const c = current.load();
    VT_ASSERT(c != state::finished);
    current.exchange(state::finished);
    remove_all_sinks();
    pinned_children.clear();
    queue.clear();
    root.reset();
}

} // namespace VT::Logging::v2
