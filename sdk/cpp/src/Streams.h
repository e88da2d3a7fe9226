#pragma once

#include "foundation/FileHandle.h"

namespace kemvi::kit {

/// The two streams of the protocol, kept to the kit: their standard descriptors are led elsewhere, so that nothing that
/// the program, a library or a child process prints gets into an answer, and nothing eats a request.
struct Streams {
    foundation::FileHandle requests;
    foundation::FileHandle answers;
};

/// The streams of this process; the first call takes them. From then on standard input is empty, and what is written to
/// standard output goes to standard error. Throws std::system_error if the process can have no more descriptors.
Streams& takeStreams();

} // namespace kemvi::kit
