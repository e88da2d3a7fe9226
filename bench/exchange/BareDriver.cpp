#include "BareDriver.h"

#include "foundation/Base64.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {
namespace {

constexpr int pipeCapacity = 1 << 20;
constexpr std::size_t firstAnswerRoom = std::size_t{4} << 20;

void check(int error, const char* what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

struct Ends {
    int ends[2];

    Ends() {
        check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
        (void)::fcntl(ends[1], F_SETPIPE_SZ, pipeCapacity);
    }
};

} // namespace

BareDriver::BareDriver(const std::string& script, const std::string& root) : answer_(firstAnswerRoom, '\0') {
    const Ends input;
    const Ends output;
    posix_spawn_file_actions_t actions;
    check(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    posix_spawn_file_actions_adddup2(&actions, input.ends[0], 0);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], 1);
    ::setenv("KEMVI_REPO_ROOT", root.c_str(), 1);
    std::string program = "node";
    std::string argument = script;
    char* arguments[] = {program.data(), argument.data(), nullptr};
    const int error = ::posix_spawnp(&process_, "node", &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input.ends[0]);
    ::close(output.ends[1]);
    toHelper_ = input.ends[1];
    fromHelper_ = output.ends[0];
    check(error, "node");
}

BareDriver::~BareDriver() {
    ::close(toHelper_);
    ::close(fromHelper_);
    ::waitpid(process_, nullptr, 0);
}

void BareDriver::begin(std::string_view op) {
    request_.assign("{\"id\":\"").append(std::to_string(nextID_++)).append("\",\"op\":\"").append(op).append("\"");
}

void BareDriver::addPath(std::string_view path) {
    request_.append(",\"path\":\"");
    for (const char c : path)
        c == '/' ? request_.append("\\/") : request_.append(1, c);
    request_.append("\"");
}

void BareDriver::send() {
    for (std::size_t done = 0; done < request_.size();) {
        const ssize_t count = ::write(toHelper_, request_.data() + done, request_.size() - done);
        if (count < 0)
            throw std::system_error(errno, std::generic_category(), "write to the helper");
        done += static_cast<std::size_t>(count);
    }
}

std::string_view BareDriver::receive() {
    std::size_t size = 0;
    for (;;) {
        if (size == answer_.size())
            answer_.resize(2 * size);
        const ssize_t count = ::read(fromHelper_, answer_.data() + size, answer_.size() - size);
        if (count <= 0)
            throw std::runtime_error("the helper has closed its output");
        size += static_cast<std::size_t>(count);
        if (answer_[size - 1] == '\n') // one request at a time: nothing can follow the line
            return std::string_view(answer_).substr(0, size - 1);
    }
}

std::string_view BareDriver::finish() {
    request_.append("}\n");
    send();
    const std::string_view answer = receive();
    const bool isOk = answer.substr(0, 64).find("\"ok\":true") != std::string_view::npos || answer.ends_with("true}");
    if (!isOk)
        throw std::runtime_error("the helper answered " + std::string(answer.substr(0, 200)));
    return answer;
}

void BareDriver::ping() {
    begin("ping");
    finish();
}

void BareDriver::getattr(std::string_view path) {
    begin("getattr");
    addPath(path);
    finish();
}

std::int64_t BareDriver::open(std::string_view path, std::string_view flags) {
    begin("open");
    addPath(path);
    request_.append(",\"flags\":").append(flags);
    const std::string_view answer = finish();
    constexpr std::string_view key = "\"handle\":";
    return std::atoll(answer.data() + answer.find(key) + key.size());
}

std::size_t BareDriver::read(std::int64_t handle, std::int64_t offset, std::size_t length, std::span<std::byte> into) {
    begin("read");
    request_.append(",\"handle\":").append(std::to_string(handle)).append(",\"offset\":");
    request_.append(std::to_string(offset)).append(",\"length\":").append(std::to_string(length));
    std::string_view answer = finish();
    constexpr std::string_view key = "\"dataBase64\":\"";
    answer.remove_prefix(answer.find(key) + key.size());
    answer.remove_suffix(2); // the quote and the brace
    const auto count = foundation::base64::decode(answer, into);
    if (!count)
        throw std::runtime_error("the helper's data are not base64");
    return *count;
}

void BareDriver::write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> data) {
    begin("write");
    request_.append(",\"handle\":").append(std::to_string(handle)).append(",\"offset\":");
    request_.append(std::to_string(offset)).append(",\"dataBase64\":\"");
    const std::size_t start = request_.size();
    request_.resize(start + foundation::base64::escapedRoom(data.size()));
    request_.resize(start + foundation::base64::encodeEscapingSlashes(data, request_.data() + start));
    request_.append("\"");
    finish();
}

std::size_t BareDriver::readdir(std::string_view path) {
    begin("readdir");
    addPath(path);
    return finish().size();
}

} // namespace bench
