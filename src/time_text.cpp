// Time stamp text: the local-time conversion and the fixed-width format of "time string".
#include "time_text.hpp"

#include <boost/date_time/c_local_time_adjustor.hpp>
#include <fmt/printf.h>

#include <exception>
#include <new>

namespace VT::Logging::v2::impl {
namespace {

// Writes `value` as exactly `width` decimal digits; the caller checks that it fits.
char* put_digits(char* out, int value, int width)
{
    for (int i = width - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return out + width;
}

bool fits(int value, int limit)
{
    return value >= 0 && value < limit;
}

time_text text_of(std::string_view text)
{
    time_text result;
    result.append(text.data(), text.data() + text.size());
    return result;
}

} // namespace

time_text format_time(boost::gregorian::date const& date,
                      boost::posix_time::time_duration const& time_of_day, tz_offset const& offset)
{
    // Integer division throughout: 999.999 ms prints 999, never 1000, which would overflow the
    // field and would have to carry into the seconds, the day, the year.
    auto const hour = static_cast<int>(time_of_day.hours());
    auto const minute = static_cast<int>(time_of_day.minutes());
    auto const second = static_cast<int>(time_of_day.seconds());
    auto const millisecond = static_cast<int>(time_of_day.total_microseconds() / 1000 % 1000);
    try {
        auto const ymd = date.year_month_day();
        int const year = ymd.year, month = ymd.month, day = ymd.day;
        // Every record pays for this text, so the usual case is written digit by digit: the
        // same characters the format below prints for fields within their widths.
        if (fits(year, 10000) && fits(month, 100) && fits(day, 100) && fits(hour, 100) &&
            fits(minute, 100) && fits(second, 100) && fits(millisecond, 1000) &&
            fits(offset.hours, 100) && fits(offset.minutes, 100)) {
            char text[29];
            char* out = put_digits(text, year, 4);
            *out++ = '-';
            out = put_digits(out, month, 2);
            *out++ = '-';
            out = put_digits(out, day, 2);
            *out++ = ' ';
            out = put_digits(out, hour, 2);
            *out++ = ':';
            out = put_digits(out, minute, 2);
            *out++ = ':';
            out = put_digits(out, second, 2);
            *out++ = '.';
            out = put_digits(out, millisecond, 3);
            *out++ = offset.negative ? '-' : '+';
            out = put_digits(out, offset.hours, 2);
            *out++ = ':';
            out = put_digits(out, offset.minutes, 2);
            return text_of(std::string_view(text, static_cast<std::size_t>(out - text)));
        }
        return text_of(fmt::sprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d%c%02d:%02d", year, month,
                                    day, hour, minute, second, millisecond,
                                    offset.negative ? '-' : '+', offset.hours, offset.minutes));
    } catch (std::bad_alloc const&) {
        throw; // the fallback text would need memory too
    } catch (std::exception const&) {
        return text_of(fallback_time_text);
    }
}

time_text format_utc(boost::posix_time::ptime const& utc)
{
    return format_time(utc.date(), utc.time_of_day(), unknown_tz);
}

time_text format_local(boost::posix_time::ptime const& utc, boost::posix_time::ptime const& local)
{
    if (local.is_special()) {
        return format_utc(utc);
    }
    auto const difference = local - utc;
    if (difference.is_special()) {
        return format_utc(utc);
    }
    auto const magnitude = difference.is_negative() ? difference.invert_sign() : difference;
    if (magnitude >= boost::posix_time::hours(25)) {
        return format_utc(utc);
    }
    tz_offset const offset{difference.is_negative(), static_cast<int>(magnitude.hours()),
                           static_cast<int>(magnitude.minutes())};
    return format_time(local.date(), local.time_of_day(), offset);
}

time_text local_time_text(boost::posix_time::ptime const& utc)
{
    if (utc.is_special()) {
        return text_of(fallback_time_text);
    }
    try {
        // Converts the whole seconds with localtime_r and keeps the fraction; throws for
        // instants before 1970 or beyond time_t, and when localtime_r fails.
        auto const local =
            boost::date_time::c_local_adjustor<boost::posix_time::ptime>::utc_to_local(utc);
        return format_local(utc, local);
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const&) {
        return text_of(fallback_time_text);
    }
}

} // namespace VT::Logging::v2::impl
