// Time stamp text: the local-time conversion and the fixed-width format of "time string".
#include "time_text.hpp"

#include <fmt/printf.h>

#include <array>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <new>

namespace VT::Logging::v2::impl {
namespace {

// "00" to "99", so that a field is written two digits at a time.
constexpr std::array<char, 200> digit_pairs = [] {
    std::array<char, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// Writes `value` (0 to 99) as two digits, then `separator`.
char* put_two(char* out, int value, char separator)
{
    std::memcpy(out, &digit_pairs[2 * static_cast<std::size_t>(value)], 2);
    out[2] = separator;
    return out + 3;
}

bool fits(int value, int limit)
{
    return value >= 0 && value < limit;
}

// Days from 1970-01-01 to the given date of the proleptic Gregorian calendar.
long long days_from_civil(int year, int month, int day)
{
    long long const y = year - (month <= 2 ? 1 : 0);
    long long const era = (y >= 0 ? y : y - 399) / 400;
    long long const year_of_era = y - era * 400;
    long long const day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    long long const day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * 146097 + day_of_era - 719468;
}

void assign(time_text& out, std::string_view text)
{
    out.clear();
    out.append(text.data(), text.data() + text.size());
}

time_text text_of(std::string_view text)
{
    time_text result;
    assign(result, text);
    return result;
}

} // namespace

namespace {

// The body of format_time, from calendar fields, written over `out`.
void format_fields(int year, int month, int day, int hour, int minute, int second, int millisecond,
                   tz_offset const& offset, time_text& out_text)
{
    // Every file line prints this text, as does every record that leaves its thread (held before
    // the start, or bound for a sink that writes on a thread of its own), so the usual case is
    // written two digits at a time: the same characters the format below prints for fields
    // within their widths.
    if (fits(year, 10000) && fits(month, 100) && fits(day, 100) && fits(hour, 100) &&
        fits(minute, 100) && fits(second, 100) && fits(millisecond, 1000) &&
        fits(offset.hours, 100) && fits(offset.minutes, 100)) {
        out_text.resize(29);
        char* out = out_text.data();
        *out++ = static_cast<char>('0' + year / 1000);
        *out++ = static_cast<char>('0' + year / 100 % 10);
        out = put_two(out, year % 100, '-');
        out = put_two(out, month, '-');
        out = put_two(out, day, ' ');
        out = put_two(out, hour, ':');
        out = put_two(out, minute, ':');
        out = put_two(out, second, '.');
        *out++ = static_cast<char>('0' + millisecond / 100);
        out = put_two(out, millisecond % 100, offset.negative ? '-' : '+');
        out = put_two(out, offset.hours, ':');
        std::memcpy(out, &digit_pairs[2 * static_cast<std::size_t>(offset.minutes)], 2);
        return;
    }
    try {
        assign(out_text, fmt::sprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d%c%02d:%02d", year, month,
                                      day, hour, minute, second, millisecond,
                                      offset.negative ? '-' : '+', offset.hours, offset.minutes));
    } catch (std::bad_alloc const&) {
        throw; // the fallback text would need memory too
    } catch (std::exception const&) {
        assign(out_text, fallback_time_text);
    }
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
        time_text text;
        format_fields(ymd.year, ymd.month, ymd.day, hour, minute, second, millisecond, offset,
                      text);
        return text;
    } catch (std::bad_alloc const&) {
        throw;
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

void write_local_time(std::chrono::system_clock::time_point utc, time_text& out)
{
    auto const microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(utc.time_since_epoch()).count();
    // Instants before 1970 are not converted: not every system's localtime_r takes them.
    if (microseconds < 0 || microseconds / 1000000 > std::numeric_limits<std::time_t>::max()) {
        assign(out, fallback_time_text);
        return;
    }
    auto const seconds = static_cast<std::time_t>(microseconds / 1000000);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        assign(out, fallback_time_text);
        return;
    }
    // The offset is the local fields read as a UTC time, minus the instant: what localtime_r
    // did, whatever the zone's rules (seconds of the offset are dropped when printed).
    int const year = local.tm_year + 1900, month = local.tm_mon + 1;
    long long const local_seconds = days_from_civil(year, month, local.tm_mday) * 86400LL +
                                    local.tm_hour * 3600LL + local.tm_min * 60LL + local.tm_sec;
    long long const offset_seconds = local_seconds - static_cast<long long>(seconds);
    long long const magnitude = offset_seconds < 0 ? -offset_seconds : offset_seconds;
    if (magnitude >= 25 * 3600LL || local.tm_sec > 59) {
        // Rare enough for Boost's types: a leap second (60) carries into the next minute.
        boost::posix_time::ptime const epoch(boost::gregorian::date(1970, 1, 1));
        auto const fraction = boost::posix_time::microseconds(microseconds % 1000000);
        out = format_local(
            epoch + boost::posix_time::seconds(static_cast<long>(seconds)) + fraction,
            boost::posix_time::ptime(
                boost::gregorian::date(static_cast<unsigned short>(year),
                                       static_cast<unsigned short>(month),
                                       static_cast<unsigned short>(local.tm_mday)),
                boost::posix_time::time_duration(local.tm_hour, local.tm_min, local.tm_sec)) +
                fraction);
        return;
    }
    tz_offset const offset{offset_seconds < 0, static_cast<int>(magnitude / 3600),
                           static_cast<int>(magnitude / 60 % 60)};
    format_fields(year, month, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(microseconds % 1000000 / 1000), offset, out);
}

} // namespace VT::Logging::v2::impl
