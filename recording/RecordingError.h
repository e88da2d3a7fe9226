#pragma once

#include <stdexcept>
#include <string>

namespace recording {

/// What is wrong with a recording, or with the file that is to become one: a text for people that names the place in
/// it, but not the file.
class RecordingError : public std::runtime_error {
public:
    explicit RecordingError(const std::string& problem) : std::runtime_error(problem) {}
};

} // namespace recording
