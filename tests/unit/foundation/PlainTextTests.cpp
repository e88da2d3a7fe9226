#include "foundation/PlainText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using foundation::plainRunLength;

TEST(PlainText, endsAtEachCharacterThatJsonTreatsSpecially) {
    for (int c = 0; c < 256; ++c) {
        const bool plain = c >= 0x20 && c < 0x80 && c != '"' && c != '\\';
        for (const std::size_t place : {0U, 1U, 15U, 16U, 63U, 64U, 100U, 199U}) {
            std::vector<char> text(200, 'x');
            text[place] = static_cast<char>(c);
            ASSERT_EQ(plainRunLength({text.data(), text.size()}), plain ? 200U : place) << c << " at " << place;
        }
    }
}

TEST(PlainText, ofAnyLengthIsPlainToItsEnd) {
    for (std::size_t size = 0; size < 200; ++size) {
        const std::vector<char> text(size, ' ');
        ASSERT_EQ(plainRunLength({text.data(), text.size()}), size);
    }
}

} // namespace
