#include "cli/check/Scratch.h"

#include "cli/check/Checks.h"

#include <algorithm>

namespace cli::check {

Scratch::Claim Scratch::claim(const std::string& path, Kind kind) {
    if (current_.contains(path))
        return Claim::ours;
    const Answer answer = talk_.ask(pathRequest("getattr", path));
    if (answer.ok())
        return Claim::taken;
    if (answer.code() != "ENOENT")
        return Claim::unknown;
    made_.push_back({path, kind});
    current_.insert(path);
    return Claim::ours;
}

void Scratch::forget(const std::string& path) {
    current_.erase(path);
}

std::optional<std::string> Scratch::remove() {
    problem_.reset();
    if (!current_.contains(path_))
        return std::nullopt;
    if (talk_.available() && talk_.ask(pathRequest("getattr", path_)).code() == "ENOENT")
        return std::nullopt; // a helper started anew may have begun with an empty tree
    std::size_t left = current_.size();
    for (auto made = made_.rbegin(); made != made_.rend(); ++made) {
        if (!talk_.available())
            return talk_.gaveUp() ? "there was no time to remove it" : "the helper does not answer";
        if (current_.contains(made->path)) {
            talk_.begin("removing what was made, " + std::to_string(left--) + " to go");
            removeOne(*made);
        }
    }
    return problem_;
}

void Scratch::removeOne(const Made& made) {
    if (made.kind == Kind::folder && !isEmpty(made.path))
        return;
    Answer answer = talk_.ask(pathRequest("unlink", made.path));
    if (!answer.response && talk_.available())
        answer = talk_.ask(pathRequest("unlink", made.path)); // of the helper that was started in its place
    if (!answer.response)
        return stayed("the helper does not answer");
    if (!answer.ok() && answer.code() != "ENOENT") {
        return stayed("\"" + made.path + "\" cannot be removed: " +
                      (answer.response->error ? answer.response->error->message : std::string("no reason given")));
    }
    if (made.kind == Kind::folder && talk_.ask(pathRequest("getattr", made.path)).ok())
        stayed("\"" + made.path + "\" is still there after it was removed");
}

bool Scratch::isEmpty(const std::string& path) {
    const Answer answer = talk_.ask(pathRequest("readdir", path));
    if (answer.code() == "ENOENT")
        return true;
    const auto* entries = answer.result() != nullptr ? answer.result()->asArray() : nullptr;
    if (entries == nullptr) {
        stayed("\"" + path + "\" cannot be listed, so it may hold what the check did not make");
        return false;
    }
    const auto real = std::find_if(entries->begin(), entries->end(), [](const kemvi::JSONValue& entry) {
        const auto stat = statIn(entry);
        return !stat || isPossibleName(stat->name);
    });
    if (real == entries->end())
        return true;
    const auto stat = statIn(*real);
    const std::string name = stat ? stat->name : std::string();
    const bool ours = current_.contains(childPath(path, name));
    stayed("\"" + path + "\" holds \"" + name +
           (ours ? "\", which was not removed" : "\", which the check did not make"));
    return false;
}

void Scratch::stayed(std::string why) {
    if (!problem_)
        problem_ = std::move(why);
}

} // namespace cli::check
