// SPDX-License-Identifier: MIT
// Putting options into BootOrder.
#include <algorithm>
#include <climits>
#include <random>

#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootorder_insert : open_handle {
    using open_handle::hdl;
};

struct insert_case {
    const char *name;
    const char *order; // bytes; null: no BootOrder
    const char *option;
    int position;
    const char *result;
};

constexpr insert_case inserts[] = {
    {"at_0_moves_to_the_front", one_two_three, "Boot0002", 0, "02 00 01 00 03 00"},
    {"at_minus_1_moves_to_the_end", one_two_three, "Boot0002", -1, "01 00 03 00 02 00"},
    {"beyond_the_end_moves_to_the_end", one_two_three, "Boot0002", 10, "01 00 03 00 02 00"},
    {"far_before_the_front_moves_to_the_front", one_two_three, "Boot0002", -10, "02 00 01 00 03 00"},
    {"at_1_goes_before_the_second", one_two_three, "Boot0004", 1, "01 00 04 00 02 00 03 00"},
    {"at_the_count_appends", one_two_three, "Boot0004", 3, "01 00 02 00 03 00 04 00"},
    {"at_minus_2_goes_before_the_last", one_two_three, "Boot0004", -2, "01 00 02 00 04 00 03 00"},
    {"at_minus_the_count_goes_behind_the_first", one_two_three, "Boot0004", -3, "01 00 04 00 02 00 03 00"},
    {"at_minus_the_count_and_1_goes_to_the_front", one_two_three, "Boot0004", -4, "04 00 01 00 02 00 03 00"},
    {"at_the_largest_position_appends", one_two_three, "Boot0004", INT_MAX, "01 00 02 00 03 00 04 00"},
    {"at_the_least_position_goes_to_the_front", one_two_three, "Boot0004", INT_MIN,
     "04 00 01 00 02 00 03 00"},
    {"where_it_is_changes_nothing", one_two_three, "Boot0002", 1, one_two_three},
    {"counts_without_the_old_place", one_two_three, "Boot0001", 1, "02 00 01 00 03 00"},
    {"counts_from_the_end_with_the_old_place", one_two_three, "Boot0002", -2, "01 00 03 00 02 00"},
    {"leaves_one_of_two", "02 00 01 00 02 00 03 00", "Boot0002", 1, "01 00 02 00 03 00"},
    {"leaves_one_of_many", "02 00 02 00 02 00", "Boot0002", 2, "02 00"},
    {"keeps_other_duplicates", "01 00 01 00 03 00", "Boot0002", -1, "01 00 01 00 03 00 02 00"},
    {"into_a_missing_order_at_0", nullptr, "Boot0002", 0, "02 00"},
    {"into_a_missing_order_at_5", nullptr, "Boot0002", 5, "02 00"},
    {"into_a_missing_order_at_minus_5", nullptr, "Boot0002", -5, "02 00"},
    {"into_an_empty_order", "", "BootABCD", 3, "cd ab"},
    {"ignores_an_odd_last_byte", "01 00 02 00 03", "Boot0004", -1, "01 00 02 00 04 00"},
    {"into_an_order_of_one_byte", "01", "Boot0004", -1, "04 00"},
    {"reads_the_name_loosely", one_two_three, "boot2 and more", 0, "02 00 01 00 03 00"},
};

void check_insert(bootorder_insert &test, const insert_case &row)
{
    expect_errors("", [&] {
        fakes::remove_variable("BootOrder");
        if (row.order)
            fakes::put_variable("BootOrder", from_hex(row.order));
        EXPECT_EQ(ovra_bootorder_insert(test.hdl, arg(row.option), row.position), 0);
        EXPECT_EQ(stored("BootOrder"), hex(row.result));
    });
    EXPECT_EQ(fakes::variable_attributes("BootOrder"), 7U);
    EXPECT_EQ(fakes::variable_count(), 1U);
    EXPECT_EQ(tracked_blocks(test.hdl), 0U);
}

const bool inserts_registered = register_rows("bootorder_insert", inserts, check_insert, __FILE__, __LINE__);

TEST_F(bootorder_insert, agrees_with_the_plain_way)
{
    std::mt19937 random(2);
    auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 4000; ++round) {
        numbers order(below(12));
        for (uint16_t &entry : order)
            entry = static_cast<uint16_t>(below(6));
        const auto number = static_cast<uint16_t>(below(7));
        const int position = static_cast<int>(below(30)) - 15;

        numbers expected;
        std::copy_if(order.begin(), order.end(), std::back_inserter(expected),
                     [&](uint16_t entry) { return entry != number; });
        const int from_front =
            position >= 0 ? position : std::max(static_cast<int>(order.size()) + position + 1, 0);
        expected.insert(expected.begin() + std::min(from_front, static_cast<int>(expected.size())), number);

        put_order(order);
        ASSERT_EQ(ovra_bootorder_insert(hdl, arg(boot_name(number).c_str()), position), 0);
        ASSERT_EQ(stored("BootOrder"), hex_order(expected))
            << hex_order(order) << " number " << number << " position " << position;
    }
}

TEST_F(bootorder_insert, kept_trace_of_the_new_count_ends_in_a_0)
{
    expect_traces("i = 4 elem = 0 \n", [&] {
        put_order({1, 2, 3});
        EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0004"), 1), 0);
    });
    expect_traces("i = 3 elem = 0 \n", [&] {
        put_order({1, 2, 3});
        EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 1), 0);
    });
}

TEST_F(bootorder_insert, making_a_new_order_is_not_traced)
{
    expect_traces("", [&] {
        fakes::remove_variable("BootOrder");
        EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0004"), 1), 0);
    });
}

TEST_F(bootorder_insert, new_order_that_cannot_be_written)
{
    for (const EFI_STATUS status : failures) {
        fakes::answer_command(OVRA_SET_VARIABLE, status);
        expect_errors("unable to write new BootOrder: " + hex_status(status) + "\n",
                      [&] { EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 0), -1); });
    }
    fakes::fail_command(OVRA_SET_VARIABLE, EIO);
    expect_errors("unable to write new BootOrder: 800000000000000f\n",
                  [&] { EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 0), -1); });
    EXPECT_EQ(stored("BootOrder"), "none");
}

TEST_F(bootorder_insert, order_that_is_larger_than_nothing_but_has_no_size_is_empty)
{
    fakes::answer_call(0, EFI_BUFFER_TOO_SMALL); // the size stays 0
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 7), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({3}));
}

TEST_F(bootorder_insert, without_memory_it_leaves_the_order)
{
    // The name's conversion, the buffer, the name's conversion, the new order, the name's conversion.
    const std::string said[] = {unreadable, unreadable, unreadable, unreadable,
                                "i = 3 elem = 0 \nunable to set BootOrder: 8000000000000002\n"};
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            put_order({1, 2});
            return ovra_bootorder_insert(handle, arg("Boot0003"), 0);
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 5);
            EXPECT_EQ(one.messages, one.refused == 0 ? "i = 3 elem = 0 \n" : said[one.n]);
            EXPECT_EQ(stored("BootOrder"), one.refused == 0 ? hex_order({3, 1, 2}) : hex_order({1, 2}));
        });
}

TEST_F(bootorder_insert, without_memory_it_makes_no_order)
{
    const std::string said[] = {unreadable, "unable to write new BootOrder: 8000000000000002\n"};
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            fakes::remove_variable("BootOrder");
            return ovra_bootorder_insert(handle, arg("Boot0003"), 0);
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 2);
            EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
            EXPECT_EQ(stored("BootOrder"), one.refused == 0 ? hex_order({3}) : "none");
        });
}

} // namespace
