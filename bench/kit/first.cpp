// Times the first exchanges of helpers that have just been started: first FOLDER ROUNDS HELPER.mjs HELPER.mjs...
//
// In each round each helper is started anew, in turns, and does what small files take: it makes some, looks at them,
// reads them and removes them, until 30,000 requests have been answered. Printed are, for each helper and part of
// these, the lower quartiles of the microseconds that an exchange takes and that the helper's main thread and all of
// its threads run for it, since other work on the machine only adds to them; then the median ratio of the main thread's
// to the first helper's in the same round.
#include "helper.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

const std::vector<int> parts = {500, 2000, 8000, 30000}; // up to which request each part goes
constexpr int filesAtOnce = 25;

struct Cost {
    double elapsed; // microseconds per exchange
    double mainThread;
    double allThreads;
};

class SmallFiles {
public:
    explicit SmallFiles(Helper& helper) : helper_(helper) {}

    // Goes on until so many requests have been answered since the helper was started.
    Cost upTo(int last) {
        const int before = asked_;
        const double mainBefore = helper_.mainThreadTime();
        const double allBefore = helper_.allThreadsTime();
        const auto start = Clock::now();
        while (asked_ < last)
            useSome();
        const std::chrono::duration<double, std::micro> time = Clock::now() - start;
        const double count = asked_ - before;
        return {time.count() / count, (helper_.mainThreadTime() - mainBefore) / count,
                (helper_.allThreadsTime() - allBefore) / count};
    }

private:
    void useSome() {
        for (int i = 0; i < filesAtOnce; i++)
            create("folder\\/f" + std::to_string(i));
        for (int i = 0; i < filesAtOnce; i++)
            onPath("getattr", "folder\\/f" + std::to_string(i));
        for (int i = 0; i < filesAtOnce; i++)
            read("folder\\/f" + std::to_string(i));
        for (int i = 0; i < filesAtOnce; i++) {
            onPath("getattr", "folder\\/f" + std::to_string(i));
            onPath("unlink", "folder\\/f" + std::to_string(i));
        }
    }

    // What a volume asks for when a program makes a file, writes into it and closes it.
    void create(const std::string& name) {
        helper_.ask(R"("op":"getattr","path":"\/)" + name + "\"");
        asked_++;
        release(open(name, R"("write","create","truncate")"));
        onPath("getattr", name);
        const long handle = open(name, R"("write")");
        request(R"("op":"write","offset":0,"dataBase64":")" + contents_ + R"(","handle":)" + std::to_string(handle));
        release(handle);
    }

    void read(const std::string& name) {
        onPath("getattr", name);
        const long handle = open(name, R"("read")");
        request(R"("op":"read","handle":)" + std::to_string(handle) + R"(,"offset":0,"length":1024)");
        release(handle);
    }

    long open(const std::string& name, const std::string& flags) {
        asked_++;
        return helper_.open(name, flags);
    }

    void release(long handle) { request(R"("op":"release","handle":)" + std::to_string(handle)); }

    void onPath(const std::string& operation, const std::string& name) {
        request("\"op\":\"" + operation + R"(","path":"\/)" + name + "\"");
    }

    void request(const std::string& fields) {
        asked_++;
        helper_.exchange(fields);
    }

    Helper& helper_;
    std::string contents_ = std::string(1364, 'A') + "AA=="; // 1,024 bytes
    int asked_ = 0;
};

// What a part of the sorted values lies below: 0.5 for the median.
double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(static_cast<double>(values.size()) * part)];
}

void measure(const std::string& folder, const std::string& script, std::vector<std::vector<Cost>>& costs) {
    const std::filesystem::path served = folder + "/served";
    std::filesystem::create_directories(served / "folder");
    Helper helper(script);
    helper.exchange(R"("op":"ping")");
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // as long as it takes to mount
    SmallFiles work(helper);
    for (size_t part = 0; part < parts.size(); part++)
        costs[part].push_back(work.upTo(parts[part]));
    helper.end();
    std::filesystem::remove_all(served);
}

void print(const std::vector<Cost>& costs, const std::vector<Cost>& ofFirst, const std::string& script) {
    std::vector<double> elapsed;
    std::vector<double> mainThread;
    std::vector<double> allThreads;
    std::vector<double> ratios;
    for (size_t round = 0; round < costs.size(); round++) {
        elapsed.push_back(costs[round].elapsed);
        mainThread.push_back(costs[round].mainThread);
        allThreads.push_back(costs[round].allThreads);
        ratios.push_back(costs[round].mainThread / ofFirst[round].mainThread);
    }
    std::printf("    %6.2f us, main thread %6.2f us, all threads %6.2f us, %5.2fx  %s\n", quantile(elapsed, 0.25),
                quantile(mainThread, 0.25), quantile(allThreads, 0.25), quantile(ratios, 0.5), script.c_str());
}

void run(const std::string& folder, int rounds, const std::vector<std::string>& scripts) {
    setenv("KEMVI_REPO_ROOT", (folder + "/served").c_str(), 1);
    setenv("KEMVI_SOURCE", folder.c_str(), 1); // the configuration lies beside what is served, as in a real mount
    using Parts = std::vector<std::vector<Cost>>;
    std::vector<Parts> costs(scripts.size(), Parts(parts.size()));
    for (int round = 0; round < rounds; round++) {
        for (size_t turn = 0; turn < scripts.size(); turn++) {
            const size_t which = round % 2 == 0 ? turn : scripts.size() - 1 - turn;
            measure(folder, scripts[which], costs[which]);
        }
    }
    for (size_t part = 0; part < parts.size(); part++) {
        std::printf("requests %d to %d\n", part == 0 ? 1 : parts[part - 1] + 1, parts[part]);
        for (size_t which = 0; which < scripts.size(); which++)
            print(costs[which][part], costs[0][part], scripts[which]);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4 || std::atoi(argv[2]) < 1) {
        std::fprintf(stderr, "usage: first FOLDER ROUNDS HELPER.mjs HELPER.mjs...\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    try {
        run(argv[1], std::atoi(argv[2]), std::vector<std::string>(argv + 3, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "first: %s\n", error.what());
        return 1;
    }
    return 0;
}
