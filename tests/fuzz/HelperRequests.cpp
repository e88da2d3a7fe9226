#include "Fuzz.h"

#include "Request.h"
#include "foundation/DecodingError.h"

#include <algorithm>
#include <string>

namespace fuzz {
namespace {

using kemvi::kit::Request;

// False if it is refused.
bool read(Request& request, foundation::ByteBuffer& line, std::string_view text, std::size_t spaces) {
    line.clear();
    line.append(text);
    line.append(std::string(spaces, ' '));
    try {
        request.read(line.view());
        return true;
    } catch (const foundation::DecodingError&) {
        return false;
    }
}

bool isSame(const kemvi::kit::TextField& one, const kemvi::kit::TextField& other) {
    return one.isGiven == other.isGiven && (!one.isGiven || one.text == other.text);
}

bool isSame(const Request& one, const Request& other) {
    const bool texts = isSame(one.id, other.id) && isSame(one.op, other.op) && isSame(one.path, other.path) &&
                       isSame(one.oldPath, other.oldPath) && isSame(one.newPath, other.newPath) &&
                       isSame(one.mtime, other.mtime) && one.numberAsId == other.numberAsId;
    const bool numbers = one.handle == other.handle && one.offset == other.offset && one.length == other.length &&
                         one.mode == other.mode;
    const bool flags = one.hasFlags == other.hasFlags && one.reads == other.reads && one.writes == other.writes &&
                       one.creates == other.creates && one.truncates == other.truncates &&
                       one.unknownFlag == other.unknownFlag;
    return texts && numbers && flags && one.payload == other.payload && std::ranges::equal(one.data(), other.data());
}

} // namespace

void helperRequests(Input input) {
    constexpr std::size_t manySpaces = 600; // a line as long as that has its payload cut out
    const std::string_view text = textOf(input);
    foundation::ByteBuffer shortLine;
    foundation::ByteBuffer longLine;
    Request plain;
    Request cut;
    if (text.size() < manySpaces / 2 && read(plain, shortLine, text, 0))
        require(read(cut, longLine, text, manySpaces) && isSame(plain, cut),
                "a request is the same whether or not its payload is cut out");
    else
        (void)read(cut, longLine, text, manySpaces);
    const auto id = kemvi::kit::idAtFront(text);
    require(!id || (id->size() >= 2 && id->front() == '"' && id->back() == '"'), "an id at the front has its quotes");
}

} // namespace fuzz
