// What HelperClient adds to an exchange: the same node helper driven by HelperClient and by the least code that drives
// it, in turns, so that whatever else the machine does meets both.
#include "BareDriver.h"
#include "PrivateFolder.h"
#include "helper/HelperClient.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <sched.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using bench::BareDriver;
using kemvi::HelperClient;
using Clock = std::chrono::steady_clock;

constexpr std::size_t fileSize = std::size_t{8} << 20;

struct Settings {
    std::string helper = KEMVI_LOCAL_HELPER;
    std::string only; // part of the names of what is measured
    bool quick = false;
    bool pinned = true;
};

struct Case {
    std::string name;
    std::size_t bytes; // moved per exchange; 0 where that is not the point
    std::function<void()> client;
    std::function<void()> bare;
};

struct Result {
    double client; // microseconds per exchange
    double bare;
    double ratio;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double microsecondsEach(const std::function<void()>& exchange, int count) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i)
        exchange();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / count;
}

Result measure(const Case& measured, bool quick) {
    const double once = std::max(1.0, microsecondsEach(measured.bare, 3)); // and warms up
    microsecondsEach(measured.client, 3);
    const double batchMicroseconds = quick ? 1000 : 10000;
    const int rounds = quick ? 3 : 41;
    const int count = std::clamp(static_cast<int>(batchMicroseconds / once), 1, 2000);
    std::vector<double> client;
    std::vector<double> bare;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const bool clientFirst = round % 2 == 0;
        const double first = microsecondsEach(clientFirst ? measured.client : measured.bare, count);
        const double second = microsecondsEach(clientFirst ? measured.bare : measured.client, count);
        client.push_back(clientFirst ? first : second);
        bare.push_back(clientFirst ? second : first);
        ratios.push_back(client.back() / bare.back());
    }
    return {median(client), median(bare), median(ratios)};
}

// Offsets that walk through the file, as a reader or writer would.
std::function<std::int64_t()> walk(std::size_t step) {
    return [step, next = std::size_t{0}]() mutable {
        const std::size_t at = next;
        next = next + 2 * step > fileSize ? 0 : next + step;
        return static_cast<std::int64_t>(at);
    };
}

std::string sizeName(std::size_t bytes) {
    return bytes >= (1 << 20) ? std::to_string(bytes >> 20) + " MiB" : std::to_string(bytes >> 10) + " KiB";
}

void addTransfers(std::vector<Case>& cases, HelperClient& client, BareDriver& bare) {
    const std::int64_t clientReads = client.open("/data", {"read"});
    const std::int64_t bareReads = bare.open("/data", R"(["read"])");
    const std::int64_t clientWrites = client.open("/written", {"write", "create"});
    const std::int64_t bareWrites = bare.open("/written", R"(["write","create"])");
    static std::vector<std::byte> memory(std::size_t{1} << 20, std::byte{0xA5});
    for (const std::size_t bytes :
         {std::size_t{4} << 10, std::size_t{64} << 10, std::size_t{128} << 10, memory.size()}) {
        const auto part = std::span(memory).first(bytes);
        const auto length = static_cast<std::int64_t>(bytes);
        cases.push_back(
            {"read " + sizeName(bytes), bytes,
             [&client, clientReads, part, length, at = walk(bytes)] { client.read(clientReads, at(), length, part); },
             [&bare, bareReads, part, bytes, at = walk(bytes)] { bare.read(bareReads, at(), bytes, part); }});
        cases.push_back({"write " + sizeName(bytes), bytes,
                         [&client, clientWrites, part, at = walk(bytes)] { client.write(clientWrites, at(), part); },
                         [&bare, bareWrites, part, at = walk(bytes)] { bare.write(bareWrites, at(), part); }});
    }
}

std::vector<Case> makeCases(HelperClient& client, BareDriver& bare) {
    std::vector<Case> cases{
        {"ping", 0, [&] { client.ping(); }, [&] { bare.ping(); }},
        {"getattr", 0, [&] { client.getattr("/data"); }, [&] { bare.getattr("/data"); }},
    };
    addTransfers(cases, client, bare);
    cases.push_back({"readdir of 10,000", 0, [&] { client.readdir("/folder"); }, [&] { bare.readdir("/folder"); }});
    return cases;
}

void print(const Case& measured, const Result& result) {
    std::printf("| %-17s | %9.1f | %9.1f | %5.2f |", measured.name.c_str(), result.bare, result.client, result.ratio);
    if (measured.bytes > 0)
        std::printf(" %6.0f |\n", static_cast<double>(measured.bytes) / result.client);
    else
        std::printf("        |\n");
    std::fflush(stdout);
}

// Left to itself the scheduler keeps client and helper on one processor or on two, which changes an exchange by a
// factor of two and has nothing to do with either driver.
void pinToOneProcessor() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &allowed);
    (void)sched_setaffinity(0, sizeof allowed, &allowed);
}

std::map<std::string, std::string> helperEnvironment(const std::string& root) {
    const char* path = std::getenv("PATH");
    return {{"PATH", path != nullptr ? path : "/usr/bin:/bin"}, {"KEMVI_REPO_ROOT", root}};
}

Settings parse(int argc, char** argv) {
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--quick")
            settings.quick = true;
        else if (argument == "--unpinned")
            settings.pinned = false;
        else if (argument == "--helper" && i + 1 < argc)
            settings.helper = argv[++i];
        else if (argument == "--only" && i + 1 < argc)
            settings.only = argv[++i];
        else {
            std::fprintf(
                stderr, "usage: kemvi_bench_exchange [--quick] [--unpinned] [--helper SCRIPT] [--only PART-OF-NAME]\n");
            std::exit(2);
        }
    }
    return settings;
}

void run(const Settings& settings) {
    if (settings.pinned)
        pinToOneProcessor();
    const bench::PrivateFolder folder;
    folder.addFile("data", fileSize);
    folder.addFolderOfFiles("folder", 10000);
    HelperClient client(settings.helper, helperEnvironment(folder.path()));
    client.start();
    BareDriver bare(settings.helper, folder.path());
    std::printf("Microseconds per exchange, %s; MB/s of file bytes through HelperClient.\n\n",
                settings.pinned ? "both processes on one processor" : "placement left to the scheduler");
    std::printf("| exchange          | bare      | client    | ratio | MB/s   |\n");
    std::printf("|-------------------|----------:|----------:|------:|-------:|\n");
    for (const Case& measured : makeCases(client, bare))
        if (measured.name.find(settings.only) != std::string::npos)
            print(measured, measure(measured, settings.quick));
    client.stop();
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        run(parse(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kemvi_bench_exchange: %s\n", error.what());
        return 1;
    }
}
