#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// A point in time.
struct Date {
    double secondsSince1970 = 0; // UTC, without leap seconds

    friend bool operator==(const Date&, const Date&) = default;
};

/// Reads and writes timestamps of the form 2024-05-01T12:34:56.789Z: internet date and time with fractional seconds.
/// Immutable; safe on any thread.
class ISO8601DateFormatter {
public:
    static constexpr unsigned withInternetDateTime = 1907;
    static constexpr unsigned withFractionalSeconds = 2048;

    /// The format options that this formatter stands for.
    static constexpr unsigned formatOptions = withInternetDateTime | withFractionalSeconds;

    /// The date that `text` names, or nothing if it is not exactly of the form: four-digit year, a day that exists, a
    /// fraction of one or more digits (required), and a zone of Z, +hh:mm or -hh:mm. Digits beyond nanoseconds are
    /// dropped.
    std::optional<Date> date(std::string_view text) const;

    /// The date in UTC with three fractional digits and Z, cut off to the millisecond below; a text that `date` read
    /// with three digits comes back unchanged. Years outside 0 to 9999 get as many digits (and a minus sign) as they
    /// need; dates more than about 270,000 years from 1970 are written as that limit, one that is not a number as 1970.
    std::string string(Date date) const;
};

} // namespace foundation
