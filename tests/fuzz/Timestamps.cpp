#include "Fuzz.h"

#include "foundation/ISO8601.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace fuzz {
namespace {

const foundation::ISO8601DateFormatter formatter;

constexpr double year0 = -62167219200.0;     // seconds from 1970 to the start of year 0
constexpr double year10000 = 253402300800.0; // to the end of 9999

// The same by the C library's calendar.
std::string written(double seconds) {
    const double millisecond = 0.001;
    const auto whole = static_cast<std::time_t>(std::floor(seconds + millisecond / 2));
    std::tm fields{};
    gmtime_r(&whole, &fields);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                  fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return text;
}

void readBack(std::string_view text) {
    const auto date = formatter.date(text);
    if (!date)
        return;
    const std::string again = formatter.string(*date);
    const auto back = formatter.date(again);
    const bool fourDigits = date->secondsSince1970 >= year0 && date->secondsSince1970 < year10000;
    require(back.has_value() == fourDigits, "a date that was written is read, in years that are");
    if (back)
        require(std::fabs(back->secondsSince1970 - date->secondsSince1970) < 0.0011 &&
                    back->secondsSince1970 <= date->secondsSince1970,
                "a date is cut off to the millisecond below");
    if (text.size() == again.size() && text.ends_with('Z')) {
        require(again == text, "a text with three digits and Z comes back unchanged");
        require(written(date->secondsSince1970).substr(0, 17) == text.substr(0, 17),
                "dates are those of the C library's calendar");
    }
}

void writeAndRead(double seconds) {
    const std::string text = formatter.string({seconds});
    require(text.ends_with('Z') && text.size() >= 24, "any number can be written");
    const auto back = formatter.date(text);
    if (!(seconds >= year0 && seconds < year10000))
        return;
    require(back && back->secondsSince1970 <= seconds && seconds - back->secondsSince1970 < 0.0011,
            "a date that was written is read");
    require(formatter.string(*back) == text, "and written again it is the same");
}

} // namespace

void timestamps(Input input) {
    readBack(textOf(input));
    double number = 0;
    if (input.size() >= sizeof number) {
        std::memcpy(&number, input.data(), sizeof number);
        writeAndRead(number);
        writeAndRead(std::fmod(number, year10000));
    }
}

} // namespace fuzz
