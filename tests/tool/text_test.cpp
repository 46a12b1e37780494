// SPDX-License-Identifier: MIT
// Texts as they are shown.
#include <clocale>

#include "src/base/text.h"
#include "tests/tool/support.h"
#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool_test {

using ::testing::HasSubstr;

class shown_text : public Machine {
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
         {0xa0,    0xad,    0x34f,   0x600,   0x605,   0x61c,   0x6dd,  0x70f,  0x890,  0x891,
          0x8e2,   0x115f,  0x1160,  0x1680,  0x17b4,  0x17b5,  0x180b, 0x180e, 0x180f, 0x2000,
          0x200a,  0x200b,  0x200c,  0x200d,  0x2028,  0x202e,  0x202f, 0x205f, 0x2060, 0x206f,
          0x2800,  0x3000,  0x3164,  0xfe00,  0xfe0f,  0xfeff,  0xffa0, 0xfff0, 0xfff9, 0xfffb,
          0x110bd, 0x1bca0, 0x1d173, 0x1d17a, 0xe0001, 0xe0100, 0xe0fff})
        EXPECT_TRUE(is_escaped(character)) << std::hex << static_cast<unsigned>(character);
}

TEST_F(shown_text, keeps_letters_signs_and_the_blank)
{
    for (const char32_t character : {0x20, 0x41, 0xa1, 0xac, 0xae, 0xe9, 0x416, 0x5d0, 0x627, 0x0e01, 0x1e9e,
                                     0x2010, 0x20ac, 0x2801, 0x3001, 0x4e2d, 0xac00, 0xfffd, 0x1f600})
        EXPECT_FALSE(is_escaped(character)) << std::hex << static_cast<unsigned>(character);
}

// They may be part of a file's name.
TEST_F(shown_text, keeps_blanks_at_the_end)
{
    tool::table rows;
    rows.row({"a", "b  ", ""});
    rows.row({"long", "", "c "});
    rows.row({"d", "", ""});
    EXPECT_EQ(rows.text(), "a     b  \nlong       c \nd\n");

    EXPECT_THAT(output({"path", "decode", "04040a006100200000007fff0400"}), ::testing::EndsWith("a \n"));
    put("Boot0003", load_option(1, "two  ", from_hex("7fff0400")));
    EXPECT_THAT(output({"show", "Boot0003"}), HasSubstr("  two  \n"));
}

} // namespace tool_test
