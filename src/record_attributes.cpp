// The "time string" and "thread name" attributes, computed on the thread that opens a record.
#include "record_attributes.hpp"

#include "VTLog/v2/log.hpp"

#include "attribute_values.hpp"
#include "process_lifetime.hpp"
#include "record_names.hpp"
#include "time_text.hpp"

#include <boost/log/attributes/attribute.hpp>
#include <boost/log/attributes/attribute_value.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/thread/tss.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace VT::Logging::v2 {
namespace {

// The "time string" value: the clock reading taken when the record is opened, converted and
// printed as local-time text the first time something reads it, into the value's own buffer. A
// record that no formatter asks for its time (the console line) never converts or prints it. Like
// the message value it belongs to the thread that opened the record: a record that leaves that
// thread is detached first, which prints the text into an immutable value.
class time_text_value : public boost::log::attribute_value::impl {
public:
    using clock = std::chrono::system_clock;

    // Starts the value over for a new record: a reading of the clock, and no text yet.
    void reset(clock::time_point now)
    {
        now_ = now;
        view_ = {};
        string_.reset();
    }

    bool dispatch(boost::log::type_dispatcher& dispatcher) override
    {
        if (auto as_string = dispatcher.get_callback<std::string>()) {
            if (!string_) {
                string_.emplace(text());
            }
            as_string(*string_);
            return true;
        }
        if (auto as_view = dispatcher.get_callback<std::string_view>()) {
            as_view(text());
            return true;
        }
        return false;
    }

    boost::typeindex::type_index get_type() const override
    {
        return boost::typeindex::type_id<std::string>();
    }

    boost::intrusive_ptr<boost::log::attribute_value::impl> detach_from_thread() override
    {
        return new v2::impl::string_attribute_value<char>(std::string(text()));
    }

private:
    // Extraction hands out references, so the view lives here beside the text it views.
    std::string_view const& text()
    {
        if (view_.data() == nullptr) {
            v2::impl::write_local_time(now_, text_);
            view_ = v2::impl::view_of(text_);
        }
        return view_;
    }

    clock::time_point now_;
    v2::impl::time_text text_;
    std::string_view view_; // null until the first read
    std::optional<std::string> string_;
};

// The moment of the log call. Each record reads the clock afresh and prints its own text: a
// cached text would go stale across a second, and a cached offset across a change of daylight
// time. Opening a record only reads the clock; the calendar and the zone wait for a reader.
class time_attribute : public boost::log::attribute {
public:
    class impl : public boost::log::attribute::impl {
    public:
        boost::log::attribute_value get_value() override
        {
            // Each thread reuses one value while no record holds it (thread_reusable_value).
            thread_local v2::impl::thread_reusable_value<time_text_value> thread_value;
            auto* const value = thread_value.take();
            value->reset(time_text_value::clock::now());
            return boost::log::attribute_value(value);
        }
    };

    time_attribute()
        : boost::log::attribute(new impl())
    {
    }
};

// The calling thread's name and the value its records carry, created on the thread's first use
// and deleted when the thread ends. Only its own thread touches it, so it needs no lock. The
// value owns its copy of the name and never changes: records of this thread share it, and one
// that outlives its call (or its thread) keeps it as it is.
struct thread_name_slot {
    ~thread_name_slot();

    std::string name;
    boost::log::attribute_value value; // empty until the first record after a change of name
};

// The calling thread's slot, found without the thread-specific look-up once known; cleared when
// the slot is deleted, so a thread that logs after that (from a later exit handler) makes a
// new one.
thread_local thread_name_slot* known_slot = nullptr;

thread_name_slot::~thread_name_slot()
{
    known_slot = nullptr;
}

thread_name_slot& thread_name()
{
    if (known_slot != nullptr) {
        return *known_slot;
    }
    // Never destroyed, so threads that log while the process exits still find it.
    static v2::impl::process_lifetime<boost::thread_specific_ptr<thread_name_slot>> slots;
    if (!slots->get()) {
        slots->reset(new thread_name_slot());
    }
    known_slot = slots->get();
    return *known_slot;
}

// The calling thread's name: opening a record copies nothing.
class thread_name_attribute : public boost::log::attribute {
public:
    class impl : public boost::log::attribute::impl {
    public:
        boost::log::attribute_value get_value() override
        {
            auto& slot = thread_name();
            if (!slot.value) {
                slot.value = boost::log::attribute_value(
                    new v2::impl::string_attribute_value<char>(slot.name));
            }
            return slot.value;
        }
    };

    thread_name_attribute()
        : boost::log::attribute(new impl())
    {
    }
};

} // namespace

void set_current_thread_name(std::string const& name)
{
    auto& slot = thread_name();
    slot.name = name;
    slot.value = boost::log::attribute_value();
}

namespace impl {

void add_record_attributes(boost::log::core& core)
{
    auto const& names = record_names::get();
    core.add_global_attribute(names.time_string, time_attribute());
    core.add_global_attribute(names.thread_name, thread_name_attribute());
}

std::string_view get_time(boost::log::record_view const& record) noexcept
{
    try {
        if (auto const text = boost::log::extract<std::string_view>(record_names::get().time_string,
                                                                    record.attribute_values())) {
            return *text;
        }
    } catch (...) {
        // A missing or mistyped value extracts as empty rather than throwing; this only keeps
        // the promise not to throw.
    }
    return fallback_time_text;
}

} // namespace impl
} // namespace VT::Logging::v2
