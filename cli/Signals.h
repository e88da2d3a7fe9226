#pragma once

#include <csignal>

namespace cli {

/// The signals that ask a mount to end: SIGINT, SIGTERM and SIGHUP.
sigset_t stopSignals();

/// Blocks them in the calling thread and all that it starts, so that they are taken in turn by whoever asks for them,
/// and ignores SIGPIPE: a helper that is gone shows as an error of the write.
void blockStopSignals();

} // namespace cli
