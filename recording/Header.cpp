#include "recording/Header.h"

#include "foundation/DecodingError.h"
#include "foundation/JSON.h"
#include "foundation/JSONWriter.h"
#include "helper/JSONValue.h"
#include "recording/RecordingError.h"

#include <array>
#include <utility>
#include <vector>

namespace recording {
namespace {

using foundation::jsonString;
using kemvi::JSONObject;
using kemvi::JSONValue;

constexpr std::array<std::string_view, 3> payloadNames{"full", "hash", "none"};
constexpr std::array<std::string_view, 2> namesNames{"plain", "scrambled"};

template <std::size_t size>
std::optional<std::size_t> indexIn(const std::array<std::string_view, size>& names, std::string_view name) {
    for (std::size_t i = 0; i < size; ++i)
        if (names[i] == name)
            return i;
    return std::nullopt;
}

JSONObject membersOf(std::string_view line) {
    std::vector<JSONObject::Member> members;
    foundation::JSONReader reader;
    try {
        reader.readObject(line, [&](std::string_view key, foundation::JSONElement& value) {
            std::string name(key);
            members.emplace_back(std::move(name), JSONValue::read(value));
        });
    } catch (const foundation::DecodingError&) {
        throw RecordingError("is no recording: its first line is no JSON object");
    }
    return JSONObject(std::move(members));
}

std::string memberText(const JSONObject& header, std::string_view key) {
    const JSONValue* const value = header.find(key);
    if (value == nullptr || value->isNull())
        return {};
    if (value->asString() == nullptr)
        throw RecordingError("its header's \"" + std::string(key) + "\" is no string");
    return *value->asString();
}

void checkVersion(const JSONObject& header) {
    const JSONValue* const version = header.find("recording");
    if (version == nullptr || version->asNumber() == nullptr)
        throw RecordingError("is no recording: its first line has no \"recording\" with the number of a format");
    if (*version->asNumber() != formatVersion) {
        const std::string kemvi = memberText(header, "kemvi");
        throw RecordingError("is a recording of format " + version->description() + "; this command reads format " +
                             std::to_string(formatVersion) +
                             (kemvi.empty() ? "" : "; it was made by kemvi " + kemvi + ", use that"));
    }
}

} // namespace

std::string_view text(Payloads payloads) {
    return payloadNames.at(static_cast<std::size_t>(payloads));
}

std::string_view text(Names names) {
    return namesNames.at(static_cast<std::size_t>(names));
}

std::optional<Payloads> payloadsNamed(std::string_view name) {
    const auto index = indexIn(payloadNames, name);
    return index ? std::optional(static_cast<Payloads>(*index)) : std::nullopt;
}

std::string Header::line() const {
    return R"({"recording":)" + std::to_string(formatVersion) + R"(,"kemvi":)" + jsonString(kemvi) + R"(,"started":)" +
           jsonString(started) + R"(,"mountPoint":)" + jsonString(mountPoint) + R"(,"payloads":")" +
           std::string(text(settings.payloads)) + R"(","names":")" + std::string(text(settings.names)) + "\"}";
}

Header Header::parse(std::string_view line) {
    const JSONObject members = membersOf(line);
    checkVersion(members);
    Header header;
    header.kemvi = memberText(members, "kemvi");
    header.started = memberText(members, "started");
    header.mountPoint = memberText(members, "mountPoint");
    const auto payloads = payloadsNamed(memberText(members, "payloads"));
    if (!payloads)
        throw RecordingError("its header's \"payloads\" is none of full, hash, none");
    const auto names = indexIn(namesNames, memberText(members, "names"));
    if (!names)
        throw RecordingError("its header's \"names\" is none of plain, scrambled");
    header.settings = {*payloads, static_cast<Names>(*names)};
    return header;
}

} // namespace recording
