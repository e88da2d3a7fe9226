#include "recording/Sha256.h"

#include "foundation/Log.h"

#include <memory>
#include <openssl/evp.h>

namespace recording {

Digest sha256(std::span<const std::string_view> pieces) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    bool done = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    for (const std::string_view piece : pieces)
        done = done && EVP_DigestUpdate(context.get(), piece.data(), piece.size()) == 1;
    Digest digest{};
    if (!done || EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1)
        foundation::fatalError("the library has no SHA-256");
    return digest;
}

std::string sha256Hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (const unsigned byte : sha256(std::array{bytes})) {
        hex += digits[byte >> 4U];
        hex += digits[byte & 15U];
    }
    return hex;
}

} // namespace recording
