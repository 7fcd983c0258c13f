// The logger tree: one node per dotted domain, with its level, its sink markers and its Boost.Log
// source logger.
#pragma once

#include "VTLog/v2/log.hpp"
#include "node_logger.hpp"

#include <boost/log/attributes/attribute_set.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace VT::Logging::v2 {
namespace impl {

struct attribute_name_hash {
    std::size_t operator()(boost::log::attribute_name const& name) const noexcept
    {
        return std::hash<boost::log::attribute_name::id_type>()(name.id());
    }
};

} // namespace impl

// A node of a source's logger tree. A child holds its parent strongly; a parent holds its
// children weakly, and a child's destructor removes itself from its parent.
//
// Lock order: the source's mutex, then node mutexes from parent to child (a parent stays locked
// while its subtree is walked), then the Boost.Log logger's shared mutex.
struct logger::data : std::enable_shared_from_this<logger::data> {
    using sink_positions =
        std::unordered_map<boost::log::attribute_name, boost::log::attribute_set::iterator,
                           impl::attribute_name_hash>;

    // The root of `source`'s tree: empty domain, level 0.
    explicit data(std::shared_ptr<logger_source::data> source);
    // A child named `name` (one path component); the caller holds `parent`'s mutex.
    data(std::shared_ptr<data> parent, std::string_view name);
    ~data();
    data(data const&) = delete;
    data& operator=(data const&) = delete;

    // The node at the dotted `path` below this one, created as needed; never null. Leading,
    // trailing and repeated dots are ignored; an empty path, or one of dots only, throws, and so
    // does a path that would take the domain past max_domain_depth, before any node is made.
    std::shared_ptr<data> make_or_get_descendant(std::string_view path);

    // Adds a sink marker to this node's logger. The caller holds `mutex` and records the
    // position in `sink_attributes`.
    std::pair<boost::log::attribute_set::iterator, bool>
    add_sink_attribute(boost::log::attribute_name const& name);

    // Sets this node's level; inheriting descendants follow, explicit ones shield their subtree.
    void set_level(log_level new_level, bool inherited);
    // Makes this node follow its parent's level again.
    void reset_level();

    // Applies `step` to this node and to every live descendant, depth first, each one locked
    // while it and its subtree are processed. `step(node)` returns whether to descend into the
    // node's children; the walk always descends from this node. The walk keeps its own stack of
    // locked ancestors, so the depth of the tree costs no call stack.
    template <class Step>
    void apply_to_subtree(Step&& step);

    std::shared_ptr<data> const parent;
    std::shared_ptr<logger_source::data> const source;
    // Beside `source`: a filtered call reads these two and nothing else of the node.
    std::atomic<log_level> level; // written under `mutex`, read with a relaxed load
    std::string const domain;
    std::string_view const name; // the last component of `domain`, the key in the parent
    std::size_t const depth;     // the number of components of `domain`; 0 for the root
    std::mutex mutex;
    bool level_inherited;
    std::unordered_map<std::string, std::weak_ptr<data>> children;
    sink_positions sink_attributes;
    impl::vt_logger source_logger;

private:
    // The child named `child_name` (one component), made if it does not exist.
    std::shared_ptr<data> make_or_get_child(std::string_view child_name);
    void forget_child(std::string_view child_name);
};

template <class Step>
void logger::data::apply_to_subtree(Step&& step)
{
    // Strong references taken on the way are dropped after every lock is released: dropping the
    // last one under a lock would run a child's destructor, which locks its parent again.
    std::vector<std::shared_ptr<data>> visited;
    struct locked_node {
        data& node;
        std::unique_lock<std::mutex> lock;
        decltype(children)::iterator next_child;
    };
    // The chain of locked nodes from this one down to the node whose children are being walked.
    std::vector<locked_node> chain;
    chain.push_back({*this, std::unique_lock<std::mutex>(mutex), children.end()});
    step(*this);
    chain.back().next_child = children.begin();
    while (!chain.empty()) {
        locked_node& current = chain.back();
        if (current.next_child == current.node.children.end()) {
            chain.pop_back();
            continue;
        }
        // An entry that cannot be locked belongs to a child whose destructor is waiting for this
        // mutex to erase it; it needs no update.
        std::shared_ptr<data> child = (current.next_child++)->second.lock();
        if (!child) {
            continue;
        }
        std::unique_lock<std::mutex> child_lock(child->mutex);
        bool const descend = step(*child);
        data& child_node = *child;
        visited.push_back(std::move(child));
        if (descend) {
            chain.push_back({child_node, std::move(child_lock), child_node.children.begin()});
        }
    }
}

} // namespace VT::Logging::v2
