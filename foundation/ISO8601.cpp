#include "foundation/ISO8601.h"

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

// Takes fixed pieces from the front of a text; after the first that does not fit, `ok` is false.
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    int digits(std::size_t count) {
        int value = 0;
        for (std::size_t i = 0; i < count; ++i)
            value = value * 10 + digit();
        return value;
    }

    void literal(char c) { ok_ = take() == c && ok_; }

    bool nextIsDigit() const { return !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; }

    int digit() {
        if (!nextIsDigit())
            ok_ = false;
        return ok_ ? take() - '0' : 0;
    }

    char take() {
        if (rest_.empty())
            return '\0';
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    bool atEnd() const { return rest_.empty(); }

    void require(bool condition) { ok_ = ok_ && condition; }

    bool ok() const { return ok_; }

private:
    std::string_view rest_;
    bool ok_ = true;
};

// Nanoseconds of a fraction of one or more digits.
std::int64_t takeFraction(Scanner& scanner) {
    std::int64_t value = scanner.digit();
    int count = 1;
    for (; scanner.ok() && scanner.nextIsDigit(); ++count) {
        const int digit = scanner.digit();
        if (count < 9)
            value = value * 10 + digit;
    }
    for (; count < 9; ++count)
        value *= 10;
    return value;
}

// Seconds east of UTC.
int takeZone(Scanner& scanner) {
    const char sign = scanner.take();
    if (sign == 'Z')
        return 0;
    scanner.require(sign == '+' || sign == '-');
    const int hours = scanner.digits(2);
    scanner.literal(':');
    const int minutes = scanner.digits(2);
    scanner.require(hours <= 23 && minutes <= 59);
    const int seconds = hours * 3600 + minutes * 60;
    return sign == '-' ? -seconds : seconds;
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
    Scanner scanner(text);
    const int year = scanner.digits(4);
    scanner.literal('-');
    const int month = scanner.digits(2);
    scanner.literal('-');
    const int day = scanner.digits(2);
    scanner.literal('T');
    const int hour = scanner.digits(2);
    scanner.literal(':');
    const int minute = scanner.digits(2);
    scanner.literal(':');
    const int second = scanner.digits(2);
    scanner.literal('.');
    const std::int64_t nanoseconds = takeFraction(scanner);
    const int zone = takeZone(scanner);
    scanner.require(scanner.atEnd() && month >= 1 && month <= 12 && day >= 1);
    scanner.require(hour <= 23 && minute <= 59 && second <= 59);
    if (!scanner.ok() || day > daysInMonth(year, month))
        return std::nullopt;
    const std::int64_t seconds =
        daysFromDate(year, month, day) * secondsPerDay + hour * 3600 + minute * 60 + second - zone;
    // Whole milliseconds by one exact division, so that they are the nearest double; what is finer is added to that.
    const double milliseconds = static_cast<double>(seconds * 1000 + nanoseconds / 1'000'000) / 1000;
    return Date{milliseconds + static_cast<double>(nanoseconds % 1'000'000) / 1e9};
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
