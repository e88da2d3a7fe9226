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
    return exchange(made).result;
}

KemviStatFS HelperClient::statfs() {
    HelperRequest made = request("statfs");
    const std::optional<JSONValue> result = exchange(made).result;
    return tellingRequest(made, [&] { return KemviStatFS(result); });
}

std::vector<KemviDirEntry> HelperClient::readdir(const std::string& path) {
    ListingReader listing;
    HelperRequest made = pathRequest("readdir", path);
    exchange(made, [&](JSONElement& result) { listing.read(result); });
    return tellingRequest(made, [&] { return std::move(listing).entries(); });
}

KemviFileStat HelperClient::getattr(const std::string& path) {
    StatReader stat;
    HelperRequest made = pathRequest("getattr", path);
    exchange(made, [&](JSONElement& result) { stat.read(result); });
    return tellingRequest(made, [&] { return std::move(stat).stat(); });
}

std::int64_t HelperClient::open(const std::string& path, const std::vector<std::string>& flags) {
    HelperRequest made = pathRequest("open", path);
    made.flags = flags;
    std::optional<double> handle;
    exchange(made, [&](JSONElement& result) { handle = handleIn(result); });
    return tellingRequest(made, [&] {
        if (!handle)
            throw AdapterError::protocolError("open result missing handle");
        return integerFromNumber(*handle);
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
    const std::shared_ptr<foundation::ByteBuffer> text = buffers_->take();
    text->reserve(foundation::base64::escapedRoom(data.size()));
    text->setSize(foundation::base64::encodeEscapingSlashes(data, text->data()));
    HelperRequest made = request("write");
    made.handle = handle;
    made.offset = offset;
    made.dataBase64 = text->view();
    exchange(made);
}

// Operations that answer nothing beyond success.

void HelperClient::handleOperation(const char* op, std::int64_t handle) {
    HelperRequest made = request(op);
    made.handle = handle;
    exchange(made);
}

void HelperClient::pathOperation(const char* op, const std::string& path) {
    HelperRequest made = pathRequest(op, path);
    exchange(made);
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
    exchange(made);
}

void HelperClient::chmod(const std::string& path, std::int64_t mode) {
    HelperRequest made = pathRequest("chmod", path);
    made.mode = mode;
    exchange(made);
}

void HelperClient::utimes(const std::string& path, foundation::Date mtime) {
    HelperRequest made = pathRequest("utimes", path);
    made.mtime = kemviFs().string(mtime);
    exchange(made);
}

} // namespace kemvi
