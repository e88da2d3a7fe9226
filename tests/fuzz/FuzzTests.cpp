#include "Fuzz.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    EXPECT_TRUE(file) << path;
    return text.str();
}

// Of one target; in the order of their names, so that every run is the same.
std::vector<std::string> seedsOf(const fuzz::Target& target) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(FUZZ_DATA "/seeds") / target.name))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> seeds;
    for (const auto& path : paths)
        seeds.push_back(contentsOf(path));
    return seeds;
}

// The word of one line of a dictionary, such as "\"id\":" or "\x00"; empty if there is none.
std::string wordOf(const std::string& line) {
    std::string word;
    if (!line.starts_with('"'))
        return word;
    for (std::size_t at = 1; at + 1 < line.size(); ++at) {
        if (line[at] != '\\') {
            word += line[at];
        } else if (line[++at] == 'x') {
            word += static_cast<char>(std::stoi(line.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            word += line[at];
        }
    }
    return word;
}

std::vector<std::string> wordsOf(const fuzz::Target& target) {
    std::istringstream lines(contentsOf(std::string(FUZZ_DATA "/dictionaries/") + target.name.data() + ".dict"));
    std::vector<std::string> words;
    for (std::string line; std::getline(lines, line);)
        if (const std::string word = wordOf(line); !word.empty())
            words.push_back(word);
    return words;
}

void change(Bytes& input, std::mt19937& random, const std::vector<std::string>& words) {
    const auto place = input.begin() + static_cast<std::ptrdiff_t>(random() % (input.size() + 1));
    const auto kind = random() % 4;
    if (kind == 0 || place == input.end()) {
        const std::string& word = words[random() % words.size()];
        input.insert(place, word.begin(), word.end());
    } else if (kind == 1) {
        *place = static_cast<std::uint8_t>(random());
    } else if (kind == 2) {
        *place = static_cast<std::uint8_t>(words[random() % words.size()].front());
    } else {
        input.erase(place);
    }
}

class Fuzz : public testing::TestWithParam<fuzz::Target> {};

TEST_P(Fuzz, rulesHoldForTheSeedsAndForTheSameChangesOfThemInEveryRun) {
    const std::vector<std::string> seeds = seedsOf(GetParam());
    const std::vector<std::string> words = wordsOf(GetParam());
    ASSERT_FALSE(seeds.empty());
    ASSERT_FALSE(words.empty());
    for (const std::string& seed : seeds)
        fuzz::run(GetParam(), Bytes(seed.begin(), seed.end()));
    std::mt19937 random(1);
    for (int round = 0; round < GetParam().rounds; ++round) {
        const std::string& seed = seeds[random() % seeds.size()];
        Bytes input(seed.begin(), seed.end());
        for (auto changes = 1 + random() % 5; changes > 0; --changes)
            change(input, random, words);
        fuzz::run(GetParam(), input);
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, Fuzz, testing::ValuesIn(fuzz::targets().begin(), fuzz::targets().end()),
                         [](const auto& made) { return std::string(made.param.name); });

} // namespace
