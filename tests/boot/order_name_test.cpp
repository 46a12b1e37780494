// SPDX-License-Identifier: MIT
// How the routines of BootOrder and BootNext read an option's name.
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootorder_name : open_handle {
    using open_handle::hdl;
};

struct loose_case {
    const char *name;
    const char *option;
    int number; // -1: no name of an option
};

constexpr loose_case loose[] = {
    {"of_one_digit_in_lower_case", "boot1", 0x0001},
    {"of_four_digits", "Boot00FF", 0x00ff},
    {"with_digits_in_lower_case", "Bootabcd", 0xabcd},
    {"all_in_upper_case", "BOOT00FF", 0x00ff},
    {"with_text_behind", "Boot1F and more", 0x001f},
    {"with_a_prefix", "Boot0x1F", 0x001f},
    {"with_more_than_four_digits_is_cut_to_16_bits", "Boot12345", 0x2345},
    {"with_zeros_in_front", "Boot000000001", 0x0001},
    {"without_a_number_is_refused", "Boot", -1},
    {"with_no_digit_is_refused", "BootOrder", -1},
    {"cut_short_is_refused", "Boo", -1},
    {"empty_name_is_refused", "", -1},
    {"of_something_else_is_refused", "Disk0001", -1},
    {"number_alone_is_refused", "0001", -1},
    {"with_text_in_front_is_refused", "xBoot0001", -1},
};

// Each routine that reads a name so: silent when it cannot, and before it asks the firmware anything.
void check_loose(bootorder_name &test, const loose_case &row)
{
    int position = -5;
    if (row.number < 0) {
        put_order({1, 2, 3});
        expect_errors("", [&] {
            EXPECT_EQ(ovra_bootorder_insert(test.hdl, arg(row.option), 0), -1);
            EXPECT_EQ(ovra_bootorder_remove(test.hdl, arg(row.option)), -1);
            EXPECT_EQ(ovra_bootorder_get_position(test.hdl, arg(row.option), &position), -1);
            EXPECT_EQ(ovra_bootnext_set(test.hdl, arg(row.option)), -1);
        });
        EXPECT_EQ(position, -5);
        EXPECT_TRUE(fakes::requests().empty());
        return;
    }
    const auto number = static_cast<uint16_t>(row.number);
    put_order({7, 8});
    EXPECT_EQ(ovra_bootorder_insert(test.hdl, arg(row.option), 1), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({7, number, 8}));
    EXPECT_EQ(ovra_bootorder_get_position(test.hdl, arg(row.option), &position), 0);
    EXPECT_EQ(position, 1);
    EXPECT_EQ(ovra_bootorder_remove(test.hdl, arg(row.option)), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({7, 8}));
    EXPECT_EQ(ovra_bootnext_set(test.hdl, arg(row.option)), 0);
    EXPECT_EQ(stored("BootNext"), hex_order({number}));
}

const bool loose_registered = register_rows("bootorder_name", loose, check_loose, __FILE__, __LINE__);

} // namespace
