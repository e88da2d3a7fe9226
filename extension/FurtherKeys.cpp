#include "extension/FurtherKeys.h"

#include "foundation/JSON.h"

#include <filesystem>

namespace kemvi {
namespace {

using foundation::JSONElement;
using foundation::JSONType;

/// None if it is no array of strings.
std::optional<std::vector<std::string>> readStrings(JSONElement& value) {
    if (value.type() != JSONType::array)
        return std::nullopt;
    std::vector<std::string> strings;
    bool areStrings = true;
    value.forEachElement([&](JSONElement& each) {
        areStrings = areStrings && each.type() == JSONType::string;
        if (areStrings)
            strings.emplace_back(each.string());
    });
    return areStrings ? std::optional(std::move(strings)) : std::nullopt;
}

HelperSettings readSettings(JSONElement& value, const std::string& file) {
    constexpr const char* expected = "\"helperEnvironment\" must be an object whose values are strings";
    if (value.type() != JSONType::object)
        throw SettingsError(file, expected);
    HelperSettings settings;
    value.forEachMember([&](std::string_view key, JSONElement& setting) {
        const std::string name(key);
        if (setting.type() != JSONType::string)
            throw SettingsError(file, expected);
        settings.push_back(
            helperSetting(name + "=" + std::string(setting.string()), file + ": \"helperEnvironment\": " + name));
    });
    return settings;
}

} // namespace

FurtherKeys FurtherKeys::read(std::string_view text, const std::string& helperPath, const std::string& file) {
    FurtherKeys keys;
    foundation::JSONReader().readObject(text, [&](std::string_view key, JSONElement& value) {
        if (key == "helperCommand")
            keys.command = readStrings(value).value_or(std::vector<std::string>());
        else if (key == "helperEnvironment")
            keys.settings = readSettings(value, file);
        else if (key == "mountOptions")
            keys.mountOptions = readStrings(value);
    });
    if (std::filesystem::path(helperPath).filename() != "program.mjs")
        keys.command.clear();
    else if (keys.command.empty() || keys.command.front().empty())
        throw SettingsError(file, "helperCommand must be an array of strings: the program, then its arguments");
    return keys;
}

} // namespace kemvi
