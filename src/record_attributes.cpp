// The "time string" and "thread name" attributes, computed on the thread that opens a record.
#include "record_attributes.hpp"

#include "VTLog/v2/log.hpp"

#include "attribute_values.hpp"
#include "record_names.hpp"
#include "time_text.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/attributes/attribute.hpp>
#include <boost/log/attributes/attribute_value.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/thread/tss.hpp>

#include <exception>
#include <string>
#include <string_view>

namespace VT::Logging::v2 {
namespace {

// The moment of the log call as local-time text. Computed afresh for every record: a cached
// text would go stale across a second, and a cached offset across a change of daylight time.
class time_attribute : public boost::log::attribute {
public:
    class impl : public boost::log::attribute::impl {
    public:
        boost::log::attribute_value get_value() override
        {
            // A clock that cannot be read leaves not-a-date-time, which gives the fallback text.
            boost::posix_time::ptime utc;
            try {
                utc = boost::posix_time::microsec_clock::universal_time();
            } catch (std::exception const&) {
            }
            return boost::log::attribute_value(
                new v2::impl::string_attribute_value<char>(v2::impl::local_time_text(utc)));
        }
    };

    time_attribute()
        : boost::log::attribute(new impl())
    {
    }
};

// The calling thread's name, created empty on the thread's first use and deleted when the
// thread ends. Only its own thread touches it, so it needs no lock.
std::string& thread_name()
{
    static boost::thread_specific_ptr<std::string> names;
    if (!names.get()) {
        names.reset(new std::string());
    }
    return *names;
}

// The calling thread's name, as a view: opening a record copies nothing. The view is valid
// while the thread keeps that name; a record that outlives the call is detached from the thread
// first, which copies the text.
class thread_name_attribute : public boost::log::attribute {
public:
    class impl : public boost::log::attribute::impl {
    public:
        boost::log::attribute_value get_value() override
        {
            return boost::log::attribute_value(
                new v2::impl::string_view_attribute_value<char>(std::string_view(thread_name())));
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
    thread_name() = name;
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
