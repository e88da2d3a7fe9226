#include "cli/JSONLine.h"
#include "cli/stats/FiguresText.h"
#include "cli/stats/MountFigures.h"
#include "cli/stats/PrometheusText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace cli {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* answer =
    R"({"ok":true,"version":"0.1.0","source":"/src/\"odd\"","mountPoint":"/mnt","seconds":10,)"
    R"("kernel":[{"op":"read","count":3,"seconds":0.003,"longest":0.002,"bytes":4096,"errors":{"EIO":1},)"
    R"("histogram":[[8192,9216,2],[1966080,2097152,1]]}],)"
    R"("exchanges":[{"op":"read","count":1,"seconds":0.001,"longest":0.001,"errors":{},"histogram":[[983040,1048576,1]]}],)"
    R"("time":{"requests":0.004,"waiting":0.001,"helper":0.001},)"
    R"("bytes":{"read":4096,"written":0,"sent":100,"received":6000},)"
    R"("gauges":{"nodes":5,"openFiles":1,"helperHandles":2,"hiddenFiles":0,"waitingRequests":7,)"
    R"("currentExchangeSeconds":3.5,"helperUp":true,"helperRestarts":0},"memory":{"host":8000000,"helper":60000000}})";

MountFigures figures() {
    return MountFigures::of(objectOfLine(answer));
}

TEST(MountFigureTests, areReadFromAnAnswer) {
    const MountFigures read = figures();
    EXPECT_EQ(read.mountPoint, "/mnt");
    ASSERT_EQ(read.kernel.size(), 1U);
    EXPECT_EQ(read.kernel[0].latency.count(), 3U);
    EXPECT_EQ(read.kernel[0].latency.sum, 3ms);
    EXPECT_NEAR(static_cast<double>(read.kernel[0].latency.quantile(0.5).count()), 8192, 0.125 * 8192);
    EXPECT_THAT(read.kernel[0].errors, ElementsAre(Pair("EIO", 1U)));
    EXPECT_EQ(read.waitingRequests, 7);
    EXPECT_TRUE(read.helperUp);
    EXPECT_EQ(read.helperBytes, 6e7);
    EXPECT_NO_THROW(MountFigures::of(kemvi::JSONObject())) << "of a version that tells nothing of this";
}

TEST(MountFigureTests, tellWhatWasDoneInAnInterval) {
    const MountFigures earlier = figures();
    MountFigures later = earlier;
    later.seconds = 12;
    later.kernel[0].latency.buckets[fusehost::LatencyBuckets::indexOf(8192)] += 5;
    later.kernel[0].errors["EIO"] = 4;
    const MountFigures passed = later.since(earlier);
    EXPECT_EQ(passed.seconds, 2);
    ASSERT_EQ(passed.kernel.size(), 1U);
    EXPECT_EQ(passed.kernel[0].latency.count(), 5U);
    EXPECT_THAT(passed.kernel[0].errors, ElementsAre(Pair("EIO", 3U)));
    EXPECT_THAT(passed.exchanges, IsEmpty());
    EXPECT_EQ(passed.nodes, 5);
    EXPECT_THAT(figuresOfInterval(passed, 12), HasSubstr("2.5")) << "per second";
}

TEST(MountFigureTests, areShownToPeople) {
    const std::string text = figuresText(figures());
    EXPECT_THAT(text, HasSubstr("read                 3       1   1.0 ms"));
    EXPECT_THAT(text, HasSubstr("kernel: read EIO 1"));
    EXPECT_THAT(text, HasSubstr("25 % helper, 50 % host, 25 % waiting"));
    EXPECT_THAT(text, HasSubstr("5 nodes, 1 open files, 2 helper handles, 0 hidden files, 7 requests waiting"));
    EXPECT_THAT(text, HasSubstr("host 8.0 MB, helper 60.0 MB"));
}

/// The value of the one series whose line begins so.
double valueOf(const std::string& page, const std::string& series) {
    std::istringstream lines(page);
    std::string found;
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(series + " "))
            found = line.substr(series.size() + 1);
    EXPECT_NE(found, "") << series;
    return found.empty() ? -1 : std::stod(found);
}

TEST(PrometheusTexts, areUtf8WhateverTheMountPointIs) {
    const std::string page = prometheusText({{"/caf\xe9/\"x\\\n/\xc3\xa9", std::nullopt}});
    EXPECT_THAT(page, HasSubstr("kemvi_up{mountpoint=\"/caf\xef\xbf\xbd/\\\"x\\\\\\n/\xc3\xa9\"} 0\n"));
}

TEST(PrometheusTexts, tellCountersHistogramsAndGauges) {
    const std::string page = prometheusText({{"/mnt", figures()}, {"/hung", std::nullopt}});
    const std::string labels = R"({source="/src/\"odd\"",mountpoint="/mnt")";
    EXPECT_EQ(valueOf(page, R"(kemvi_up{mountpoint="/mnt"})"), 1);
    EXPECT_EQ(valueOf(page, R"(kemvi_up{mountpoint="/hung"})"), 0);
    EXPECT_EQ(valueOf(page, "kemvi_kernel_requests_total" + labels + R"(,op="read"})"), 3);
    EXPECT_EQ(valueOf(page, "kemvi_kernel_errors_total" + labels + R"(,op="read",errno="EIO"})"), 1);
    const std::string bucket = "kemvi_kernel_request_seconds_bucket" + labels + R"(,op="read",le=)";
    EXPECT_EQ(valueOf(page, bucket + R"("8.192e-06"})"), 0);
    EXPECT_EQ(valueOf(page, bucket + R"("1.6384e-05"})"), 2);
    EXPECT_EQ(valueOf(page, bucket + R"("0.001048576"})"), 2);
    EXPECT_EQ(valueOf(page, bucket + R"("0.002097152"})"), 3);
    EXPECT_EQ(valueOf(page, bucket + R"("+Inf"})"), 3);
    EXPECT_EQ(valueOf(page, "kemvi_kernel_request_seconds_count" + labels + R"(,op="read"})"), 3);
    EXPECT_EQ(valueOf(page, "kemvi_kernel_request_seconds_sum" + labels + R"(,op="read"})"), 0.003);
    EXPECT_EQ(valueOf(page, "kemvi_exchanges_total" + labels + R"(,op="read"})"), 1);
    EXPECT_EQ(valueOf(page, "kemvi_waiting_requests" + labels + "}"), 7);
    EXPECT_EQ(valueOf(page, "kemvi_process_resident_bytes" + labels + R"(,process="helper"})"), 6e7);
    EXPECT_EQ(valueOf(page, "kemvi_helper_up" + labels + "}"), 1);
}

} // namespace
} // namespace cli
