#include "control/ControlServer.h"

#include "control/Connection.h"
#include "control/JSONText.h"
#include "control/Lines.h"
#include "control/Mailbox.h"
#include "foundation/Error.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <list>
#include <map>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <set>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace control {

namespace {

using Clock = Connection::Clock;

/// How long connections wait where the process can have no more descriptors.
constexpr auto untilNextAccept = std::chrono::seconds(1);
constexpr int mostAtOnce = 32; // connections taken in one go

std::thread threadWithoutSignals(const std::function<void()>& work) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    try {
        std::thread thread(work);
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (...) {
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

std::optional<Peer> peerOf(const foundation::Descriptor& socket) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    return Peer{credentials.pid, credentials.uid};
}

struct Operation {
    std::set<std::string, std::less<>> members;
    ControlServer::Handler handler;
};

using Operations = std::map<std::string, Operation, std::less<>>;

/// "status, trace"
std::string namesOf(const Operations& operations) {
    std::string names;
    for (const auto& [name, operation] : operations)
        names += (names.empty() ? "" : ", ") + name;
    return names;
}

/// Throws Refusal.
Request parsedRequest(std::string_view line, Peer peer) {
    kemvi::JSONObject object;
    try {
        object = parsedObject(line);
    } catch (const foundation::Error& error) {
        throw Refusal("badRequest", "expected a JSON object in one line: " + error.description());
    }
    const auto* name = object.find("op");
    if (name == nullptr || name->asString() == nullptr)
        throw Refusal("badRequest", "\"op\": expected the name of an operation");
    std::string operation = *name->asString();
    return {std::move(operation), std::move(object), peer};
}

} // namespace

class ControlServer::Implementation {
public:
    Implementation(const Greeting& greeting, SocketFolder folder, std::chrono::milliseconds patience)
        : owner_(::geteuid()), greeting_(greetingLine(greeting.version, greeting.mountPoint)), patience_(patience),
          folder_(std::move(folder)), path_(folder_.pathFor(::getpid())), mailbox_(std::make_shared<Mailbox>()),
          listener_(folder_.listen()) {}

    ~Implementation() {
        stop();
        folder_.remove();
    }

    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    const std::string& path() const { return path_; }

    void handle(std::string name, std::vector<std::string> members, Handler handler) {
        Operation operation{{members.begin(), members.end()}, std::move(handler)};
        operation.members.insert("op");
        operations_.insert_or_assign(std::move(name), std::move(operation));
    }

    void start() {
        thread_ = threadWithoutSignals([this] {
            ::prctl(PR_SET_NAME, "kemvi-control");
            folder_.clear();
            while (!stopping_)
                guardedRound();
            endAll();
        });
    }

    void stop() noexcept {
        stopping_ = true;
        mailbox_->wake();
        if (thread_.joinable())
            thread_.join();
        mailbox_->close();
    }

private:
    using Connections = std::list<Connection>;

    /// Where memory runs out it is the peers that go, not the mount.
    void guardedRound() {
        try {
            round();
        } catch (const std::exception&) {
            for (const auto& connection : connections_)
                mailbox_->went(connection.number());
            connections_.clear();
        }
    }

    /// Waits for something to do, and does it.
    void round() {
        std::vector<pollfd> sources{{mailbox_->descriptor(), POLLIN, 0}};
        for (const auto& connection : connections_)
            sources.push_back({connection.descriptor(), connection.events(), 0});
        const bool accepting = !acceptAgain_;
        if (accepting)
            sources.push_back({listener_.number(), POLLIN, 0});
        if (::poll(sources.data(), sources.size(), timeout()) < 0)
            return;
        auto source = sources.begin();
        if (source->revents != 0)
            mailbox_->clear();
        for (auto& connection : connections_)
            hear(connection, (++source)->revents);
        if (accepting && (++source)->revents != 0)
            accept();
        else if (acceptAgain_ && Clock::now() >= *acceptAgain_)
            acceptAgain_.reset();
        deliver();
        for (auto& connection : connections_)
            answer(connection);
        dropGone();
    }

    /// When the channel loses patience with a peer.
    std::optional<Clock::time_point> patienceEnds(const Connection& connection) const {
        const auto since = connection.stuckSince();
        return since ? std::optional(*since + patience_) : std::nullopt;
    }

    int timeout() const {
        std::optional<Clock::time_point> next = acceptAgain_;
        for (const auto& connection : connections_)
            if (const auto ends = patienceEnds(connection); ends && (!next || *ends < *next))
                next = ends;
        if (!next)
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now());
        return static_cast<int>(std::max<std::int64_t>(0, left.count()));
    }

    void accept() {
        for (int i = 0; i < mostAtOnce; ++i) {
            foundation::Descriptor socket(
                ::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (!socket.isOpen()) {
                if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
                    acceptAgain_ = Clock::now() + untilNextAccept;
                return;
            }
            admit(std::move(socket));
        }
    }

    void admit(foundation::Descriptor socket) {
        const auto peer = peerOf(socket);
        std::string refusal;
        if (!peer || (peer->uid != owner_ && peer->uid != 0))
            refusal = refusalLine("denied", "only the owner of the mount and root may ask");
        else if (connections_.size() >= mostPeers)
            refusal = refusalLine("tooManyPeers", std::to_string(mostPeers) + " programs are connected already");
        if (!refusal.empty()) {
            [[maybe_unused]] const auto sent =
                ::send(socket.number(), refusal.data(), refusal.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            return;
        }
        const auto number = ++lastNumber_;
        connections_.emplace_back(std::move(socket), *peer, number);
        connections_.back().put(greeting_);
        mailbox_->came(number);
    }

    void hear(Connection& connection, short revents) {
        if ((revents & POLLIN) != 0)
            connection.receive();
        serve(connection);
        if ((revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)
            connection.noteGone();
    }

    /// Sends what there is; that makes room for answers to requests which have arrived already.
    void answer(Connection& connection) {
        do {
            serve(connection);
            connection.send();
        } while (connection.hasRequest());
    }

    /// Runs the requests that have arrived, one after the other as they are answered.
    void serve(Connection& connection) {
        while (const auto line = connection.nextRequest()) {
            run(connection, *line);
            deliver();
        }
        if (connection.isFlooded() && !connection.isFinishing()) {
            connection.put(
                refusalLine("badRequest", "a request may have " + std::to_string(longestRequest) + " bytes at most"));
            connection.finish();
        }
    }

    void run(Connection& connection, std::string_view line) {
        Reply reply(mailbox_, connection.number());
        try {
            ask(parsedRequest(line, connection.peer()), reply);
        } catch (const Refusal& refusal) {
            refuse(reply, refusal.code(), refusal.what());
        } catch (const std::exception& error) {
            refuse(reply, "failed", error.what());
        }
    }

    static void refuse(Reply& reply, std::string_view code, std::string_view message) {
        if (!reply.isAnswered())
            reply.refuse(code, message);
    }

    void ask(const Request& request, Reply& reply) {
        const auto found = operations_.find(request.operation());
        if (found == operations_.end()) {
            throw Refusal("unknownOperation",
                          "unknown operation \"" + request.operation() + "\"; known: " + namesOf(operations_));
        }
        const auto& known = found->second.members;
        for (const auto& [name, value] : request.members().members())
            if (!known.contains(name))
                throw Refusal("unknownMember", "\"" + request.operation() + "\" has no member \"" + name + "\"");
        found->second.handler(request, reply);
    }

    void deliver() {
        for (auto& delivery : mailbox_->take()) {
            const auto to = std::find_if(connections_.begin(), connections_.end(), [&](const Connection& connection) {
                return connection.number() == delivery.peer;
            });
            if (to == connections_.end())
                Mailbox::cutOff(delivery);
            else
                to->answer(std::move(delivery));
        }
    }

    void dropGone() {
        const auto now = Clock::now();
        for (auto at = connections_.begin(); at != connections_.end();) {
            const auto ends = patienceEnds(*at);
            if (at->isOver() || (ends && *ends <= now)) {
                mailbox_->went(at->number());
                at = connections_.erase(at);
            } else {
                ++at;
            }
        }
    }

    void endAll() {
        deliver();
        for (auto& connection : connections_) {
            if (connection.isAsked())
                connection.put(refusalLine("ending", "the mount ends"));
            connection.send();
        }
        connections_.clear();
    }

    const uid_t owner_;
    const std::string greeting_;
    const std::chrono::milliseconds patience_;
    SocketFolder folder_;
    const std::string path_;
    Operations operations_;
    std::shared_ptr<Mailbox> mailbox_;
    foundation::Descriptor listener_;
    std::atomic<bool> stopping_{false};

    // The thread's own.
    Connections connections_;
    Mailbox::PeerNumber lastNumber_ = 0;
    std::optional<Clock::time_point> acceptAgain_;

    std::thread thread_;
};

ControlServer::ControlServer(Greeting greeting, SocketFolder folder, std::chrono::milliseconds patience)
    : implementation_(std::make_unique<Implementation>(greeting, std::move(folder), patience)) {}

ControlServer::~ControlServer() = default;

const std::string& ControlServer::path() const {
    return implementation_->path();
}

void ControlServer::handle(std::string operation, std::vector<std::string> members, Handler handler) {
    implementation_->handle(std::move(operation), std::move(members), std::move(handler));
}

void ControlServer::start() {
    implementation_->start();
}

void ControlServer::stop() noexcept {
    implementation_->stop();
}

} // namespace control
