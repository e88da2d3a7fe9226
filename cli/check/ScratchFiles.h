#pragma once

#include "cli/check/Checks.h"
#include "cli/check/Scratch.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli::check {

/// Making, writing and reading what lies in a scratch folder, for an examination; what goes wrong is noted under the
/// check that asked for it. Names are relative to that folder. Not thread-safe.
class ScratchFiles {
public:
    ScratchFiles(Conversation& talk, Scratch& scratch) : talk_(talk), scratch_(scratch) {}

protected:
    using Flags = std::vector<std::string>;

    /// Notes an error under the check unless the answer is a success. True if it is.
    bool succeeds(const char* check, const Answer& answer, const char* consequence) {
        if (answer.response && !answer.ok())
            talk_.find(check, Severity::error, answer, "it was refused", consequence);
        return answer.ok();
    }

    void error(const char* check, std::string problem, const char* consequence) {
        talk_.report().add(check, {Severity::error, std::move(problem), consequence, {}, {}});
    }

    std::string path(const std::string& name) const { return childPath(scratch_.path(), name); }

    bool exists(const std::string& name) { return talk_.ask(pathRequest("getattr", path(name))).ok(); }

    /// True if what is to be made at the path is ours. Otherwise nothing more is written.
    bool claim(const char* check, const std::string& path, Scratch::Kind kind);
    /// True if the folder was made.
    bool makeFolder(const char* check, const std::string& name);
    /// Opens with the flags, writes the bytes if there are any, flushes and releases. True if all of that succeeded.
    bool write(const char* check, const std::string& name, const Flags& flags, std::int64_t offset,
               std::string_view bytes);
    /// All bytes of a file; nothing if it cannot be read.
    std::optional<std::string> contents(const std::string& name);
    /// Notes an error unless the file holds these bytes.
    void expect(const char* check, const std::string& name, const std::string& bytes, const char* consequence);

    Conversation& talk_;
    Scratch& scratch_;
    bool stopped_ = false; // what is written may land on what is not ours
};

} // namespace cli::check
