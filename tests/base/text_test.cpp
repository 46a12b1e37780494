// SPDX-License-Identifier: MIT
// Characters in UTF-8 and UTF-16: every character there is, and what is none.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/base/text.h"

namespace {

constexpr char32_t last = 0x10ffff;

// As RFC 3629 writes them down, row by row. The bytes follow each other from the highest place on.
uint64_t by_the_table(char32_t c)
{
    const uint64_t last_byte = 0x80 + c % 64;
    if (c <= 0x7f)
        return c;
    if (c <= 0x7ff)
        return (0xc0 + c / 64) << 8 | last_byte;
    if (c <= 0xffff)
        return (0xe0 + c / 4096) << 16 | (0x80 + c / 64 % 64) << 8 | last_byte;
    return (0xf0 + c / 262144) << 24 | (0x80 + c / 4096 % 64) << 16 | (0x80 + c / 64 % 64) << 8 | last_byte;
}

bool is(const ovra::decoded_character &read, char32_t character, size_t size)
{
    return read.valid && read.character == character && read.size == size;
}

// Whether a character has these bytes, and comes back from them with another character behind it; a surrogate
// does not.
bool is_written_and_read(char32_t c)
{
    const ovra::utf8_character written(c);
    const std::string_view view = written.view();
    char text[8] = {};
    uint64_t packed = 0;
    for (size_t i = 0; i < view.size(); ++i) {
        text[i] = view[i];
        packed = packed << 8 | static_cast<unsigned char>(view[i]);
    }
    text[view.size()] = 'x';
    const ovra::decoded_character read = ovra::first_of_utf8({text, view.size() + 1});
    return packed == by_the_table(c) && (c < 0xd800 || c > 0xdfff ? is(read, c, view.size()) : !read.valid);
}

// The same in UTF-16, with nothing behind it too.
bool is_written_and_read_as_units(char32_t c)
{
    const ovra::utf16_character written(c);
    const size_t size = written.view().size();
    if (size != (c > 0xffff ? 2U : 1U))
        return false;
    uint16_t units[3] = {written.view()[0], 'x', 'x'};
    if (size == 2)
        units[1] = written.view()[1];
    const std::span<const uint16_t> all(units);
    return is(ovra::first_of_utf16(ovra::bytes_of_units(all.first(size))), c, size) &&
           is(ovra::first_of_utf16(ovra::bytes_of_units(all.first(size + 1))), c, size);
}

ovra::decoded_character first_of_units(const std::vector<uint16_t> &units)
{
    return ovra::first_of_utf16(ovra::bytes_of_units(units));
}

void expect_none(const ovra::decoded_character &first)
{
    EXPECT_FALSE(first.valid);
    EXPECT_EQ(first.size, 1U);
    EXPECT_EQ(first.character, ovra::replacement_character);
}

} // namespace

// An assertion for each would take longer than all the rest.
TEST(utf8, every_character_is_written_as_the_table_says_and_read_back)
{
    for (char32_t c = 0; c <= last; ++c)
        if (!is_written_and_read(c))
            FAIL() << uint32_t{c};
}

TEST(utf8, character_that_is_cut_off_is_none)
{
    for (const char32_t c : {0x80U, 0x7ffU, 0x800U, 0xffffU, 0x10000U, 0x10ffffU}) {
        const std::string written(ovra::utf8_character(c).view());
        for (size_t length = 1; length < written.size(); ++length) {
            // Of its own size, so that a byte read beyond it is noticed.
            const std::vector<char> cut(written.begin(), written.begin() + static_cast<ptrdiff_t>(length));
            expect_none(ovra::first_of_utf8({cut.data(), cut.size()}));
            expect_none(ovra::first_of_utf8(written.substr(0, length) + "xxx"));
        }
    }
}

TEST(utf8, longer_forms_than_the_shortest_are_none)
{
    for (const char *overlong : {"\xc0\x80", "\xc0\xaf", "\xc1\xbf", "\xe0\x80\x80", "\xe0\x9f\xbf",
                                 "\xf0\x80\x80\x80", "\xf0\x8f\xbf\xbf"})
        expect_none(ovra::first_of_utf8(overlong));
}

TEST(utf8, what_lies_beyond_unicode_is_none)
{
    for (const char *text : {"\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xf7\xbf\xbf\xbf",
                             "\xf8\x88\x80\x80\x80", "\xfc\x84\x80\x80\x80\x80", "\xfe", "\xff"})
        expect_none(ovra::first_of_utf8(text));
}

TEST(utf8, lone_surrogates_are_none)
{
    for (const char *text :
         {"\xed\xa0\x80", "\xed\xaf\xbf", "\xed\xb0\x80", "\xed\xbf\xbf", "\xed\xa0\x80\xed\xb0\x80"})
        expect_none(ovra::first_of_utf8(text));
}

TEST(utf8, byte_that_only_continues_is_none)
{
    for (int byte = 0x80; byte < 0xc0; ++byte)
        expect_none(ovra::first_of_utf8(std::string(4, static_cast<char>(byte))));
}

TEST(utf16, every_character_is_written_and_read_back)
{
    for (char32_t c = 0; c <= last; ++c)
        if (!ovra::is_surrogate(c) && !is_written_and_read_as_units(c))
            FAIL() << uint32_t{c};
    const ovra::utf16_character face(0x1f600);
    EXPECT_EQ(face.view()[0], 0xd83d);
    EXPECT_EQ(face.view()[1], 0xde00);
}

TEST(utf16, surrogate_without_its_partner_is_none)
{
    for (uint16_t high = 0xd800; high < 0xdc00; ++high) {
        expect_none(first_of_units({high}));
        expect_none(first_of_units({high, 'x'}));
        expect_none(first_of_units({high, 0}));
        expect_none(first_of_units({high, high}));
    }
    for (uint32_t low = 0xdc00; low < 0xe000; ++low) {
        expect_none(first_of_units({static_cast<uint16_t>(low)}));
        expect_none(first_of_units({static_cast<uint16_t>(low), 0xdc00}));
    }
}

TEST(utf16, odd_last_byte_is_no_unit)
{
    const std::vector<uint8_t> bytes = {0x3d, 0xd8, 0x00};
    EXPECT_EQ(ovra::unit_count(bytes), 1U);
    expect_none(ovra::first_of_utf16(bytes)); // the partner's second half is missing
    EXPECT_EQ(ovra::unit_count(ovra::byte_view(bytes).first(1)), 0U);
    EXPECT_EQ(ovra::unit_count({}), 0U);
}

TEST(utf16, units_stand_at_any_address)
{
    const uint8_t bytes[] = {0xff, 0x3d, 0xd8, 0x00, 0xde};
    const ovra::decoded_character read = ovra::first_of_utf16(ovra::byte_view(bytes).subspan(1));
    EXPECT_TRUE(read.valid);
    EXPECT_EQ(read.character, 0x1f600U);
}

TEST(terminated_units, end_with_the_first_zero_unit)
{
    const std::vector<uint8_t> bytes = {'A', 0, 0, 1, 0, 0, 'B', 0, 0, 0};
    EXPECT_EQ(ovra::terminated_units(bytes).size(), 6U); // a zero across two units is none
    EXPECT_EQ(ovra::terminated_units(bytes).data(), bytes.data());
    EXPECT_EQ(ovra::terminated_units(ovra::byte_view(bytes).first(4)).size(), 0U);
    EXPECT_EQ(ovra::terminated_units(ovra::byte_view(bytes).first(5)).size(), 0U); // half a terminator
    EXPECT_EQ(ovra::terminated_units(ovra::byte_view(bytes).subspan(4)).size(), 2U);
    EXPECT_TRUE(ovra::terminated_units({}).empty());
}
