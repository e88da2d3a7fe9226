#pragma once

#include "foundation/Descriptor.h"

#include <memory>
#include <string>
#include <string_view>

namespace recording {

/// The file that a recording is written to. Not thread-safe.
class Output {
public:
    virtual ~Output() = default;

    /// Takes the bytes over; they may stay in memory until `flush`. All functions throw RecordingError, which says what
    /// is wrong and not with which file.
    virtual void write(std::string_view bytes) = 0;

    /// Hands everything to the system, so that it is there should this process be killed.
    virtual void flush() = 0;

    /// The same, and the end of the file; nothing more is written.
    virtual void finish() = 0;
};

/// Makes the file, which must not be there yet, readable by its owner alone; compressed if its name ends in ".zst".
std::unique_ptr<Output> openOutput(const std::string& path);

/// Writes to a descriptor.
std::unique_ptr<Output> plainOutput(foundation::Descriptor descriptor);
/// The same, compressed by zstd.
std::unique_ptr<Output> compressedOutput(foundation::Descriptor descriptor);

} // namespace recording
