// The text of the "time string" attribute: local time with milliseconds and UTC offset.
// Stateless and free of the clock, so the tests compile it in and feed it chosen instants.
#pragma once

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <fmt/format.h>

#include <chrono>
#include <string_view>

namespace VT::Logging::v2::impl {

// Stands in for a time stamp that cannot be made; as long as a real one (29 characters). Raw,
// so that "??-" cannot read as a trigraph.
inline constexpr std::string_view fallback_time_text = R"(????-??-?? ??:??:??.???-??:??)";

// The text of one time stamp. The usual 29 characters are kept inline, so making it takes no
// allocation; only the wider fields of the printf path can reach the heap.
using time_text = fmt::basic_memory_buffer<char, 32>;

inline std::string_view view_of(time_text const& text)
{
    return std::string_view(text.data(), text.size());
}

// UTC offset of a local time; seconds of the offset are dropped.
struct tz_offset {
    bool negative;
    int hours;
    int minutes;
};

// The offset printed when the local offset cannot be determined: "-00:00".
inline constexpr tz_offset unknown_tz{true, 0, 0};

// "YYYY-MM-DD hh:mm:ss.mmm+hh:mm" (29 characters for years 1000 to 9999). Every field is
// truncated, never rounded, so 23:59:59.9999 stays on its day. A zero offset prints "+00:00"
// unless it is `unknown_tz`. Returns the fallback text if printing fails; allocation failures
// propagate.
time_text format_time(boost::gregorian::date const& date,
                      boost::posix_time::time_duration const& time_of_day, tz_offset const& offset);

// `utc` with `unknown_tz`: the text when only the UTC time is known.
time_text format_utc(boost::posix_time::ptime const& utc);

// The text of `local` with the offset `local - utc`, or format_utc(utc) when `local` or the
// offset is a special value or the offset is 25 hours or more (no real zone is that far out,
// so such an offset means the local conversion went wrong).
time_text format_local(boost::posix_time::ptime const& utc, boost::posix_time::ptime const& local);

// Writes the text of the instant `utc` in the process's local zone over `out` (a value that
// keeps its text is spared a copy). Read through localtime_r, so a change of TZ needs tzset()
// first. Never fails except on allocation: an instant before 1970 or one that the system cannot
// convert gives the fallback text.
void write_local_time(std::chrono::system_clock::time_point utc, time_text& out);

} // namespace VT::Logging::v2::impl
