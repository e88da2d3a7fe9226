#pragma once

#include "helper/JSONValue.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace control {

/// What an operation answers where it cannot do what it was asked: a handler throws it, or hands its parts to
/// Reply::refuse. The code is one word for programs ("badMember"), the message a sentence for people.
class Refusal : public std::runtime_error {
public:
    Refusal(std::string code, const std::string& message) : std::runtime_error(message), code_(std::move(code)) {}

    const std::string& code() const { return code_; }

private:
    std::string code_;
};

/// Who asks, as the kernel vouches for it at the time of the connection.
struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
};

/// One request line. Immutable. Members that the operation does not know were refused before it was asked.
class Request {
public:
    Request(std::string operation, kemvi::JSONObject members, Peer peer)
        : operation_(std::move(operation)), members_(std::move(members)), peer_(peer) {}

    const std::string& operation() const { return operation_; }

    const Peer& peer() const { return peer_; }

    const kemvi::JSONObject& members() const { return members_; }

    /// The member as it came; null where it is absent or null.
    const kemvi::JSONValue* find(std::string_view name) const;

    // The value of a member, or nothing where it is absent or null. Throw Refusal, which names the member and what was
    // expected, where it is of another type.
    std::optional<std::string> text(std::string_view name) const;
    std::optional<double> number(std::string_view name, double least, double most) const;
    std::optional<std::vector<std::string>> texts(std::string_view name) const;
    /// False where it is absent.
    bool isSet(std::string_view name) const;

private:
    std::string operation_;
    kemvi::JSONObject members_;
    Peer peer_;
};

/// Throws the refusal of a member: "NAME: expected EXPECTED".
[[noreturn]] void refuseMember(std::string_view name, std::string_view expected);

} // namespace control
