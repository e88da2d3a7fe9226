#pragma once

#include "control/Members.h"
#include "foundation/Descriptor.h"
#include "helper/JSONValue.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace control {

/// Why a channel gave no answer.
class ChannelError : public std::runtime_error {
public:
    enum class Kind {
        unreachable, // nobody listens, or this user may not connect
        foreign,     // whoever listens is not the process that was expected
        silent,      // no answer in time
        broken,      // the connection ended, or what came is no line of the channel
        refused      // answered with an error; `code` says which
    };

    ChannelError(Kind kind, const std::string& message, std::string code = {})
        : std::runtime_error(message), kind_(kind), code_(std::move(code)) {}

    Kind kind() const { return kind_; }

    /// The code of a refusal ("denied", "unknownOperation", "badMember", ...); empty for other kinds.
    const std::string& code() const { return code_; }

private:
    Kind kind_;
    std::string code_;
};

/// One connection to the control channel of a mount; cli/MountChannel.h finds the channel of a mount point. Movable,
/// not thread-safe. Nothing here waits longer than it was told to; all functions throw ChannelError.
class ControlClient {
public:
    using Limit = std::chrono::milliseconds;
    static constexpr Limit usualLimit{2000};

    /// Connects, checks that it is process `expected` that listens, and reads the first line. `socketPath` is absolute.
    ControlClient(const std::string& socketPath, pid_t expected, Limit limit = usualLimit);

    /// What the first line says: "kemvi" (version), "channel", "mountPoint".
    const kemvi::JSONObject& greeting() const { return greeting_; }

    /// Asks one thing and returns the members of its answer. A refusal is thrown (Kind::refused).
    kemvi::JSONObject ask(std::string_view operation, const Members& members = {}, Limit limit = usualLimit);

    /// The next line of a stream (after `ask`), without its line break, valid until the next call; nothing if the
    /// stream has ended. Without a limit it waits for as long as it takes. Throws Kind::silent at the limit.
    std::optional<std::string_view> nextLine(std::optional<Limit> limit = std::nullopt);

    /// The same if a whole line is there already; nothing otherwise. Reads what has arrived, waits for nothing.
    /// `ended()` tells whether more can come.
    std::optional<std::string_view> lineAtHand();

    bool ended() const { return ended_; }

    /// For poll(2): readable when something has arrived. What was read already does not show there: take lines with
    /// `lineAtHand` until there is none, then wait.
    int descriptor() const { return socket_.number(); }

private:
    friend class OpenQuestion; // has many conversations at once, step by step
    using Clock = std::chrono::steady_clock;

    /// Not connected yet.
    ControlClient();
    /// False where the server lets others wait for the moment.
    bool connects(const std::string& socketPath, pid_t expected);
    void takeGreeting(kemvi::JSONObject greeting);
    static kemvi::JSONObject answerOf(std::optional<std::string_view> line);

    void send(std::string_view line, Clock::time_point until);
    kemvi::JSONObject answerUntil(Clock::time_point until);
    std::optional<std::string_view> lineUntil(std::optional<Clock::time_point> until);
    std::optional<std::string_view> wholeLine();
    bool receive(); // true if something came
    void awaitEvent(short events, std::optional<Clock::time_point> until) const;

    foundation::Descriptor socket_;
    kemvi::JSONObject greeting_;
    std::string received_;
    std::size_t taken_ = 0;    // of received_
    std::size_t searched_ = 0; // of received_: no line break before it, from taken_ on
    bool ended_ = false;
};

} // namespace control
