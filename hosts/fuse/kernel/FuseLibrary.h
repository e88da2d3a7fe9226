#pragma once

#include <string>

namespace fusehost {

/// The version of libfuse that is linked, as "3.14.0".
std::string fuseLibraryVersion();

/// Prints, in libfuse's own words, which version of the kernel's protocol it speaks and which fusermount3 there is.
void printKernelProtocol();

} // namespace fusehost
