#include "helper/FileStatMembers.h"

namespace kemvi {
namespace {

// The last component of a path. "/" is its own name, and so is a path that has no component.
std::string basename(const std::string& path) {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return path;
    const std::size_t slash = path.rfind('/', last);
    const std::size_t first = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(first, last - first + 1);
}

} // namespace

void FileStatMembers::take(std::string_view key, JSONValue value) {
    if (key == "path") {
        path_ = std::move(value).takeString();
    } else if (key == "name") {
        name_ = std::move(value).takeString();
    } else if (key == "isDirectory") {
        const bool* flag = value.asBool();
        isDirectory_ = flag != nullptr && *flag;
    } else if (key == "size") {
        const double* number = value.asNumber();
        size_ = number != nullptr ? *number : 0;
    } else if (key == "modifiedAt") {
        const std::string* text = value.asString();
        modifiedAt_ = text != nullptr ? kemviFs().date(*text) : std::nullopt;
    }
}

KemviFileStat FileStatMembers::stat() && {
    KemviFileStat made;
    if (path_)
        made.path = std::move(*path_);
    made.name = name_ ? std::move(*name_) : basename(made.path);
    made.isDirectory = isDirectory_;
    made.size = integerFromNumber(size_);
    made.modifiedAt = modifiedAt_;
    return made;
}

} // namespace kemvi
