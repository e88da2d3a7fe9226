#include "hosts/fuse/placement/Tasks.h"

namespace fusehost {

std::vector<Task> threadsOfFamily(Tasks& tasks, pid_t family) {
    std::vector<Task> found;
    std::vector<pid_t> processes{family};
    for (std::size_t at = 0; at < processes.size(); ++at) {
        for (const pid_t thread : tasks.threads(processes[at]))
            found.push_back({processes[at], thread});
        if (const auto children = tasks.children(processes[at]))
            processes.insert(processes.end(), children->begin(), children->end());
    }
    return found;
}

} // namespace fusehost
