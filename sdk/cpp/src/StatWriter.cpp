#include "StatWriter.h"

#include "foundation/ISO8601.h"
#include "foundation/JSONWriter.h"
#include "foundation/Utf8.h"

#include <algorithm>
#include <stdexcept>

namespace kemvi::kit {
namespace {

namespace chrono = std::chrono;

constexpr Time earliest{chrono::sys_days(chrono::year(1) / 1 / 1)};
constexpr Time latest{Time(chrono::sys_days(chrono::year(10000) / 1 / 1)) - chrono::milliseconds(1)};

std::string_view lastName(std::string_view path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

void checkName(std::string_view name) {
    const bool isName = !name.empty() && name != "." && name != ".." &&
                        name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
    if (!isName || !foundation::isValidUtf8(name))
        throw std::invalid_argument("the file system gave " + foundation::jsonString(name) +
                                    " as a member, expected the name of one file in UTF-8");
}

void digits(std::string& text, std::size_t at, std::size_t count, long long value) {
    for (std::size_t place = at + count; place > at; value /= 10)
        text[--place] = static_cast<char>('0' + value % 10);
}

} // namespace

void StatWriter::one(std::string_view path, const Stat& stat) {
    line_.raw("{\"path\":").quoted(path).raw(",\"name\":").quoted(lastName(path));
    facts(stat);
}

void StatWriter::beginMembers(std::string_view folder) {
    prefix_ = foundation::jsonString(folder == "/" ? "/" : std::string(folder) + "/");
    prefix_.pop_back();
    separator_.clear();
}

void StatWriter::member(std::string_view name, const Stat& stat) {
    checkName(name);
    const std::string quoted = foundation::jsonString(name);
    line_.raw(separator_).raw("{\"path\":").raw(prefix_).raw(std::string_view(quoted).substr(1));
    line_.raw(",\"name\":").raw(quoted);
    facts(stat);
    separator_ = ",";
    line_.sendIfLong();
}

void StatWriter::facts(const Stat& stat) {
    line_.raw(stat.isDirectory ? ",\"isDirectory\":true,\"size\":" : ",\"isDirectory\":false,\"size\":");
    if (stat.size)
        line_.number(*stat.size);
    else
        line_.raw("-1"); // not known
    line_.raw(",\"modifiedAt\":\"").raw(timeText(stat.modifiedAt)).raw("\"}");
}

// Members of a listing mostly share few days, so the calendar is asked rarely.
std::string_view StatWriter::timeText(Time time) {
    const Time shown = std::clamp(time, earliest, latest);
    const auto day = chrono::floor<chrono::days>(shown);
    if (day != knownDay_) {
        const auto seconds = chrono::duration<double>(day.time_since_epoch()).count();
        time_ = foundation::ISO8601DateFormatter().string({seconds});
        knownDay_ = day;
    }
    const chrono::hh_mm_ss ofDay(shown - day);
    constexpr std::size_t hoursAt = std::string_view("0000-00-00T").size();
    digits(time_, hoursAt, 2, ofDay.hours().count());
    digits(time_, hoursAt + 3, 2, ofDay.minutes().count());
    digits(time_, hoursAt + 6, 2, ofDay.seconds().count());
    digits(time_, hoursAt + 9, 3, ofDay.subseconds().count());
    return time_;
}

} // namespace kemvi::kit
