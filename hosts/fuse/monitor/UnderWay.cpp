#include "hosts/fuse/monitor/UnderWay.h"

#include <algorithm>
#include <cstring>

namespace fusehost {
namespace {

constexpr auto publish = std::memory_order_release;
constexpr auto see = std::memory_order_acquire;
constexpr std::string_view cut = "...";

using SteadyClock = std::chrono::steady_clock;

} // namespace

void UnderWayBoard::post(KernelOperation operation, std::string_view path, std::uint32_t thread, std::uint32_t user,
                         SteadyClock::time_point since) noexcept {
    const bool isCut = path.size() > RequestUnderWay::longestPath;
    if (isCut)
        path.remove_prefix(path.size() - RequestUnderWay::longestPath);
    version_.write([&] {
        for (std::size_t at = 0; at < path.size(); at += sizeof(Word)) {
            Word word = 0;
            std::memcpy(&word, path.data() + at, std::min(sizeof word, path.size() - at));
            if (at == 0 && isCut)
                std::memcpy(&word, cut.data(), cut.size());
            path_[at / sizeof(Word)].store(word, publish);
        }
        what_.store(Word{path.size()} << 8 | static_cast<Word>(operation), publish);
        who_.store(Word{user} << 32 | thread, publish);
        since_.store(since.time_since_epoch().count(), publish);
        number_.store(number_.load(std::memory_order_relaxed) + 1, publish);
        isUnderWay_.store(true, publish);
    });
}

void UnderWayBoard::clear() noexcept {
    isUnderWay_.store(false, publish);
}

std::optional<RequestUnderWay> UnderWayBoard::read() const {
    std::optional<RequestUnderWay> found;
    version_.read([&] { readOnce(found); });
    return found;
}

void UnderWayBoard::readOnce(std::optional<RequestUnderWay>& found) const {
    found.reset();
    if (!isUnderWay_.load(see))
        return;
    RequestUnderWay& seen = found.emplace();
    const Word what = what_.load(see);
    const Word who = who_.load(see);
    seen.number = number_.load(see);
    seen.operation = static_cast<KernelOperation>(what & 0xFF);
    seen.thread = static_cast<std::uint32_t>(who);
    seen.user = static_cast<std::uint32_t>(who >> 32);
    seen.since = SteadyClock::time_point(SteadyClock::duration(since_.load(see)));
    seen.path.resize(std::min(static_cast<std::size_t>(what >> 8), RequestUnderWay::longestPath));
    for (std::size_t at = 0; at < seen.path.size(); at += sizeof(Word)) {
        const Word word = path_[at / sizeof(Word)].load(see);
        std::memcpy(seen.path.data() + at, &word, std::min(sizeof word, seen.path.size() - at));
    }
}

} // namespace fusehost
