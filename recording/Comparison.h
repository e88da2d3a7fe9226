#pragma once

#include "helper/JSONValue.h"

#include <string>
#include <string_view>
#include <vector>

namespace recording {

/// What of an answer is compared beyond what a mount goes by.
struct CompareOptions {
    bool times = false;    // "modifiedAt"
    bool messages = false; // what errors say to people, beside their codes
};

/// How the bytes of a read are compared.
enum class DataRule { contents, lengthOnly };

/// One member of an answer that is not as it was recorded. An empty text stands for an absent member.
struct Difference {
    std::string member; // "result.size", "result[a.txt].size", "error.code", "data"
    std::string recorded;
    std::string now;

    friend bool operator==(const Difference&, const Difference&) = default;
};

/// Compares an answer to a request `op` with the recorded one, member by member. Absent and null are the same; "id",
/// the number of a handle and the figures of a statfs count for nothing, the order of a listing neither. Of bytes that
/// were recorded as their hash or their number that is compared.
std::vector<Difference> compareAnswers(std::string_view op, const kemvi::JSONObject& recorded,
                                       const kemvi::JSONObject& now, CompareOptions options,
                                       DataRule data = DataRule::contents);

} // namespace recording
