#pragma once

#include "foundation/URL.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace extensiontests {

/// A private source directory for one test, and in it a program named `node` that runs helpers written for the shell.
/// The program is found first through the process's PATH while the object lives. Removed at the end.
class SourceDirectory {
public:
    SourceDirectory();
    ~SourceDirectory();
    SourceDirectory(const SourceDirectory&) = delete;
    SourceDirectory& operator=(const SourceDirectory&) = delete;

    const std::string& path() const { return path_; }

    std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

    void write(std::string_view name, std::string_view contents) const;
    std::string read(std::string_view name) const;
    void makeNamedPipe(std::string_view name) const;

    /// Writes a proper configuration: drive "drive-7", the directory itself as home and repository, and a helper that
    /// is this shell script.
    void configure(std::string_view helperScript) const;

private:
    std::string path_;
    std::string savedPath_; // the process's PATH
};

/// The shell function `answer MEMBERS`, which reads the next request and answers it with these JSON members.
extern const char* const answerFunction;

/// A helper that agrees to everything until its input ends.
std::string agreeableHelper();

/// A directory whose security-scoped access is watched.
class ScopedURL final : public foundation::URL {
public:
    ScopedURL(std::string path, bool grants) : URL(std::move(path)), grants_(grants) {}

    bool startAccessingSecurityScopedResource() override {
        ++begun;
        return grants_;
    }

    void stopAccessingSecurityScopedResource() override {
        ++ended;
        if (onEnd)
            onEnd();
    }

    int begun = 0;
    int ended = 0;
    std::function<void()> onEnd;

private:
    const bool grants_;
};

} // namespace extensiontests
