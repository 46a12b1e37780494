// SPDX-License-Identifier: MIT
// Load options: what is written is read back, and a variable cut off anywhere has only the parts that lie in
// it.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "src/base/load_option.h"

namespace {

using bytes = std::vector<uint8_t>;

constexpr uint16_t description[] = {'L', 'i', 'n', 'u', 'x', 0};
constexpr uint8_t path[] = {0x7f, 0xff, 0x04, 0x00};
constexpr uint8_t optional_data[] = {1, 2, 3};

// As UEFI lays it out.
const bytes sample = {0x09, 0x01, 0x00, 0x00, 0x04, 0x00, 'L',  0,    'i',  0,    'n',  0,   'u',
                      0,    'x',  0,    0,    0,    0x7f, 0xff, 0x04, 0x00, 0x01, 0x02, 0x03};
constexpr size_t header_end = 6;
constexpr size_t description_end = header_end + sizeof description;
constexpr size_t path_end = description_end + sizeof path;

ovra::load_option_parts parts()
{
    return {0x109, ovra::bytes_of_units(description), path, optional_data};
}

bytes copy(ovra::byte_view view)
{
    return {view.begin(), view.end()};
}

} // namespace

TEST(load_option, is_written_as_uefi_lays_it_out)
{
    bytes variable(ovra::stored_size(parts()));
    ASSERT_TRUE(ovra::write_load_option(parts(), variable));
    EXPECT_EQ(variable, sample);
}

TEST(load_option, is_not_written_where_there_is_no_room)
{
    for (size_t size = 0; size < sample.size(); ++size) {
        bytes variable(size, 0x5a);
        EXPECT_FALSE(ovra::write_load_option(parts(), variable)) << size;
        EXPECT_EQ(variable, bytes(size, 0x5a)) << size;
    }
    bytes larger(sample.size() + 2, 0x5a);
    ASSERT_TRUE(ovra::write_load_option(parts(), larger));
    EXPECT_EQ(copy(ovra::byte_view(larger).first(sample.size())), sample);
    EXPECT_EQ(larger.back(), 0x5a);
}

TEST(load_option, empty_parts_take_no_bytes)
{
    constexpr uint16_t terminator[] = {0};
    const ovra::load_option_parts bare = {1, ovra::bytes_of_units(terminator), {}, {}};
    bytes variable(ovra::stored_size(bare));
    ASSERT_TRUE(ovra::write_load_option(bare, variable));
    EXPECT_EQ(variable, bytes({1, 0, 0, 0, 0, 0, 0, 0}));
    const auto read = ovra::split_load_option(variable);
    ASSERT_TRUE(read && read->is_whole());
    EXPECT_EQ(read->description.size(), 2U);
    EXPECT_TRUE(read->path.empty());
    EXPECT_TRUE(read->optional_data.empty());
}

TEST(load_option, length_of_a_path_of_more_than_16_bits_is_cut)
{
    const bytes long_path(UINT16_MAX + 3, 0x5a);
    const ovra::load_option_parts large = {1, ovra::bytes_of_units(description), long_path, {}};
    bytes variable(ovra::stored_size(large));
    ASSERT_TRUE(ovra::write_load_option(large, variable));
    EXPECT_EQ(variable.size(), description_end + long_path.size());
    EXPECT_EQ(variable[4], 2);
    EXPECT_EQ(variable[5], 0);
}

TEST(load_option, parts_lie_where_they_were_written)
{
    const auto read = ovra::split_load_option(sample);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->is_whole());
    EXPECT_EQ(read->attributes, 0x109U);
    EXPECT_EQ(read->path_length, sizeof path);
    EXPECT_EQ(copy(read->description), copy(ovra::bytes_of_units(description)));
    EXPECT_EQ(copy(read->path), bytes(std::begin(path), std::end(path)));
    EXPECT_EQ(copy(read->optional_data), bytes(std::begin(optional_data), std::end(optional_data)));
}

TEST(load_option, cut_off_anywhere_has_only_the_parts_that_lie_in_it)
{
    for (size_t size = 0; size <= sample.size(); ++size) {
        // A block of its own, so that a byte read beyond it is noticed.
        const bytes variable(sample.begin(), sample.begin() + static_cast<ptrdiff_t>(size));
        const auto read = ovra::split_load_option(variable);
        ASSERT_EQ(read.has_value(), size >= header_end) << size;
        if (!read)
            continue;
        EXPECT_EQ(read->attributes, 0x109U);
        EXPECT_EQ(read->has_description(), size >= description_end) << size;
        EXPECT_EQ(read->is_whole(), size >= path_end) << size;
        EXPECT_EQ(read->path.size(), size >= path_end ? sizeof path : 0) << size;
        EXPECT_EQ(read->optional_data.size(), size >= path_end ? size - path_end : 0) << size;
    }
}

TEST(load_option, path_that_claims_more_than_there_is_is_none)
{
    for (const uint16_t claimed : std::initializer_list<uint16_t>{8, 9, 0x100, 0xffff}) {
        bytes variable = sample;
        variable[4] = static_cast<uint8_t>(claimed);
        variable[5] = static_cast<uint8_t>(claimed >> 8);
        const auto read = ovra::split_load_option(variable);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->path_length, claimed);
        EXPECT_FALSE(read->is_whole());
        EXPECT_TRUE(read->path.empty());
        EXPECT_TRUE(read->optional_data.empty());
    }
    bytes variable = sample;
    variable[4] = 7; // all that is left
    EXPECT_TRUE(ovra::split_load_option(variable)->is_whole());
    EXPECT_TRUE(ovra::split_load_option(variable)->optional_data.empty());
}

TEST(load_option, description_without_a_terminator_leaves_no_other_part)
{
    const bytes unterminated = {1, 0, 0, 0, 0, 0, 'x', 0, 'y', 0, 0};
    const auto read = ovra::split_load_option(unterminated);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->has_description());
    EXPECT_FALSE(read->is_whole()); // though the path has no bytes
}

TEST(option_name, is_boot_and_four_digits)
{
    for (unsigned number = 0; number <= UINT16_MAX; ++number) {
        char printed[16];
        snprintf(printed, sizeof printed, "Boot%04X", number);
        const ovra::option_name name(static_cast<uint16_t>(number));
        ASSERT_STREQ(name, printed);
        ASSERT_EQ(ovra::option_number(name.view()), number);
    }
}

TEST(option_name, is_read_in_that_form_alone)
{
    for (const char *other :
         {"", "Boot", "Boot001", "Boot00011", "boot0001", "BOOT0001", "Boot000a", "Boot 001", "Boot+001",
          "Boot0x01", "Boot001G", "Boot001:", "Boot001@", " Boot001", "\xc3\x84oot0001"})
        EXPECT_FALSE(ovra::option_number(other)) << other;
    EXPECT_FALSE(ovra::option_number(std::string("Boot001\0", 8)));
    EXPECT_FALSE(ovra::option_number(std::string("Boot0001\0", 9)));
    for (int c = 0; c < 256; ++c) {
        std::string name = "Boot0001";
        name[6] = static_cast<char>(c);
        EXPECT_EQ(ovra::option_number(name).has_value(), (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))
            << c;
    }
}
