#include "cli/JSONLine.h"

#include <string>
#include <utility>
#include <vector>

namespace cli {

kemvi::JSONObject objectOfLine(std::string_view line) {
    std::vector<kemvi::JSONObject::Member> members;
    foundation::JSONReader reader;
    reader.readObject(line, [&](std::string_view key, foundation::JSONElement& value) {
        std::string name(key); // the reader may use its memory again for the value
        members.emplace_back(std::move(name), kemvi::JSONValue::read(value));
    });
    return kemvi::JSONObject(std::move(members));
}

} // namespace cli
