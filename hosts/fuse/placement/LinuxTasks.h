#pragma once

#include "foundation/Descriptor.h"
#include "hosts/fuse/placement/Tasks.h"

#include <array>
#include <map>
#include <string>

namespace fusehost {

/// The tasks of this machine, as /proc tells of them. To be used by one thread at a time.
class LinuxTasks final : public Tasks {
public:
    std::optional<ProcessorSet> affinity(pid_t thread) override;
    int setAffinity(pid_t thread, const ProcessorSet& processors) override;
    ProcessorSet unrestricted() override;
    int processorOf(const Task& task) override;
    std::optional<TaskTimes> times(const Task& task) override;
    std::vector<pid_t> threads(pid_t process) override;
    std::optional<std::vector<pid_t>> children(pid_t process) override;
    std::uint64_t family(const Task& task) override;

    int runnable() override;
    int processors() override;

    void rest() override { open_.clear(); }

private:
    /// A file of /proc, kept open since it is read again and again; given back with the next rest.
    std::string_view read(const std::string& path);

    std::map<std::string, foundation::Descriptor> open_;
    std::array<char, 4096> text_{};
};

} // namespace fusehost
