#pragma once

#include "hosts/fuse/calls/KernelError.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

namespace fusehost {

/// What the kernel has open of one kind, by numbers that are never used twice in the life of a mount.
template <typename ID, typename Value>
class OpenTable {
public:
    ID add(Value value) {
        const ID id{next_++};
        values_.emplace(id, std::move(value));
        return id;
    }

    /// Throws KernelError: EBADF if it is not open.
    Value& at(ID id) {
        const auto found = values_.find(id);
        if (found == values_.end())
            throw KernelError(EBADF);
        return found->second;
    }

    /// Closes it, if it is open.
    void erase(ID id) { values_.erase(id); }

    void clear() { values_.clear(); }

    std::size_t size() const { return values_.size(); }

    /// Calls `use(const Value&)` for each.
    template <typename Use>
    void forEach(const Use& use) const {
        for (const auto& [id, value] : values_)
            use(value);
    }

private:
    std::unordered_map<ID, Value> values_;
    std::uint64_t next_ = 1;
};

} // namespace fusehost
