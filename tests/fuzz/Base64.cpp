#include "Fuzz.h"

#include "foundation/Base64.h"
#include "foundation/Base64Kernels.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {
namespace {

using foundation::base64::Kernels;
using Bytes = std::vector<std::byte>;

constexpr std::byte untouched{0xA5};
constexpr std::size_t margin = 64;

std::optional<Bytes> decoded(const Kernels& kernels, std::string_view text) {
    Bytes bytes(foundation::base64::decodedLength(text).value_or(0));
    const auto count = decodeWith(kernels, text, bytes);
    require(!count || count == bytes.size(), "a text decodes to as many bytes as its length and padding say");
    return count ? std::optional(bytes) : std::nullopt;
}

void decodeIntoLess(const Kernels& kernels, std::string_view text, const Bytes& whole, std::size_t room) {
    Bytes memory(room + margin, untouched);
    require(decodeWith(kernels, text, std::span(memory).first(room)) == whole.size(),
            "decoding tells how many bytes there are, whatever the room");
    require(std::equal(memory.begin(), memory.begin() + static_cast<std::ptrdiff_t>(room), whole.begin()),
            "what fits is stored");
    require(std::all_of(memory.begin() + static_cast<std::ptrdiff_t>(room), memory.end(),
                        [](std::byte b) { return b == untouched; }),
            "nothing behind the room is touched");
}

std::string encoded(const Kernels& kernels, std::span<const std::byte> bytes) {
    std::string text(foundation::base64::escapedRoom(bytes.size()), '?');
    text.resize(encodeWith(kernels, bytes, text.data()));
    return text;
}

std::string encodedPlain(const Kernels& kernels, std::span<const std::byte> bytes) {
    std::string text(foundation::base64::plainRoom(bytes.size()), '?');
    text.resize(encodePlainWith(kernels, bytes, text.data()));
    return text;
}

std::string withoutEscapes(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        require((text[i] == '/') == (i > 0 && text[i - 1] == '\\'), "every slash is escaped, and nothing else");
        if (text[i] != '\\')
            plain += text[i];
    }
    return plain;
}

} // namespace

void base64(Input input) {
    const auto& best = foundation::base64::bestKernels();
    const auto& scalar = foundation::base64::scalarKernels;
    const std::string_view text = textOf(input);
    const auto whole = decoded(scalar, text);
    require(decoded(best, text) == whole, "all forms decode alike");
    if (whole) {
        const std::size_t room = whole->empty() ? 0 : static_cast<unsigned char>(text.back()) % whole->size();
        for (const Kernels* kernels : {&best, &scalar})
            decodeIntoLess(*kernels, text, *whole, room);
    }
    const auto bytes = std::as_bytes(input);
    const std::string line = encoded(scalar, bytes);
    require(encoded(best, bytes) == line, "all forms encode alike");
    const std::string plain = withoutEscapes(line);
    for (const Kernels* kernels : {&best, &scalar}) {
        require(encodedPlain(*kernels, bytes) == plain, "slashes are left as they are where that is asked for");
        const auto back = decoded(*kernels, plain);
        require(back && std::equal(back->begin(), back->end(), bytes.begin(), bytes.end()),
                "what was encoded decodes to the same bytes");
    }
}

} // namespace fuzz
