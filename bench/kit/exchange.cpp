// Times exchanges with several helpers side by side: exchange FOLDER ROUNDS HELPER HELPER...
//
// Each helper, a script for node or a program, is started over two pipes as a mount starts it. The helpers take turns
// in short batches, so that what else the machine does hits all of them alike. Printed are, per operation, the
// microseconds of one exchange with each helper (median of the batches), its ratio to the faster one of the first two
// (median of the ratios within a round), and the microseconds that the helper's main thread ran (median too), with
// their ratio: those depend least on what else the machine does.
#include "helper.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t blockSize = 65536;
constexpr const char* fileName = "exchanged.bin";
constexpr const char* listedName = "listed";

std::string base64(const std::string& bytes) {
    static const char characters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        size_t rest = std::min<size_t>(3, bytes.size() - i);
        unsigned group = 0;
        for (size_t k = 0; k < 3; k++)
            group = group << 8 | (k < rest ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (size_t k = 0; k < 4; k++)
            text += k <= rest ? characters[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

std::string withEscapedSlashes(const std::string& text) {
    std::string escaped;
    for (char character : text) {
        if (character == '/')
            escaped += '\\';
        escaped += character;
    }
    return escaped;
}

struct Operation {
    std::string name;
    int batch;
    std::vector<std::string> fields; // per helper, since handles differ
    std::vector<std::vector<double>> times;
    std::vector<std::vector<double>> ran; // the helper's main thread
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::vector<Operation> prepare(std::vector<Helper>& helpers) {
    std::mt19937 random(1);
    std::string block;
    for (size_t i = 0; i < blockSize; i++)
        block += static_cast<char>(random());
    std::string text = withEscapedSlashes(base64(block));
    std::vector<Operation> operations = {{"ping", 400, {}, {}, {}},
                                         {"getattr", 400, {}, {}, {}},
                                         {"read 64K", 100, {}, {}, {}},
                                         {"write 64K", 100, {}, {}, {}},
                                         {"readdir of 100", 20, {}, {}, {}}};
    for (Helper& helper : helpers) {
        std::string writing = std::to_string(helper.open(fileName, R"("write","create")"));
        std::string write = R"("op":"write","handle":)" + writing + R"(,"offset":0,"dataBase64":")" + text + "\"";
        helper.exchange(write);
        std::string reading = std::to_string(helper.open(fileName, R"("read")"));
        operations[0].fields.push_back(R"("op":"ping")");
        operations[1].fields.push_back(std::string(R"("op":"getattr","path":"\/)") + fileName + "\"");
        operations[2].fields.push_back(R"("op":"read","handle":)" + reading + R"(,"offset":0,"length":65536)");
        operations[3].fields.push_back(write);
        operations[4].fields.push_back(std::string(R"("op":"readdir","path":"\/)") + listedName + "\"");
    }
    for (Operation& operation : operations) {
        operation.times.resize(helpers.size());
        operation.ran.resize(helpers.size());
    }
    return operations;
}

void measure(Operation& operation, std::vector<Helper>& helpers, bool keep) {
    for (size_t which = 0; which < helpers.size(); which++) {
        const double ranBefore = helpers[which].mainThreadTime();
        auto start = Clock::now();
        for (int i = 0; i < operation.batch; i++)
            helpers[which].exchange(operation.fields[which]);
        std::chrono::duration<double, std::micro> time = Clock::now() - start;
        const double ran = helpers[which].mainThreadTime() - ranBefore;
        if (keep) {
            operation.times[which].push_back(time.count() / operation.batch);
            operation.ran[which].push_back(ran / operation.batch);
        }
    }
}

// Of the helper `which` to the helper `base`, within each round.
double ratio(const std::vector<std::vector<double>>& values, size_t which, size_t base) {
    std::vector<double> ratios;
    for (size_t round = 0; round < values[which].size(); round++)
        ratios.push_back(values[which][round] / values[base][round]);
    return median(ratios);
}

void print(const Operation& operation, const std::vector<Helper>& helpers) {
    const size_t base = median(operation.times[1]) < median(operation.times[0]) ? 1 : 0;
    const size_t ranBase = median(operation.ran[1]) < median(operation.ran[0]) ? 1 : 0;
    std::printf("%s\n", operation.name.c_str());
    for (size_t which = 0; which < helpers.size(); which++)
        std::printf("    %-14s %8.2f us  %5.2fx   ran %8.2f us  %5.2fx\n", helpers[which].name.c_str(),
                    median(operation.times[which]), ratio(operation.times, which, base), median(operation.ran[which]),
                    ratio(operation.ran, which, ranBase));
    std::fflush(stdout);
}

void run(const char* folder, int rounds, const std::vector<std::string>& scripts) {
    setenv("KEMVI_REPO_ROOT", folder, 1);
    const auto listed = std::filesystem::path(folder) / listedName;
    std::filesystem::create_directory(listed);
    for (int number = 0; number < 100; number++)
        std::ofstream(listed / ("file " + std::to_string(number))) << number;
    std::vector<Helper> helpers;
    for (const std::string& script : scripts)
        helpers.emplace_back(script);
    std::vector<Operation> operations = prepare(helpers);
    for (Operation& operation : operations) {
        for (int round = -10; round < rounds; round++) // the first rounds let the engine compile what is hot
            measure(operation, helpers, round >= 0);
        print(operation, helpers);
    }
    for (Helper& helper : helpers)
        helper.end();
    std::remove((std::string(folder) + "/" + fileName).c_str());
    std::filesystem::remove_all(listed);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5 || std::atoi(argv[2]) < 1) {
        std::fprintf(stderr, "usage: exchange FOLDER ROUNDS HELPER HELPER...\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    try {
        run(argv[1], std::atoi(argv[2]), std::vector<std::string>(argv + 3, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exchange: %s\n", error.what());
        return 1;
    }
    return 0;
}
