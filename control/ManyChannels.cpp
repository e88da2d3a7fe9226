#include "control/ManyChannels.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <utility>

namespace control {

using Clock = std::chrono::steady_clock;
using Kind = ChannelError::Kind;

namespace {

constexpr auto untilNextTry = std::chrono::milliseconds(10);

} // namespace

/// One conversation, that goes on where something has come for it.
class OpenQuestion {
public:
    OpenQuestion(const ChannelAddress& channel, std::string_view operation, ChannelAnswer& answer,
                 ControlClient::Limit limit)
        : channel_(channel), operation_(operation), answer_(answer), until_(Clock::now() + limit) {}

    /// Does what can be done without waiting. True once there is an answer, or will be none.
    bool goesOn() {
        try {
            if (takeSteps())
                return true;
            if (Clock::now() >= until_)
                throw ChannelError(Kind::silent, isConnected_ ? "does not answer" : "takes no connection");
        } catch (const ChannelError& error) {
            answer_.problem = error;
            return true;
        }
        return false;
    }

    /// When it is to go on even if nothing came.
    Clock::time_point nextLook() const { return isConnected_ ? until_ : std::min(until_, nextTry_); }

    /// For poll(2); -1 while there is nothing to be seen there.
    int descriptor() const { return isConnected_ ? client_->descriptor() : -1; }

private:
    bool takeSteps() {
        if (!client_)
            client_.reset(new ControlClient());
        if (!isConnected_ && !client_->connects(channel_.socketPath, channel_.process)) {
            nextTry_ = Clock::now() + untilNextTry;
            return false;
        }
        isConnected_ = true;
        if (!isGreeted_) {
            auto greeting = nextAnswer();
            if (!greeting)
                return false;
            client_->takeGreeting(std::move(*greeting));
            isGreeted_ = true;
            client_->send(Members().add("op", operation_).json() + "\n", until_);
        }
        answer_.members = nextAnswer();
        return answer_.members.has_value();
    }

    /// Nothing if it has not come yet.
    std::optional<kemvi::JSONObject> nextAnswer() {
        const auto line = client_->lineAtHand();
        if (!line && !client_->ended())
            return std::nullopt;
        return ControlClient::answerOf(line);
    }

    const ChannelAddress& channel_;
    const std::string_view operation_;
    ChannelAnswer& answer_;
    const Clock::time_point until_;
    Clock::time_point nextTry_ = Clock::now();
    std::unique_ptr<ControlClient> client_;
    bool isConnected_ = false;
    bool isGreeted_ = false;
};

namespace {

using OpenQuestions = std::vector<std::unique_ptr<OpenQuestion>>;

/// Waits until one of them can go on, and removes those that are done.
void goOn(OpenQuestions& open) {
    std::vector<pollfd> sources;
    auto until = Clock::time_point::max();
    for (const auto& question : open) {
        sources.push_back({question->descriptor(), POLLIN, 0});
        until = std::min(until, question->nextLook());
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    ::poll(sources.data(), sources.size(), static_cast<int>(std::max<std::int64_t>(0, left)));
    auto source = sources.begin();
    std::erase_if(open, [&](const auto& question) {
        const bool hasNews = (source++)->revents != 0;
        return (hasNews || Clock::now() >= question->nextLook()) && question->goesOn();
    });
}

} // namespace

std::vector<ChannelAnswer> askAll(const std::vector<ChannelAddress>& channels, std::string_view operation,
                                  ControlClient::Limit limit) {
    std::vector<ChannelAnswer> answers(channels.size());
    OpenQuestions open;
    for (std::size_t next = 0; next < channels.size() || !open.empty();) {
        for (; next < channels.size() && open.size() < mostChannelsAtOnce; ++next) {
            auto question = std::make_unique<OpenQuestion>(channels[next], operation, answers[next], limit);
            if (!question->goesOn())
                open.push_back(std::move(question));
        }
        if (!open.empty())
            goOn(open);
    }
    return answers;
}

} // namespace control
