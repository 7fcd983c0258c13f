// A node's Boost.Log source logger: it opens the node's records with the calling thread's
// message, and keeps the node's sink markers.
#pragma once

#include "VTLog/v2/log.hpp"
#include "routing.hpp"

#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/attribute_value.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/sources/basic_logger.hpp>
#include <boost/log/sources/features.hpp>
#include <boost/log/sources/threading_models.hpp>

#include <cstddef>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>

namespace VT::Logging::v2::impl {

// The level and text of the message whose record the calling thread is opening: what every
// node's two message attributes yield while that record takes its values.
struct message_values {
    boost::log::attribute_value level;
    boost::log::attribute_value message;
};

// Set only for the duration of one open_message_record on this thread, and restored after it,
// so a record opened inside another's (a sink that logs) takes its own message.
inline thread_local message_values const* current_message = nullptr;

using threading_model = boost::log::sources::multi_thread_model<std::shared_mutex>;

// The Boost.Log feature that opens a node's records with the calling thread's message, and
// counts the node's sink markers.
template <class BaseT>
class basic_vt_logger : public BaseT {
public:
    using threading_model = typename BaseT::threading_model;

    basic_vt_logger() = default;
    basic_vt_logger(basic_vt_logger const&) = delete;
    basic_vt_logger& operator=(basic_vt_logger const&) = delete;

    // Puts the level and the text of the calling thread's message into the record it opens.
    // Holding the shared lock, no sink marker can change while the record takes its values.
    boost::log::record open_message_record(logger::data const& node,
                                           boost::log::attribute_value level_value,
                                           boost::log::attribute_value message_value)
    {
        std::shared_lock<threading_model> lock(this->get_threading_model());
        message_values const values{std::move(level_value), std::move(message_value)};
        struct current_scope {
            message_values const* const outer = current_message;
            ~current_scope() { current_message = outer; }
        } const scope;
        current_message = &values;
        record_routing const routing(markers != 0 ? &node : nullptr);
        return this->core()->open_record(this->attributes());
    }

    // Adds the sink marker `name` (if the node does not carry it yet) and removes one, under
    // the exclusive lock.
    std::pair<boost::log::attribute_set::iterator, bool>
    add_marker(boost::log::attribute_name const& name)
    {
        std::lock_guard<threading_model> lock(this->get_threading_model());
        auto added = this->add_attribute_unlocked(
            name, boost::log::attributes::constant<sink::is_sink>(sink::is_sink{}));
        markers += added.second;
        return added;
    }
    void remove_marker(boost::log::attribute_set::iterator position)
    {
        std::lock_guard<threading_model> lock(this->get_threading_model());
        this->remove_attribute_unlocked(position);
        --markers;
    }

private:
    std::size_t markers = 0; // the sink markers among the attributes, under the logger's lock
};

struct vt_logger_feature {
    template <class BaseT>
    struct apply {
        using type = basic_vt_logger<BaseT>;
    };
};

class vt_logger
    : public boost::log::sources::basic_composite_logger<
          char, vt_logger, threading_model, boost::log::sources::features<vt_logger_feature>> {
public:
    vt_logger() = default;
    vt_logger(vt_logger const&) = delete;
    vt_logger& operator=(vt_logger const&) = delete;

    // Only while the node is being built: no other thread can reach the logger yet. Installs the
    // two message attributes (the level and "ggmessage") beside those the node gives.
    boost::log::attribute_set& attributes_before_sharing() { return this->attributes(); }
    void set_up_message_attributes_before_sharing();

    // The record of the message `text` at `level` from `node` (whose logger this is), with the
    // thread's message value; empty if logging is disabled or no sink takes it.
    boost::log::record open_message(logger::data const& node, log_level level,
                                    std::string_view text);
};

} // namespace VT::Logging::v2::impl
