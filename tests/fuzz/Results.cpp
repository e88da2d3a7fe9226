#include "Fuzz.h"

#include "foundation/Base64.h"
#include "foundation/DecodingError.h"
#include "foundation/Error.h"
#include "helper/AdapterError.h"
#include "unit/helper/PipePeer.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Each typed operation against what a tree of values says of the same answer.
namespace fuzz {
namespace {

using kemvi::HelperResponse;
using kemvi::JSONValue;

constexpr std::size_t longest = 50'000; // fits into a pipe of any size

// What an operation returns, or nothing if it throws one of the errors that its callers know.
template <typename Operation>
auto outcome(Operation&& operation) -> std::optional<decltype(operation())> {
    try {
        return operation();
    } catch (const kemvi::AdapterError&) {
        return std::nullopt;
    } catch (const foundation::NSErrorException&) {
        return std::nullopt;
    } catch (const foundation::DecodingError&) {
        return std::nullopt;
    }
}

// The answer, if it is one that an operation accepts.
std::optional<HelperResponse> accepted(const std::string& line, const std::string& id) {
    const auto bytes = std::make_shared<foundation::ByteBuffer>();
    bytes->append(line);
    foundation::JSONReader reader;
    auto response = outcome([&] { return HelperResponse::decode(bytes, reader); });
    return response && response->ok && response->id == id ? std::move(response) : std::nullopt;
}

const double* numberMember(const JSONValue& value, std::string_view key) {
    const kemvi::JSONObject* object = value.asObject();
    const JSONValue* member = object != nullptr ? object->find(key) : nullptr;
    return member != nullptr ? member->asNumber() : nullptr;
}

// Whether all numbers that are counts fit 64 bits; one that does not stops the process, as it should.
bool hasFittingCounts(const std::optional<JSONValue>& result) {
    if (!result)
        return true;
    const JSONValue::Array* elements = result->asArray();
    const JSONValue::Array alone{*result};
    for (const JSONValue& value : elements != nullptr ? *elements : alone)
        for (const char* key : {"size", "handle", "files", "directories", "bytes"})
            if (const double* number = numberMember(value, key); number != nullptr && !kemvi::fitsInteger(*number))
                return false;
    return true;
}

std::optional<std::vector<kemvi::KemviDirEntry>> listing(const std::optional<JSONValue>& result) {
    const JSONValue::Array* elements = result ? result->asArray() : nullptr;
    if (elements == nullptr)
        return std::nullopt;
    return outcome([&] {
        std::vector<kemvi::KemviDirEntry> entries;
        for (const JSONValue& element : *elements)
            entries.emplace_back(kemvi::KemviFileStat(element));
        return entries;
    });
}

std::optional<kemvi::KemviFileStat> stat(const std::optional<JSONValue>& result) {
    return result ? outcome([&] { return kemvi::KemviFileStat(*result); }) : std::nullopt;
}

std::optional<std::int64_t> handle(const std::optional<JSONValue>& result) {
    const double* number = result ? numberMember(*result, "handle") : nullptr;
    return number != nullptr ? std::optional(kemvi::integerFromNumber(*number)) : std::nullopt;
}

std::optional<std::vector<std::byte>> bytes(const HelperResponse& response) {
    if (!response.dataBase64)
        return std::nullopt;
    std::vector<std::byte> decoded(foundation::base64::decodedLength(response.dataBase64->text).value_or(0));
    const bool isValid = foundation::base64::decode(response.dataBase64->text, decoded).has_value();
    return isValid ? std::optional(decoded) : std::nullopt;
}

// One client for all inputs: whatever it was answered, it remains usable.
class Conversation {
public:
    void exchange(char operation, std::string_view value) {
        const std::string id = std::to_string(++requests_);
        const std::string key = operation == 'r' ? "dataBase64" : "result";
        const std::string line = "{\"id\":\"" + id + "\",\"ok\":true,\"" + key + "\":" + std::string(value) + "}";
        const auto response = accepted(line, id);
        const bool isJudged = !response || hasFittingCounts(response->result);
        peer_.sayLine(isJudged ? line : "{}");
        compare(operation, isJudged ? response : std::nullopt);
        peer_.request();
        checkUsable();
    }

private:
    void compare(char operation, const std::optional<HelperResponse>& response) {
        const auto result = response ? response->result : std::nullopt;
        kemvi::HelperClient& client = peer_.client;
        switch (operation) {
        case 'd':
            require(outcome([&] { return client.readdir("/"); }) == listing(result),
                    "a listing is what its values are");
            break;
        case 'g':
            require(outcome([&] { return client.getattr("/"); }) == stat(result), "a stat is what its values are");
            break;
        case 'o':
            require(outcome([&] { return client.open("/", {}); }) == handle(result), "a handle is what its value is");
            break;
        case 'r': compareRead(response); break;
        case 's': {
            const auto figures = outcome([&] { return kemvi::KemviStatFS(result); });
            require(outcome([&] { return client.statfs(); }) == figures, "figures are what their values are");
            break;
        }
        default: {
            const auto answer = outcome([&] { return client.ping(); });
            require(answer.has_value() == response.has_value() && (!answer || *answer == result),
                    "an untyped result is what was read");
        }
        }
    }

    void compareRead(const std::optional<HelperResponse>& response) {
        const auto expected = response ? bytes(*response) : std::nullopt;
        std::vector<std::byte> room(expected ? expected->size() / 2 : 4);
        const auto count = outcome([&] { return peer_.client.read(1, 0, 4, room); });
        require(count.has_value() == expected.has_value() && (!count || *count == expected->size()),
                "a read gives the bytes that were sent");
        require(!expected || std::equal(room.begin(), room.end(), expected->begin()), "as many of them as fit");
    }

    void checkUsable() {
        peer_.sayLine("{\"id\":\"" + std::to_string(++requests_) + "\",\"ok\":true,\"result\":\"here\"}");
        require(peer_.client.ping() == JSONValue("here"), "after any answer the next exchange works");
        peer_.request();
    }

    kemvi::PipePeer peer_;
    std::int64_t requests_ = 0;
};

} // namespace

// The first byte says which operation is answered, the rest is the value it gets.
void results(Input input) {
    static Conversation conversation;
    const std::string_view text = textOf(input);
    if (text.empty() || text.size() > longest || text.find('\n') != text.npos)
        return;
    conversation.exchange(text.front(), text.substr(1));
}

} // namespace fuzz
