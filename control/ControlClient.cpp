#include "control/ControlClient.h"

#include "control/JSONText.h"
#include "control/SocketAddress.h"
#include "foundation/Error.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

namespace control {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = ChannelError::Kind;

constexpr std::size_t pieceSize = std::size_t{64} << 10;
constexpr auto untilNextTry = std::chrono::milliseconds(10);

[[noreturn]] void throwErrno(const std::string& what) {
    throw ChannelError(Kind::unreachable, what + ": " + std::generic_category().message(errno));
}

void checkListener(const foundation::Descriptor& socket, pid_t expected) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        credentials.pid != expected) {
        throw ChannelError(Kind::foreign, "the socket belongs to process " + std::to_string(credentials.pid) +
                                              ", not to " + std::to_string(expected));
    }
}

kemvi::JSONObject parsed(std::string_view line) {
    try {
        return parsedObject(line);
    } catch (const foundation::Error& error) {
        throw ChannelError(Kind::broken, "what it says is no line of a channel: " + error.description());
    }
}

std::string textOf(const kemvi::JSONObject& object, std::string_view name, const char* otherwise) {
    const auto* value = object.find(name);
    return value != nullptr && value->asString() != nullptr ? *value->asString() : otherwise;
}

/// Throws the refusal, if it is one.
void checkRefusal(const kemvi::JSONObject& answer) {
    const auto* ok = answer.find("ok");
    if (ok == nullptr || ok->asBool() == nullptr || *ok->asBool())
        return;
    const auto* error = answer.find("error");
    if (error == nullptr || error->asObject() == nullptr)
        throw ChannelError(Kind::refused, "it gives no reason", "failed");
    const auto& reason = *error->asObject();
    throw ChannelError(Kind::refused, textOf(reason, "message", "it gives no reason"),
                       textOf(reason, "code", "failed"));
}

} // namespace

ControlClient::ControlClient() : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (!socket_.isOpen())
        throwErrno("socket");
}

ControlClient::ControlClient(const std::string& socketPath, pid_t expected, Limit limit) : ControlClient() {
    const auto until = Clock::now() + limit;
    while (!connects(socketPath, expected)) {
        if (Clock::now() >= until)
            throw ChannelError(Kind::silent, "takes no connection");
        std::this_thread::sleep_for(untilNextTry);
    }
    takeGreeting(answerUntil(until));
}

bool ControlClient::connects(const std::string& socketPath, pid_t expected) {
    const auto slash = socketPath.rfind('/');
    const foundation::Descriptor folder(::open(socketPath.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (slash == std::string::npos || !folder.isOpen())
        throwErrno(socketPath);
    const SocketAddress address(folder, socketPath.substr(slash + 1));
    if (::connect(socket_.number(), address.get(), address.size()) != 0) {
        if (errno == EAGAIN || errno == EINTR)
            return false;
        throwErrno(socketPath);
    }
    checkListener(socket_, expected);
    return true;
}

void ControlClient::takeGreeting(kemvi::JSONObject greeting) {
    greeting_ = std::move(greeting);
    if (greeting_.find("channel") == nullptr)
        throw ChannelError(Kind::broken, "what it says is no channel of a mount");
}

kemvi::JSONObject ControlClient::ask(std::string_view operation, const Members& members, Limit limit) {
    const auto until = Clock::now() + limit;
    send(Members().add("op", operation).append(members).json() + "\n", until);
    return answerUntil(until);
}

kemvi::JSONObject ControlClient::answerUntil(Clock::time_point until) {
    return answerOf(lineUntil(until));
}

kemvi::JSONObject ControlClient::answerOf(std::optional<std::string_view> line) {
    if (!line)
        throw ChannelError(Kind::broken, "the connection ended");
    auto answer = parsed(*line);
    checkRefusal(answer);
    return answer;
}

std::optional<std::string_view> ControlClient::nextLine(std::optional<Limit> limit) {
    return lineUntil(limit ? std::optional(Clock::now() + *limit) : std::nullopt);
}

std::optional<std::string_view> ControlClient::lineUntil(std::optional<Clock::time_point> until) {
    for (;;) {
        if (const auto line = wholeLine())
            return line;
        if (ended_)
            return std::nullopt;
        awaitEvent(POLLIN, until);
        receive();
    }
}

std::optional<std::string_view> ControlClient::lineAtHand() {
    for (;;) {
        if (const auto line = wholeLine())
            return line;
        if (ended_ || !receive())
            return std::nullopt;
    }
}

std::optional<std::string_view> ControlClient::wholeLine() {
    const auto end = received_.find('\n', searched_);
    if (end == std::string::npos) {
        searched_ = received_.size();
        return std::nullopt;
    }
    const auto line = std::string_view(received_).substr(taken_, end - taken_);
    taken_ = searched_ = end + 1;
    return line;
}

bool ControlClient::receive() {
    received_.erase(0, taken_);
    searched_ -= taken_;
    taken_ = 0;
    const auto before = received_.size();
    received_.resize(before + pieceSize);
    const auto count = ::recv(socket_.number(), received_.data() + before, pieceSize, 0);
    const int error = errno;
    received_.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    ended_ = count == 0 || (count < 0 && error != EAGAIN && error != EINTR);
    return count > 0;
}

void ControlClient::awaitEvent(short events, std::optional<Clock::time_point> until) const {
    for (;;) {
        int timeout = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now());
            timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
        }
        pollfd source{socket_.number(), events, 0};
        const int ready = ::poll(&source, 1, timeout);
        if (ready > 0)
            return;
        if (ready == 0 && Clock::now() >= *until)
            throw ChannelError(Kind::silent, "does not answer");
    }
}

void ControlClient::send(std::string_view line, Clock::time_point until) {
    while (!line.empty()) {
        const auto count = ::send(socket_.number(), line.data(), line.size(), MSG_NOSIGNAL);
        if (count >= 0)
            line.remove_prefix(static_cast<std::size_t>(count));
        else if (errno == EAGAIN)
            awaitEvent(POLLOUT, until);
        else if (errno == EPIPE || errno == ECONNRESET)
            return; // what it said last is still to be read
        else if (errno != EINTR)
            throw ChannelError(Kind::broken, "the connection broke");
    }
}

} // namespace control
