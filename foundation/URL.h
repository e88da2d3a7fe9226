#pragma once

#include <string>

namespace foundation {

/// A file URL: a path and, on platforms that have it, security-scoped access to what lies there. The base class is an
/// ordinary path, for which beginning access neither grants nor needs anything.
class URL {
public:
    explicit URL(std::string path) : path_(std::move(path)) {}

    virtual ~URL();

    const std::string& path() const { return path_; }

    /// Begins security-scoped access. True if access was begun and must be ended by the call below.
    virtual bool startAccessingSecurityScopedResource() { return false; }

    virtual void stopAccessingSecurityScopedResource() {}

private:
    std::string path_;
};

} // namespace foundation
