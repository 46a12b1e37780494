// SPDX-License-Identifier: MIT
// UTF-8 to UCS-2 and back.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/rt/owned.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/bytes.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

using ucs2 = ovra::owned<uint16_t>;

// The whole block that a conversion gave, as far as its terminator.
std::string stored(const uint16_t *text)
{
    return text ? to_hex(text, unicode_strlen(text)) : "null";
}

std::string to_ucs2(const char *text)
{
    return stored(ucs2(convert_utf8_to_leunicode(text)).get());
}

// The bytes given for the units, with `capacity` bytes of room; bytes behind them must stay.
std::string to_utf8(const std::u16string &units, size_t capacity = 100)
{
    std::string out(capacity + 8, '#');
    const size_t length = convert_utf16_to_utf8(units.data(), units.size(), out.data(), capacity);
    EXPECT_LE(length, capacity);
    EXPECT_EQ(out.substr(length), std::string(out.size() - length, '#'));
    return out.substr(0, length);
}

iconv_t never_opened()
{
    return reinterpret_cast<iconv_t>(-1);
}

} // namespace

TEST(unicode_strlen, counts_bytes_with_the_terminator)
{
    const uint16_t empty[] = {0, 'x'};
    const uint16_t one[] = {'a', 0};
    const uint16_t high_bytes_only[] = {0x4e00, 0x0100, 0};
    EXPECT_EQ(unicode_strlen(empty), 2U);
    EXPECT_EQ(unicode_strlen(one), 4U);
    EXPECT_EQ(unicode_strlen(high_bytes_only), 6U);
    const std::vector<uint16_t> many = [] {
        std::vector<uint16_t> text(70000, 'x');
        text.push_back(0);
        return text;
    }();
    EXPECT_EQ(unicode_strlen(many.data()), 140002U);
}

TEST(utf8_to_ucs2, empty_text_is_one_zero_unit)
{
    EXPECT_EQ(to_ucs2(""), "00 00");
}

TEST(utf8_to_ucs2, each_character_is_one_little_endian_unit)
{
    EXPECT_EQ(to_ucs2("Boot0003"), hex("4200 6f00 6f00 7400 3000 3000 3000 3300 0000"));
    EXPECT_EQ(to_ucs2("\xc3\xa9"), hex("e900 0000"));
    EXPECT_EQ(to_ucs2("A\xe4\xb8\xad\x42"), hex("4100 2d4e 4200 0000"));
    EXPECT_EQ(to_ucs2("\x01\x7f"), hex("0100 7f00 0000"));
    EXPECT_EQ(to_ucs2("\xc2\x80"), hex("8000 0000"));
    EXPECT_EQ(to_ucs2("\xdf\xbf\xe0\xa0\x80"), hex("ff07 0008 0000"));
    EXPECT_EQ(to_ucs2("\xef\xbf\xbd"), hex("fdff 0000"));
}

TEST(utf8_to_ucs2, every_character_of_16_bits)
{
    for (unsigned character = 1; character < 0x10000; ++character) {
        if (character >= 0xd800 && character < 0xe000)
            continue;
        char text[4] = {};
        const auto unit = static_cast<uint16_t>(character);
        ASSERT_GT(convert_utf16_to_utf8(&unit, 1, text, 3), 0U);
        const ucs2 back(convert_utf8_to_leunicode(text));
        ASSERT_NE(back, nullptr) << character;
        ASSERT_EQ(back.get()[0], unit);
        ASSERT_EQ(back.get()[1], 0U) << character;
    }
}

TEST(utf8_to_ucs2, long_text)
{
    const std::string text(100000, 'x');
    const ucs2 converted(convert_utf8_to_leunicode(text.c_str()));
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(unicode_strlen(converted.get()), 200002U);
}

TEST(utf8_to_ucs2, kept_no_line_end_after_a_refused_text)
{
    const char *const refused[] = {
        "\xf0\x9f\x98\x80",    // above 16 bits
        "ok\xf0\x90\x80\x80",  //
        "\xff",                // no first byte
        "\x80",                // no first byte either
        "\xc3",                // cut
        "ab\xe4\xb8",          // cut
        "\xc3\x28",            // no continuation
        "\xc0\xaf",            // longer than need be
        "\xe0\x80\xaf",        //
        "\xed\xa0\x80",        // surrogates
        "\xed\xb0\x80",        //
        "\xf8\x88\x80\x80\x80" // five bytes
    };
    for (const char *text : refused) {
        messages said(1, 0);
        EXPECT_EQ(to_ucs2(text), "null") << text;
        EXPECT_EQ(said.text(), std::string("iconv(") + text + ") failed"); // no line end
    }
}

// The C library's conversion leaves some of them out without a word, so that another variable is meant.
TEST(utf8_to_ucs2, every_character_beyond_16_bits_is_refused)
{
    const messages silent(0, 0);
    const auto refused = [](uint32_t character) {
        const uint16_t pair[] = {static_cast<uint16_t>(0xd7c0 + (character >> 10)),
                                 static_cast<uint16_t>(0xdc00 + (character & 0x3ff))};
        char text[20] = "Boot0005";
        return convert_utf16_to_utf8(pair, 2, text + 8, 4) == 4 && to_ucs2(text) == "null" &&
               to_ucs2(text + 8) == "null" && to_ucs2((text + std::string(8, 'x')).c_str()) == "null";
    };
    for (uint32_t character = 0xe0000; character < 0xe1000; ++character)
        ASSERT_TRUE(refused(character)) << character;
    for (uint32_t character = 0x10000; character < 0x110000; character += 251)
        ASSERT_TRUE(refused(character)) << character;
    for (uint32_t plane = 1; plane <= 16; ++plane) {
        ASSERT_TRUE(refused(plane << 16)) << plane;
        ASSERT_TRUE(refused(plane << 16 | 0xffff)) << plane;
    }
}

TEST(utf8_to_ucs2, every_byte_that_begins_such_a_character_is_refused_with_a_message)
{
    for (int byte = 0xf0; byte < 0x100; ++byte) {
        for (const char *rest : {"", "\x80", "\x80\x80\x80", "\xa0\x80\x81", "x"}) {
            const std::string text = std::string("a") + static_cast<char>(byte) + rest;
            const messages said(1, 0);
            EXPECT_EQ(to_ucs2(text.c_str()), "null");
            EXPECT_EQ(said.text(), "iconv(" + text + ") failed");
        }
    }
}

TEST(utf8_to_ucs2, refusal_is_silent_while_the_switch_is_off)
{
    const messages said(0, 1);
    EXPECT_EQ(to_ucs2("\xff"), "null");
    EXPECT_EQ(said.text(), "");
}

TEST(utf8_to_ucs2, refused_text_leaves_nothing_behind_in_the_shared_descriptor)
{
    const messages said(0, 0);
    for (const char *text : {"\xc3", "ab\xe4\xb8", "\xff", "\xf0\x9f\x98\x80"}) {
        EXPECT_EQ(to_ucs2(text), "null");
        EXPECT_EQ(to_ucs2("Ab"), hex("4100 6200 0000"));
        EXPECT_EQ(to_ucs2("\xa9"), "null"); // not the end of what came before
    }
}

TEST(utf8_to_ucs2, random_bytes_are_converted_or_refused)
{
    const messages said(0, 0);
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (size_t length = random() % 12; length > 0; --length)
            text += static_cast<char>(1 + random() % 255);
        const ucs2 converted(convert_utf8_to_leunicode(text.c_str()));
        if (!converted)
            continue;
        std::string back(3 * text.size() + 1, '\0');
        back.resize(convert_utf16_to_utf8(converted.get(), unicode_strlen(converted.get()) / 2, back.data(),
                                          back.size()));
        ASSERT_EQ(back, text);
    }
}

TEST(utf8_to_ucs2, kept_no_line_end_after_a_missing_descriptor)
{
    count_blocks();
    const messages said(1, 0);
    EXPECT_EQ(convert_utf8_to_ucs2xx(never_opened(), "x"), nullptr);
    EXPECT_EQ(said.text(), "iconv_open(UCS-2/UTF-8)"); // no line end
    EXPECT_EQ(allocations(), 0);
    stop_counting();
}

TEST(utf8_to_ucs2, descriptor_that_is_not_open_is_silent_while_the_switch_is_off)
{
    const messages said(0, 1);
    EXPECT_EQ(convert_utf8_to_ucs2xx(never_opened(), "x"), nullptr);
    EXPECT_EQ(said.text(), "");
}

TEST(utf8_to_ucs2, kept_conversion_goes_through_the_descriptor_given)
{
    const iconv_t big_endian = iconv_open("UCS-2BE", "UTF-8");
    ASSERT_NE(big_endian, never_opened());
    EXPECT_EQ(stored(ucs2(convert_utf8_to_ucs2xx(big_endian, "Ab\xe4\xb8\xad")).get()),
              hex("0041 0062 4e2d 0000"));
    iconv_close(big_endian);
}

TEST(utf8_to_ucs2, one_block_of_twice_the_length_and_a_terminator_is_made)
{
    static_cast<void>(to_ucs2("first use"));
    count_blocks();
    const ucs2 text(convert_utf8_to_leunicode("abc"));
    EXPECT_EQ(live_blocks(), 1);
    EXPECT_EQ(allocations(), 1);
    stop_counting();
}

TEST(utf8_to_ucs2, kept_a_refused_allocation_is_silent)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    for_each_refused_allocation([](ovra_hdl_t) { return ucs2(convert_utf8_to_leunicode("abc")) ? 0 : -1; },
                                [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

TEST(utf16_to_utf8, characters_of_one_to_four_bytes)
{
    EXPECT_EQ(to_utf8(u""), "");
    EXPECT_EQ(to_utf8(u"Boot0001"), "Boot0001");
    EXPECT_EQ(to_utf8(u"\u0001\u007f"), "\x01\x7f");
    EXPECT_EQ(to_utf8(u"\u0080\u07ff"), "\xc2\x80\xdf\xbf");
    EXPECT_EQ(to_utf8(u"\u0800\ud7ff\ue000\uffff"), "\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf");
    EXPECT_EQ(to_utf8({0xd800, 0xdc00}), "\xf0\x90\x80\x80");
    EXPECT_EQ(to_utf8({0xd83d, 0xde00}), "\xf0\x9f\x98\x80");
    EXPECT_EQ(to_utf8({0xdbff, 0xdfff, 'x'}), "\xf4\x8f\xbf\xbfx");
}

TEST(utf16_to_utf8, ends_at_a_zero_unit)
{
    EXPECT_EQ(to_utf8({'a', 'b', 0, 'c'}), "ab");
    EXPECT_EQ(to_utf8({0, 'c'}), "");
}

TEST(utf16_to_utf8, ends_with_the_units_where_there_is_no_zero)
{
    const std::vector<uint16_t> units = {'a', 'b'}; // nothing behind them: reading on would be seen
    char out[8];
    EXPECT_EQ(convert_utf16_to_utf8(units.data(), 2, out, sizeof out), 2U);
    EXPECT_EQ(convert_utf16_to_utf8(units.data(), 1, out, sizeof out), 1U);
    EXPECT_EQ(convert_utf16_to_utf8(units.data(), 0, out, sizeof out), 0U);
    EXPECT_EQ(convert_utf16_to_utf8(nullptr, 0, out, sizeof out), 0U);
}

TEST(utf16_to_utf8, partner_beyond_the_units_does_not_count)
{
    const uint16_t units[] = {'a', 0xd83d, 0xde00};
    char out[8];
    EXPECT_EQ(convert_utf16_to_utf8(units, 2, out, sizeof out), 1U);
    EXPECT_EQ(convert_utf16_to_utf8(units, 3, out, sizeof out), 5U);
}

TEST(utf16_to_utf8, ends_before_a_surrogate_without_its_partner)
{
    EXPECT_EQ(to_utf8({'a', 0xd800}), "a");      // last unit
    EXPECT_EQ(to_utf8({'a', 0xdbff, 'b'}), "a"); // high, then none
    EXPECT_EQ(to_utf8({'a', 0xd800, 0xd800, 0xdc00}), "a");
    EXPECT_EQ(to_utf8({'a', 0xd800, 0, 0xdc00}), "a");
    EXPECT_EQ(to_utf8({'a', 0xdc00, 'b'}), "a"); // low alone
    EXPECT_EQ(to_utf8({'a', 0xdfff}), "a");
    EXPECT_EQ(to_utf8({0xdc00, 0xd800}), ""); // the wrong way round
    EXPECT_EQ(to_utf8({'a', 0xd83d, 0xde00, 0xdc00}), "a\xf0\x9f\x98\x80");
}

TEST(utf16_to_utf8, ends_before_a_character_that_does_not_fit_whole)
{
    const std::u16string text = {'a', 0xe9, 0x4e2d, 0xd83d, 0xde00, 'z'};
    const std::string whole = "a\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80z";
    const size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
    for (size_t capacity = 0; capacity < std::size(expected); ++capacity)
        EXPECT_EQ(to_utf8(text, capacity), whole.substr(0, expected[capacity])) << capacity;
}

TEST(utf16_to_utf8, after_a_character_that_does_not_fit_nothing_smaller_is_put)
{
    EXPECT_EQ(to_utf8({'a', 0x4e2d, 'b', 'c'}, 3), "a");
}

TEST(utf16_to_utf8, units_may_stand_at_odd_addresses)
{
    const std::u16string text = {'a', 0xe9, 0x4e2d, 0xd83d, 0xde00, 'z'};
    std::vector<char> buffer(text.size() * 2 + 1);
    memcpy(buffer.data() + 1, text.data(), text.size() * 2);
    char out[32];
    const size_t length = convert_utf16_to_utf8(buffer.data() + 1, text.size(), out, sizeof out);
    EXPECT_EQ(std::string(out, length), "a\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80z");
}

TEST(utf16_to_utf8, every_pair_of_surrogates_gives_four_bytes)
{
    for (uint16_t high = 0xd800; high < 0xdc00; ++high)
        for (uint16_t low = 0xdc00; low < 0xe000; low = static_cast<uint16_t>(low + 61)) {
            const uint16_t units[] = {high, low};
            unsigned char out[8];
            ASSERT_EQ(convert_utf16_to_utf8(units, 2, reinterpret_cast<char *>(out), sizeof out), 4U);
            const unsigned character =
                (out[0] & 7U) << 18 | (out[1] & 63U) << 12 | (out[2] & 63U) << 6 | (out[3] & 63U);
            ASSERT_EQ(character, 0x10000U + (high - 0xd800U) * 0x400U + (low - 0xdc00U));
            ASSERT_EQ(out[0] & 0xf8, 0xf0);
            ASSERT_EQ((out[1] & 0xc0) + (out[2] & 0xc0) + (out[3] & 0xc0), 3 * 0x80);
        }
}

TEST(utf16_to_utf8, random_units_give_well_formed_text_within_the_capacity)
{
    std::mt19937 random(2);
    const iconv_t check = iconv_open("UTF-32LE", "UTF-8");
    ASSERT_NE(check, never_opened());
    for (int i = 0; i < 50000; ++i) {
        std::u16string units;
        for (size_t length = random() % 12; length > 0; --length)
            units +=
                static_cast<char16_t>(random() % 3 == 0 ? 0xd800 + random() % 0x800 : random() % 0x10000);
        std::string text = to_utf8(units, random() % 24);
        char wide[200];
        char *in = text.data();
        char *out = wide;
        size_t in_left = text.size();
        size_t out_left = sizeof wide;
        ASSERT_EQ(iconv(check, &in, &in_left, &out, &out_left), 0U) << to_hex(text.data(), text.size());
    }
    iconv_close(check);
}
