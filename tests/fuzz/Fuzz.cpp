#include "Fuzz.h"

#include "foundation/Base64.h"
#include "foundation/Base64Kernels.h"
#include "foundation/DecodingError.h"
#include "foundation/ISO8601.h"
#include "helper/HelperResponse.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {
namespace {

using foundation::base64::Kernels;

void require(bool condition) {
    if (!condition)
        std::abort();
}

std::string_view textOf(std::span<const std::uint8_t> input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

std::optional<std::vector<std::byte>> decoded(const Kernels& kernels, std::string_view text) {
    std::vector<std::byte> bytes(foundation::base64::decodedLength(text).value_or(0));
    if (!decodeWith(kernels, text, bytes))
        return std::nullopt;
    return bytes;
}

std::shared_ptr<const foundation::ByteBuffer> lineOf(std::string_view text) {
    const auto line = std::make_shared<foundation::ByteBuffer>();
    line->append(text);
    return line;
}

std::string said(const kemvi::HelperResponse& response) {
    std::string all = response.id + (response.ok ? " ok " : " failed ");
    all += response.result ? response.result->description() : "-";
    all += response.dataBase64 ? std::string(response.dataBase64->text) : "-";
    return all + (response.error ? response.error->message : "-");
}

// What a response line says, or nothing if it is refused.
std::optional<std::string> said(std::string_view text) {
    foundation::JSONReader reader;
    try {
        return said(kemvi::HelperResponse::decode(lineOf(text), reader));
    } catch (const foundation::DecodingError&) {
        return std::nullopt;
    }
}

// The same of one whose payload is left unread until it is decoded; nothing also if it is not base64.
std::optional<std::string> saidByTrust(std::string_view text) {
    foundation::JSONReader reader;
    try {
        const kemvi::HelperResponse response = kemvi::HelperResponse::decodeTrustingBase64(lineOf(text), reader);
        const bool isBase64 =
            response.dataBase64 && decoded(foundation::base64::bestKernels(), response.dataBase64->text);
        return isBase64 ? std::optional(said(response)) : std::nullopt;
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

void base64(std::span<const std::uint8_t> input) {
    const auto& best = foundation::base64::bestKernels();
    const auto& scalar = foundation::base64::scalarKernels;
    require(decoded(best, textOf(input)) == decoded(scalar, textOf(input)));
    std::vector<char> text(foundation::base64::escapedRoom(input.size()));
    const std::size_t size = foundation::base64::encodeWith(best, std::as_bytes(input), text.data());
    std::string plain;
    for (std::size_t i = 0; i < size; ++i)
        if (text[i] != '\\')
            plain += text[i];
    const auto back = decoded(best, plain);
    require(back && std::equal(back->begin(), back->end(), std::as_bytes(input).begin(), std::as_bytes(input).end()));
}

void response(std::span<const std::uint8_t> input) {
    const std::string text(textOf(input));
    require(said(text) == said(text + std::string(2000, ' ')));
    const std::string longer = lengthened(text);
    if (const auto trusted = saidByTrust(longer))
        require(trusted == said(longer));
}

void timestamp(std::span<const std::uint8_t> input) {
    const foundation::ISO8601DateFormatter formatter;
    if (const auto date = formatter.date(textOf(input)))
        require(!formatter.string(*date).empty());
}

} // namespace fuzz
