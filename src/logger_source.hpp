// A logger source's shared state: its tree, its state machine, its early queue and its sinks.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_value_set.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace VT::Logging::v2 {

struct logger_source::data : std::enable_shared_from_this<logger_source::data> {
    enum class state : std::int32_t {
        enqueueing = 0, // records are captured into `queue`
        running = 1,    // records go to the core, filtered by level when logged
        finished = 2,   // messages are dropped unformatted
    };

    // A record held until the source starts. It owns its node, and with it the node's domain
    // and this source; the values themselves own no object of the library, so a record that a
    // sink writes later on a thread of its own keeps nothing of the library alive.
    struct held_record {
        std::shared_ptr<v2::logger::data> node;
        boost::log::attribute_value_set values;
    };

    data();
    ~data();
    data(data const&) = delete;
    data& operator=(data const&) = delete;

    // Creates the root, the process-wide Boost.Log set-up on first use, and marks the tree as
    // enqueueing. Called before the data is shared.
    void make_root();
    // Replays `queue` through the level filter and switches to running, in a time bounded by
    // what is held when it is called, however fast other threads log.
    void run();
    // Switches to finished, strips every marker and releases the tree; held records are dropped.
    void finish();

    // Holds the message `text` at `level` from `node` while the source is enqueueing: true
    // when it is held (or dropped because nothing takes it), false when the source has started
    // meanwhile and the message is to be logged as on a running source.
    bool hold(logger::data& node, log_level level, std::string_view text);

    // Marker walks over the whole tree; the caller holds `mutex` (or is building the data).
    void add_sink(boost::log::attribute_name const& name);
    void remove_sink(boost::log::attribute_name const& name);
    void remove_all_sinks();

    boost::shared_ptr<boost::log::core> const core;
    std::shared_ptr<logger::data> root;
    std::mutex mutex; // guards queue, pinned_children, sinks and every change of `current`
    std::atomic<state> current{state::enqueueing};
    std::vector<held_record> queue;
    std::unordered_map<std::string, std::shared_ptr<logger::data>> pinned_children;
    std::unordered_set<std::shared_ptr<sink::base>> sinks;
};

} // namespace VT::Logging::v2
