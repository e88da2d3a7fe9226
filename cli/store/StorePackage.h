#pragma once

#include <string>

namespace cli {

/// The script that serves a store: of the package beside the shipped helpers, else of the one that npm has installed
/// for all (which npm is asked for, ten seconds at most). Throws CommandError with the command that installs the
/// package, or its libraries, if they are not there.
std::string storeHelper();

} // namespace cli
