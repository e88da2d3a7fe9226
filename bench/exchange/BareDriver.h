#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace bench {

/// Speaks with a helper in the least code that does so: one system call per line where the pipe allows, no checks
/// beyond "ok", no records. What HelperClient costs is told by the difference.
class BareDriver {
public:
    /// Starts "node SCRIPT". Throws std::system_error.
    BareDriver(const std::string& script, const std::string& root);
    ~BareDriver();
    BareDriver(const BareDriver&) = delete;
    BareDriver& operator=(const BareDriver&) = delete;

    // Each is one exchange and throws std::runtime_error if the helper does not answer "ok".
    void ping();
    void getattr(std::string_view path);
    std::int64_t open(std::string_view path, std::string_view flags);
    std::size_t read(std::int64_t handle, std::int64_t offset, std::size_t length, std::span<std::byte> into);
    void write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> data);
    /// The length of the answer line.
    std::size_t readdir(std::string_view path);

private:
    void begin(std::string_view op);
    void addPath(std::string_view path);
    std::string_view finish();
    void send();
    std::string_view receive();

    int toHelper_ = -1;
    int fromHelper_ = -1;
    pid_t process_ = 0;
    std::int64_t nextID_ = 1;
    std::string request_;
    std::string answer_;
};

} // namespace bench
