#pragma once

#include "foundation/URL.h"

namespace kemvi {

/// Security-scoped access to a directory, ended with the object if it was begun.
class ScopedAccess {
public:
    explicit ScopedAccess(foundation::URL& url) : url_(url), begun_(url.startAccessingSecurityScopedResource()) {}

    ~ScopedAccess() {
        if (begun_)
            url_.stopAccessingSecurityScopedResource();
    }

    ScopedAccess(const ScopedAccess&) = delete;
    ScopedAccess& operator=(const ScopedAccess&) = delete;

private:
    foundation::URL& url_;
    const bool begun_;
};

} // namespace kemvi
