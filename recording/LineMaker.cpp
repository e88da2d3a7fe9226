#include "recording/LineMaker.h"

#include "foundation/Base64.h"
#include "foundation/DecodingError.h"
#include "foundation/JSONWriter.h"
#include "recording/JSONText.h"
#include "recording/Sha256.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

namespace recording {
namespace {

using foundation::JSONElement;
using foundation::jsonString;
using foundation::JSONType;

// Members of the protocol and of a trace whose strings name no file.
constexpr auto plainMembers = std::to_array<std::string_view>(
    {"code", "errno", "error", "flags", "id", "modifiedAt", "mtime", "op", "result", "state", "time"});
static_assert(std::is_sorted(plainMembers.begin(), plainMembers.end()));

constexpr std::size_t mostUnreadable = 4096; // bytes kept of an answer that is no JSON

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

// The object alone: what may stand before and behind it is no JSON within a line.
std::string_view withoutEnds(std::string_view line) {
    if (line.starts_with(byteOrderMark))
        line.remove_prefix(byteOrderMark.size());
    return line.substr(0, line.size() - (line.ends_with('\n') ? 1 : 0));
}

} // namespace

// A path begins with a slash, whatever member it stands in.
std::string LineMaker::hidden(std::string_view key, std::string_view text) const {
    if (settings_.names == Names::plain || std::binary_search(plainMembers.begin(), plainMembers.end(), key))
        return std::string(text);
    if (key == "message")
        return "left out";
    return text.starts_with('/') ? scrambler_.path(text) : scrambler_.name(text);
}

// The member that takes the payload's place, with its key.
void LineMaker::takePayload(std::string& json, JSONElement& value) const {
    if (value.type() != JSONType::string) {
        json += R"("dataBase64":)";
        appendJSON(json, "dataBase64", value,
                   [](std::string_view, std::string_view text) { return std::string(text); });
        return;
    }
    const std::string_view text = value.string();
    if (settings_.payloads == Payloads::full) {
        json.append(R"("dataBase64":)").append(jsonString(text));
        return;
    }
    std::string bytes(foundation::base64::decodedLength(text).value_or(0), '\0');
    if (!foundation::base64::decode(text, std::as_writable_bytes(std::span(bytes)))) {
        json += R"("dataInvalid":true)";
        return;
    }
    json.append(R"("dataLength":)").append(std::to_string(bytes.size()));
    if (settings_.payloads == Payloads::hash)
        json.append(R"(,"dataSHA256":")").append(sha256Hex(bytes)).append("\"");
}

std::optional<std::string> LineMaker::rewritten(std::string_view line, const Take& take) {
    std::string json = "{";
    try {
        reader_.readObject(line, [&](std::string_view key, JSONElement& value) {
            json += json.size() > 1 ? "," : "";
            take(json, std::string(key), value);
        });
    } catch (const foundation::DecodingError&) {
        return std::nullopt;
    }
    return json + "}";
}

std::optional<std::string> LineMaker::reduced(std::string_view line) {
    return rewritten(line, [&](std::string& json, std::string_view key, JSONElement& value) {
        if (key == "dataBase64") {
            takePayload(json, value);
            return;
        }
        json.append(jsonString(key)).append(":");
        appendJSON(json, key, value, [&](std::string_view name, std::string_view text) { return hidden(name, text); });
    });
}

// What is kept whole is only looked through: most of a recording is payloads.
std::optional<std::string> LineMaker::kept(std::string_view line) {
    if (settings_.payloads != Payloads::full || settings_.names != Names::plain)
        return reduced(line);
    const bool isObject = rewritten(line, [](std::string&, std::string_view, JSONElement&) {}).has_value();
    return isObject ? std::optional(std::string(line)) : std::nullopt;
}

std::string LineMaker::exchange(const RawExchange& raw) {
    const std::string_view asked = withoutEnds(raw.request);
    std::string line = R"({"t":)" + std::to_string(raw.at) + R"(,"d":)" + std::to_string(raw.took) + R"(,"q":)" +
                       kept(asked).value_or("{}") + R"(,"a":)";
    if (!raw.answer)
        return line + "null}";
    const std::string_view answered = withoutEnds(*raw.answer);
    if (const auto object = kept(answered))
        return line.append(*object).append("}");
    const std::string_view shown =
        settings_.names == Names::plain ? answered.substr(0, mostUnreadable) : std::string_view();
    return line.append(R"(null,"unreadable":)").append(jsonString(shown)).append("}");
}

std::string LineMaker::kernelRequest(std::string_view json) {
    const auto object = reduced(withoutEnds(json));
    return object ? R"({"k":)" + *object + "}" : std::string();
}

} // namespace recording
