#pragma once

#include "foundation/Error.h"
#include "helper/HelperRequest.h"

#include <utility>

namespace kemvi {

/// `origin` with what was asked of which path.
inline foundation::ErrorOrigin withRequest(const HelperRequest& request, foundation::ErrorOrigin origin) {
    origin.operation = request.op;
    origin.request = request.id;
    origin.subject = request.path ? *request.path : request.oldPath.value_or(std::string());
    return origin;
}

/// Runs `work`, which belongs to `request`. An error that passes is told what was asked of which path.
template <typename Work>
auto tellingRequest(const HelperRequest& request, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (foundation::Error& error) {
        error.setOrigin(withRequest(request, error.origin() ? *error.origin() : foundation::ErrorOrigin()));
        throw;
    }
}

} // namespace kemvi
