#pragma once

#include "foundation/JSON.h"
#include "recording/Header.h"
#include "recording/Scrambler.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace recording {

/// One exchange as it went over the pipes.
struct RawExchange {
    std::int64_t at = 0;                    // microseconds since the recording began
    std::int64_t took = 0;                  // microseconds
    std::string_view request;               // the line, with or without its line break
    std::optional<std::string_view> answer; // the same; nothing if the helper gave none
};

/// Makes the lines of a recording, each without its line break, and keeps of what they tell no more than the settings
/// say. Not thread-safe.
class LineMaker {
public:
    explicit LineMaker(Settings settings) : settings_(settings) {}

    /// With names scrambled by this key.
    LineMaker(Settings settings, Scrambler scrambler) : settings_(settings), scrambler_(std::move(scrambler)) {}

    std::string exchange(const RawExchange& raw);

    /// `json` is the object of a trace. Empty if it is none.
    std::string kernelRequest(std::string_view json);

private:
    using Take = std::function<void(std::string& json, std::string_view key, foundation::JSONElement& value)>;

    /// The object with its members as `take` writes them; nothing if the line is no JSON object.
    std::optional<std::string> rewritten(std::string_view line, const Take& take);
    std::optional<std::string> reduced(std::string_view line);
    std::optional<std::string> kept(std::string_view line);
    void takePayload(std::string& json, foundation::JSONElement& value) const;
    std::string hidden(std::string_view key, std::string_view text) const;

    Settings settings_;
    Scrambler scrambler_;
    foundation::JSONReader reader_;
};

} // namespace recording
