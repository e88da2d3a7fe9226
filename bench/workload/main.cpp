// Workloads that no ordinary program does alone: many small files, and random reads. Prints operations per second.
// What burns a processor beside them is here too.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t smallSize = 1024;
constexpr std::size_t blockSize = 4096;

void check(bool succeeded, const std::string& what) {
    if (!succeeded)
        throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), what);
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void create(const std::string& path) {
    static const std::vector<char> contents(smallSize, 'x');
    const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    check(file >= 0, path);
    check(::write(file, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()), path);
    check(::close(file) == 0, path);
}

void createEmpty(const std::string& path) {
    const int file = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    check(file >= 0 && ::close(file) == 0, path);
}

void stat(const std::string& path) {
    struct stat facts {};

    check(::stat(path.c_str(), &facts) == 0, path);
    errno = 0;
    check(facts.st_size == static_cast<off_t>(smallSize), path + ": wrong size");
}

void openReadClose(const std::string& path) {
    char contents[smallSize + 1];
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    check(file >= 0, path);
    check(::read(file, contents, sizeof contents) == static_cast<ssize_t>(smallSize), path);
    check(::close(file) == 0, path);
}

void unlink(const std::string& path) {
    check(::unlink(path.c_str()) == 0, path);
}

double forEachFile(const std::string& folder, int count, const std::function<void(const std::string&)>& use) {
    std::vector<std::string> paths;
    char name[16];
    for (int i = 0; i < count; ++i) {
        std::snprintf(name, sizeof name, "/f%07d", i);
        paths.push_back(folder + name);
    }
    const auto start = Clock::now();
    for (const std::string& path : paths)
        use(path);
    return count / secondsSince(start);
}

// Holds all of them open at once.
double openAll(const std::string& folder, int count) {
    std::vector<int> files;
    const double rate = forEachFile(folder, count, [&files](const std::string& path) {
        files.push_back(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        check(files.back() >= 0, path);
    });
    for (const int file : files)
        ::close(file);
    return rate;
}

// Each block at most once, so that none comes from the cache.
double readAtRandom(const std::string& path, double seconds) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    check(file >= 0, path);

    struct stat facts {};

    check(::fstat(file, &facts) == 0, path);
    (void)::posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
    std::vector<off_t> blocks(static_cast<std::size_t>(facts.st_size) / blockSize);
    for (std::size_t i = 0; i < blocks.size(); ++i)
        blocks[i] = static_cast<off_t>(i * blockSize);
    std::mt19937 generator(7);
    for (std::size_t i = blocks.size(); i > 1; --i)
        std::swap(blocks[i - 1], blocks[generator() % i]);
    char contents[blockSize];
    const auto start = Clock::now();
    std::size_t done = 0;
    while (done < blocks.size() && (done % 64 != 0 || secondsSince(start) < seconds))
        check(::pread(file, contents, blockSize, blocks[done++]) == static_cast<ssize_t>(blockSize), path);
    const double rate = static_cast<double>(done) / secondsSince(start);
    ::close(file);
    return rate;
}

// Keeps one processor busy for so long, or until whoever started it is gone.
double burn(double seconds) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const auto start = Clock::now();
    while (secondsSince(start) < seconds) {
    }
    return seconds;
}

double run(std::string_view what, const std::string& path, const char* number) {
    if (what == "randread")
        return readAtRandom(path, std::atof(number));
    if (what == "burn")
        return burn(std::atof(number));
    const int count = std::atoi(number);
    if (what == "create")
        return forEachFile(path, count, create);
    if (what == "createempty")
        return forEachFile(path, count, createEmpty);
    if (what == "stat")
        return forEachFile(path, count, stat);
    if (what == "openread")
        return forEachFile(path, count, openReadClose);
    if (what == "unlink")
        return forEachFile(path, count, unlink);
    if (what == "openall")
        return openAll(path, count);
    throw std::runtime_error(std::string(what) + ": unknown workload");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr,
                     "usage: kemvi_bench_workload create|createempty|stat|openread|unlink|openall FOLDER COUNT\n"
                     "       kemvi_bench_workload randread FILE SECONDS\n"
                     "       kemvi_bench_workload burn - SECONDS\n");
        return 2;
    }
    try {
        std::printf("%.1f\n", run(argv[1], argv[2], argv[3]));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kemvi_bench_workload: %s\n", error.what());
        return 1;
    }
}
