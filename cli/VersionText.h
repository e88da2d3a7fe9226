#pragma once

namespace cli {

/// Writes to standard output, a line each, what a report of a fault has to name: the versions of this command, of the
/// libraries that the kernel and the helper are spoken to with, and of the kernel's protocol.
void printVersion();

} // namespace cli
