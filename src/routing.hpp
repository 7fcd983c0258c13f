// The routing test that every registered sink makes on every record: does the record carry a
// given marker?
//
// Boost.Log asks every sink of the process about every record, so with many sinks the test is
// the cost of a record. A record is searched for the marker. A record that a node's logger opens
// on this thread is searched after its values are all acquired (as Boost.Log does anyway once a
// sink takes it), which spares each search the attribute sets; and once many sinks have searched
// it, the names of its values are gathered into a summary that refutes most markers in a few
// instructions. A name the summary cannot refute is searched for.
//
// The summary is made from the record's values themselves (the node's, the thread's and the
// process's attributes alike), so it holds whoever added a marker. It answers only for the value
// set it was made from: recognised by its address, or, once Boost.Log has moved the set into the
// record, by the address of its element that names the node (elements stay in place when a set
// is moved). Both are valid until the record is opened, since the set lives that long; any other
// set is searched.
#pragma once

#include "VTLog/v2/log.hpp"

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_value_set.hpp>

#include <array>
#include <cstdint>

namespace VT::Logging::v2::impl {

// The record that `node` is opening on this thread, while this object lives. Scopes nest: a
// record opened while another is being routed (by a sink's filter, say) has its own, and a scope
// made without a node hides the outer one without summarising anything.
class record_routing {
public:
    // `node` is null when the record is not worth a summary: its node carries no marker, so it
    // is likely to be refused by every sink, and summarising would acquire its values for nothing.
    explicit record_routing(logger::data const* node) noexcept;
    ~record_routing();
    record_routing(record_routing const&) = delete;
    record_routing& operator=(record_routing const&) = delete;

    // True when `values` are this record's and carry no value named `name`; false when either is
    // not certain.
    bool refutes(boost::log::attribute_value_set const& values,
                 boost::log::attribute_name const& name);

    // The same answer when the summary is made and `values` were recognised already: the test
    // without a call that the sinks of other sources make.
    bool refutes_at_a_glance(boost::log::attribute_value_set const& values,
                             boost::log::attribute_name const& name) const
    {
        return &values == summarised && lacks(name);
    }

private:
    // Whether `values` are this record's, summarising them when first seen.
    bool recognise(boost::log::attribute_value_set const& values);
    void summarise(boost::log::attribute_value_set const& values);
    bool lacks(boost::log::attribute_name const& name) const
    {
        auto const id = name.id();
        return ((names[(id >> 6) % names.size()] >> (id & 63)) & 1) == 0;
    }

    record_routing* const outer;
    logger::data const* const node;
    boost::log::attribute_value_set const* acquired = nullptr; // the set last made to acquire
    unsigned searches = 0;
    boost::log::attribute_value_set const* summarised = nullptr; // the set last recognised
    void const* node_element = nullptr; // in the summarised set; null until the summary is made
    // One bit per name id modulo 256 for every value of the record: a clear bit proves a name
    // absent, a set one is searched for.
    std::array<std::uint64_t, 4> names{};
};

// Constant-initialised, so that reading it costs no call.
inline thread_local record_routing* current_routing = nullptr;

// Whether `values` holds a non-empty value named `marker`.
bool carries_marker(boost::log::attribute_value_set const& values,
                    boost::log::attribute_name const& marker);

// True when `values` certainly lack a value named `marker`, known without a call; false when
// carries_marker must decide.
inline bool lacks_marker_at_a_glance(boost::log::attribute_value_set const& values,
                                     boost::log::attribute_name const& marker)
{
    record_routing const* const routing = current_routing;
    return routing && routing->refutes_at_a_glance(values, marker);
}

} // namespace VT::Logging::v2::impl
