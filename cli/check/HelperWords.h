#pragma once

#include "foundation/Pipe.h"

#include <string>
#include <string_view>
#include <thread>

namespace cli::check {

/// What a helper says on standard error: passed on line by line, each short and without control characters, so that
/// neither a name of 16 MiB in a message nor an escape sequence reaches the terminal. Runs a thread of its own.
class HelperWords {
public:
    HelperWords() = default;
    /// Passes on what has been said so far.
    ~HelperWords();
    HelperWords(const HelperWords&) = delete;
    HelperWords& operator=(const HelperWords&) = delete;

    /// What the helper gets as its standard error.
    int descriptor() { return words_.fileHandleForWriting().fileDescriptor(); }

    /// Lets go of that descriptor, which the helper has by now, and passes on from here on. To be called once.
    void start();

private:
    void run();
    /// Reads what is there. False at the end of the stream.
    bool take();
    void add(std::string_view bytes);
    void tell();

    foundation::Pipe words_;
    foundation::Pipe stop_; // its end tells the thread to end
    std::thread thread_;

    // The thread's own.
    std::string line_;       // the start of the line that is being said, as far as it is shown
    std::size_t length_ = 0; // of that line so far, in bytes
};

} // namespace cli::check
