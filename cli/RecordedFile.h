#pragma once

#include "cli/CommandError.h"
#include "recording/RecordingError.h"

#include <string>
#include <utility>

namespace cli {

/// Runs `work`, which reads the recording at `path`: what is wrong with the file becomes a CommandError that names it.
template <typename Work>
ExitCode readingRecording(const std::string& path, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (const recording::RecordingError& error) {
        throw CommandError(ExitCode::badRecording, path, error.what());
    }
}

} // namespace cli
