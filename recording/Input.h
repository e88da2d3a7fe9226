#pragma once

#include <memory>
#include <string>

namespace recording {

/// The lines of a file. Not thread-safe.
class Input {
public:
    static constexpr std::size_t longestLine = std::size_t{256} << 20; // bytes

    virtual ~Input() = default;

    /// The next line into `line`, without its line break. False at the end of the file. Throws RecordingError for a
    /// file that cannot be read, and for a line longer than any of a recording.
    virtual bool readLine(std::string& line) = 0;

    /// Whether the file ended within a line, or within what is compressed. Known once `readLine` has returned false.
    virtual bool wasCut() const = 0;
};

/// Opens a file; one that zstd has compressed is known by how it begins.
std::unique_ptr<Input> openInput(const std::string& path);

} // namespace recording
