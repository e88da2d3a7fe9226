#include "Fuzz.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

namespace {

constexpr int rounds = 20'000;

// The same mutations of the same seeds in every run, so that what fails once fails again.
template <typename Target>
void run(Target target, std::vector<std::string_view> seeds, std::string_view alphabet) {
    std::mt19937 random(1);
    for (int round = 0; round < rounds; ++round) {
        const std::string_view seed = seeds[random() % seeds.size()];
        std::vector<std::uint8_t> input(seed.begin(), seed.end());
        for (auto changes = random() % 5; changes > 0; --changes) {
            const auto place = static_cast<std::ptrdiff_t>(random() % (input.size() + 1));
            const auto c = random() % 4 == 0 ? static_cast<std::uint8_t>(random())
                                             : static_cast<std::uint8_t>(alphabet[random() % alphabet.size()]);
            if (random() % 2 == 0 || place == static_cast<std::ptrdiff_t>(input.size()))
                input.insert(input.begin() + place, c);
            else if (random() % 2 == 0)
                input[static_cast<std::size_t>(place)] = c;
            else
                input.erase(input.begin() + place);
        }
        target(input);
    }
}

TEST(Fuzz, base64FormsAgree) {
    run(fuzz::base64,
        {"", "Zm9v", "Zg==", "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZnaGlqa2xtbm9wcXJzdHV2d3h5ej8/Pw=="},
        "AZaz09+/=");
}

TEST(Fuzz, responsesDecodeOrAreRefused) {
    run(fuzz::response,
        {R"({"id":"1","ok":true,"dataBase64":"QUJD"})", R"({"id":"1","dataBase64":"QUJDQUJD","ok":true})",
         R"({"id":"1","ok":false,"error":{"message":"m","code":"EIO"}})",
         R"({"id":"\u0031","ok":true,"result":[1.5e3,{"a":null,"b":[true,"\ud83d\ude00"]}]})"},
        "{}[]\",:\\u0123456789-+.eEtrufalsn \n");
}

TEST(Fuzz, timestampsAreReadOrRefused) {
    run(fuzz::timestamp, {"2024-05-01T12:34:56.789Z", "2024-02-29T23:59:59.5-08:30"}, "0123456789-+:.TZ");
}

} // namespace
