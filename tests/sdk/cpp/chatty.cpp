// A helper that prints where it must not, for the tests of what the kit keeps it from.
#include <kemvi/helper.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

struct Chatty : kemvi::FileSystem {
    kemvi::Stat getattr(const std::string& path) override {
        std::printf("printed\n");
        std::fflush(stdout);
        std::cout << "streamed" << std::endl;
        if (std::system("echo from a child; cat") != 0)
            std::fprintf(stderr, "no shell\n");
        if (path == "/fault")
            throw std::string("no exception");
        return {.isDirectory = path == "/", .modifiedAt = kemvi::Time()};
    }

    void readdir(const std::string&, const Members&) override {}

    std::unique_ptr<kemvi::File> open(const std::string&, const kemvi::OpenFlags&) override { return nullptr; }

    void end() override { std::fprintf(stderr, "ended\n"); }
};

} // namespace

int main(int count, char** values) {
    if (count > 1 && std::string(values[1]) == "before")
        std::cout << "before serving" << std::endl;
    std::cerr << "process " << ::getpid() << std::endl;
    Chatty fileSystem;
    return kemvi::serve(fileSystem);
}
