#include "recording/Comparison.h"

#include "foundation/ISO8601.h"
#include "recording/JSONText.h"
#include "recording/Reader.h"
#include "recording/Sha256.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

namespace recording {
namespace {

using kemvi::JSONObject;
using kemvi::JSONValue;

std::string shown(const JSONValue* value) {
    return value == nullptr || value->isNull() ? std::string() : jsonText(*value);
}

bool isData(std::string_view member) {
    return member.starts_with("data");
}

/// The bytes of an answer, as far as they are known.
struct Data {
    std::optional<std::string> bytes;
    std::optional<std::uint64_t> length;
    std::string hash; // empty if unknown
    bool isInvalid = false;

    explicit Data(const JSONObject& answer) {
        const JSONValue* const base64 = answer.find("dataBase64");
        const JSONValue* const count = answer.find("dataLength");
        const JSONValue* const digest = answer.find("dataSHA256");
        isInvalid = answer.find("dataInvalid") != nullptr;
        if (base64 != nullptr && base64->asString() != nullptr) {
            bytes = decodedPayload(*base64->asString());
            isInvalid = !bytes;
        }
        if (bytes)
            length = bytes->size();
        else if (count != nullptr && count->asNumber() != nullptr)
            length = static_cast<std::uint64_t>(*count->asNumber());
        if (digest != nullptr && digest->asString() != nullptr)
            hash = *digest->asString();
    }

    std::string hashText() const { return bytes ? sha256Hex(*bytes) : hash; }

    std::string sizeText() const {
        if (isInvalid)
            return "no base64";
        return length ? std::to_string(*length) + " bytes" : std::string();
    }
};

class Comparer {
public:
    Comparer(std::string_view op, CompareOptions options) : op_(op), options_(options) {}

    void answers(const JSONObject& recorded, const JSONObject& now, DataRule rule) {
        for (const std::string& key : keysOf(recorded, now)) {
            if (key == "id" || isData(key))
                continue;
            const JSONValue* const before = recorded.find(key);
            const JSONValue* const after = now.find(key);
            if (key == "result" && op_ == "readdir" && isArray(before) && isArray(after))
                listings(*before->asArray(), *after->asArray());
            else
                values(key, before, after);
        }
        data(Data(recorded), Data(now), rule);
    }

    std::vector<Difference> take() { return std::move(differences_); }

private:
    static bool isArray(const JSONValue* value) { return value != nullptr && value->asArray() != nullptr; }

    static std::set<std::string> keysOf(const JSONObject& a, const JSONObject& b) {
        std::set<std::string> keys;
        for (const JSONObject* object : {&a, &b})
            for (const auto& [key, value] : object->members())
                keys.insert(key);
        return keys;
    }

    void note(std::string member, std::string recorded, std::string now) {
        differences_.push_back({std::move(member), std::move(recorded), std::move(now)});
    }

    bool isLeftOut(std::string_view member) const {
        if (member == "error.message" || member == "error.name")
            return !options_.messages;
        return member.ends_with(".modifiedAt") && !options_.times;
    }

    static bool isSameTime(const JSONValue& a, const JSONValue& b) {
        const foundation::ISO8601DateFormatter format;
        const auto before = a.asString() != nullptr ? format.date(*a.asString()) : std::nullopt;
        const auto after = b.asString() != nullptr ? format.date(*b.asString()) : std::nullopt;
        return before && after && *before == *after;
    }

    void values(const std::string& member, const JSONValue* before, const JSONValue* after) {
        if (isLeftOut(member) || (shown(before).empty() && shown(after).empty()))
            return;
        if (before != nullptr && after != nullptr && before->kind() == after->kind()) {
            if ((op_ == "open" && member == "result.handle") || (op_ == "statfs" && member == "result"))
                return;
            if (const JSONObject* const object = before->asObject()) {
                for (const std::string& key : keysOf(*object, *after->asObject()))
                    values(std::string(member).append(".").append(key), object->find(key),
                           after->asObject()->find(key));
                return;
            }
            if (const JSONValue::Array* const array = before->asArray()) {
                arrays(member, *array, *after->asArray());
                return;
            }
            if (*before == *after || (member.ends_with(".modifiedAt") && isSameTime(*before, *after)))
                return;
        }
        note(member, shown(before), shown(after));
    }

    void arrays(const std::string& member, const JSONValue::Array& before, const JSONValue::Array& after) {
        for (std::size_t i = 0; i < std::max(before.size(), after.size()); ++i)
            values(member + "[" + std::to_string(i) + "]", i < before.size() ? &before[i] : nullptr,
                   i < after.size() ? &after[i] : nullptr);
    }

    // By name, since a listing is in any order. Of a name that stands there twice the last counts.
    void listings(const JSONValue::Array& before, const JSONValue::Array& after) {
        if (before.size() != after.size())
            note("result", std::to_string(before.size()) + " entries", std::to_string(after.size()) + " entries");
        std::map<std::string, std::pair<const JSONValue*, const JSONValue*>> byName;
        for (const JSONValue& entry : before)
            byName[nameOf(entry)].first = &entry;
        for (const JSONValue& entry : after)
            byName[nameOf(entry)].second = &entry;
        for (const auto& [name, entries] : byName)
            values("result[" + name + "]", entries.first, entries.second);
    }

    static std::string nameOf(const JSONValue& entry) {
        const JSONValue* const name = entry.asObject() != nullptr ? entry.asObject()->find("name") : nullptr;
        return name != nullptr && name->asString() != nullptr ? *name->asString() : jsonText(entry);
    }

    void data(const Data& before, const Data& after, DataRule rule) {
        if (before.sizeText() != after.sizeText()) {
            note("data", before.sizeText(), after.sizeText());
            return;
        }
        if (rule == DataRule::lengthOnly || !before.length)
            return;
        if (before.bytes && after.bytes) {
            const auto [at, other] = std::mismatch(before.bytes->begin(), before.bytes->end(), after.bytes->begin());
            if (at != before.bytes->end())
                note("data", byteText(*at, at - before.bytes->begin()), byteText(*other, other - after.bytes->begin()));
            return;
        }
        const std::string hash = before.hashText();
        if (!hash.empty() && !after.hashText().empty() && hash != after.hashText())
            note("data", "SHA-256 " + hash, "SHA-256 " + after.hashText());
    }

    static std::string byteText(char byte, std::ptrdiff_t offset) {
        return "byte " + std::to_string(offset) + " is " + std::to_string(static_cast<unsigned char>(byte));
    }

    std::string_view op_;
    CompareOptions options_;
    std::vector<Difference> differences_;
};

} // namespace

std::vector<Difference> compareAnswers(std::string_view op, const JSONObject& recorded, const JSONObject& now,
                                       CompareOptions options, DataRule data) {
    Comparer comparer(op, options);
    comparer.answers(recorded, now, data);
    return comparer.take();
}

} // namespace recording
