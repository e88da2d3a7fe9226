#pragma once

namespace kemvi {

/// From here on what this process and its helpers write to standard error goes to the log, whole line by whole line,
/// each as the helper's; one of more than 1000 bytes in pieces. A thread reads it all the time, so that no helper is
/// ever kept waiting, and ends when nobody holds standard error any more.
///
/// False, and all is as it was, if the process can have no pipe or no thread.
bool logStandardError();

} // namespace kemvi
