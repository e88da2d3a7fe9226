#include "helper/HelperRequest.h"

#include "foundation/DecodingError.h"
#include "foundation/JSONWriter.h"

namespace kemvi {
namespace {

constexpr std::size_t roomForKeys = 512; // all keys with what stands around them, and the numbers

// Writes the members of a request that are there.
class LineWriter : public foundation::JSONWriter {
public:
    using JSONWriter::JSONWriter;

    void value(std::int64_t present) { number(present); }

    void value(const std::string& text) {
        if (!string(text))
            throw foundation::EncodingError("a string of the request is not UTF-8");
    }

    void value(const std::vector<std::string>& texts) {
        literal("[");
        for (const std::string& text : texts) {
            if (&text != &texts.front())
                literal(",");
            value(text);
        }
        literal("]");
    }

    template <std::size_t size, typename T>
    void field(const char (&key)[size], const std::optional<T>& present) {
        if (!present)
            return;
        literal(key);
        value(*present);
    }
};

std::size_t roomFor(const std::string& text) {
    return foundation::JSONWriter::roomFor(text) + 1; // a comma, between flags
}

std::size_t roomFor(const HelperRequest& request) {
    std::size_t room = roomForKeys + roomFor(request.id) + roomFor(request.op);
    for (const auto* text : {&request.path, &request.oldPath, &request.newPath, &request.mtime})
        if (*text)
            room += roomFor(**text);
    if (request.flags)
        for (const std::string& flag : *request.flags)
            room += roomFor(flag);
    return room;
}

} // namespace

HelperRequestEncoder::Line HelperRequestEncoder::encode(const HelperRequest& request) {
    text_.clear();
    text_.reserve(roomFor(request));
    LineWriter line(text_.data(), foundation::JSONSlashes::escaped);
    line.literal(R"({"id":)");
    line.value(request.id);
    line.literal(R"(,"op":)");
    line.value(request.op);
    line.field(R"(,"path":)", request.path);
    line.field(R"(,"oldPath":)", request.oldPath);
    line.field(R"(,"newPath":)", request.newPath);
    line.field(R"(,"flags":)", request.flags);
    line.field(R"(,"handle":)", request.handle);
    line.field(R"(,"offset":)", request.offset);
    line.field(R"(,"length":)", request.length);
    const char* split = nullptr; // where the payload goes; without one the line is one piece
    if (request.dataBase64) {
        line.literal(R"(,"dataBase64":")");
        split = line.at();
        line.literal("\"");
    }
    line.field(R"(,"mode":)", request.mode);
    line.field(R"(,"mtime":)", request.mtime);
    line.literal("}\n");
    text_.setSize(static_cast<std::size_t>(line.at() - text_.data()));
    if (split == nullptr)
        return {text_.view(), {}, {}};
    const auto headSize = static_cast<std::size_t>(split - text_.data());
    return {text_.view().substr(0, headSize), *request.dataBase64, text_.view().substr(headSize)};
}

} // namespace kemvi
