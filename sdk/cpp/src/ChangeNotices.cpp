#include "ChangeNotices.h"

#include "Errors.h"
#include "foundation/JSON.h"
#include "foundation/JSONWriter.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace kemvi::kit {
namespace {

/// A connection to the socket at a path, or errno. It does not wait for a mount that lets nobody in.
foundation::Descriptor connectTo(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    foundation::Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connection.isOpen() ||
        ::connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    if (::fcntl(connection.number(), F_SETFL, 0) != 0) // from here on reading waits
        return {};
    return connection;
}

/// What a line of the mount says, as far as it is of interest.
struct Said {
    std::optional<bool> isOk;
    std::string message;
    std::string code;
};

/// Throws foundation::DecodingError.
Said saidIn(const std::string& line) {
    Said said;
    foundation::JSONReader reader;
    reader.readObject(line, [&](std::string_view key, foundation::JSONElement& value) {
        if (key == "ok" && value.type() == foundation::JSONType::boolean)
            said.isOk = value.boolean();
        else if (key == "error" && value.type() == foundation::JSONType::object)
            value.forEachMember([&](std::string_view name, foundation::JSONElement& part) {
                if (part.type() != foundation::JSONType::string)
                    return;
                if (name == "message")
                    said.message = part.string();
                else if (name == "code")
                    said.code = part.string();
            });
    });
    return said;
}

/// A thread of the kit's takes no signal that the program handles.
std::thread startWithoutSignals(std::function<void()> run) {
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread started;
    try {
        started = std::thread(std::move(run));
    } catch (...) {
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace

ChangeNotices::ChangeNotices(std::string address, Reporter say)
    : address_(std::move(address)), say_(std::move(say)), thread_(startWithoutSignals([this] { run(); })) {}

ChangeNotices::~ChangeNotices() {
    {
        const std::lock_guard guard(lock_);
        isEnding_ = true;
        if (socket_.isOpen())
            ::shutdown(socket_.number(), SHUT_RDWR); // ends whatever waits for it
    }
    changed_.notify_all();
    thread_.join();
}

void ChangeNotices::add(std::span<const std::string> paths) {
    const std::lock_guard guard(lock_);
    for (const std::string& path : paths)
        if (isWaiting_.insert(path).second)
            waiting_.push_back(path);
    if (waiting_.size() > mostWaiting) {
        waiting_ = {"/"};
        isWaiting_ = {"/"};
    }
    changed_.notify_all();
}

void ChangeNotices::run() {
    Guard guard(lock_);
    while (!isEnding_) {
        changed_.wait(guard, [&] { return isEnding_ || !waiting_.empty(); });
        if (isEnding_)
            return;
        try {
            tell(guard);
        } catch (...) { // no memory, say
            if (!guard.owns_lock())
                guard.lock();
            disconnect();
            restoreAsked();
            pause(guard);
        }
    }
}

void ChangeNotices::tell(Guard& guard) {
    if (isStale())
        disconnect();
    bool isTold = socket_.isOpen() || connect(guard);
    if (isEnding_)
        return;
    if (isTold) {
        const std::string request = takeRequest();
        guard.unlock();
        isTold = send(request) && hear();
        guard.lock();
    }
    if (isTold) {
        asked_.clear();
        return;
    }
    disconnect();
    restoreAsked();
    pause(guard);
}

bool ChangeNotices::connect(Guard& guard) {
    foundation::Descriptor connection = connectTo(address_);
    const int problem = errno;
    received_.clear();
    const bool isConnected = connection.isOpen();
    socket_ = std::move(connection); // seen by who ends this from here on
    guard.unlock();
    bool isGreeted = false;
    if (isConnected)
        isGreeted = hear();
    else
        sayOnce("changed: the mount is not to be reached at " + address_ + " (" + errorName(problem) +
                "); goes on trying");
    guard.lock();
    return isGreeted;
}

void ChangeNotices::disconnect() {
    socket_.reset();
}

bool ChangeNotices::isStale() const {
    pollfd unasked{socket_.number(), POLLIN, 0};
    return socket_.isOpen() && ::poll(&unasked, 1, 0) != 0;
}

// Needs lock_.
std::string ChangeNotices::takeRequest() {
    std::string request = R"({"op":"invalidate","paths":[)";
    std::size_t length = 0;
    std::size_t count = 0;
    for (; count < waiting_.size(); ++count) {
        const std::string& path = waiting_[count];
        if (count > 0 && length + path.size() > mostPerRequest)
            break;
        request += (count > 0 ? "," : "") + foundation::jsonString(path);
        length += path.size() + 1;
    }
    const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(count);
    asked_.assign(waiting_.begin(), end);
    waiting_.erase(waiting_.begin(), end);
    for (const std::string& path : asked_)
        isWaiting_.erase(path);
    return request + "]}\n";
}

// Needs lock_.
void ChangeNotices::restoreAsked() {
    for (std::string& path : asked_)
        if (isWaiting_.insert(path).second)
            waiting_.push_back(std::move(path));
    asked_.clear();
}

bool ChangeNotices::send(std::string_view text) const {
    while (!text.empty()) {
        const ssize_t sent = ::send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool ChangeNotices::hear() {
    std::size_t end = std::string::npos;
    while ((end = received_.find('\n')) == std::string::npos) {
        char bytes[4096];
        const ssize_t count = ::recv(socket_.number(), bytes, sizeof bytes, 0);
        if (count <= 0)
            return false;
        received_.append(bytes, static_cast<std::size_t>(count));
    }
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    try {
        const Said said = saidIn(line);
        if (said.isOk == false && said.code != "ending")
            sayOnce("changed: " + said.message);
    } catch (const foundation::DecodingError&) {
        return false; // whoever that is
    }
    pause_ = firstPause;
    return true;
}

void ChangeNotices::pause(Guard& guard) {
    changed_.wait_for(guard, pause_, [&] { return isEnding_; });
    pause_ = std::min(2 * pause_, longestPause);
}

void ChangeNotices::sayOnce(const std::string& text) {
    if (said_.insert(text).second)
        say_(text);
}

} // namespace kemvi::kit
