#include "volume/HandleTable.h"

#include <utility>

namespace kemvi {
namespace {

std::uint64_t key(fskit::FSItemID item) {
    return static_cast<std::uint64_t>(item);
}

} // namespace

std::optional<std::int64_t> HandleTable::find(Direction direction, fskit::FSItemID item) const {
    const std::lock_guard guard(lock_);
    const auto found = in(direction).find(key(item));
    return found == in(direction).end() ? std::nullopt : std::optional(found->second.handle);
}

HandleTable::Shared HandleTable::share(Direction direction, fskit::FSItemID item, const OpenHandle& opened) {
    const std::lock_guard guard(lock_);
    const auto [entry, isNew] = in(direction).try_emplace(key(item), opened);
    return {entry->second.handle, isNew};
}

std::optional<OpenHandle> HandleTable::take(Direction direction, fskit::FSItemID item) {
    const std::lock_guard guard(lock_);
    auto taken = in(direction).extract(key(item));
    return taken.empty() ? std::nullopt : std::optional(std::move(taken.mapped()));
}

std::vector<OpenHandle> HandleTable::takeAll() {
    const std::lock_guard guard(lock_);
    std::vector<OpenHandle> taken;
    taken.reserve(reading_.size() + writing_.size());
    for (Handles* handles : {&reading_, &writing_}) {
        for (auto& [item, open] : *handles)
            taken.push_back(std::move(open));
        handles->clear();
    }
    return taken;
}

std::vector<OpenHandle> HandleTable::all(Direction direction) const {
    const std::lock_guard guard(lock_);
    std::vector<OpenHandle> handles;
    handles.reserve(in(direction).size());
    for (const auto& [item, open] : in(direction))
        handles.push_back(open);
    return handles;
}

} // namespace kemvi
