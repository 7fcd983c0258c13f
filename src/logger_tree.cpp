// The logger tree: path walk, node construction with inherited level and markers, level rules.
#include "logger_tree.hpp"

#include "assert.hpp"
#include "attribute_values.hpp"
#include "record_names.hpp"

#include <boost/log/attributes/constant.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace VT::Logging::v2 {
namespace impl {
namespace {

// Gives every record the same value; the value decides what it becomes when a record leaves
// the logging thread.
class fixed_value_attribute : public boost::log::attribute::impl {
public:
    explicit fixed_value_attribute(boost::log::attribute_value value)
        : value_(std::move(value))
    {
    }

    boost::log::attribute_value get_value() override { return value_; }

private:
    boost::log::attribute_value const value_;
};

// "a.b" from "a" and "b"; the root's children have their name as domain.
std::string child_domain(std::string const& parent_domain, std::string_view name)
{
    if (parent_domain.empty()) {
        return std::string(name);
    }
    std::string domain;
    domain.reserve(parent_domain.size() + 1 + name.size());
    domain.append(parent_domain).append(1, '.').append(name);
    return domain;
}

std::string_view last_component(std::string const& domain)
{
    std::string_view view(domain);
    auto dot = view.rfind('.');
    return dot == std::string_view::npos ? view : view.substr(dot + 1);
}

// The number of non-empty components of a dotted path.
std::size_t count_components(std::string_view path)
{
    std::size_t components = 0;
    for (auto begin = path.find_first_not_of('.'); begin != std::string_view::npos;
         begin = path.find_first_not_of('.', path.find('.', begin))) {
        ++components;
    }
    return components;
}

} // namespace
} // namespace impl

logger::data::data(std::shared_ptr<logger_source::data> source)
    : source(std::move(source))
    , level(log_level{0})
    , depth(0)
    , level_inherited(false)
{
    source_logger.set_up_message_attributes_before_sharing();
}

logger::data::data(std::shared_ptr<data> parent_node, std::string_view child_name)
    : parent(std::move(parent_node))
    , source(parent->source)
    , level(parent->level.load(std::memory_order_relaxed))
    , domain(impl::child_domain(parent->domain, child_name))
    , name(impl::last_component(domain))
    , depth(parent->depth + 1)
    , level_inherited(true)
{
    auto const& names = impl::record_names::get();
    auto& attributes = source_logger.attributes_before_sharing();
    // Neither value owns the node: a record that a sink writes on another thread takes a copy
    // of the domain, and a held record is owned by its node separately.
    attributes.insert(names.logger_data_ptr, boost::log::attributes::constant<logger::data*>(this));
    attributes.insert(
        names.channel,
        boost::log::attribute(new impl::fixed_value_attribute(boost::log::attribute_value(
            new impl::string_view_attribute_value<char>(std::string_view(domain))))));
    attributes.insert(names.source_data_ptr,
                      boost::log::attributes::constant<logger_source::data*>(source.get()));
    source_logger.set_up_message_attributes_before_sharing();
    // A new node feeds every sink its parent feeds.
    for (auto const& marker : parent->sink_attributes) {
        sink_attributes.emplace(marker.first, add_sink_attribute(marker.first).first);
    }
}

logger::data::~data()
{
    if (parent) {
        parent->forget_child(name);
    }
}

std::shared_ptr<logger::data> logger::data::make_or_get_descendant(std::string_view path)
{
    auto const new_depth = depth + impl::count_components(path);
    if (new_depth > max_domain_depth) {
        throw std::invalid_argument("the domain would have " + std::to_string(new_depth) +
                                    " components, more than max_domain_depth (" +
                                    std::to_string(max_domain_depth) + ")");
    }
    std::shared_ptr<data> node = shared_from_this();
    auto name_begin = std::min(path.find_first_not_of('.'), path.size());
    do {
        auto const name_end = std::min(path.find('.', name_begin), path.size());
        std::string_view const child_name = path.substr(name_begin, name_end - name_begin);
        VT_ASSERT(!child_name.empty());
        node = node->make_or_get_child(child_name);
        name_begin = path.find_first_not_of('.', name_end);
    } while (name_begin != std::string_view::npos);
    return node;
}

std::shared_ptr<logger::data> logger::data::make_or_get_child(std::string_view child_name)
{
    std::lock_guard<std::mutex> lock(mutex);
    std::weak_ptr<data>& entry = children[std::string(child_name)];
    std::shared_ptr<data> child = entry.lock();
    // An entry that cannot be locked is a child being destroyed: it is replaced, and its
    // destructor leaves the new entry alone.
    if (!child) {
        child = std::make_shared<data>(shared_from_this(), child_name);
        VT_ASSERT(child);
        entry = child;
    }
    return child;
}

void logger::data::forget_child(std::string_view child_name)
{
    std::lock_guard<std::mutex> lock(mutex);
    auto entry = children.find(std::string(child_name));
    if (entry != children.end() && entry->second.expired()) {
        children.erase(entry);
    }
}

std::pair<boost::log::attribute_set::iterator, bool>
logger::data::add_sink_attribute(boost::log::attribute_name const& marker_name)
{
    return source_logger.add_marker(marker_name);
}

namespace {

// Inheriting descendants take the new level; an explicit one keeps its own and shields its
// subtree.
auto follow_level(log_level new_level)
{
    return [new_level](logger::data& node) {
        if (!node.level_inherited) {
            return false;
        }
        node.level.store(new_level, std::memory_order_relaxed);
        return true;
    };
}

} // namespace

void logger::data::set_level(log_level new_level, bool inherited)
{
    auto const follow = follow_level(new_level);
    apply_to_subtree([&](data& node) {
        if (&node != this) {
            return follow(node);
        }
        level_inherited = inherited;
        level.store(new_level, std::memory_order_relaxed);
        return true;
    });
}

void logger::data::reset_level()
{
    VT_ASSERT(parent);
    std::lock_guard<std::mutex> parent_lock(parent->mutex);
    set_level(parent->level.load(std::memory_order_relaxed), true);
}

logger::logger(std::shared_ptr<data> node) noexcept
    : node_(std::move(node))
{
    auto* d = node_.get();
    VT_ASSERT(d);
}

log_level logger::get_log_level() const noexcept
{
    return node_->level.load(std::memory_order_relaxed);
}

std::string_view logger::get_domain() const noexcept
{
    return node_->domain;
}

logger logger::get_child_logger(std::string path) const
{
    if (path.empty()) {
        return *this;
    }
    return logger(node_->make_or_get_descendant(path));
}

} // namespace VT::Logging::v2
