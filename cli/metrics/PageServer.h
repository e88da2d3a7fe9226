#pragma once

#include "foundation/Descriptor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace cli {

/// Serves one page over HTTP to whoever asks for its path, one connection after the other; each is given at most two
/// seconds to ask. For a server that collects figures now and then.
class PageServer {
public:
    /// `address` is a number and a port: "127.0.0.1:9469", "[::1]:9469". Port 0: one that is free. Throws CommandError.
    PageServer(const std::string& address, std::string path, std::string type);

    /// The address, with the port that was given.
    std::string url() const;

    /// Answers one connection; `page` is asked for what to serve. Waits for it without a time limit. Throws nothing but
    /// for want of memory; what goes wrong with a connection ends that.
    void answerNext(const std::function<std::string()>& page);

private:
    std::string answerTo(std::string_view request, const std::function<std::string()>& page) const;

    const std::string path_;
    const std::string type_;
    foundation::Descriptor socket_;
    std::string host_;
    std::uint16_t port_ = 0;
};

} // namespace cli
