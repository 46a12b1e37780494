// SPDX-License-Identifier: MIT
// Texts as they are shown.
#include <clocale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "src/base/text.h"
#include "tools/text/text.h"

namespace texts_test {

class shown_text : public ::testing::Test {
protected:
    shown_text() { setlocale(LC_CTYPE, "C.UTF-8"); }
    ~shown_text() override { setlocale(LC_CTYPE, "C"); }

    static bool is_escaped(char32_t character)
    {
        const std::string text(ovra::utf8_character(character).view());
        return tool::printable(text) != text;
    }
};

// One of each block of the Unicode Character Database that has some.
TEST_F(shown_text, escapes_what_shows_nothing_or_a_blank)
{
    for (const char32_t character :
         {0xa0U,    0xadU,    0x34fU,   0x600U,   0x605U,   0x61cU,   0x6ddU,  0x70fU,  0x890U,  0x891U,
          0x8e2U,   0x115fU,  0x1160U,  0x1680U,  0x17b4U,  0x17b5U,  0x180bU, 0x180eU, 0x180fU, 0x2000U,
          0x200aU,  0x200bU,  0x200cU,  0x200dU,  0x2028U,  0x202eU,  0x202fU, 0x205fU, 0x2060U, 0x206fU,
          0x2800U,  0x3000U,  0x3164U,  0xfe00U,  0xfe0fU,  0xfeffU,  0xffa0U, 0xfff0U, 0xfff9U, 0xfffbU,
          0x110bdU, 0x1bca0U, 0x1d173U, 0x1d17aU, 0xe0001U, 0xe0100U, 0xe0fffU})
        EXPECT_TRUE(is_escaped(character)) << std::hex << static_cast<unsigned>(character);
}

TEST_F(shown_text, keeps_letters_signs_and_the_blank)
{
    for (const char32_t character :
         {0x20U, 0x41U, 0xa1U, 0xacU, 0xaeU, 0xe9U, 0x416U, 0x5d0U, 0x627U, 0x0e01U, 0x1e9eU, 0x2010U,
          0x20acU, 0x2801U, 0x3001U, 0x4e2dU, 0xac00U, 0xfffdU, 0x1f600U})
        EXPECT_FALSE(is_escaped(character)) << std::hex << static_cast<unsigned>(character);
}

} // namespace texts_test
