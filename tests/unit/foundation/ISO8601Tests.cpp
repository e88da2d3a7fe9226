#include "foundation/ISO8601.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

using foundation::Date;

const foundation::ISO8601DateFormatter formatter;

std::optional<double> seconds(std::string_view text) {
    const auto date = formatter.date(text);
    return date ? std::optional(date->secondsSince1970) : std::nullopt;
}

TEST(ISO8601, readsADateInUtc) {
    EXPECT_EQ(seconds("2024-05-01T12:34:56.789Z"), 1714566896.789);
    EXPECT_EQ(seconds("1970-01-01T00:00:00.000Z"), 0);
    EXPECT_EQ(seconds("2000-02-29T23:59:59.999Z"), 951868799.999);
}

TEST(ISO8601, requiresAFraction) {
    EXPECT_FALSE(seconds("2024-05-01T12:34:56Z"));
    EXPECT_FALSE(seconds("2024-05-01T12:34:56.Z"));
    EXPECT_FALSE(seconds("2024-05-01T12:34:56.+02:00"));
}

TEST(ISO8601, readsFractionsOfAnyLength) {
    EXPECT_EQ(seconds("1970-01-01T00:00:01.5Z"), 1.5);
    EXPECT_EQ(seconds("1970-01-01T00:00:01.25Z"), 1.25);
    EXPECT_NEAR(*seconds("1970-01-01T00:00:01.123456789Z"), 1.123456789, 1e-12);
    EXPECT_EQ(seconds("1970-01-01T00:00:01.1234567899999999999999Z"), seconds("1970-01-01T00:00:01.123456789Z"));
}

TEST(ISO8601, readsATimeInItsZone) {
    EXPECT_EQ(seconds("2024-05-01T14:34:56.789+02:00"), seconds("2024-05-01T12:34:56.789Z"));
    EXPECT_EQ(seconds("2024-05-01T07:04:56.789-05:30"), seconds("2024-05-01T12:34:56.789Z"));
    EXPECT_EQ(seconds("2024-01-01T00:30:00.000+01:00"), seconds("2023-12-31T23:30:00.000Z"));
}

TEST(ISO8601, refusesDaysThatDoNotExist) {
    EXPECT_FALSE(seconds("2023-02-29T00:00:00.000Z"));
    EXPECT_FALSE(seconds("1900-02-29T00:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-04-31T00:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-00-10T00:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-13-10T00:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-05-00T00:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-05-32T00:00:00.000Z"));
}

TEST(ISO8601, refusesTimesThatDoNotExist) {
    EXPECT_FALSE(seconds("2024-05-01T24:00:00.000Z"));
    EXPECT_FALSE(seconds("2024-05-01T12:60:00.000Z"));
    EXPECT_FALSE(seconds("2024-05-01T12:00:60.000Z"));
    EXPECT_FALSE(seconds("2024-05-01T12:00:00.000+24:00"));
    EXPECT_FALSE(seconds("2024-05-01T12:00:00.000+01:60"));
}

TEST(ISO8601, refusesEveryOtherForm) {
    for (const char* text : {"",
                             "2024-05-01",
                             "2024-05-01 12:34:56.789Z",
                             "2024-05-01t12:34:56.789Z",
                             "2024-05-01T12:34:56.789z",
                             "2024-05-01T12:34:56,789Z",
                             "2024-05-01T12:34:56.789",
                             "2024-05-01T12:34:56.789+0200",
                             "2024-05-01T12:34:56.789+02",
                             "2024-05-01T12:34:56.789 Z",
                             " 2024-05-01T12:34:56.789Z",
                             "2024-05-01T12:34:56.789Z ",
                             "2024-05-01T12:34:56.789ZZ",
                             "24-05-01T12:34:56.789Z",
                             "20240501T123456.789Z",
                             "12024-05-01T12:34:56.789Z",
                             "-024-05-01T12:34:56.789Z",
                             "2024-5-1T12:34:56.789Z",
                             "2024-W18-3T12:34:56.789Z",
                             "2024-05-01T12:34.789Z",
                             "2024-05-01T12:34:56.7a9Z",
                             "1714566896.789"})
        EXPECT_FALSE(seconds(text)) << text;
}

TEST(ISO8601, readsTheFirstAndTheLastYear) {
    EXPECT_EQ(seconds("0001-01-01T00:00:00.000Z"), -62135596800);
    EXPECT_EQ(seconds("0000-03-01T00:00:00.000Z"), -62162035200);
    EXPECT_EQ(seconds("9999-12-31T23:59:59.999Z"), 253402300799.999);
}

TEST(ISO8601, writesUtcWithThreeDigits) {
    EXPECT_EQ(formatter.string(Date{1714566896.789}), "2024-05-01T12:34:56.789Z");
    EXPECT_EQ(formatter.string(Date{0}), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{951782400}), "2000-02-29T00:00:00.000Z");
}

TEST(ISO8601, cutsOffWhatIsFinerThanAMillisecond) {
    EXPECT_EQ(formatter.string(Date{1.9999}), "1970-01-01T00:00:01.999Z");
    EXPECT_EQ(formatter.string(Date{0.0005}), "1970-01-01T00:00:00.000Z");
}

TEST(ISO8601, writesTimesBefore1970) {
    EXPECT_EQ(formatter.string(Date{-0.001}), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(formatter.string(Date{-0.0001}), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(formatter.string(Date{-86400}), "1969-12-31T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{-62135596800}), "0001-01-01T00:00:00.000Z");
}

TEST(ISO8601, givesYearsThatNeedMoreDigitsTheirDigits) {
    EXPECT_EQ(formatter.string(Date{253402300800}), "10000-01-01T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{-62167219200.0 - 86400}), "-0001-12-31T00:00:00.000Z");
}

TEST(ISO8601, writesSomethingSaneForDatesThatAreNone) {
    EXPECT_EQ(formatter.string(Date{std::numeric_limits<double>::quiet_NaN()}), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{std::numeric_limits<double>::infinity()}), "275760-09-13T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{-std::numeric_limits<double>::infinity()}), "-271821-04-20T00:00:00.000Z");
    EXPECT_EQ(formatter.string(Date{1e300}), "275760-09-13T00:00:00.000Z");
}

TEST(ISO8601, writesBackEveryTextThatItRead) {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<std::int64_t> milliseconds(-62167219200000, 253402300799999);
    for (int i = 0; i < 50'000; ++i) {
        const std::string text = formatter.string(Date{static_cast<double>(milliseconds(random)) / 1000});
        const auto date = formatter.date(text);
        ASSERT_TRUE(date) << text;
        ASSERT_EQ(formatter.string(*date), text);
    }
}

TEST(ISO8601, keepsTheOptionBitsOfThePlatformsFormatter) {
    EXPECT_EQ(foundation::ISO8601DateFormatter::formatOptions, 3955U);
}

} // namespace
