#include "cli/check/HelperWords.h"

#include "cli/check/ShownLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace cli::check {

HelperWords::~HelperWords() {
    if (thread_.joinable()) {
        stop_.fileHandleForWriting().close();
        thread_.join();
    }
}

void HelperWords::start() {
    words_.fileHandleForWriting().close();
    const int descriptor = words_.fileHandleForReading().fileDescriptor();
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    thread_ = std::thread([this] { run(); });
}

void HelperWords::run() {
    std::array<pollfd, 2> sources{pollfd{words_.fileHandleForReading().fileDescriptor(), POLLIN, 0},
                                  pollfd{stop_.fileHandleForReading().fileDescriptor(), POLLIN, 0}};
    bool more = true;
    while (more) {
        if (::poll(sources.data(), sources.size(), -1) < 0)
            continue;
        // Something that the helper has started may hold its standard error for ever.
        more = take() && sources[1].revents == 0;
    }
    if (length_ > 0)
        tell();
}

bool HelperWords::take() {
    std::array<char, 65536> bytes{};
    for (;;) {
        const auto count = ::read(words_.fileHandleForReading().fileDescriptor(), bytes.data(), bytes.size());
        if (count > 0)
            add({bytes.data(), static_cast<std::size_t>(count)});
        else if (count == 0 || errno != EINTR)
            return count < 0;
    }
}

void HelperWords::add(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const auto piece = bytes.substr(0, end);
        line_ += piece.substr(0, longestShown + 1 - std::min(line_.size(), longestShown + 1));
        length_ += piece.size();
        if (end == std::string_view::npos)
            return;
        tell();
        bytes.remove_prefix(end + 1);
    }
}

void HelperWords::tell() {
    const std::string text = "helper: " + shownLine(line_, length_) + "\n";
    // A standard error that cannot be written to leaves nobody to tell.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
    line_.clear();
    length_ = 0;
}

} // namespace cli::check
