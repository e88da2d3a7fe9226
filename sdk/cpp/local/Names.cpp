#include "Names.h"

#include "AsciiFoldings.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cwchar>
#include <cwctype>
#include <iterator>

namespace local {
namespace {

constexpr auto noCharacter = static_cast<wchar_t>(-1);

// Calls `take` with each character of `text` and its bytes, and with each byte by itself that is part of none.
template <typename Take>
void forEachCharacter(std::string_view text, const Take& take) {
    std::mbstate_t state{};
    while (!text.empty()) {
        wchar_t c = 0;
        const std::size_t length = std::mbrtowc(&c, text.data(), text.size(), &state);
        if (length == 0 || length > text.size()) {
            state = {};
            take(noCharacter, text.substr(0, 1));
            text.remove_prefix(1);
        } else {
            take(c, text.substr(0, length));
            text.remove_prefix(length);
        }
    }
}

void append(std::string& text, wchar_t c, std::string_view otherwise) {
    std::array<char, MB_LEN_MAX> bytes{};
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes.data(), c, &state);
    text += length <= bytes.size() ? std::string_view(bytes.data(), length) : otherwise;
}

const AsciiFolding* foldingOf(wchar_t c) {
    const auto code = static_cast<char32_t>(c);
    const auto* const behind =
        std::upper_bound(std::begin(asciiFoldings), std::end(asciiFoldings), code,
                         [](char32_t value, const AsciiFolding& folding) { return value < folding.first; });
    if (behind == std::begin(asciiFoldings))
        return nullptr;
    const AsciiFolding* const found = behind - 1;
    return code <= found->last ? found : nullptr;
}

template <typename Change>
std::string changed(std::string_view name, const Change& change) {
    std::string text;
    forEachCharacter(name, [&](wchar_t c, std::string_view bytes) {
        append(text, static_cast<wchar_t>(change(static_cast<std::wint_t>(c))), bytes);
    });
    return text;
}

} // namespace

std::string folded(std::string_view name) {
    std::string text;
    forEachCharacter(name, [&text](wchar_t c, std::string_view bytes) {
        const AsciiFolding* const folding = foldingOf(c);
        if (folding == nullptr) {
            append(text, static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))), bytes);
            return;
        }
        const std::size_t begin = text.size();
        text += folding->text;
        if (text.size() > begin)
            text[begin] = static_cast<char>(text[begin] + static_cast<int>(static_cast<char32_t>(c) - folding->first));
    });
    text.erase(text.find_last_not_of(". ") + 1);
    return text;
}

std::string inOtherCase(std::string_view name) {
    std::string upper = changed(name, std::towupper);
    return upper != name ? upper : changed(name, std::towlower);
}

} // namespace local
