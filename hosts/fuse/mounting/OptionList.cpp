#include "hosts/fuse/mounting/OptionList.h"

#include <algorithm>

namespace fusehost {

namespace {

/// How many characters the one that stands at the beginning of `text` takes, which is not empty.
std::size_t lengthOfFirst(std::string_view text) {
    constexpr std::size_t octalLength = 4;
    const auto isOctal = [](char each) { return each >= '0' && each <= '7'; };
    if (text.front() != '\\' || text.size() == 1)
        return 1;
    if (text[1] == ',' || text[1] == '\\')
        return 2;
    const std::string_view digits = text.substr(1, octalLength - 1);
    const bool isNumber = digits.size() == octalLength - 1 && digits[0] <= '3' && digits != "000" &&
                          std::all_of(digits.begin(), digits.end(), isOctal);
    return isNumber ? octalLength : 1;
}

char octalValue(std::string_view digits) {
    constexpr int base = 8;
    int value = 0;
    for (const char digit : digits)
        value = value * base + (digit - '0');
    return static_cast<char>(value);
}

} // namespace

std::vector<std::string_view> optionsIn(std::string_view list) {
    std::vector<std::string_view> options;
    while (!list.empty()) {
        std::size_t end = 0;
        while (end < list.size() && list[end] != ',')
            end += lengthOfFirst(list.substr(end));
        if (end > 0)
            options.push_back(list.substr(0, end));
        list.remove_prefix(std::min(list.size(), end + 1));
    }
    return options;
}

std::string unescapedOption(std::string_view option) {
    std::string meant;
    while (!option.empty()) {
        const std::size_t length = lengthOfFirst(option);
        meant += length > 2 ? octalValue(option.substr(1, length - 1)) : option[length - 1];
        option.remove_prefix(length);
    }
    return meant;
}

} // namespace fusehost
