#include "cli/Spelling.h"

#include <algorithm>

namespace cli {

namespace {

constexpr std::size_t longestWord = 64; // nobody means a word of ours by a longer one

/// How many slips turn one word into the other.
std::size_t slips(std::string_view one, std::string_view other) {
    std::vector<std::vector<std::size_t>> table(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t wrong = one[i - 1] == other[j - 1] ? 0 : 1;
            auto& least = table[i][j];
            least = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + wrong});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                least = std::min(least, table[i - 2][j - 2] + 1);
        }
    }
    return table[one.size()][other.size()];
}

} // namespace

std::optional<std::string> likelyMeant(std::string_view word, const std::vector<std::string>& known) {
    std::optional<std::string> nearest;
    std::size_t fewest = longestWord;
    for (const std::string& candidate : known) {
        if (word.size() > longestWord)
            break;
        const std::size_t count = slips(word, candidate);
        if (count < fewest && count <= std::max<std::size_t>(1, candidate.size() / 3)) {
            fewest = count;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace cli
