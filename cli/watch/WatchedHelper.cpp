#include "cli/watch/WatchedHelper.h"

#include "cli/Paths.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace cli {

WatchedHelper::WatchedHelper(std::vector<std::string> roots, std::string excluded)
    : roots_(std::move(roots)), excluded_(std::move(excluded)) {
    files_ = helperFiles(roots_, excluded_, [this](const std::string& path) { folders_.add(path); });
    folders_.forgetOthers();
}

bool WatchedHelper::take() {
    const auto seen = folders_.take();
    wasWritten_ = wasWritten_ || seen.written;
    return seen.touched;
}

WatchedHelper::News WatchedHelper::look(bool isHelperGone) {
    const bool wasWritten = std::exchange(wasWritten_, false);
    News news;
    HelperFiles now = helperFiles(roots_, excluded_, [&](const std::string& path) {
        try {
            folders_.add(path);
        } catch (const WatchError& error) {
            news.problem = error.what();
        }
    });
    const Difference difference = differenceTo(now);
    if (!difference.changed.empty())
        news.change = listed(difference.changed) + " changed";
    else if (isHelperGone && wasWritten)
        news.change = "the helper was saved";
    // A start would fail for want of the script itself.
    if (isRootMissing(now))
        news.change.clear();
    if (news.change.empty()) {
        folders_.keepOthers();
        if (!difference.gone.empty() && difference.gone != missing_)
            news.missing = listed(difference.gone) + (difference.gone.size() == 1 ? " is gone" : " are gone");
        missing_ = difference.gone;
        return news;
    }
    folders_.forgetOthers();
    missing_.clear();
    const std::lock_guard guard(lock_);
    files_ = std::move(now);
    return news;
}

// What is imported no more does not count.
WatchedHelper::Difference WatchedHelper::differenceTo(const HelperFiles& now) const {
    Difference difference;
    for (const auto& [path, mark] : files_) {
        const auto found = now.find(path);
        if (found == now.end() || found->second == mark)
            continue;
        (found->second ? difference.changed : difference.gone).push_back(path);
    }
    return difference;
}

bool WatchedHelper::isRootMissing(const HelperFiles& now) const {
    return std::any_of(roots_.begin(), roots_.end(), [&](const std::string& root) {
        const auto found = now.find(root);
        return found == now.end() || !found->second;
    });
}

std::string WatchedHelper::listed(const std::vector<std::string>& paths) const {
    std::string first = nameOf(paths.front());
    switch (paths.size()) {
    case 1: return first;
    case 2: return first + " and " + nameOf(paths.back());
    default: return first + " and " + std::to_string(paths.size() - 1) + " other files";
    }
}

std::string WatchedHelper::nameOf(const std::string& path) const {
    const auto folder = std::filesystem::path(roots_.front()).parent_path();
    return isWithin(path, folder.native()) ? std::filesystem::path(path).lexically_relative(folder).string() : path;
}

std::vector<std::string> WatchedHelper::paths() const {
    std::vector<std::string> paths = roots_;
    const std::lock_guard guard(lock_);
    for (const auto& [path, mark] : files_)
        if (std::find(roots_.begin(), roots_.end(), path) == roots_.end())
            paths.push_back(path);
    return paths;
}

} // namespace cli
