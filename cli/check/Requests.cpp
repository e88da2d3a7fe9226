#include "cli/check/Checks.h"
#include "foundation/Base64.h"

#include <cmath>
#include <span>

namespace cli::check {

kemvi::HelperRequest pathRequest(const char* op, std::string path) {
    kemvi::HelperRequest request;
    request.op = op;
    request.path = std::move(path);
    return request;
}

kemvi::HelperRequest openRequest(std::string path, std::vector<std::string> flags) {
    auto request = pathRequest("open", std::move(path));
    request.flags = std::move(flags);
    return request;
}

kemvi::HelperRequest handleRequest(const char* op, std::int64_t handle) {
    kemvi::HelperRequest request;
    request.op = op;
    request.handle = handle;
    return request;
}

std::string childPath(const std::string& path, const std::string& name) {
    return (path == "/" ? "" : path) + "/" + name;
}

std::optional<kemvi::KemviFileStat> statIn(const kemvi::JSONValue& value) {
    const auto* object = value.asObject();
    const auto* size = object != nullptr ? object->find("size") : nullptr;
    // A number outside the range of the record would stop the process.
    if (object == nullptr || (size != nullptr && size->asNumber() != nullptr && !(std::abs(*size->asNumber()) < 9e18)))
        return std::nullopt;
    return kemvi::KemviFileStat(value);
}

std::optional<kemvi::KemviFileStat> statIn(const Answer& answer) {
    return answer.result() != nullptr ? statIn(*answer.result()) : std::nullopt;
}

bool isPossibleName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::optional<std::int64_t> handleIn(const Answer& answer) {
    const auto* object = answer.result() != nullptr ? answer.result()->asObject() : nullptr;
    const auto* handle = object != nullptr ? object->find("handle") : nullptr;
    if (handle == nullptr || handle->asNumber() == nullptr || std::abs(*handle->asNumber()) > 9e15)
        return std::nullopt;
    return static_cast<std::int64_t>(*handle->asNumber());
}

std::optional<std::string> bytesIn(const Answer& answer) {
    if (!answer.ok() || !answer.response->dataBase64)
        return std::nullopt;
    const std::string_view text = answer.response->dataBase64->text;
    std::string bytes(foundation::base64::decodedLength(text).value_or(0), '\0');
    const auto count = foundation::base64::decode(text, std::as_writable_bytes(std::span(bytes)));
    if (!count)
        return std::nullopt;
    bytes.resize(*count);
    return bytes;
}

Answer askRead(Conversation& talk, std::int64_t handle, std::int64_t offset, std::int64_t length) {
    auto request = handleRequest("read", handle);
    request.offset = offset;
    request.length = length;
    return talk.ask(std::move(request));
}

std::optional<std::string> readOn(Conversation& talk, std::int64_t handle, std::int64_t offset, std::int64_t piece,
                                  std::size_t limit) {
    std::string all;
    while (all.size() < limit) {
        const auto bytes = bytesIn(askRead(talk, handle, offset + static_cast<std::int64_t>(all.size()), piece));
        if (!bytes)
            return std::nullopt;
        if (bytes->empty())
            break;
        all += *bytes;
    }
    return all;
}

} // namespace cli::check
