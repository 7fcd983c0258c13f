// The attribute names that records of this library carry, interned once per process.
#pragma once

#include <boost/log/attributes/attribute_name.hpp>

namespace VT::Logging::v2::impl {

struct record_names {
    boost::log::attribute_name const severity;        // Boost's default, holds a log_level
    boost::log::attribute_name const channel;         // Boost's default, the node's domain
    boost::log::attribute_name const thread_id;       // Boost's default "ThreadID"
    boost::log::attribute_name const message;         // "ggmessage", the trimmed text
    boost::log::attribute_name const logger_data_ptr; // the node that made the record
    boost::log::attribute_name const source_data_ptr; // the node's source
    boost::log::attribute_name const redo_ptr;        // set when a held record must be redone
    boost::log::attribute_name const transient_attrs; // names dropped before a record is held
    boost::log::attribute_name const enqueueing_sink; // marker of trees that are still holding
    boost::log::attribute_name const time_string;     // local time text of the call
    boost::log::attribute_name const thread_name;     // name the calling thread gave itself

    static record_names const& get();
};

} // namespace VT::Logging::v2::impl
