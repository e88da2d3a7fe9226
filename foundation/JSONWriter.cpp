#include "foundation/JSONWriter.h"

#include "foundation/Utf8.h"

namespace foundation {
namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

std::string withReplacements(std::string_view text) {
    std::string replaced;
    while (!text.empty()) {
        const std::size_t length = utf8CharacterLength(text);
        replaced += length == 0 ? replacement : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return replaced;
}

} // namespace

bool JSONWriter::isUtf8(std::string_view text) {
    return isValidUtf8(text);
}

std::string jsonString(std::string_view text) {
    std::string json(JSONWriter::roomFor(text), '\0');
    JSONWriter writer(json.data());
    if (!writer.string(text))
        return jsonString(withReplacements(text));
    json.resize(static_cast<std::size_t>(writer.at() - json.data()));
    return json;
}

} // namespace foundation
