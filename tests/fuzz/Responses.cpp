#include "Fuzz.h"

#include "JSONWriter.h"
#include "foundation/Base64.h"
#include "foundation/DecodingError.h"
#include "helper/HelperResponse.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {
namespace {

std::shared_ptr<const foundation::ByteBuffer> lineOf(std::string_view text) {
    const auto line = std::make_shared<foundation::ByteBuffer>();
    line->append(text);
    return line;
}

// A line that says the same as the response; with `result` written as text.
std::string lineSaying(const kemvi::HelperResponse& response) {
    std::string line = "{\"id\":" + jsonText(response.id) + ",\"ok\":" + (response.ok ? "true" : "false");
    if (response.result)
        line += ",\"result\":" + jsonText(*response.result);
    if (response.dataBase64)
        line += ",\"dataBase64\":" + jsonText(response.dataBase64->text);
    if (const auto& error = response.error) {
        line += ",\"error\":{\"message\":" + jsonText(error->message);
        if (error->code)
            line += ",\"code\":" + jsonText(*error->code);
        if (error->name)
            line += ",\"name\":" + jsonText(*error->name);
        line += "}";
    }
    return line + "}";
}

// What a response line says, or nothing if it is refused.
std::optional<std::string> said(std::string_view text) {
    foundation::JSONReader reader;
    try {
        return lineSaying(kemvi::HelperResponse::decode(lineOf(text), reader));
    } catch (const foundation::DecodingError& error) {
        require(!error.description().empty(), "an error has a text");
        return std::nullopt;
    }
}

bool isBase64(std::string_view text) {
    std::vector<std::byte> bytes(foundation::base64::decodedLength(text).value_or(0));
    return foundation::base64::decode(text, bytes).has_value();
}

// The same of one whose payload is left unread until it is decoded; nothing also if it is not base64.
std::optional<std::string> saidByTrust(std::string_view text) {
    foundation::JSONReader reader;
    try {
        const auto response = kemvi::HelperResponse::decodeTrustingBase64(lineOf(text), reader);
        const bool mayBeBelieved = response.dataBase64 && isBase64(response.dataBase64->text);
        return mayBeBelieved ? std::optional(lineSaying(response)) : std::nullopt;
    } catch (const foundation::DecodingError&) {
        return std::nullopt;
    }
}

// The text with each payload of the seeds, where it is still whole, made long enough to be left unread.
std::string lengthened(std::string text) {
    constexpr std::string_view payload = "QUJD";
    std::string longer;
    for (int i = 0; i < 400; ++i)
        longer += payload;
    for (std::size_t at = text.find(payload); at != std::string::npos; at = text.find(payload, at + longer.size()))
        text.replace(at, payload.size(), longer);
    return text;
}

} // namespace

void responses(Input input) {
    const std::string text(textOf(input));
    const auto once = said(text);
    require(once == said(text + std::string(2000, ' ')), "white space behind an answer changes nothing");
    if (once)
        require(said(*once) == once, "an answer that was read says the same when it is written and read again");
    const std::string longer = lengthened(text);
    if (const auto trusted = saidByTrust(longer))
        require(trusted == said(longer), "a payload that is left unread changes nothing");
}

} // namespace fuzz
