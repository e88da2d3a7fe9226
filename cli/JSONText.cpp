#include "cli/JSONText.h"

#include "foundation/Utf8.h"

#include <array>
#include <cstdio>

namespace cli {

namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

void appendAscii(std::string& json, char c) {
    switch (c) {
    case '"': json += "\\\""; return;
    case '\\': json += "\\\\"; return;
    case '\n': json += "\\n"; return;
    case '\t': json += "\\t"; return;
    case '\r': json += "\\r"; return;
    default: break;
    }
    if (static_cast<unsigned char>(c) < 0x20) {
        std::array<char, 7> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
        json += escape.data();
    } else {
        json += c;
    }
}

} // namespace

std::string jsonString(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) {
        const std::size_t length = foundation::utf8CharacterLength(text);
        if (length == 1)
            appendAscii(json, text.front());
        else
            json += length == 0 ? replacement : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return json + "\"";
}

} // namespace cli
