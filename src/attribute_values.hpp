// Attribute values that carry text into records without copying on the logging thread; they make
// their owned copies only when a record leaves that thread.
#pragma once

#include <boost/intrusive_ptr.hpp>
#include <boost/log/attributes/attribute_value.hpp>
#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/utility/type_dispatch/type_dispatcher.hpp>
#include <boost/type_index.hpp>

#include <string>
#include <string_view>

namespace VT::Logging::v2::impl {

// Owns its text. Offered to visitors as std::basic_string first, then as std::basic_string_view.
template <class CharT>
class string_attribute_value : public boost::log::attribute_value::impl {
public:
    explicit string_attribute_value(std::basic_string<CharT> text)
        : text_(std::move(text))
        , view_(text_)
    {
    }

    bool dispatch(boost::log::type_dispatcher& dispatcher) override
    {
        if (auto as_string = dispatcher.get_callback<std::basic_string<CharT>>()) {
            as_string(text_);
            return true;
        }
        if (auto as_view = dispatcher.get_callback<std::basic_string_view<CharT>>()) {
            as_view(view_);
            return true;
        }
        return false;
    }

    boost::typeindex::type_index get_type() const override
    {
        return boost::typeindex::type_id<std::basic_string<CharT>>();
    }

private:
    std::basic_string<CharT> const text_;
    std::basic_string_view<CharT> const view_;
};

// Views text owned by the logging thread (the caller's message, the thread's name). Detaching
// it from the thread replaces it with an owned copy.
template <class CharT>
class string_view_attribute_value
    : public boost::log::attributes::attribute_value_impl<std::basic_string_view<CharT>> {
public:
    using boost::log::attributes::attribute_value_impl<
        std::basic_string_view<CharT>>::attribute_value_impl;

    boost::intrusive_ptr<boost::log::attribute_value::impl> detach_from_thread() override
    {
        return new string_attribute_value<CharT>(std::basic_string<CharT>(this->get()));
    }
};

// Views the caller's message text, like string_view_attribute_value, but its view can be
// pointed at the next message once no record holds the value any more (thread_reusable_value).
class message_view_value final : public boost::log::attribute_value::impl {
public:
    bool dispatch(boost::log::type_dispatcher& dispatcher) override
    {
        if (auto as_view = dispatcher.get_callback<std::string_view>()) {
            as_view(text_);
            return true;
        }
        return false;
    }

    boost::typeindex::type_index get_type() const override
    {
        return boost::typeindex::type_id<std::string_view>();
    }

    boost::intrusive_ptr<boost::log::attribute_value::impl> detach_from_thread() override
    {
        return new string_attribute_value<char>(std::string(text_));
    }

    // Only while the caller holds the one reference to this value.
    void view(std::string_view text) noexcept { text_ = text; }

private:
    std::string_view text_;
};

// One value of type `Value` per thread, for a kind of value that every record of the thread
// carries: handed out again once no record holds it (a record kept past its call was detached
// from the thread, and holds a copy instead). Declare it thread_local. After the thread's
// thread-local objects are destroyed (a destructor that logs), every record gets a new value.
template <class Value>
class thread_reusable_value {
public:
    thread_reusable_value() = default;
    thread_reusable_value(thread_reusable_value const&) = delete;
    thread_reusable_value& operator=(thread_reusable_value const&) = delete;

    ~thread_reusable_value()
    {
        retired_ = true;
        if (value_ != nullptr) {
            intrusive_ptr_release(value_);
            value_ = nullptr;
        }
    }

    // The thread's value if no record holds it, else a new one; the caller sets its contents.
    Value* take()
    {
        if (value_ == nullptr && !retired_) {
            value_ = new Value();
            intrusive_ptr_add_ref(value_);
        }
        if (value_ != nullptr && value_->use_count() == 1) {
            return value_;
        }
        return new Value();
    }

private:
    Value* value_ = nullptr; // holds one reference
    bool retired_ = false;
};

} // namespace VT::Logging::v2::impl
