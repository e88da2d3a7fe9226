#include "foundation/Base64.h"
#include "helper/AdapterError.h"
#include "helper/HelperClient.h"
#include "helper/ListingReader.h"
#include "helper/RequestOrigin.h"
#include "helper/StatReader.h"

namespace kemvi {
namespace {

using foundation::JSONElement;
using foundation::JSONType;

HelperRequest request(const char* op) {
    HelperRequest made;
    made.op = op;
    return made;
}

HelperRequest pathRequest(const char* op, const std::string& path) {
    HelperRequest made = request(op);
    made.path = path;
    return made;
}

// The number "handle" of the result of an "open"; nothing if there is none.
std::optional<double> handleIn(JSONElement& result) {
    std::optional<double> handle;
    if (result.type() == JSONType::object)
        result.forEachMember([&](std::string_view key, JSONElement& value) {
            const bool isHandle = key == "handle"; // asked before the value is read, which may reuse the key's memory
            const bool isNumber = value.type() == JSONType::number;
            if (isHandle)
                handle.reset();
            if (isHandle && isNumber)
                handle = JSONValue::number(value);
            else
                JSONValue::pass(value);
        });
    else
        JSONValue::pass(result);
    return handle;
}

} // namespace

std::optional<JSONValue> HelperClient::ping() {
    HelperRequest made = request("ping");
    return exchange_.ask(made).result;
}

KemviStatFS HelperClient::statfs() {
    HelperRequest made = request("statfs");
    const std::optional<JSONValue> result = exchange_.ask(made).result;
    return tellingRequest(made, [&] { return KemviStatFS(result); });
}

std::vector<KemviDirEntry> HelperClient::readdir(const std::string& path) {
    ListingReader listing;
    HelperRequest made = pathRequest("readdir", path);
    exchange_.ask(made, [&](JSONElement& result) { listing.read(result); });
    return tellingRequest(made, [&] { return std::move(listing).entries(); });
}

KemviFileStat HelperClient::getattr(const std::string& path) {
    StatReader stat;
    HelperRequest made = pathRequest("getattr", path);
    exchange_.ask(made, [&](JSONElement& result) { stat.read(result); });
    return tellingRequest(made, [&] { return std::move(stat).stat(); });
}

std::int64_t HelperClient::open(const std::string& path, const std::vector<std::string>& flags) {
    HelperRequest made = pathRequest("open", path);
    made.flags = flags;
    std::optional<double> handle;
    exchange_.ask(made, [&](JSONElement& result) { handle = handleIn(result); });
    return tellingRequest(made, [&] {
        if (!handle)
            throw AdapterError::protocolError("open result missing handle");
        return integerFromNumber(*handle);
    });
}

template <typename Decode>
void HelperClient::readPayload(std::int64_t handle, std::int64_t offset, std::int64_t length, Decode decode) {
    HelperRequest made = request("read");
    made.handle = handle;
    made.offset = offset;
    made.length = length;
    const HelperExchange::PayloadAnswer answer = exchange_.askForPayload(made);
    if (answer.isWanted && decode(answer.response.dataBase64->text))
        return;
    // Whatever is wrong, reading the whole line tells what comes first.
    const HelperResponse accepted = exchange_.acceptedAnswer(made, answer);
    tellingRequest(made, [&] {
        if (!accepted.dataBase64 || !decode(accepted.dataBase64->text))
            throw AdapterError::protocolError("read response missing dataBase64");
    });
}

std::vector<std::byte> HelperClient::read(std::int64_t handle, std::int64_t offset, std::int64_t length) {
    std::vector<std::byte> bytes;
    readPayload(handle, offset, length, [&](std::string_view text) {
        bytes.resize(foundation::base64::decodedLength(text).value_or(0));
        return foundation::base64::decode(text, bytes).has_value();
    });
    return bytes;
}

std::size_t HelperClient::read(std::int64_t handle, std::int64_t offset, std::int64_t length,
                               std::span<std::byte> into) {
    std::optional<std::size_t> count;
    readPayload(handle, offset, length, [&](std::string_view text) {
        count = foundation::base64::decode(text, into);
        return count.has_value();
    });
    return *count;
}

void HelperClient::write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> data) {
    const std::shared_ptr<foundation::ByteBuffer> text = exchange_.takeBuffer();
    text->reserve(foundation::base64::escapedRoom(data.size()));
    text->setSize(foundation::base64::encodeEscapingSlashes(data, text->data()));
    HelperRequest made = request("write");
    made.handle = handle;
    made.offset = offset;
    made.dataBase64 = text->view();
    exchange_.ask(made);
}

// Operations that answer nothing beyond success.

void HelperClient::handleOperation(const char* op, std::int64_t handle) {
    HelperRequest made = request(op);
    made.handle = handle;
    exchange_.ask(made);
}

void HelperClient::pathOperation(const char* op, const std::string& path) {
    HelperRequest made = pathRequest(op, path);
    exchange_.ask(made);
}

void HelperClient::flush(std::int64_t handle) {
    handleOperation("flush", handle);
}

void HelperClient::release(std::int64_t handle) {
    handleOperation("release", handle);
}

void HelperClient::mkdir(const std::string& path) {
    pathOperation("mkdir", path);
}

void HelperClient::unlink(const std::string& path) {
    pathOperation("unlink", path);
}

void HelperClient::rename(const std::string& oldPath, const std::string& newPath) {
    HelperRequest made = request("rename");
    made.oldPath = oldPath;
    made.newPath = newPath;
    exchange_.ask(made);
}

void HelperClient::chmod(const std::string& path, std::int64_t mode) {
    HelperRequest made = pathRequest("chmod", path);
    made.mode = mode;
    exchange_.ask(made);
}

void HelperClient::utimes(const std::string& path, foundation::Date mtime) {
    HelperRequest made = pathRequest("utimes", path);
    made.mtime = kemviFs().string(mtime);
    exchange_.ask(made);
}

} // namespace kemvi
