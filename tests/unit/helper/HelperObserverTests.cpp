#include "ShellAsNode.h"
#include "foundation/Error.h"
#include "helper/HelperClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace kemvi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Notes what it is told.
class Notes final : public HelperObserver {
public:
    void helperStarted(const std::shared_ptr<foundation::ChildProcess>& helper) noexcept override {
        EXPECT_TRUE(helper->isRunning());
        add("started", helper);
    }

    void helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                     const std::string& lastRequest) noexcept override {
        add("ended|" + lastRequest, helper);
    }

    std::vector<std::string> texts() {
        const std::lock_guard guard(lock_);
        return texts_;
    }

    std::shared_ptr<foundation::ChildProcess> helper() {
        const std::lock_guard guard(lock_);
        return helper_;
    }

private:
    void add(const std::string& text, const std::shared_ptr<foundation::ChildProcess>& helper) {
        const std::lock_guard guard(lock_);
        EXPECT_TRUE(texts_.empty() || helper_ == helper);
        texts_.push_back(text);
        helper_ = helper;
    }

    std::mutex lock_;
    std::vector<std::string> texts_;
    std::shared_ptr<foundation::ChildProcess> helper_;
};

class HelperObservers : public testing::Test {
protected:
    HelperObservers() { std::signal(SIGPIPE, SIG_IGN); }

    HelperClient clientOf(const std::string& text) { return {node_.helper(text), node_.environment(), &notes_}; }

    static void expectEndOfOutput(HelperClient& client) {
        try {
            client.getattr("/a");
            ADD_FAILURE() << "it was answered";
        } catch (const foundation::Error& error) {
            EXPECT_EQ(error.description(), "helper closed stdout");
        }
    }

    ShellAsNode node_;
    Notes notes_;
};

TEST_F(HelperObservers, areToldOfTheStartAndOfTheEndThatWasAskedFor) {
    auto client = clientOf("while read -r request; do :; done; exit 3");
    EXPECT_THAT(notes_.texts(), IsEmpty());
    client.start();
    EXPECT_THAT(notes_.texts(), ElementsAre("started"));
    EXPECT_EQ(notes_.helper()->processIdentifier(), client.processIdentifier());
    client.stop();
    EXPECT_THAT(notes_.texts(), ElementsAre("started", "ended|"));
    ASSERT_TRUE(notes_.helper()->exitStatus());
    EXPECT_EQ(notes_.helper()->exitStatus()->code(), 3);
}

TEST_F(HelperObservers, areToldOnceOfOneEnd) {
    auto client = clientOf("while read -r request; do exit 1; done");
    client.start();
    expectEndOfOutput(client);
    EXPECT_THAT(notes_.texts(), ElementsAre("started", "ended|getattr"));
    expectEndOfOutput(client);
    client.stop();
    client.stop();
    EXPECT_THAT(notes_.texts(), ElementsAre("started", "ended|getattr"));
    EXPECT_EQ(notes_.helper()->exitStatus()->code(), 1);
}

TEST_F(HelperObservers, areToldOnceByThreadsThatMeetTheEndAtOnce) {
    auto client = clientOf("read -r request; exit 1");
    client.start();
    std::vector<std::thread> askers;
    for (int i = 0; i < 8; ++i)
        askers.emplace_back([&] { expectEndOfOutput(client); });
    for (std::thread& asker : askers)
        asker.join();
    client.stop();
    EXPECT_THAT(notes_.texts(), ElementsAre("started", "ended|getattr"));
}

TEST_F(HelperObservers, areToldThatTheOutputOfARunningHelperHasEnded) {
    auto client = clientOf("exec >&-; while read -r request; do :; done");
    client.start();
    expectEndOfOutput(client);
    EXPECT_THAT(notes_.texts(), ElementsAre("started", "ended|getattr"));
    EXPECT_TRUE(notes_.helper()->isRunning());
    client.stop();
    EXPECT_EQ(notes_.helper()->exitStatus()->code(), 0);
}

TEST_F(HelperObservers, areNotToldOfAHelperThatCouldNotBeStarted) {
    HelperClient client(node_.helper("exit 0"), {{"LARGE", std::string(std::size_t{1} << 20, 'x')}}, &notes_);
    EXPECT_THROW(client.start(), foundation::Error);
    client.stop();
    EXPECT_THAT(notes_.texts(), IsEmpty());
}

TEST_F(HelperObservers, areNotToldOfAnEndWhenTheClientIsJustLetGo) {
    {
        auto client = clientOf("while read -r request; do :; done; exit 5");
        client.start();
    }
    EXPECT_THAT(notes_.texts(), ElementsAre("started"));
    notes_.helper()->waitUntilExit(); // how it ended can be asked all the same
    EXPECT_EQ(notes_.helper()->exitStatus()->code(), 5);
}

} // namespace
} // namespace kemvi
