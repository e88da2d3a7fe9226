#include "PlayedExchange.h"

#include "cli/JSONLine.h"
#include "cli/trace/TraceFeed.h"
#include "cli/trace/TraceFilter.h"
#include "cli/trace/TraceLine.h"
#include "cli/trace/TraceText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace cli {
namespace {

using namespace std::chrono_literals;
using fusehost::KernelOperation;
using kemvi::ExchangeEnd;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Bringing requests and exchanges together

class Watcher final : public TraceSubscriber {
public:
    void traced(const TracedRequest& request) noexcept override { seen.push_back(request); }

    std::vector<TracedRequest> seen;
};

class TraceFeedTest : public testing::Test {
protected:
    void request(const char* path) {
        if (!monitor->isListenedTo())
            return;
        fusehost::RequestEvent event;
        event.operation = KernelOperation::lookup;
        event.path = path;
        monitor->tell(event);
    }

    std::vector<std::string> seen() {
        std::vector<std::string> all;
        for (const TracedRequest& traced : watcher.seen) {
            std::string text = traced.isReadAhead ? "ahead" : traced.event.path;
            for (const TracedExchange& exchange : traced.exchanges)
                text += " " + exchange.operation + (exchange.error.empty() ? "" : "=" + exchange.error);
            all.push_back(text);
        }
        return all;
    }

    std::unique_ptr<fusehost::Monitor> monitor = std::make_unique<fusehost::Monitor>();
    std::unique_ptr<ExchangeMeter> meter = std::make_unique<ExchangeMeter>();
    TraceFeed feed{*monitor, *meter};
    Watcher watcher;
};

TEST_F(TraceFeedTest, givesEachRequestTheExchangesThatItMade) {
    exchange(*meter, "getattr");
    feed.subscribe(watcher);
    exchange(*meter, "getattr");
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "EACCES");
    request("/a");
    request("/b");
    exchange(*meter, "read");
    request("/c");
    feed.unsubscribe(watcher);
    exchange(*meter, "read");
    request("/d");
    EXPECT_THAT(seen(), ElementsAre("/a getattr open=EACCES", "/b", "/c read"));
}

TEST_F(TraceFeedTest, givesNoRequestWhatAnotherThreadHasReadAhead) {
    feed.subscribe(watcher);
    exchange(*meter, "read");
    std::thread([&] { exchange(*meter, "read"); }).join();
    request("/a");
    EXPECT_THAT(seen(), ElementsAre("ahead read", "/a read"));
    feed.unsubscribe(watcher);
}

TEST_F(TraceFeedTest, listensOnlyWhileSomebodySubscribes) {
    Watcher second;
    EXPECT_FALSE(monitor->isListenedTo());
    feed.subscribe(watcher);
    feed.subscribe(second);
    feed.unsubscribe(watcher);
    EXPECT_TRUE(monitor->isListenedTo());
    request("/a");
    feed.unsubscribe(second);
    EXPECT_FALSE(monitor->isListenedTo());
    feed.unsubscribe(second); // once more does no harm
    EXPECT_THAT(seen(), IsEmpty());
    EXPECT_EQ(second.seen.size(), 1U);
}

// Lines

TracedRequest readOfTodo() {
    TracedRequest traced;
    traced.event.operation = KernelOperation::read;
    traced.event.path = "/notes/todo.txt";
    traced.event.arguments = {{"offset", 0}, {"size", 131072}};
    traced.event.process = "cat";
    traced.event.pid = 1234;
    traced.event.thread = 1235;
    traced.event.user = 1000;
    traced.event.began = std::chrono::system_clock::time_point(1'000'000'000'123'456us);
    traced.event.duration = 112'400ns;
    traced.event.bytes = 1402;
    traced.exchanges = {{"read", 77us, ""}};
    return traced;
}

TEST(TraceLines, tellEverythingByName) {
    EXPECT_EQ(traceMembers(readOfTodo()).json(),
              R"({"time":"2001-09-09T01:46:40.123456Z","process":"cat","pid":1234,"uid":1000,"op":"read",)"
              R"("path":"/notes/todo.txt","offset":0,"size":131072,"bytes":1402,"result":"ok","microseconds":112,)"
              R"("exchanges":[{"op":"read","microseconds":77}]})");
    TracedRequest failed = readOfTodo();
    failed.event.error = ENOENT;
    failed.event.bytes.reset();
    failed.event.waited = 12us;
    failed.exchanges[0].error = "ENOENT";
    const std::string line = traceMembers(failed).json();
    EXPECT_THAT(line, HasSubstr(R"("errno":"ENOENT","microseconds":112,"waited":12,)"));
    EXPECT_THAT(line, HasSubstr(R"({"op":"read","microseconds":77,"error":"ENOENT"})"));
    EXPECT_THAT(line, testing::Not(HasSubstr("result")));
}

TEST(TraceLines, nameNoCallerOfWhatTheHostDoesOfItsOwnAccord) {
    TracedRequest idle;
    idle.event.operation = KernelOperation::idle;
    EXPECT_THAT(traceMembers(idle).json(), HasSubstr(R"("op":"idle")"));
    EXPECT_THAT(traceMembers(idle).json(), testing::Not(HasSubstr("pid")));
    idle.isReadAhead = true;
    EXPECT_THAT(traceMembers(idle).json(), HasSubstr(R"("op":"readahead")"));
}

std::string textOf(const TracedRequest& traced) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    return traceText(objectOfLine(traceMembers(traced).json()));
}

TEST(TraceTexts, areOneLineForPeople) {
    EXPECT_EQ(textOf(readOfTodo()), "01:46:40.123456 cat[1234]         READ      /notes/todo.txt 0+131072            "
                                    "1402 bytes  112 us   read 77 us");
    TracedRequest failed = readOfTodo();
    failed.event.operation = KernelOperation::lookup;
    failed.event.error = ENOENT;
    failed.exchanges = {{"getattr", 250ms, "ENOENT"}};
    EXPECT_THAT(textOf(failed), HasSubstr("LOOKUP    /notes/todo.txt"));
    EXPECT_THAT(textOf(failed), HasSubstr("  ENOENT      112 us   getattr 250 ms ENOENT"));
}

TEST(TraceTexts, doNothingToATerminal) {
    TracedRequest traced = readOfTodo();
    traced.event.path = "/\033[2Jnew\nline";
    traced.event.process = "c\033at";
    const std::string text = textOf(traced);
    EXPECT_EQ(text.find('\033'), std::string::npos);
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(TraceTexts, tellBothNamesOfARename) {
    TracedRequest traced = readOfTodo();
    traced.event.operation = KernelOperation::rename;
    traced.event.arguments = {{"flags", 0}, {"to", "/notes/done.txt"}};
    traced.event.bytes.reset();
    EXPECT_THAT(textOf(traced), HasSubstr("RENAME    /notes/todo.txt -> /notes/done.txt  ok "));
}

// Filters

TEST(TraceFilters, passWhatIsRenamedToThePathAsWell) {
    TracedRequest traced = readOfTodo();
    traced.event.operation = KernelOperation::rename;
    traced.event.arguments = {{"flags", 0}, {"to", "/done/todo.txt"}};
    for (const char* path : {"/notes", "/done", "/done/todo.txt", "/done/*"})
        EXPECT_TRUE(TraceFilter{.path = path}.passes(traced)) << path;
    EXPECT_FALSE(TraceFilter{.path = "/don"}.passes(traced));
    traced.event.arguments = {{"name", "/done/todo.txt"}};
    EXPECT_FALSE(TraceFilter{.path = "/done"}.passes(traced));
}

TEST(TraceFilters, passWhatIsAskedFor) {
    const TracedRequest traced = readOfTodo();
    const auto passes = [&](const TraceFilter& filter) { return filter.passes(traced); };
    EXPECT_TRUE(passes({}));
    EXPECT_TRUE(passes({.operations = {"open", "read"}}));
    EXPECT_FALSE(passes({.operations = {"open"}}));
    for (const char* path : {"/notes/todo.txt", "/notes", "/notes/", "/", "*.txt", "/*/todo.*"})
        EXPECT_TRUE(passes({.path = path})) << path;
    for (const char* path : {"/note", "/notes/todo", "*.md", "/notes/todo.txt/more"})
        EXPECT_FALSE(passes({.path = path})) << path;
    for (const char* caller : {"1234", "1235", "cat", "c*"})
        EXPECT_TRUE(passes({.caller = caller})) << caller;
    for (const char* caller : {"123", "cat ", "0", "dog"})
        EXPECT_FALSE(passes({.caller = caller})) << caller;
    EXPECT_FALSE(passes({.error = "any"}));
    EXPECT_TRUE(passes({.least = 112us}));
    EXPECT_FALSE(passes({.least = 113us}));
}

TEST(TraceFilters, knowErrorsByName) {
    TracedRequest failed = readOfTodo();
    failed.event.error = EACCES;
    EXPECT_TRUE(TraceFilter{.error = "any"}.passes(failed));
    EXPECT_TRUE(TraceFilter{.error = "EACCES"}.passes(failed));
    EXPECT_FALSE(TraceFilter{.error = "ENOENT"}.passes(failed));
}

TEST(TraceFilters, refuseAnOperationThatThereIsNot) {
    const auto request = [](const char* json) { return control::Request("trace", objectOfLine(json), {}); };
    const TraceFilter filter = TraceFilter::of(
        request(R"({"operations":["lookup","readahead"],"path":"/a","caller":"cat","error":"any","slowerThan":1.5})"));
    EXPECT_THAT(filter.operations, ElementsAre("lookup", "readahead"));
    EXPECT_EQ(filter.path, "/a");
    EXPECT_EQ(filter.least, 1500us);
    EXPECT_THROW(TraceFilter::of(request(R"({"operations":["LOOKUP"]})")), control::Refusal);
    EXPECT_THROW(TraceFilter::of(request(R"({"slowerThan":-1})")), control::Refusal);
}

} // namespace
} // namespace cli
