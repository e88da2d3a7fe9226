#pragma once

#include <exception>
#include <optional>
#include <string>

namespace kemvi::kit {

/// The name of an errno value of the platform, such as "ENOENT"; "EIO" for one without.
std::string errorName(int number);

/// What an answer says of something thrown.
struct Failure {
    std::string code; // empty for a fault, which the helper's own standard error tells of too
    std::string message;
};

/// Of the exception that is being handled; call it from a catch block only.
Failure currentFailure();

} // namespace kemvi::kit
