#include "cli/Output.h"

#include "cli/CommandError.h"

#include <cerrno>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

void print(std::string_view text) {
    while (!text.empty()) {
        const auto count = ::write(STDOUT_FILENO, text.data(), text.size());
        if (count >= 0)
            text.remove_prefix(static_cast<std::size_t>(count));
        else if (errno == EPIPE)
            ::_exit(static_cast<int>(ExitCode::success));
        else if (errno != EINTR)
            throw CommandError(ExitCode::failure, "standard output", "cannot be written: " + errnoText(errno));
    }
}

kemvi::JSONObject withoutOk(const kemvi::JSONObject& answer) {
    std::vector<kemvi::JSONObject::Member> members;
    for (const auto& member : answer.members())
        if (member.first != "ok")
            members.push_back(member);
    return kemvi::JSONObject(std::move(members));
}

} // namespace cli
