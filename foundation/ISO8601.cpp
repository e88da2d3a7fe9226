#include "foundation/ISO8601.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace foundation {
namespace {

constexpr std::int64_t secondsPerDay = 86400;
constexpr double furthest = 8.64e12; // seconds; 100 million days

// Days from 1970-01-01 to the given day of the proleptic Gregorian calendar. Years are counted from March, so that the
// leap day is the last of its year, and in eras of 400 years, which all have the same number of days.
std::int64_t daysFromDate(std::int64_t year, int month, int day) {
    const std::int64_t shifted = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 399) / 400;
    const std::int64_t yearOfEra = shifted - era * 400;
    const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

struct Day {
    std::int64_t year;
    int month;
    int day;
};

// The inverse of daysFromDate.
Day dateFromDays(std::int64_t days) {
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const std::int64_t dayOfEra = shifted - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const auto dayOfYear = static_cast<int>(dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100));
    const int shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, dayOfYear - (153 * shiftedMonth + 2) / 5 + 1};
}

int daysInMonth(int year, int month) {
    if (month == 2)
        return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

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
std::optional<int> zone(std::string_view text) {
    if (text == "Z")
        return 0;
    if (text.size() != std::string_view("+00:00").size() || (text[0] != '+' && text[0] != '-'))
        return std::nullopt;
    Pieces pieces(text);
    const int hours = pieces.number(1, 2);
    pieces.literal(3, ':');
    const int minutes = pieces.number(4, 2);
    if (!pieces.ok() || hours > 23 || minutes > 59)
        return std::nullopt;
    const int seconds = hours * 3600 + minutes * 60;
    return text[0] == '-' ? -seconds : seconds;
}

constexpr std::size_t frontLength = std::string_view("0000-00-00T00:00:00.").size();

// Seconds from 1970 to the date and time at the front of `text`, as if it were UTC; nothing if there is no such time.
std::optional<std::int64_t> wholeSeconds(std::string_view text) {
    if (text.size() < frontLength)
        return std::nullopt;
    Pieces pieces(text);
    const int year = pieces.number(0, 4);
    pieces.literal(4, '-');
    const int month = pieces.number(5, 2);
    pieces.literal(7, '-');
    const int day = pieces.number(8, 2);
    pieces.literal(10, 'T');
    const int hour = pieces.number(11, 2);
    pieces.literal(13, ':');
    const int minute = pieces.number(14, 2);
    pieces.literal(16, ':');
    const int second = pieces.number(17, 2);
    pieces.literal(19, '.');
    if (!pieces.ok() || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month))
        return std::nullopt;
    if (hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    return daysFromDate(year, month, day) * secondsPerDay + hour * 3600 + minute * 60 + second;
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
    const std::int64_t milliseconds = (*local - *east) * 1000 + nanoseconds / 1'000'000;
    return Date{static_cast<double>(milliseconds) / 1000 + static_cast<double>(nanoseconds % 1'000'000) / 1e9};
}

std::string ISO8601DateFormatter::string(Date date) const {
    const double limited = std::fmin(std::fmax(date.secondsSince1970, -furthest), furthest);
    const std::int64_t milliseconds = wholeMilliseconds(std::isnan(date.secondsSince1970) ? 0 : limited);
    std::int64_t days = milliseconds / (secondsPerDay * 1000);
    std::int64_t rest = milliseconds % (secondsPerDay * 1000);
    if (rest < 0) {
        --days;
        rest += secondsPerDay * 1000;
    }
    const Day day = dateFromDays(days);
    const auto ofDay = static_cast<int>(rest);
    const long long year = day.year < 0 ? -day.year : day.year;
    char text[48];
    std::snprintf(text, sizeof text, "%s%04lld-%02d-%02dT%02d:%02d:%02d.%03dZ", day.year < 0 ? "-" : "", year,
                  day.month, day.day, ofDay / 3'600'000, ofDay / 60'000 % 60, ofDay / 1000 % 60, ofDay % 1000);
    return text;
}

} // namespace foundation
