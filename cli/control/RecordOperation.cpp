#include "cli/control/RecordOperation.h"

#include "cli/CommandError.h"
#include "cli/record/RecordSettings.h"
#include "cli/record/RecordTap.h"
#include "recording/Output.h"
#include "recording/RecordingError.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace cli {

namespace {

constexpr std::size_t room = std::size_t{64} << 20; // bytes that may wait for a peer

/// Hands a recording to a peer, line by line.
class PeerOutput final : public recording::Output {
public:
    explicit PeerOutput(std::shared_ptr<control::LineStream> stream) : stream_(std::move(stream)) {}

    void write(std::string_view bytes) override {
        begun_ += bytes;
        std::size_t start = 0;
        for (auto end = begun_.find('\n'); end != std::string::npos; end = begun_.find('\n', start)) {
            if (!stream_->push(begun_.substr(start, end - start)) && !stream_->isWanted())
                throw recording::RecordingError("nobody reads it any more");
            start = end + 1;
        }
        begun_.erase(0, start);
    }

    void flush() override {}

    void finish() override { stream_->end(); }

private:
    const std::shared_ptr<control::LineStream> stream_;
    std::string begun_;
};

recording::Settings settingsOf(const control::Request& request) {
    RecordOptions options{request.text("payloads").value_or(""), request.isSet("scramble")};
    try {
        return options.settings();
    } catch (const CommandError& error) {
        throw control::Refusal("badMember", error.what());
    }
}

} // namespace

void addRecordOperation(control::ControlServer& server, const std::string& mountPoint, ExchangeMeter& exchanges,
                        TraceFeed& requests) {
    server.handle("record", {"payloads", "scramble"},
                  [mountPoint, &exchanges, &requests](const control::Request& request, control::Reply& reply) {
                      const recording::Settings settings = settingsOf(request);
                      const auto tap = std::make_shared<std::unique_ptr<RecordTap>>();
                      const auto stream = reply.stream(
                          {}, [tap] { tap->reset(); }, room);
                      auto writer = std::make_unique<recording::Writer>(std::make_unique<PeerOutput>(stream), settings,
                                                                        KEMVI_VERSION, mountPoint, nullptr);
                      *tap = std::make_unique<RecordTap>(exchanges, requests, std::move(writer));
                  });
}

} // namespace cli
