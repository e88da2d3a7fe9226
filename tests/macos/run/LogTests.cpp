// What macOS's log is handed: constant formats, and private values as private.

#include "foundation/Log.h"

#include <os/log.h>

#include <cstdarg>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Handed {
    std::string log; // subsystem and category
    os_log_type_t type;
    std::string format;
    std::vector<std::string> values;

    friend bool operator==(const Handed&, const Handed&) = default;
};

std::vector<Handed>& handed() {
    static std::vector<Handed> all;
    return all;
}

} // namespace

struct os_log_s {
    std::string name;
};

os_log_t os_log_create(const char* subsystem, const char* category) {
    static os_log_s log;
    log.name = std::string(subsystem) + " " + category;
    return &log;
}

void kemvi_check_os_log(os_log_t log, os_log_type_t type, const char* format, ...) {
    Handed message{log->name, type, format, {}};
    va_list values;
    va_start(values, format);
    for (auto at = message.format.find('s'); at != std::string::npos; at = message.format.find('s', at + 1))
        if (message.format[at - 1] == '}')
            message.values.emplace_back(va_arg(values, const char*));
    va_end(values);
    handed().push_back(message);
}

namespace {

using foundation::logPrivate;
using foundation::logPublic;

class UnifiedLog : public testing::Test {
protected:
    UnifiedLog() { handed().clear(); }

    ~UnifiedLog() override { foundation::Log::showPrivateValues(false); }

    const foundation::Logger logger_{"sub.system", "Category"};
};

TEST_F(UnifiedLog, takesALineWithoutPrivateValuesAsOnePublicText) {
    logger_.error({"driveId=", logPublic("d\n1"), " is unknown"});
    EXPECT_EQ(handed(), (std::vector<Handed>{
                            {"sub.system Category", OS_LOG_TYPE_ERROR, "%{public}s", {"driveId=d\\n1 is unknown"}}}));
}

TEST_F(UnifiedLog, isToldWhichValueIsPrivate) {
    logger_.info({"loadResource: ", logPrivate("/home/\x1bme"), " for ", logPublic("d1")});
    logger_.info({"probeResource: ", logPrivate("/a")});
    logger_.warning({logPrivate("/a"), " and ", logPrivate("/b")});
    EXPECT_EQ(handed(),
              (std::vector<Handed>{
                  {"sub.system Category",
                   OS_LOG_TYPE_INFO,
                   "%{public}s%{private}s%{public}s",
                   {"loadResource: ", "/home/\\x1bme", " for d1"}},
                  {"sub.system Category", OS_LOG_TYPE_INFO, "%{public}s%{private}s", {"probeResource: ", "/a"}},
                  {"sub.system Category",
                   OS_LOG_TYPE_DEFAULT,
                   "%{public}s%{private}s%{public}s%{private}s",
                   {"", "/a", " and ", "/b"}}}));
}

TEST_F(UnifiedLog, isToldThatAllIsPrivateWhichGoesBeyondItsFormats) {
    logger_.info({"a", logPrivate("1"), "b", logPrivate("2"), "c"});
    logger_.info({"a", logPrivate("1"), "b", logPrivate("2"), "c", logPrivate("3"), "d"});
    ASSERT_EQ(handed().size(), 2U);
    EXPECT_EQ(handed()[0].values, (std::vector<std::string>{"a", "1", "b", "2", "c"}));
    EXPECT_EQ(handed()[0].format, "%{public}s%{private}s%{public}s%{private}s%{public}s");
    EXPECT_EQ(handed()[1].values, (std::vector<std::string>{"a", "1", "b", "2c3d"}));
    EXPECT_EQ(handed()[1].format, "%{public}s%{private}s%{public}s%{private}s");
}

TEST_F(UnifiedLog, takesAllAsPublicWhereItWasAskedFor) {
    foundation::Log::showPrivateValues(true);
    logger_.info({"a", logPrivate("1")});
    ASSERT_EQ(handed().size(), 1U);
    EXPECT_EQ(handed()[0].format, "%{public}s");
    EXPECT_EQ(handed()[0].values, std::vector<std::string>{"a1"});
}

} // namespace
