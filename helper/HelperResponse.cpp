#include "helper/HelperResponse.h"

#include "foundation/PlainText.h"
#include "foundation/PosixErrno.h"

#include <array>
#include <functional>
#include <utility>

namespace kemvi {
namespace {

using foundation::ByteBuffer;
using foundation::DecodingError;
using foundation::JSONElement;
using foundation::JSONType;
namespace posixErrno = foundation::posixErrno;

constexpr std::array<std::pair<std::string_view, std::int32_t>, 9> errnoNames{{
    {"ENOENT", posixErrno::ENOENT_},
    {"EEXIST", posixErrno::EEXIST_},
    {"EINVAL", posixErrno::EINVAL_},
    {"EISDIR", posixErrno::EISDIR_},
    {"ENOTDIR", posixErrno::ENOTDIR_},
    {"ENOTEMPTY", posixErrno::ENOTEMPTY_},
    {"EACCES", posixErrno::EACCES_},
    {"EPERM", posixErrno::EPERM_},
    {"EROFS", posixErrno::EROFS_},
}};

// A member as it was last seen in the text. Whether its type is the right one is asked when the text has ended, because
// a later member of the same name takes its place.
template <typename T>
struct Member {
    std::string_view key;
    JSONType wanted;
    std::optional<JSONType> seen;
    T value{};

    // Remembers what is seen; true if the value is of the wanted type and is to be taken.
    bool note(JSONElement& element) {
        seen = element.type();
        return seen == wanted;
    }

    T required() {
        if (!seen)
            throw DecodingError::keyNotFound(key);
        return checked();
    }

    std::optional<T> optional() {
        if (!seen || seen == JSONType::null)
            return std::nullopt;
        return checked();
    }

private:
    T checked() {
        if (seen != wanted)
            throw DecodingError::typeMismatch(key, jsonTypeName(wanted), jsonTypeName(*seen));
        return std::move(value);
    }
};

struct FailureMembers {
    Member<std::string> message{"error.message", JSONType::string, {}};
    Member<std::string> code{"error.code", JSONType::string, {}};
    Member<std::string> name{"error.name", JSONType::string, {}};

    void read(JSONElement& element) {
        element.forEachMember([this](std::string_view key, JSONElement& value) {
            Member<std::string>* const member =
                called(key); // before the value is read, which may reuse the key's memory
            if (member != nullptr && member->note(value))
                member->value = value.string();
        });
    }

    Member<std::string>* called(std::string_view key) {
        for (Member<std::string>* member : {&message, &code, &name})
            if (member->key.substr(member->key.find('.') + 1) == key)
                return member;
        return nullptr;
    }

    HelperResponse::Failure failure() {
        HelperResponse::Failure result;
        result.message = message.required();
        result.code = code.optional();
        result.name = name.optional();
        return result;
    }
};

// The fields of a response as they come by in `text`, which is the line or stands in its place.
struct ResponseMembers {
    std::string_view text;
    const std::shared_ptr<const ByteBuffer>& line;
    const HelperResponse::ResultHandler& onResult;
    Member<std::string> id{"id", JSONType::string, {}};
    Member<bool> ok{"ok", JSONType::boolean, {}};
    std::optional<JSONValue> result{};
    Member<PayloadText> dataBase64{"dataBase64", JSONType::string, {}};
    Member<FailureMembers> error{"error", JSONType::object, {}};

    void read(std::string_view key, JSONElement& value) {
        if (key == "id") {
            if (id.note(value))
                id.value = value.string();
        } else if (key == "ok") {
            if (ok.note(value))
                ok.value = value.boolean();
        } else if (key == "result") {
            readResult(value);
        } else if (key == "dataBase64") {
            if (dataBase64.note(value))
                dataBase64.value = payload(value.string());
        } else if (key == "error") {
            error.value = {};
            if (error.note(value))
                error.value.read(value);
        }
    }

    void readResult(JSONElement& value) {
        result.reset();
        if (onResult)
            onResult(value);
        else if (value.type() != JSONType::null)
            result = JSONValue::read(value);
    }

    // A payload that had escapes lies in the reader, which the next exchange needs: it moves to memory of its own.
    PayloadText payload(std::string_view found) const {
        const std::less<> before;
        if (found.empty() || (!before(found.data(), text.data()) && before(found.data(), text.data() + text.size())))
            return {line, found};
        auto own = std::make_shared<ByteBuffer>();
        own->append(found);
        const std::string_view copy = own->view();
        return {std::move(own), copy};
    }
};

constexpr std::string_view payloadKey = "\"dataBase64\":\"";
constexpr std::size_t shortLine = 1024;    // below, cutting costs more than it saves
constexpr std::size_t longEnvelope = 1024; // on either side of the payload

HelperResponse decodeText(std::string_view text, const std::shared_ptr<const ByteBuffer>& line,
                          foundation::JSONReader& reader, const HelperResponse::ResultHandler& onResult) {
    ResponseMembers members{text, line, onResult};
    reader.readObject(text, [&](std::string_view key, JSONElement& value) { members.read(key, value); });
    HelperResponse response;
    response.id = members.id.required();
    response.ok = members.ok.required();
    response.result = std::move(members.result);
    response.dataBase64 = members.dataBase64.optional();
    if (auto failure = members.error.optional())
        response.error = failure->failure();
    return response;
}

// A payload is nearly all of its line, and all that JSON wants of it is that each of its characters stands for itself.
// So a long one is cut out unread, and what is left, with an empty payload in its place, is read as JSON. Nothing if
// the line is not of that kind or anything about it is odd; it is then to be read as a whole.
std::optional<HelperResponse> decodeAroundPayload(const std::shared_ptr<const ByteBuffer>& line,
                                                  foundation::JSONReader& reader) {
    const std::string_view text = line->view();
    const std::size_t key = text.size() < shortLine ? text.npos : text.substr(0, longEnvelope).find(payloadKey);
    if (key == text.npos)
        return std::nullopt;
    const std::size_t start = key + payloadKey.size();
    // Whoever escapes the slashes of base64 does so from the start.
    const std::string_view front = text.substr(start, longEnvelope);
    const std::size_t plainFront = foundation::plainRunLength(front);
    const std::size_t end = text.find('"', std::max(start + plainFront, text.size() - shortLine));
    if (end == text.npos || (plainFront < front.size() && end != start + plainFront))
        return std::nullopt;
    std::array<char, longEnvelope + payloadKey.size() + shortLine> envelope;
    const std::size_t headSize = text.copy(envelope.data(), start);
    const std::size_t size = headSize + text.copy(envelope.data() + headSize, text.npos, end);
    try {
        HelperResponse response = decodeText({envelope.data(), size}, line, reader, {});
        // What looked like the payload may have been a member of something else, or be overruled by a later one.
        if (!response.dataBase64 || response.dataBase64->text.data() != envelope.data() + start)
            return std::nullopt;
        response.dataBase64->text = text.substr(start, end - start);
        return response;
    } catch (const DecodingError&) {
        return std::nullopt; // reading the whole line names the right place
    }
}

} // namespace

foundation::NSError HelperResponse::Failure::posixError() const {
    for (const auto& [text, number] : errnoNames)
        if (code && *code == text)
            return foundation::NSError::posix(number, message);
    return foundation::NSError::posix(posixErrno::EIO_, message);
}

HelperResponse HelperResponse::decode(const std::shared_ptr<const ByteBuffer>& line, foundation::JSONReader& reader,
                                      const ResultHandler& onResult) {
    return decodeText(line->view(), line, reader, onResult);
}

HelperResponse HelperResponse::decodeTrustingBase64(const std::shared_ptr<const ByteBuffer>& line,
                                                    foundation::JSONReader& reader) {
    if (auto response = decodeAroundPayload(line, reader))
        return std::move(*response);
    return decode(line, reader);
}

} // namespace kemvi
