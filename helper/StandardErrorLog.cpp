#include "helper/StandardErrorLog.h"

#include "foundation/Descriptor.h"
#include "foundation/StandardErrorPipe.h"
#include "helper/HelperLog.h"

#include <array>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace kemvi {
namespace {

constexpr std::size_t longestLine = 1000; // bytes; the system's log of macOS cuts off what goes beyond 1024

void passOn(const foundation::Descriptor& words) {
    HelperLog log(longestLine);
    std::array<char, 16384> bytes{};
    for (;;) {
        const ssize_t count = ::read(words.number(), bytes.data(), bytes.size());
        if (count == 0 || (count < 0 && errno != EINTR))
            break;
        try {
            if (count > 0)
                log.take({bytes.data(), static_cast<std::size_t>(count)});
        } catch (const std::exception&) {
            // No memory for these words. Others will come, and whoever writes them must not wait for this thread.
        }
    }
    log.finish();
}

} // namespace

bool logStandardError() {
    const foundation::Descriptor before(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    foundation::Descriptor words = foundation::pipeAsStandardError();
    if (!words.isOpen())
        return false;
    try {
        std::thread([words = std::move(words)] { passOn(words); }).detach();
        return true;
    } catch (const std::system_error&) {
        if (before.isOpen())
            ::dup2(before.number(), STDERR_FILENO);
        else
            ::close(STDERR_FILENO);
        return false;
    }
}

} // namespace kemvi
