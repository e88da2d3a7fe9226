#include "cli/check/CheckNames.h"
#include "cli/check/Checks.h"

#include <chrono>
#include <cmath>
#include <deque>
#include <set>

namespace cli::check {

namespace {

using name::agreement;
using name::duplicates;
using name::listings;
using name::names;
using name::paths;
using name::types;

constexpr const char* statfs = "statfs is answered with an object of numbers";
constexpr const char* times = "times have the form 2024-05-01T12:34:56.789Z";
constexpr const char* sizes = "sizes are whole numbers, 0 or more, or -1";
constexpr const char* speed = "listings are fast enough for folders of 10,000 entries";

constexpr const char* noRoot = "the root \"/\" does not exist";
constexpr const char* nothingServed = "there is nothing to mount; does \"repoRoot\" name the right directory?";

// A tree is looked at until one of these is reached.
constexpr std::size_t mostFolders = 40;
constexpr std::size_t mostCompared = 200;
constexpr std::size_t mostSamples = 8;
constexpr std::size_t longestName = 255;               // bytes
constexpr std::chrono::microseconds slowPerEntry{100}; // a listing of 10,000 entries takes a second
constexpr std::size_t measuredFrom = 1000;             // entries; shorter listings say nothing of speed

class TreeExamination {
public:
    explicit TreeExamination(Conversation& talk) : talk_(talk) {
        for (const char* check : {listings, statfs, paths, names, duplicates, types, times, sizes, agreement, speed})
            talk.report().begin(check);
    }

    std::vector<SampleFile> run();
    void checkFolder(const std::string& path);

private:
    using Value = kemvi::JSONValue;

    void error(const char* check, const Answer& answer, std::string problem, std::string consequence) {
        talk_.find(check, Severity::error, answer, std::move(problem), std::move(consequence));
    }

    void checkStatfs();
    void checkRoot();
    void reportUnlisted(const std::string& path, const Answer& answer);
    void checkEntry(const std::string& folder, const Value& entry, const Answer& answer);
    void checkMembers(const Value& stat, const Answer& answer);
    void checkSize(const Value& size, const Answer& answer);
    void checkTime(const Value* time, const Answer& answer);
    bool checkName(const std::string& name, const Answer& answer);
    void compare(const std::string& folder, const kemvi::KemviFileStat& listed);
    std::optional<std::string> difference(const kemvi::KemviFileStat& listed, const Answer& answer) const;
    std::optional<kemvi::KemviFileStat> listedAgain(const std::string& folder, const std::string& path);

    Conversation& talk_;
    std::deque<std::string> folders_{"/"};
    std::vector<SampleFile> samples_;
    std::size_t compared_ = 0;
};

const kemvi::JSONValue* member(const kemvi::JSONValue& object, const char* key) {
    const auto* value = object.asObject() != nullptr ? object.asObject()->find(key) : nullptr;
    return value != nullptr && !value->isNull() ? value : nullptr;
}

constexpr double unknownSize = -1;

bool isSize(double number) {
    return std::floor(number) == number && number >= unknownSize && number < 9e15;
}

std::vector<SampleFile> TreeExamination::run() {
    checkStatfs();
    if (!talk_.available())
        return {};
    checkRoot();
    for (std::size_t seen = 0; seen < mostFolders && !folders_.empty() && talk_.available(); ++seen) {
        const std::string folder = folders_.front();
        folders_.pop_front();
        checkFolder(folder);
    }
    return samples_;
}

void TreeExamination::checkStatfs() {
    talk_.begin("statfs");
    kemvi::HelperRequest request;
    request.op = "statfs";
    const Answer answer = talk_.ask(request);
    if (!answer.response)
        return;
    talk_.report().done(statfs);
    if (answer.result() == nullptr || answer.result()->asObject() == nullptr) {
        error(statfs, answer, "the result is no object", "sync and the end of a mount report an input/output error");
        return;
    }
    for (const char* key : {"files", "directories", "bytes"}) {
        const auto* value = member(*answer.result(), key);
        if (value == nullptr || value->asNumber() == nullptr)
            talk_.find(statfs, Severity::warning, answer, std::string(key) + " is no number", "it counts as 0");
        else if (!(std::abs(*value->asNumber()) < 9e18))
            error(statfs, answer, std::string(key) + " does not fit 64 bits", "the mount is stopped");
    }
}

void TreeExamination::checkRoot() {
    const Answer answer = talk_.ask(pathRequest("getattr", "/"));
    const auto* directory = answer.result() != nullptr ? member(*answer.result(), "isDirectory") : nullptr;
    if (answer.code() == "ENOENT")
        error(listings, answer, noRoot, nothingServed);
    else if (answer.response && !answer.ok())
        error(listings, answer, "the root \"/\" gives no attributes", "nothing on the mount can be reached");
    else if (answer.response && (directory == nullptr || directory->asBool() == nullptr || !*directory->asBool()))
        error(listings, answer, "\"/\" is no folder", "tools that ask for the root see no folder");
}

void TreeExamination::checkFolder(const std::string& path) {
    talk_.begin("the folder " + path);
    const Answer answer = talk_.ask(pathRequest("readdir", path));
    if (!answer.response)
        return;
    for (const char* check : {listings, paths, names, duplicates, types, times, sizes, agreement, speed})
        talk_.report().done(check);
    const auto* entries = answer.result() != nullptr ? answer.result()->asArray() : nullptr;
    if (entries == nullptr) {
        reportUnlisted(path, answer);
        return;
    }
    if (entries->size() >= measuredFrom && answer.exchange.took > slowPerEntry * entries->size()) {
        talk_.find(speed, Severity::warning, answer,
                   std::to_string(entries->size()) + " entries took " + std::to_string(answer.exchange.took.count()) +
                       " s",
                   "ls waits noticeably in large folders");
    }
    std::set<std::string> seen;
    for (const Value& entry : *entries) {
        checkEntry(path, entry, answer);
        const auto stat = statIn(entry);
        if (stat && !seen.insert(stat->name).second) {
            error(duplicates, answer, "\"" + stat->name + "\" stands twice",
                  "one of the two cannot be reached; rm -r and copies stumble over it");
        }
    }
}

void TreeExamination::reportUnlisted(const std::string& path, const Answer& answer) {
    const auto slash = path.rfind('/');
    if (path == "/" && answer.code() == "ENOENT")
        return error(listings, answer, noRoot, nothingServed);
    if (answer.code() == "ENOENT" && !listedAgain(slash == 0 ? "/" : path.substr(0, slash), path))
        return; // removed meanwhile
    error(listings, answer,
          "\"" + path + "\": " + (answer.ok() ? "the result is no array" : "a folder that was listed cannot be listed"),
          "programs cannot look into the folder; those that walk the tree (find, cp -r, rsync) report an error");
}

void TreeExamination::checkEntry(const std::string& folder, const Value& entry, const Answer& answer) {
    if (entry.asObject() == nullptr) {
        error(types, answer, "an entry is no object", "the whole folder cannot be listed");
        return;
    }
    checkMembers(entry, answer);
    const auto decoded = statIn(entry);
    if (!decoded || !checkName(decoded->name, answer))
        return;
    const kemvi::KemviFileStat& stat = *decoded;
    if (stat.path != childPath(folder, stat.name)) {
        error(paths, answer, "\"" + stat.path + "\" stands in the folder \"" + folder + "\" as \"" + stat.name + "\"",
              "a file's identity is computed from its path: this one shows under two numbers, or as another file");
        return;
    }
    if (stat.isDirectory)
        folders_.push_back(stat.path);
    else if (samples_.size() < mostSamples)
        samples_.push_back({stat.path, stat.size});
    if (compared_++ < mostCompared && talk_.available())
        compare(folder, stat);
}

void TreeExamination::checkMembers(const Value& stat, const Answer& answer) {
    const auto* directory = member(stat, "isDirectory");
    for (const char* key : {"path", "name"}) {
        const auto* value = member(stat, key);
        const bool derived = value == nullptr && std::string_view(key) == "name"; // taken from the path then
        if (!derived && (value == nullptr || value->asString() == nullptr))
            error(types, answer, std::string(key) + " is no string", "the entry has no usable name");
    }
    if (directory == nullptr || directory->asBool() == nullptr)
        error(types, answer, "isDirectory is not true or false", "a folder shows as a file and cannot be entered");
    if (const auto* size = member(stat, "size"))
        checkSize(*size, answer);
    else if (directory == nullptr || directory->asBool() == nullptr || !*directory->asBool())
        error(types, answer, "size is missing", "the file shows as empty, and programs read nothing of it");
    checkTime(member(stat, "modifiedAt"), answer);
}

void TreeExamination::checkSize(const Value& size, const Answer& answer) {
    if (size.asNumber() == nullptr)
        error(types, answer, "size is no number", "the file shows as empty, and programs read nothing of it");
    else if (!(std::abs(*size.asNumber()) < 9e18))
        error(sizes, answer, "size does not fit 64 bits", "the mount is stopped");
    else if (!isSize(*size.asNumber()))
        error(sizes, answer, "the size is " + size.description(), "the file shows with another size, cut off or empty");
}

void TreeExamination::checkTime(const Value* time, const Answer& answer) {
    constexpr const char* epoch = "every file will show 1970-01-01";
    if (time == nullptr) {
        talk_.find(times, Severity::warning, answer, "modifiedAt is missing", epoch);
    } else if (time->asString() == nullptr) {
        error(times, answer, "modifiedAt is no string", epoch);
    } else if (!kemvi::kemviFs().date(*time->asString())) {
        const std::string& text = *time->asString();
        const bool whole =
            text.size() > 4 && text.find('T') != std::string::npos && text.find('.') == std::string::npos;
        error(times, answer,
              "modifiedAt \"" + text + "\" " + (whole ? "has no fractional seconds" : "is not of that form"), epoch);
    }
}

/// True for a name that can be followed.
bool TreeExamination::checkName(const std::string& name, const Answer& answer) {
    if (isPossibleName(name) && name.size() <= longestName)
        return true;
    error(names, answer,
          "\"" + name.substr(0, longestName) + "\" is empty, \".\", \"..\", too long, or has a slash or NUL",
          "the entry is left out of the listing");
    return false;
}

/// Things may change while they are looked at: only a difference that stays, with a listing that does not change,
/// counts.
void TreeExamination::compare(const std::string& folder, const kemvi::KemviFileStat& listed) {
    auto current = listed;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const Answer answer = talk_.ask(pathRequest("getattr", listed.path));
        if (!answer.response)
            return;
        const auto problem = difference(current, answer);
        if (!problem)
            return;
        const auto again = listedAgain(folder, listed.path);
        if (!again)
            return; // removed meanwhile
        if (*again == current) {
            error(agreement, answer, *problem,
                  "what ls shows changes from call to call, and reads stop at a wrong place");
            return;
        }
        current = *again;
    }
}

std::optional<std::string> TreeExamination::difference(const kemvi::KemviFileStat& listed, const Answer& answer) const {
    const auto found = statIn(answer);
    if (!found)
        return "getattr gives no attributes for the listed \"" + listed.path + "\"";
    const kemvi::KemviFileStat& stat = *found;
    if (stat.path != listed.path || stat.name != listed.name) {
        return "getattr calls \"" + listed.path + "\" by the path \"" + stat.path + "\" and the name \"" + stat.name +
               "\"";
    }
    if (stat.isDirectory != listed.isDirectory)
        return "\"" + listed.path + "\" is a folder here and a file there";
    if (!stat.isDirectory && stat.size != listed.size) {
        return "\"" + listed.path + "\" has " + std::to_string(listed.size) + " bytes in the listing and " +
               std::to_string(stat.size) + " by getattr";
    }
    if (stat.modifiedAt != listed.modifiedAt)
        return "\"" + listed.path + "\" has another time in the listing than by getattr";
    return std::nullopt;
}

std::optional<kemvi::KemviFileStat> TreeExamination::listedAgain(const std::string& folder, const std::string& path) {
    const Answer answer = talk_.ask(pathRequest("readdir", folder));
    if (answer.result() == nullptr || answer.result()->asArray() == nullptr)
        return std::nullopt;
    for (const Value& entry : *answer.result()->asArray())
        if (auto stat = statIn(entry); stat && stat->path == path)
            return stat;
    return std::nullopt;
}

} // namespace

void checkFolder(Conversation& talk, const std::string& path) {
    TreeExamination(talk).checkFolder(path);
}

std::vector<SampleFile> checkTree(Conversation& talk) {
    if (!talk.available())
        return {};
    return TreeExamination(talk).run();
}

} // namespace cli::check
