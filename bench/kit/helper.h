// A helper over two pipes, started as a mount starts it.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

class Helper {
public:
    explicit Helper(const std::string& script) : name(script.substr(script.rfind('/') + 1)) {
        int toHelper[2];
        int fromHelper[2];
        if (pipe(toHelper) != 0 || pipe(fromHelper) != 0)
            throw std::runtime_error("pipe failed");
        for (int descriptor : {toHelper[1], fromHelper[0]})
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
#ifdef F_SETPIPE_SZ
        fcntl(toHelper[1], F_SETPIPE_SZ, 1 << 20);
        fcntl(fromHelper[0], F_SETPIPE_SZ, 1 << 20);
#endif
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toHelper[0], 0);
        posix_spawn_file_actions_adddup2(&actions, fromHelper[1], 1);
        posix_spawn_file_actions_addclose(&actions, toHelper[0]);
        posix_spawn_file_actions_addclose(&actions, fromHelper[1]);
        std::string program = "node";
        std::string argument = script;
        char* ofNode[] = {program.data(), argument.data(), nullptr};
        char* ofItself[] = {argument.data(), nullptr};
        char** const arguments = script.ends_with(".mjs") ? ofNode : ofItself;
        if (posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments, environ) != 0)
            throw std::runtime_error(std::string(arguments[0]) + " cannot be started");
        posix_spawn_file_actions_destroy(&actions);
        close(toHelper[0]);
        close(fromHelper[1]);
        requests_ = toHelper[1];
        answers_ = fromHelper[0];
    }

    // One exchange; fails unless the answer is a success.
    const std::string& exchange(const std::string& fields) {
        const std::string& answer = ask(fields);
        if (answer.find("\"ok\":true") == std::string::npos && answer.size() < 300)
            throw std::runtime_error(name + ": " + answer);
        return answer;
    }

    // One exchange; the first 300 bytes of its answer, whatever it says.
    const std::string& ask(const std::string& fields) {
        line_ = "{\"id\":\"" + std::to_string(++lastId_) + "\"," + fields + "}\n";
        for (size_t done = 0; done < line_.size();) {
            ssize_t count = write(requests_, line_.data() + done, line_.size() - done);
            if (count <= 0)
                throw std::runtime_error(name + ": cannot write to the helper");
            done += static_cast<size_t>(count);
        }
        size_t have = 0;
        do {
            ssize_t count = ::read(answers_, buffer_.data() + have, buffer_.size() - have);
            if (count <= 0)
                throw std::runtime_error(name + ": the helper closed its output");
            have += static_cast<size_t>(count);
        } while (buffer_[have - 1] != '\n');
        answer_.assign(buffer_.data(), std::min<size_t>(have, 300));
        return answer_;
    }

    long open(const std::string& file, const std::string& flags) {
        const std::string& answer = exchange("\"op\":\"open\",\"path\":\"\\/" + file + "\",\"flags\":[" + flags + "]");
        size_t at = answer.find("\"handle\":");
        if (at == std::string::npos)
            throw std::runtime_error(name + ": no handle in " + answer);
        return std::strtol(answer.c_str() + at + 9, nullptr, 10);
    }

    // Microseconds that its main thread has run, and all of its threads.
    double mainThreadTime() const {
        return ranFor(threads() / std::to_string(pid_));
    }

    double allThreadsTime() const {
        double sum = 0;
        for (const auto& thread : std::filesystem::directory_iterator(threads()))
            sum += ranFor(thread.path());
        return sum;
    }

    void end() {
        close(requests_);
        int status = 0;
        waitpid(pid_, &status, 0);
        close(answers_);
    }

    std::string name;

private:
    std::filesystem::path threads() const {
        return "/proc/" + std::to_string(pid_) + "/task";
    }

    static double ranFor(const std::filesystem::path& thread) {
        double nanoseconds = 0;
        std::ifstream(thread / "schedstat") >> nanoseconds;
        return nanoseconds / 1000;
    }

    pid_t pid_ = 0;
    int requests_ = -1;
    int answers_ = -1;
    long lastId_ = 0;
    std::string line_;
    std::string answer_;
    std::vector<char> buffer_ = std::vector<char>(4 << 20);
};
