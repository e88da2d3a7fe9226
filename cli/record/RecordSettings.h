#pragma once

#include "recording/Header.h"

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

/// What is to be recorded, as options say it.
struct RecordOptions {
    std::string payloads; // empty: all, or none where names are scrambled
    bool scramble = false;

    /// Throws CommandError (usage) for what does not go together.
    recording::Settings settings() const;
};

/// Adds both options; `prefix` stands before their names ("--", "--record-").
void addRecordOptions(CLI::App& command, RecordOptions& options, const std::string& prefix);

} // namespace cli
