#pragma once

#include "recording/Replayer.h"

#include <cstdint>
#include <string>

namespace cli {

/// Tells people, or programs, what a replay has found. Differences are printed as they are found.
class ReplayText {
public:
    enum class Form { plain, json };

    /// At most `limit` differences are shown; 0: all.
    ReplayText(std::uint64_t limit, Form form) : limit_(limit), form_(form) {}

    void add(const recording::DifferentAnswer& found);
    void end(const recording::ReplayTotals& totals, bool interrupted);

private:
    void print(const std::string& text) const;

    const std::uint64_t limit_;
    const Form form_;
    std::uint64_t found_ = 0;
    std::uint64_t lastLine_ = 0; // of the recording, of what was shown last
};

} // namespace cli
