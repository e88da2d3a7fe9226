#pragma once

namespace cli {

/// What the `kemvi` command ends with: one number per kind of failure. The numbers are an interface (scripts and units
/// test them); docs/kemvi.1 lists them.
enum class ExitCode : int {
    success = 0,
    failure = 1,            // something unforeseen
    usage = 2,              // the command line: unknown command or option, missing argument, bad option value
    configuration = 3,      // SOURCE or its mount-config.json
    helperUnavailable = 4,  // node or the helper script is not there
    helperFailed = 5,       // the helper started but does not answer as it must
    mountPoint = 6,         // the mount point does not exist, is in use or lies in a dangerous place
    fuseUnavailable = 7,    // no /dev/fuse, no fusermount3, or an option that this machine forbids
    mountFailed = 8,        // the kernel refused the mount or the connection to it broke
    notMounted = 9,         // nothing of ours is mounted there
    busy = 10,              // the mount is in use
    gaveUpWaiting = 11,     // a helper that did not end was killed
    findings = 12,          // `kemvi check` found errors, `kemvi replay` found different answers
    interrupted = 13,       // stopped by a signal: before the mount was ready, during `kemvi check` or `kemvi replay`
    helperEnded = 14,       // the helper ended while it was mounted, and on_death=exit was given
    helperKeepsEnding = 15, // the same with on_death=restart, as often as it was started anew
    badRecording = 16,      // a recording cannot be read, or cannot be made
};

} // namespace cli
