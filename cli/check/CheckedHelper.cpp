#include "cli/check/CheckedHelper.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace cli::check {

namespace {

constexpr std::chrono::milliseconds graceAfterEndOfInput{1000};
constexpr std::chrono::milliseconds patience{100};          // with what comes on and on
constexpr std::size_t longestLine = std::size_t{256} << 20; // bytes; ten times what any request here asks for
constexpr std::size_t mostUnasked = std::size_t{1} << 20;   // bytes, of a helper that does not stop writing

} // namespace

CheckedHelper::CheckedHelper(const kemvi::KemviMountConfig& config, Duration limit, Attention& attention)
    : limit_(limit), attention_(attention), process_(config.helperPath, config.helperEnvironment()) {}

CheckedHelper::~CheckedHelper() {
    if (guard_)
        end(lost_ ? Duration(0) : graceAfterEndOfInput);
}

void CheckedHelper::start() {
    process_.start(words_.descriptor());
    guard_.emplace(process_.child()->processIdentifier());
    words_.start();
    for (const int descriptor : {requests(), answers()})
        ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

Exchange CheckedHelper::exchange(std::string line) {
    attention_.beginExchange();
    const auto begin = Clock::now();
    const auto deadline = begin + limit_;
    Exchange exchange{std::move(line), {}, Exchange::Outcome::closed, {}};
    std::size_t scanned = 0;
    auto end = std::string::npos;
    if (!lost_ && writeLine(exchange.request + "\n", deadline)) {
        while ((end = unread_.find('\n', scanned)) == std::string::npos) {
            scanned = unread_.size();
            if (scanned > longestLine || Clock::now() >= deadline || !fill(deadline))
                break;
        }
    }
    exchange.took = Clock::now() - begin;
    if (end != std::string::npos) {
        exchange.outcome = Exchange::Outcome::answered;
        exchange.answer = unread_.substr(0, end);
        unread_.erase(0, end + 1);
        return exchange;
    }
    exchange.outcome = ended_ || lost_ ? Exchange::Outcome::closed : Exchange::Outcome::timedOut;
    exchange.answer = std::exchange(unread_, {});
    lost_ = true;
    return exchange;
}

bool CheckedHelper::writeLine(std::string_view line, Clock::time_point deadline) {
    const int descriptor = requests();
    while (!line.empty()) {
        const auto written = ::write(descriptor, line.data(), line.size());
        if (written > 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            if (!attention_.untilReady(descriptor, POLLOUT, deadline))
                return false;
        } else if (errno != EINTR) {
            ended_ = true;
            return false;
        }
    }
    return true;
}

bool CheckedHelper::fill(Clock::time_point deadline) {
    const int descriptor = answers();
    if (ended_ || !attention_.untilReady(descriptor, POLLIN, deadline))
        return false;
    std::array<char, 65536> bytes{};
    const auto count = ::read(descriptor, bytes.data(), bytes.size());
    if (count > 0) {
        unread_.append(bytes.data(), static_cast<std::size_t>(count));
        return true;
    }
    ended_ = count == 0;
    return false;
}

std::optional<std::string> CheckedHelper::nextLine(Duration wait) {
    const auto deadline = Clock::now() + wait;
    auto end = unread_.find('\n');
    while (end == std::string::npos && Clock::now() < deadline && fill(deadline))
        end = unread_.find('\n');
    if (end == std::string::npos)
        return std::nullopt;
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
}

std::string CheckedHelper::unaskedOutput(Duration wait) {
    const auto deadline = Clock::now() + wait;
    while (unread_.size() < mostUnasked && Clock::now() < deadline + patience && fill(deadline)) {
    }
    return std::exchange(unread_, {});
}

bool CheckedHelper::end(Duration limit) {
    process_.input().fileHandleForWriting().close();
    const bool gone = attention_.untilReady(guard_->descriptor(), POLLIN, Clock::now() + limit);
    lost_ = true;
    if (!gone)
        guard_->kill();
    process_.stop();
    guard_.reset();
    return gone;
}

} // namespace cli::check
