#include "foundation/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace foundation {
namespace {

struct Lead {
    std::size_t length; // bytes of the sequence; 0 for a byte that cannot begin one
    unsigned char low;  // range of the second byte, which is what rules out overlong forms, surrogates and
    unsigned char high; // values above U+10FFFF
};

Lead classify(unsigned char byte) {
    if (byte < 0x80)
        return {1, 0, 0};
    if (byte >= 0xC2 && byte <= 0xDF)
        return {2, 0x80, 0xBF};
    if (byte == 0xE0)
        return {3, 0xA0, 0xBF};
    if (byte == 0xED)
        return {3, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF)
        return {3, 0x80, 0xBF};
    if (byte == 0xF0)
        return {4, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3)
        return {4, 0x80, 0xBF};
    if (byte == 0xF4)
        return {4, 0x80, 0x8F};
    return {0, 0, 0};
}

} // namespace

bool isValidUtf8(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const Lead lead = classify(static_cast<unsigned char>(text[at]));
        if (lead.length == 0 || text.size() - at < lead.length)
            return false;
        if (lead.length > 1) {
            const auto second = static_cast<unsigned char>(text[at + 1]);
            if (second < lead.low || second > lead.high)
                return false;
        }
        for (std::size_t i = 2; i < lead.length; ++i)
            if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80)
                return false;
        at += lead.length;
    }
    return true;
}

} // namespace foundation
