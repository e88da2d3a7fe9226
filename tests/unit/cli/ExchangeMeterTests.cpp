#include "PlayedExchange.h"

#include "cli/ExchangeMeter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace cli {
namespace {

using kemvi::ExchangeEnd;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

class ExchangeMeterTest : public testing::Test {
protected:
    std::map<std::string, ExchangeCounts> counted() {
        std::map<std::string, ExchangeCounts> counts;
        for (auto& operation : meter->read().operations)
            counts.emplace(operation.operation, operation);
        return counts;
    }

    std::unique_ptr<ExchangeMeter> meter = std::make_unique<ExchangeMeter>();
};

TEST_F(ExchangeMeterTest, countsByOperationWithBytesOfTheLines) {
    EXPECT_THAT(meter->read().operations, IsEmpty());
    exchange(*meter, "getattr");
    exchange(*meter, "getattr");
    exchange(*meter, "utimes");
    exchange(*meter, "invented");
    auto counts = counted();
    EXPECT_EQ(counts["getattr"].latency.count(), 2U);
    EXPECT_EQ(counts["utimes"].latency.count(), 1U);
    EXPECT_EQ(counts["other"].latency.count(), 1U);
    EXPECT_EQ(counts.size(), 3U);
    EXPECT_EQ(meter->read().bytesSent, 4U * 11);
    EXPECT_EQ(meter->read().bytesReceived, 4U * 6);
}

TEST_F(ExchangeMeterTest, countsFailuresByCode) {
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "ENOENT");
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "ENOENT");
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "EACCES");
    exchange(*meter, "open", ExchangeEnd::Kind::failure);
    exchange(*meter, "open", ExchangeEnd::Kind::breach);
    exchange(*meter, "open", ExchangeEnd::Kind::gone);
    exchange(*meter, "read", ExchangeEnd::Kind::failure, "ENOENT");
    EXPECT_THAT(counted()["open"].errors, UnorderedElementsAre(Pair("ENOENT", 2U), Pair("EACCES", 1U), Pair("none", 1U),
                                                               Pair("protocol", 1U), Pair("gone", 1U)));
    EXPECT_THAT(counted()["read"].errors, UnorderedElementsAre(Pair("ENOENT", 1U)));
}

TEST_F(ExchangeMeterTest, takesNoMoreThanAFewCodesFromAHelperThatMakesThemUp) {
    for (int i = 0; i < 1000; ++i)
        exchange(*meter, "open", ExchangeEnd::Kind::failure, "E" + std::to_string(i));
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "a sentence\n");
    exchange(*meter, "open", ExchangeEnd::Kind::failure, std::string(1000, 'E'));
    const auto errors = counted()["open"].errors;
    EXPECT_EQ(errors.size(), 33U);
    EXPECT_EQ(errors.at("other"), 1002U - 32);
}

TEST_F(ExchangeMeterTest, keepsAccountOfTheHandlesOfAHelper) {
    exchange(*meter, "open");
    exchange(*meter, "open");
    exchange(*meter, "open", ExchangeEnd::Kind::failure, "ENOENT");
    EXPECT_EQ(meter->read().openHandles, 2U);
    exchange(*meter, "release", ExchangeEnd::Kind::failure, "EIO");
    EXPECT_EQ(meter->read().openHandles, 1U);
    exchange(*meter, "ping"); // to another helper
    EXPECT_EQ(meter->read().openHandles, 0U);
    exchange(*meter, "release");
    EXPECT_EQ(meter->read().openHandles, 0U);
}

TEST_F(ExchangeMeterTest, showsTheExchangeUnderWay) {
    EXPECT_FALSE(meter->underWay());
    kemvi::HelperRequest request;
    request.op = "read";
    const auto before = ExchangeMeter::Clock::now();
    meter->exchangeBegan(request, {});
    ASSERT_TRUE(meter->underWay());
    EXPECT_EQ(meter->underWay()->operation, "read");
    EXPECT_GE(meter->underWay()->since, before);
    meter->answerArrived();
    meter->exchangeEnded(request, {});
    EXPECT_FALSE(meter->underWay());
}

class Noted final : public kemvi::ExchangeObserver {
public:
    void exchangeBegan(const kemvi::HelperRequest& request,
                       const kemvi::HelperRequestEncoder::Line&) noexcept override {
        notes += "(" + request.op;
    }

    void answerArrived() noexcept override { notes += "."; }

    void exchangeEnded(const kemvi::HelperRequest& request, const ExchangeEnd&) noexcept override {
        notes += request.op + ")";
    }

    std::string notes;
};

TEST_F(ExchangeMeterTest, passesWholeExchangesOnToItsListeners) {
    Noted noted;
    kemvi::HelperRequest request;
    request.op = "open";
    meter->exchangeBegan(request, {});
    meter->add(noted);
    meter->answerArrived();
    meter->exchangeEnded(request, {});
    EXPECT_EQ(noted.notes, "") << "of that one it did not hear the beginning";
    exchange(*meter, "read");
    EXPECT_EQ(noted.notes, "(read.read)");
    meter->remove(noted);
    exchange(*meter, "read");
    EXPECT_EQ(noted.notes, "(read.read)");
}

} // namespace
} // namespace cli
