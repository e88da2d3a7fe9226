#pragma once

namespace cli {

/// True if the command was called under one of the names by which mount(8) looks for the program of a file system type:
/// mount.kemvi, mount.fuse.kemvi.
bool isCalledByMount(const char* programName);

/// `mount.kemvi SOURCE MOUNTPOINT [-sfnv] [-N NAMESPACE] [-o OPTIONS] [-t TYPE]`, as mount(8) and systemd call it.
/// Returns the exit status that mount(8) expects.
int runAsMountHelper(int argc, char** argv);

} // namespace cli
