#include "cli/metrics/PageServer.h"

#include "cli/CommandError.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace cli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 2s;
constexpr auto breath = 100ms; // before trying again what the system refuses for the moment
constexpr std::size_t longestRequest = 8192;
constexpr int backlog = 16;

struct Address {
    std::string host;
    std::uint16_t port = 0;
    bool isVersion6 = false;
};

[[noreturn]] void refuse(const std::string& address) {
    throw CommandError(ExitCode::usage, "--listen " + address,
                       "expected an address and a port, such as 127.0.0.1:9469 or [::1]:9469");
}

Address parsed(const std::string& address) {
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos)
        refuse(address);
    Address found;
    found.host = address.substr(0, colon);
    found.isVersion6 = found.host.starts_with('[') && found.host.ends_with(']');
    if (found.isVersion6)
        found.host = found.host.substr(1, found.host.size() - 2);
    const char* const end = address.data() + address.size();
    const auto [read, error] = std::from_chars(address.data() + colon + 1, end, found.port);
    if (error != std::errc() || read != end || colon + 1 == address.size())
        refuse(address);
    return found;
}

/// What bind(2) takes.
struct Bound {
    sockaddr_storage storage{};
    socklen_t size = 0;

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Bound boundTo(const Address& address, const std::string& text) {
    Bound bound;
    if (address.isVersion6) {
        auto* inet = reinterpret_cast<sockaddr_in6*>(&bound.storage);
        inet->sin6_family = AF_INET6;
        inet->sin6_port = htons(address.port);
        bound.size = sizeof *inet;
        if (::inet_pton(AF_INET6, address.host.c_str(), &inet->sin6_addr) != 1)
            refuse(text);
    } else {
        auto* inet = reinterpret_cast<sockaddr_in*>(&bound.storage);
        inet->sin_family = AF_INET;
        inet->sin_port = htons(address.port);
        bound.size = sizeof *inet;
        if (::inet_pton(AF_INET, address.host.c_str(), &inet->sin_addr) != 1)
            refuse(text);
    }
    return bound;
}

std::uint16_t portOf(int socket) {
    Bound bound;
    bound.size = sizeof bound.storage;
    ::getsockname(socket, bound.get(), &bound.size);
    return ntohs(bound.storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound.storage)->sin6_port
                                                     : reinterpret_cast<sockaddr_in*>(&bound.storage)->sin_port);
}

bool waitFor(int socket, short events, Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    pollfd polled{socket, events, 0};
    return left > 0 && ::poll(&polled, 1, static_cast<int>(left)) > 0;
}

/// The head of a request; nothing if none comes in time.
std::optional<std::string> receivedHead(int socket) {
    const auto until = Clock::now() + patience;
    std::string head;
    std::array<char, 1024> part{};
    while (head.find("\r\n\r\n") == std::string::npos) {
        if (head.size() > longestRequest || !waitFor(socket, POLLIN, until))
            return std::nullopt;
        const ssize_t count = ::recv(socket, part.data(), part.size(), MSG_DONTWAIT);
        if (count <= 0)
            return std::nullopt;
        head.append(part.data(), static_cast<std::size_t>(count));
    }
    return head;
}

void send(int socket, std::string_view text) {
    const auto until = Clock::now() + patience;
    while (!text.empty() && waitFor(socket, POLLOUT, until)) {
        const ssize_t count = ::send(socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string response(const char* status, const std::string& type, const std::string& body, const char* more = "") {
    return std::string("HTTP/1.1 ") + status + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n" + more + "\r\n" + body;
}

} // namespace

PageServer::PageServer(const std::string& address, std::string path, std::string type)
    : path_(std::move(path)), type_(std::move(type)) {
    const Address where = parsed(address);
    Bound bound = boundTo(where, address);
    socket_ = foundation::Descriptor(::socket(bound.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    if (!socket_.isOpen() || ::setsockopt(socket_.number(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        ::bind(socket_.number(), bound.get(), bound.size) != 0 || ::listen(socket_.number(), backlog) != 0)
        throw CommandError(ExitCode::failure, "--listen " + address, "cannot listen there: " + errnoText(errno));
    host_ = where.isVersion6 ? "[" + where.host + "]" : where.host;
    port_ = portOf(socket_.number());
}

std::string PageServer::url() const {
    return "http://" + host_ + ":" + std::to_string(port_) + path_;
}

void PageServer::answerNext(const std::function<std::string()>& page) {
    const foundation::Descriptor connection(::accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isOpen()) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            std::this_thread::sleep_for(breath);
        return;
    }
    if (const auto head = receivedHead(connection.number()))
        send(connection.number(), answerTo(*head, page));
    ::shutdown(connection.number(), SHUT_WR);
}

std::string PageServer::answerTo(std::string_view request, const std::function<std::string()>& page) const {
    const std::string plain = "text/plain; charset=utf-8";
    const std::string_view line = request.substr(0, request.find("\r\n"));
    const std::size_t first = line.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos || !line.substr(second + 1).starts_with("HTTP/"))
        return response("400 Bad Request", plain, "expected a request of HTTP\n");
    const std::string_view method = line.substr(0, first);
    std::string_view target = line.substr(first + 1, second - first - 1);
    target = target.substr(0, target.find('?'));
    if (method != "GET" && method != "HEAD")
        return response("405 Method Not Allowed", plain, "only GET and HEAD\n", "Allow: GET, HEAD\r\n");
    if (target != path_)
        return response("404 Not Found", plain, "there is nothing but " + path_ + "\n");
    std::string whole = response("200 OK", type_, page());
    if (method == "HEAD")
        whole.resize(whole.find("\r\n\r\n") + 4);
    return whole;
}

} // namespace cli
