#pragma once

#include "foundation/FileHandle.h"

#include <cstdint>

namespace foundation {

/// A one-way channel between two file handles, both close-on-exec and numbered 3 or higher. Enlarged to 1 MiB where the
/// platform allows. Writing to a pipe that nobody reads fails; the caller sees to it that SIGPIPE is ignored (on macOS
/// the descriptor itself says so).
class Pipe {
public:
    /// Never throws: if the platform has no descriptors left both handles are closed and `creationError` says why.
    Pipe() noexcept;

    FileHandle& fileHandleForReading() { return reading_; }

    FileHandle& fileHandleForWriting() { return writing_; }

    /// The macOS errno number of the failed creation; 0 for a usable pipe.
    std::int32_t creationError() const { return creationError_; }

private:
    struct Ends {
        PipeEnds pipe;
        std::int32_t error = 0;
    };

    explicit Pipe(Ends ends);
    static Ends makeEnds() noexcept;

    FileHandle reading_;
    FileHandle writing_;
    std::int32_t creationError_;
};

} // namespace foundation
