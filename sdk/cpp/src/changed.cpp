#include "ChangeNotices.h"
#include "Notices.h"
#include "foundation/JSONWriter.h"
#include "foundation/Utf8.h"
#include "kemvi/helper.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace kemvi {
namespace {

constexpr std::size_t mostSaid = 20;

/// What the process tells its mount with, from the first change until the end of `serve`.
struct Telling {
    std::mutex lock; // guards the rest
    std::unique_ptr<kit::ChangeNotices> notices;
    std::unordered_set<std::string> said;
    bool isEnded = false;
};

// Never destroyed: a thread of the program may call while the process ends.
Telling& telling() {
    static auto* const object = new Telling;
    return *object;
}

bool hasDotPart(std::string_view path) {
    while (true) {
        const std::size_t end = path.find('/');
        const std::string_view part = path.substr(0, end);
        if (part == "." || part == "..")
            return true;
        if (end == std::string_view::npos)
            return false;
        path.remove_prefix(end + 1);
    }
}

/// Null for a path.
const char* problemOf(std::string_view path) {
    if (path.empty())
        return "is empty; \"/\" is the whole tree";
    if (path.find('\0') != std::string_view::npos)
        return "holds a NUL, which no name can";
    return hasDotPart(path) ? "has a part \".\" or \"..\"" : nullptr;
}

// Needs the lock.
void sayOnce(Telling& now, const std::string& text) {
    if (now.said.size() < mostSaid && now.said.insert(text).second)
        kit::report(text);
}

void tell(Telling& now, const std::vector<std::string>& paths) {
    const std::lock_guard guard(now.lock);
    std::vector<std::string> good;
    for (const std::string& path : paths) {
        if (!foundation::isValidUtf8(path))
            sayOnce(now, "changed: a path is no well-formed text"); // nor can it be shown
        else if (const char* const problem = problemOf(path))
            sayOnce(now, "changed: " + foundation::jsonString(path) + " " + problem);
        else
            good.push_back(path);
    }
    if (good.empty() || now.isEnded)
        return;
    const char* const address = std::getenv("KEMVI_CONTROL");
    if (address == nullptr || *address == '\0') {
        sayOnce(now, "changed: there is no mount to tell (KEMVI_CONTROL names no socket)");
        return;
    }
    if (!now.notices)
        now.notices = std::make_unique<kit::ChangeNotices>(address, kit::report);
    now.notices->add(good);
}

} // namespace

void changed(const std::vector<std::string>& paths) noexcept {
    try {
        tell(telling(), paths);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kemvi-helper: changed: %s\n", failure.what());
    }
}

void changed(std::initializer_list<std::string_view> paths) noexcept {
    try {
        changed(std::vector<std::string>(paths.begin(), paths.end()));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kemvi-helper: changed: %s\n", failure.what());
    }
}

void changed(std::string_view path) noexcept {
    changed(std::initializer_list<std::string_view>{path});
}

void kit::endNotices() {
    std::unique_ptr<ChangeNotices> last;
    {
        const std::lock_guard guard(telling().lock);
        telling().isEnded = true;
        last = std::move(telling().notices);
    }
}

} // namespace kemvi
