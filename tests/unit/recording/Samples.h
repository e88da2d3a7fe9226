#pragma once

#include "recording/Reader.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace recording {

inline constexpr const char* plainHeader =
    R"({"recording":1,"kemvi":"0.1.0","started":"2026-11-22T12:00:00.000000Z","mountPoint":"/mnt","payloads":"full","names":"plain"})";

/// A folder that goes with the object.
class Folder {
public:
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "kemvi-recording-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        path_ = name;
    }

    ~Folder() { std::filesystem::remove_all(path_); }

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file(const std::string& name = "a.kemvi-record") const { return path_ / name; }

    std::string write(const std::string& text, const std::string& name = "a.kemvi-record") const {
        std::ofstream(file(name), std::ios::binary) << text;
        return file(name);
    }

    static std::string contents(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path path_;
};

inline std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

inline kemvi::JSONObject object(const std::string& json) {
    std::vector<kemvi::JSONObject::Member> members;
    foundation::JSONReader().readObject(json, [&](std::string_view key, foundation::JSONElement& value) {
        std::string name(key);
        members.emplace_back(std::move(name), kemvi::JSONValue::read(value));
    });
    return kemvi::JSONObject(std::move(members));
}

} // namespace recording
