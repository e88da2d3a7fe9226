#pragma once

#include "foundation/Error.h"
#include "helper/HelperRequest.h"

#include <utility>

namespace kemvi {

/// Runs `work`, which belongs to `request`. An error that passes is told what was asked of which path.
template <typename Work>
auto tellingRequest(const HelperRequest& request, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (foundation::Error& error) {
        foundation::ErrorOrigin origin = error.origin() ? *error.origin() : foundation::ErrorOrigin();
        origin.operation = request.op;
        origin.request = request.id;
        origin.subject = request.path ? *request.path : request.oldPath.value_or(std::string());
        error.setOrigin(std::move(origin));
        throw;
    }
}

} // namespace kemvi
