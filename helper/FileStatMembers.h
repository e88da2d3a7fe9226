#pragma once

#include "helper/HelperRecords.h"

#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

inline constexpr const char* statNotAnObject = "file stat was not an object";

/// A stat value on its way into a record: its members are taken one by one, wherever they come from. Forgiving: a
/// member of the wrong type is as good as absent, one that is not known is dropped, the last of one name counts.
class FileStatMembers {
public:
    void take(std::string_view key, JSONValue value);

    /// The record. A size outside the range of a 64-bit integer stops the process.
    KemviFileStat stat() &&;

private:
    std::optional<std::string> path_;
    std::optional<std::string> name_;
    bool isDirectory_ = false;
    double size_ = 0;
    std::optional<foundation::Date> modifiedAt_;
};

} // namespace kemvi
