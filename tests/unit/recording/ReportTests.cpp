#include "Samples.h"
#include "recording/Report.h"

#include <gmock/gmock.h>

namespace recording {
namespace {

using testing::HasSubstr;

TEST(DurationsOfAReport, AreToldToWithinTenPercent) {
    for (const std::int64_t value : {1, 7, 100, 12345, 9'999'999}) {
        Durations durations;
        for (int i = 0; i < 10; ++i)
            durations.add(value);
        durations.add(value * 1000);
        EXPECT_NEAR(static_cast<double>(durations.quantile(0.5)), static_cast<double>(value),
                    static_cast<double>(value) * 0.1 + 0.6);
        EXPECT_EQ(durations.longest(), value * 1000);
        EXPECT_EQ(durations.sum(), value * 1010);
    }
    Durations none;
    none.add(0);
    none.add(-5);
    EXPECT_EQ(none.quantile(1), 0);
}

TEST(TimeLines, OfAnyLengthKeepAllInAsManySlots) {
    TimeLine line;
    for (std::int64_t at = 0; at < 100'000'000; at += 1'000'000) {
        TimeLine::Slot& slot = line.at(at);
        ++slot.exchanges;
        slot.helper += 3;
    }
    EXPECT_LE(line.slots().size(), TimeLine::mostSlots);
    EXPECT_GE(line.slotLength() * static_cast<std::int64_t>(TimeLine::mostSlots), 99'000'000);
    std::uint64_t exchanges = 0;
    std::int64_t helper = 0;
    for (const TimeLine::Slot& slot : line.slots()) {
        exchanges += slot.exchanges;
        helper += slot.helper;
    }
    EXPECT_EQ(exchanges, 100U);
    EXPECT_EQ(helper, 300);
    EXPECT_EQ(line.slots()[static_cast<std::size_t>(50'000'000 / line.slotLength())].exchanges, 1U);
}

class Reports : public testing::Test {
protected:
    std::string json(const std::vector<std::string>& lines) {
        std::vector<std::string> all{plainHeader};
        all.insert(all.end(), lines.begin(), lines.end());
        Reader reader(folder_.write(joined(all)));
        return Report(reader).json();
    }

    Folder folder_;
};

TEST_F(Reports, TellOfOperationsPathsAndErrors) {
    const std::string text = json(
        {R"({"t":0,"d":10,"q":{"id":"1","op":"open","path":"/a"},"a":{"ok":true,"result":{"handle":3}}})",
         R"({"t":20,"d":500,"q":{"id":"2","op":"read","handle":3},"a":{"ok":true,"dataBase64":"aGVsbG8="}})",
         R"({"t":900,"d":5,"q":{"id":"3","op":"getattr","path":"/b"},"a":{"ok":false,"error":{"message":"","code":"ENOENT"}}})",
         R"({"t":950,"d":5,"q":{"id":"4","op":"ping"},"a":null})",
         R"({"k":{"time":"2026-11-22T12:00:00.000990Z","op":"READ","process":"cat","microseconds":700,"exchanges":[{"op":"read","microseconds":500}]}})",
         R"({"k":{"time":"2026-11-22T12:00:00.000000Z","op":"init","microseconds":1,"exchanges":[{"op":"ping","microseconds":99}]}})",
         R"({"k":{"time":"2026-11-22T12:00:00.000000Z","op":"idle","microseconds":9,"exchanges":[]}})",
         R"({"lost":7})"});
    EXPECT_THAT(text, HasSubstr(R"("took":500,"line":3,"op":"read","path":"/a","error":"")"));
    EXPECT_THAT(text, HasSubstr(R"({"path":"/a","count":2,"errors":0,"bytes":5,"time":510})"));
    EXPECT_THAT(text, HasSubstr(R"({"op":"getattr","code":"ENOENT","count":1,"path":"/b"})"));
    EXPECT_THAT(text, HasSubstr(R"({"op":"ping","code":"no answer","count":1,"path":""})"));
    EXPECT_THAT(text, HasSubstr(R"("requestTime":701,"exchangeTime":501,"helperTime":520)"));
    EXPECT_THAT(text, HasSubstr(R"("duration":1690,)"));
    EXPECT_THAT(text, testing::Not(HasSubstr("idle")));
    EXPECT_THAT(text, HasSubstr(R"("lost":7)"));
    EXPECT_THAT(text, HasSubstr(R"("cut":true)"));
    EXPECT_THAT(text, HasSubstr(R"({"process":"cat","count":1})"));
}

TEST_F(Reports, ShowTheSlowestInOrderAndNoMoreThanTheySay) {
    std::vector<std::string> lines;
    for (int i = 0; i < 200; ++i)
        lines.push_back(R"({"t":0,"d":)" + std::to_string((i * 37) % 200) +
                        R"(,"q":{"op":"getattr","path":"/x"},"a":{"ok":true}})");
    const std::string text = json(lines);
    const std::string slowest =
        text.substr(text.find("\"slowest\""), text.find("\"busiest\"") - text.find("\"slowest\""));
    EXPECT_THAT(slowest, testing::StartsWith(R"("slowest":[{"at":0,"took":199,)"));
    std::size_t count = 0;
    for (std::size_t at = slowest.find("\"took\""); at != std::string::npos; at = slowest.find("\"took\"", at + 1))
        ++count;
    EXPECT_EQ(count, Report::mostShown);
    EXPECT_THAT(slowest, HasSubstr("\"took\":150,"));
}

TEST_F(Reports, AreNoPlaceForScriptsInNames) {
    constexpr const char* line =
        R"x({"t":0,"d":1,"q":{"op":"getattr","path":"/</script><script>alert(1)"},"a":{"ok":true}})x";
    Reader reader(folder_.write(joined({plainHeader, line})));
    const std::string page = Report(reader).page("a<b>&c");
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_THAT(page, HasSubstr("<title>a&lt;b>&amp;c</title>"));
}

} // namespace
} // namespace recording
