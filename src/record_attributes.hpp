// The "time string" and "thread name" attributes that every record carries.
#pragma once

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/core/core.hpp>

#include <string>

namespace VT::Logging::v2::impl {

// Registers "time string" and "thread name" as global attributes of `core`. Called once per
// process, by the first source that is created.
void add_record_attributes(boost::log::core& core);

// UTC offset of a local time; seconds of the offset are dropped.
struct tz_offset {
    bool negative;
    int hours;
    int minutes;
};

// The offset printed when the local offset cannot be determined: "-00:00".
inline constexpr tz_offset unknown_tz{true, 0, 0};

// "YYYY-MM-DD hh:mm:ss.mmm+hh:mm", milliseconds truncated; the fallback text if it cannot be
// printed. Pure, so the tests reach it without going through the clock.
std::string format_time(boost::gregorian::date const& date,
                        boost::posix_time::time_duration const& time_of_day,
                        tz_offset const& offset);

} // namespace VT::Logging::v2::impl
