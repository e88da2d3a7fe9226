#include "RequestScript.h"

namespace fuzz {

void RequestScript::skipSpace() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\n'))
        ++at_;
}

bool RequestScript::isAtEnd() {
    skipSpace();
    return at_ >= text_.size();
}

std::uint8_t RequestScript::byte() {
    return isAtEnd() ? std::uint8_t{'0'} : text_[at_++];
}

} // namespace fuzz
