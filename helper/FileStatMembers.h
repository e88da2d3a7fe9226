#pragma once

#include "foundation/JSON.h"
#include "helper/HelperRecords.h"

#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

inline constexpr const char* statNotAnObject = "file stat was not an object";

/// A stat value on its way into a record: its members are taken from a tree of values, one by one, or straight from
/// a line. Forgiving: a member of the wrong type is as good as absent, one that is not known is
/// dropped, the last of one name counts. The size is not judged before `stat`, since it is not known yet whether the
/// value will count.
class FileStatMembers {
public:
    void take(std::string_view key, const JSONValue& value);
    /// All members of an object. Throws DecodingError where JSONValue::read does.
    void take(foundation::JSONElement& object);

    /// As it was sent: bytes, but any number.
    double size() const { return size_; }

    /// The record. A size outside the range of a 64-bit integer stops the process.
    KemviFileStat stat() &&;

private:
    template <typename Value>
    bool assign(std::string_view key, Value& value);

    std::optional<std::string> path_;
    std::optional<std::string> name_;
    bool isDirectory_ = false;
    double size_ = 0;
    std::optional<foundation::Date> modifiedAt_;
};

} // namespace kemvi
