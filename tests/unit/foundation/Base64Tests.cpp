#include "foundation/Base64.h"
#include "foundation/Base64Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

using foundation::base64::Kernels;
using Bytes = std::vector<std::byte>;

Bytes bytesOf(std::string_view text) {
    const std::span bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

// The plainest form of the rules, to compare with.
std::string referenceEncode(const Bytes& data) {
    static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < data.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (i + k < data.size() ? static_cast<unsigned>(data[i + k]) : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            text += i + k <= data.size() ? letters[group >> (6 * (3 - k)) & 63] : '=';
    }
    return text;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text)
        result.append(c == '/' ? "\\" : "").append(1, c);
    return result;
}

class Base64 : public testing::TestWithParam<const Kernels*> {
protected:
    std::string encode(const Bytes& data) const {
        // Exactly the promised room, so that the address sanitizer sees a character too many.
        std::vector<char> out(foundation::base64::escapedRoom(data.size()));
        return {out.data(), encodeWith(*GetParam(), data, out.data())};
    }

    std::string encodePlain(const Bytes& data) const {
        std::vector<char> out(foundation::base64::plainRoom(data.size()));
        return {out.data(), encodePlainWith(*GetParam(), data, out.data())};
    }

    std::optional<Bytes> decode(std::string_view text) const {
        const std::vector<char> exact(text.begin(), text.end());
        Bytes bytes(foundation::base64::decodedLength(text).value_or(0));
        const auto count = decodeWith(*GetParam(), {exact.data(), exact.size()}, bytes);
        if (!count)
            return std::nullopt;
        EXPECT_EQ(*count, bytes.size());
        return bytes;
    }
};

std::vector<const Kernels*> everyForm() {
    std::vector<const Kernels*> forms{&foundation::base64::scalarKernels};
    if (&foundation::base64::bestKernels() != forms.front())
        forms.push_back(&foundation::base64::bestKernels());
    return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, Base64, testing::ValuesIn(everyForm()),
                         [](const auto& form) { return std::string(form.param->name); });

TEST_P(Base64, encodesTheExamplesOfTheStandard) {
    EXPECT_EQ(encode(bytesOf("")), "");
    EXPECT_EQ(encode(bytesOf("f")), "Zg==");
    EXPECT_EQ(encode(bytesOf("fo")), "Zm8=");
    EXPECT_EQ(encode(bytesOf("foo")), "Zm9v");
    EXPECT_EQ(encode(bytesOf("foob")), "Zm9vYg==");
    EXPECT_EQ(encode(bytesOf("fooba")), "Zm9vYmE=");
    EXPECT_EQ(encode(bytesOf("foobar")), "Zm9vYmFy");
}

TEST_P(Base64, escapesEverySlash) {
    EXPECT_EQ(encode(bytesOf("\xFF\xFF\xFF")), "\\/\\/\\/\\/");
    EXPECT_EQ(encode(bytesOf("\xFF")), "\\/w==");
    EXPECT_EQ(encode(bytesOf("\xFF\xFF")), "\\/\\/8=");
    const Bytes many(1000, std::byte{0xFF});
    EXPECT_EQ(encode(many), escaped(referenceEncode(many)));
}

TEST_P(Base64, encodesEveryLengthAndEveryPlaceOfASlash) {
    std::mt19937 random(1);
    for (std::size_t size = 0; size <= 300; ++size) {
        Bytes data(size);
        for (std::byte& b : data)
            b = static_cast<std::byte>(random() % 4 == 0 ? 0xFF : random());
        ASSERT_EQ(encode(data), escaped(referenceEncode(data))) << "size " << size;
    }
}

TEST_P(Base64, escapesOneSlashOrTwoAtAnyPlaces) {
    const std::string letters(4 * 64, 'A');
    for (std::size_t first = 0; first < letters.size(); ++first)
        for (std::size_t second = first; second < std::min(first + 70, letters.size()); ++second) {
            std::string text = letters;
            text[first] = text[second] = '/';
            const auto data = decode(text);
            ASSERT_TRUE(data);
            ASSERT_EQ(encode(*data), escaped(text)) << "slashes at " << first << " and " << second;
        }
}

TEST_P(Base64, encodesLongDataWithFewManyAndNoSlashes) {
    std::mt19937 random(4);
    for (const std::size_t size : {3071U, 3072U, 3073U, 3075U, 3076U, 3077U, 3100U, 6148U, 20'000U, 65'536U})
        for (const unsigned oneIn : {1U, 2U, 10U, 1000U, 1U << 30}) {
            Bytes data(size);
            for (std::byte& b : data)
                b = static_cast<std::byte>(random() % oneIn == 0 ? 0xFFU : random() % 60);
            ASSERT_EQ(encode(data), escaped(referenceEncode(data))) << size << " bytes, one in " << oneIn;
        }
}

TEST_P(Base64, leavesSlashesAsTheyAreWhereItIsToldTo) {
    std::mt19937 random(5);
    for (std::size_t size = 0; size <= 300; ++size) {
        Bytes data(size);
        for (std::byte& b : data)
            b = static_cast<std::byte>(random() % 4 == 0 ? 0xFF : random());
        ASSERT_EQ(encodePlain(data), referenceEncode(data)) << "size " << size;
    }
}

TEST_P(Base64, decodesWhatItEncoded) {
    std::mt19937 random(2);
    for (std::size_t size = 0; size <= 300; ++size) {
        Bytes data(size);
        for (std::byte& b : data)
            b = static_cast<std::byte>(random());
        ASSERT_EQ(decode(referenceEncode(data)), data) << "size " << size;
    }
}

TEST_P(Base64, decodesEveryCharacterOfTheAlphabetAndNoOther) {
    static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string good(128, 'A');
    for (int c = 0; c < 256; ++c)
        for (const std::size_t place : {0U, 5U, 31U, 33U, 66U, 127U}) {
            std::string text = good;
            text[place] = static_cast<char>(c);
            const bool padding = c == '=' && place == 127;
            const bool valid = padding || letters.find(static_cast<char>(c)) != std::string_view::npos;
            ASSERT_EQ(decode(text).has_value(), valid) << "character " << c << " at " << place;
        }
}

TEST_P(Base64, refusesMissingOrMisplacedPadding) {
    for (const char* text : {"Z", "Zg", "Zg=", "Zm8", "Zm9vYg", "Zm9vYg=", "=", "==", "====", "Z===", "Zg=A",
                             "=Zg=", "Zg==Zg==", "Zg==Zm9v", "Zm8=Zm9v", "Zm9v=", "Zm9v===="})
        EXPECT_FALSE(decode(text)) << text;
}

TEST_P(Base64, refusesWhiteSpaceLineBreaksAndTheUrlAlphabet) {
    for (const char* text : {"Zm9v\n", "Zm9\n", "Zm 9vYmE", " Zm9", "Zm9v\r\nYmFy", "Zm9-", "Zm9_", "\\/w="})
        EXPECT_FALSE(decode(text)) << text;
}

TEST_P(Base64, acceptsSpareBitsThatAreNotZero) {
    EXPECT_EQ(decode("Zh=="), bytesOf("f"));
    EXPECT_EQ(decode("Zm9="), bytesOf("fo"));
}

TEST_P(Base64, decodesNothingFromNothing) {
    EXPECT_EQ(decode(""), Bytes());
}

TEST_P(Base64, storesOnlyWhatFitsAndStillCountsAll) {
    Bytes data(10'000);
    std::mt19937 random(3);
    for (std::byte& b : data)
        b = static_cast<std::byte>(random());
    const std::string text = referenceEncode(data);
    for (const std::size_t room : {0U, 1U, 2U, 3U, 31U, 32U, 33U, 3071U, 3072U, 3073U, 9'998U, 9'999U, 10'000U}) {
        Bytes into(room);
        EXPECT_EQ(decodeWith(*GetParam(), text, into), data.size());
        EXPECT_TRUE(std::equal(into.begin(), into.end(), data.begin())) << "room " << room;
    }
}

TEST_P(Base64, leavesTheMemoryBehindTheDataAlone) {
    Bytes into(100, std::byte{0x55});
    EXPECT_EQ(decodeWith(*GetParam(), referenceEncode(Bytes(40, std::byte{7})), into), 40U);
    EXPECT_EQ(into[39], std::byte{7});
    for (std::size_t i = 40; i < into.size(); ++i)
        EXPECT_EQ(into[i], std::byte{0x55}) << i;
}

TEST_P(Base64, checksTheTextBeyondWhatFits) {
    std::string text(40'000, 'A');
    for (const std::size_t place : {100U, 4096U, 20'000U, 39'995U, 39'999U}) {
        std::string broken = text;
        broken[place] = '!';
        Bytes into(10);
        EXPECT_FALSE(decodeWith(*GetParam(), broken, into)) << "at " << place;
    }
}

TEST(Base64Length, isKnownFromTheTextsLengthAndPadding) {
    EXPECT_EQ(foundation::base64::decodedLength(""), 0U);
    EXPECT_EQ(foundation::base64::decodedLength("Zg=="), 1U);
    EXPECT_EQ(foundation::base64::decodedLength("Zm8="), 2U);
    EXPECT_EQ(foundation::base64::decodedLength("Zm9v"), 3U);
    EXPECT_FALSE(foundation::base64::decodedLength("Zm9"));
}

} // namespace
