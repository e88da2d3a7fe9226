#pragma once

#include <csignal>

namespace cli {

/// The signals that ask a mount to end: SIGINT, SIGTERM and SIGHUP, less those that are ignored. SIGINT is where a
/// script runs the command in the background, SIGHUP where nohup(1) does.
sigset_t stopSignals();

/// Has all three heard, also those that the caller had ignored: for a process that no terminal reaches any more, where
/// each comes from somebody who means it. Blocks them.
void heedAllStopSignals();

/// Blocks them in the calling thread and all that it starts, so that they are taken in turn by whoever asks for them,
/// and ignores SIGPIPE: a helper that is gone shows as an error of the write.
void blockStopSignals();

} // namespace cli
