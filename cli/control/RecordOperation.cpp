#include "cli/control/RecordOperation.h"

#include "cli/CommandError.h"
#include "cli/record/RecordSettings.h"
#include "cli/record/RecordTap.h"
#include "recording/Output.h"
#include "recording/RecordingError.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace cli {

namespace {

constexpr std::size_t room = std::size_t{64} << 20; // bytes that may wait for a peer

/// Hands a recording to a peer, line by line. Before it has one it keeps what is written.
class PeerOutput final : public recording::Output {
public:
    /// Before anything but the header is written.
    void sendTo(std::shared_ptr<control::LineStream> stream) {
        stream_ = std::move(stream);
        send();
    }

    void write(std::string_view bytes) override {
        begun_ += bytes;
        if (stream_)
            send();
    }

    void flush() override {}

    void finish() override {
        if (stream_)
            stream_->end();
    }

private:
    void send() {
        std::size_t start = 0;
        for (auto end = begun_.find('\n'); end != std::string::npos; end = begun_.find('\n', start)) {
            if (!stream_->push(begun_.substr(start, end - start)) && !stream_->isWanted())
                throw recording::RecordingError("nobody reads it any more");
            start = end + 1;
        }
        begun_.erase(0, start);
    }

    std::shared_ptr<control::LineStream> stream_; // or null
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

/// Made before the peer is answered, who would wait for lines that never come.
std::unique_ptr<recording::Writer> writerInto(std::unique_ptr<recording::Output> output,
                                              const recording::Settings& settings, const std::string& mountPoint) {
    try {
        return std::make_unique<recording::Writer>(std::move(output), settings, KEMVI_VERSION, mountPoint, nullptr);
    } catch (const std::system_error& error) {
        throw control::Refusal("failed", std::string("cannot begin to record: ") + error.what());
    }
}

} // namespace

void addRecordOperation(control::ControlServer& server, const std::string& mountPoint, ExchangeMeter& exchanges,
                        TraceFeed& requests) {
    server.handle("record", {"payloads", "scramble"},
                  [mountPoint, &exchanges, &requests](const control::Request& request, control::Reply& reply) {
                      const recording::Settings settings = settingsOf(request);
                      auto output = std::make_unique<PeerOutput>();
                      PeerOutput& peer = *output;
                      auto writer = writerInto(std::move(output), settings, mountPoint);
                      const auto tap = std::make_shared<std::unique_ptr<RecordTap>>();
                      peer.sendTo(reply.stream(
                          {}, [tap] { tap->reset(); }, room));
                      *tap = std::make_unique<RecordTap>(exchanges, requests, std::move(writer));
                  });
}

} // namespace cli
