#pragma once

#include "helper/HelperClient.h"

#include <csignal>
#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

/// The other ends of a client's pipes, byte by byte: what the helper will say is put in before the client asks, what
/// the client asked is read afterwards. No process and no thread, as long as it all fits into the pipes.
class PipePeer {
public:
    PipePeer() : client("/helper.mjs", {}) { std::signal(SIGPIPE, SIG_IGN); }

    /// Puts bytes into the helper's standard output, exactly as they are.
    void say(std::string_view bytes) { client.output().fileHandleForWriting().write(bytes); }

    void sayLine(std::string_view line) {
        say(line);
        say("\n");
    }

    /// Ends the helper's standard output.
    void hangUp() { client.output().fileHandleForWriting().close(); }

    /// The next request line without its line feed.
    std::string request() {
        foundation::ByteBuffer line;
        return client.input().fileHandleForReading().readLine(line) ? std::string(line.view()) : "<end>";
    }

    HelperClient client;
};

} // namespace kemvi
