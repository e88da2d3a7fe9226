#include "foundation/ISO8601.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ratio>

namespace foundation {
namespace {

namespace chrono = std::chrono;

using Era = chrono::duration<std::int64_t, std::ratio_multiply<std::ratio<146'097>, chrono::days::period>>;

constexpr double furthest = 8.64e12; // seconds; 100 million days

// Reads a text whose length has been checked, piece by piece; `ok` tells in the end whether every piece fitted.
class Pieces {
public:
    explicit Pieces(std::string_view text) : text_(text) {}

    int number(std::size_t at, std::size_t count) {
        unsigned value = 0;
        for (const char c : text_.substr(at, count)) {
            const unsigned digit = static_cast<unsigned char>(c) - unsigned{'0'};
            ok_ &= digit <= 9;
            value = value * 10 + digit;
        }
        return static_cast<int>(value);
    }

    void literal(std::size_t at, char c) { ok_ &= text_[at] == c; }

    bool ok() const { return ok_; }

private:
    std::string_view text_;
    bool ok_ = true;
};

// Seconds east of UTC, or nothing if `text` is no zone.
std::optional<chrono::seconds> zone(std::string_view text) {
    if (text == "Z")
        return chrono::seconds(0);
    if (text.size() != std::string_view("+00:00").size() || (text[0] != '+' && text[0] != '-'))
        return std::nullopt;
    Pieces pieces(text);
    const int hours = pieces.number(1, 2);
    pieces.literal(3, ':');
    const int minutes = pieces.number(4, 2);
    if (!pieces.ok() || hours > 23 || minutes > 59)
        return std::nullopt;
    const chrono::seconds seconds = chrono::hours(hours) + chrono::minutes(minutes);
    return text[0] == '-' ? -seconds : seconds;
}

constexpr std::size_t frontLength = std::string_view("0000-00-00T00:00:00.").size();

// The date and time at the front of `text`, as if it were UTC; nothing if there is no such time.
std::optional<chrono::sys_seconds> wholeSeconds(std::string_view text) {
    if (text.size() < frontLength)
        return std::nullopt;
    Pieces pieces(text);
    const chrono::year year{pieces.number(0, 4)};
    pieces.literal(4, '-');
    const chrono::month month{static_cast<unsigned>(pieces.number(5, 2))};
    pieces.literal(7, '-');
    const chrono::day day{static_cast<unsigned>(pieces.number(8, 2))};
    pieces.literal(10, 'T');
    const int hour = pieces.number(11, 2);
    pieces.literal(13, ':');
    const int minute = pieces.number(14, 2);
    pieces.literal(16, ':');
    const int second = pieces.number(17, 2);
    pieces.literal(19, '.');
    const chrono::year_month_day date = year / month / day;
    if (!pieces.ok() || !date.ok() || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    return chrono::sys_days(date) + chrono::hours(hour) + chrono::minutes(minute) + chrono::seconds(second);
}

// Nanoseconds of a fraction.
std::int64_t nanosecondsOf(std::string_view digits) {
    std::int64_t value = 0;
    for (std::size_t i = 0; i < 9; ++i)
        value = value * 10 + (i < digits.size() ? digits[i] - '0' : 0);
    return value;
}

// The greatest whole number of milliseconds whose date is not after `seconds`. A double holds few decimal fractions
// exactly: 0.789 read from a text must give 789 again and not 788.
std::int64_t wholeMilliseconds(double seconds) {
    auto count = static_cast<std::int64_t>(std::floor(seconds * 1000));
    while (static_cast<double>(count) / 1000 > seconds)
        --count;
    while (static_cast<double>(count + 1) / 1000 <= seconds)
        ++count;
    return count;
}

} // namespace

std::optional<Date> ISO8601DateFormatter::date(std::string_view text) const {
    const auto local = wholeSeconds(text);
    if (!local)
        return std::nullopt;
    const std::string_view rest = text.substr(frontLength);
    const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    const auto east = zone(rest.substr(digits));
    if (digits == 0 || !east)
        return std::nullopt;
    const std::int64_t nanoseconds = nanosecondsOf(rest.substr(0, digits));
    // Whole milliseconds by one exact division, so that they are the nearest double; what is finer is added to that.
    const std::int64_t milliseconds = (*local - *east).time_since_epoch().count() * 1000 + nanoseconds / 1'000'000;
    return Date{static_cast<double>(milliseconds) / 1000 + static_cast<double>(nanoseconds % 1'000'000) / 1e9};
}

std::string ISO8601DateFormatter::string(Date date) const {
    const double limited = std::fmin(std::fmax(date.secondsSince1970, -furthest), furthest);
    const chrono::sys_time<chrono::milliseconds> time{
        chrono::milliseconds(wholeMilliseconds(std::isnan(date.secondsSince1970) ? 0 : limited))};
    const auto days = chrono::floor<chrono::days>(time);
    const chrono::hh_mm_ss ofDay(time - days);
    // The library's years end with 32767. All eras of 400 years have the same days, so that another one will do.
    const auto era = chrono::floor<Era>(days.time_since_epoch());
    const chrono::year_month_day day(days - era);
    const long long year = int{day.year()} + 400LL * era.count();
    char text[48];
    std::snprintf(text, sizeof text, "%s%04lld-%02u-%02uT%02d:%02d:%02d.%03dZ", year < 0 ? "-" : "", std::abs(year),
                  unsigned{day.month()}, unsigned{day.day()}, static_cast<int>(ofDay.hours().count()),
                  static_cast<int>(ofDay.minutes().count()), static_cast<int>(ofDay.seconds().count()),
                  static_cast<int>(ofDay.subseconds().count()));
    return text;
}

} // namespace foundation
