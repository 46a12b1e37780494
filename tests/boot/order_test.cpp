// SPDX-License-Identifier: MIT
// Reading BootOrder, and taking options out of it.
#include <algorithm>
#include <climits>

#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootorder : open_handle {
    using open_handle::hdl;
};

struct remove_case {
    const char *name;
    const char *order;
    const char *option;
    const char *result; // null: the variable is gone
};

constexpr remove_case removals[] = {
    {"remove_takes_out_the_entry", one_two_three, "Boot0002", "01 00 03 00"},
    {"remove_takes_out_every_entry", "02 00 01 00 02 00 02 00", "Boot0002", "01 00"},
    {"remove_keeps_other_duplicates", "01 00 02 00 01 00", "Boot0002", "01 00 01 00"},
    {"remove_ignores_an_odd_last_byte", "01 00 02 00 03", "Boot0002", "01 00"},
    {"remove_reads_the_name_loosely", one_two_three, "bOOt3", "01 00 02 00"},
    {"kept_remove_of_an_absent_number_rewrites_the_order", one_two_three, "Boot0004", one_two_three},
    {"kept_remove_of_the_only_entry_writes_an_empty_order", "02 00", "Boot0002", nullptr},
    {"kept_remove_writes_an_order_of_one_byte_empty", "02", "Boot0002", nullptr},
};

void check_remove(bootorder &test, const remove_case &row)
{
    expect_errors("", [&] {
        fakes::put_variable("BootOrder", from_hex(row.order));
        fakes::forget_requests();
        EXPECT_EQ(ovra_bootorder_remove(test.hdl, arg(row.option)), 0);
        EXPECT_EQ(stored("BootOrder"), row.result ? hex(row.result) : "none");
        ASSERT_EQ(fakes::requests_of(OVRA_SET_VARIABLE), 1U);
        EXPECT_EQ(to_hex(fakes::requests().back().data), row.result ? hex(row.result) : "");
        EXPECT_EQ(fakes::requests().back().data_size, from_hex(row.result ? row.result : "").size());
    });
}

const bool removals_registered = register_rows("bootorder", removals, check_remove, __FILE__, __LINE__);

// The routines that read BootOrder and answer from it, or change it, seen alike.
struct reader {
    const char *what;
    int (*call)(ovra_hdl_t);
};

constexpr reader readers[] = {
    {"insert", [](ovra_hdl_t hdl) { return ovra_bootorder_insert(hdl, arg("Boot0002"), 0); }},
    {"remove", [](ovra_hdl_t hdl) { return ovra_bootorder_remove(hdl, arg("Boot0002")); }},
    {"get_position",
     [](ovra_hdl_t hdl) {
         int position = -5;
         const int result = ovra_bootorder_get_position(hdl, arg("Boot0002"), &position);
         EXPECT_TRUE(result == 0 || position == -5);
         return result;
     }},
    {"get_bootname",
     [](ovra_hdl_t hdl) {
         char *name = nullptr;
         const int result = ovra_bootorder_get_bootname(hdl, 0, &name);
         EXPECT_TRUE(result == 0 || !name);
         return result;
     }},
};

TEST_F(bootorder, order_of_all_numbers)
{
    numbers order(65536);
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = static_cast<uint16_t>(i);
    put_order(order);
    int position = 0;
    EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("BootFFFF"), &position), 0);
    EXPECT_EQ(position, 65535);
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("BootFFFF"), 0), 0);
    EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0000")), 0);
    order.erase(order.begin());
    order.pop_back();
    order.insert(order.begin(), 0xffff);
    EXPECT_EQ(stored("BootOrder"), hex_order(order));
}

TEST_F(bootorder, order_is_sized_and_then_read)
{
    for (const reader &one : readers) {
        SCOPED_TRACE(one.what);
        put_order({2, 1});
        fakes::forget_requests();
        EXPECT_EQ(one.call(hdl), 0);
        ASSERT_GE(fakes::requests().size(), 2U);
        const auto &sizing = fakes::requests()[0];
        EXPECT_EQ(sizing.command, OVRA_GET_VARIABLE);
        EXPECT_EQ(sizing.name.narrow(), "BootOrder");
        EXPECT_EQ(memcmp(&*sizing.guid, &fakes::global_guid, sizeof(EFI_GUID)), 0);
        EXPECT_EQ(sizing.data_size, 0U);
        EXPECT_EQ(sizing.data_address, nullptr);
        EXPECT_EQ(fakes::requests()[1].command, OVRA_GET_VARIABLE);
        EXPECT_EQ(fakes::requests()[1].data_size, 4U);
    }
}

TEST_F(bootorder, order_that_cannot_be_sized_is_not_written_over)
{
    put_order({1, 2});
    for (const EFI_STATUS status : failures) {
        if (status == EFI_NOT_FOUND || status == EFI_BUFFER_TOO_SMALL)
            continue;
        for (const reader &one : readers) {
            SCOPED_TRACE(one.what + hex_status(status));
            expect_errors(unreadable, [&] {
                fakes::answer_call(0, status);
                EXPECT_EQ(one.call(hdl), -1);
            });
        }
    }
    EXPECT_EQ(fakes::requests_of(OVRA_SET_VARIABLE), 0U);
}

TEST_F(bootorder, order_that_cannot_be_read_is_not_written_over)
{
    put_order({1, 2});
    for (const EFI_STATUS status : failures)
        for (const reader &one : readers) {
            SCOPED_TRACE(one.what + hex_status(status));
            expect_errors(unreadable, [&] {
                fakes::answer_call(1, status);
                EXPECT_EQ(one.call(hdl), -1);
            });
        }
    EXPECT_EQ(fakes::requests_of(OVRA_SET_VARIABLE), 0U);
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootorder, failing_requests_are_an_order_that_cannot_be_read)
{
    put_order({1, 2});
    for (unsigned call = 0; call < 2; ++call)
        for (const reader &one : readers) {
            SCOPED_TRACE(one.what);
            expect_errors(unreadable, [&] {
                fakes::fail_call(call, EIO);
                EXPECT_EQ(one.call(hdl), -1);
            });
        }
    EXPECT_EQ(fakes::requests_of(OVRA_SET_VARIABLE), 0U);
}

TEST_F(bootorder, absent_driver_is_an_order_that_cannot_be_read)
{
    fakes::set_absent(ENOENT);
    for (const reader &one : readers) {
        SCOPED_TRACE(one.what);
        expect_errors(unreadable, [&] { EXPECT_EQ(one.call(nullptr), -1); });
    }
}

TEST_F(bootorder, null_handle_opens_the_driver_for_each_request)
{
    for (const reader &one : readers) {
        put_order({2, 1});
        if (std::string(one.what) == "get_bootname")
            continue; // hands out a block; below
        EXPECT_EQ(one.call(nullptr), 0);
    }
    char *name = nullptr;
    EXPECT_EQ(ovra_bootorder_get_bootname(nullptr, 1, &name), 0);
    EXPECT_STREQ(name, "Boot0001");
    memlist_free(nullptr, name);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

TEST_F(bootorder, order_that_grew_meanwhile_cannot_be_read)
{
    for (const reader &one : readers) {
        SCOPED_TRACE(one.what);
        put_order({2, 1});
        fakes::before_each([](const fakes::request &seen) {
            if (seen.data_size != 0U)
                put_order({2, 1, 3});
        });
        const messages said(1, 0);
        EXPECT_EQ(one.call(hdl), -1);
        EXPECT_EQ(said.text(), unreadable);
        EXPECT_EQ(stored("BootOrder"), hex_order({2, 1, 3}));
    }
}

TEST_F(bootorder, order_that_shrank_meanwhile_has_its_new_size)
{
    auto shrink_when_read = [](const fakes::request &seen) {
        if (seen.command == OVRA_GET_VARIABLE && seen.data_size != 0U)
            put_order({1, 2});
    };
    fakes::before_each(shrink_when_read);
    put_order({1, 2, 3, 4});
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0005"), -1), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2, 5}));
    put_order({1, 2, 3, 4});
    EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0003")), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2}));
    put_order({1, 2, 3, 4});
    int position = 0;
    EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0003"), &position), -1);
    put_order({1, 2, 3, 4});
    char *name = nullptr;
    EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 2, &name), -1);
}

TEST_F(bootorder, size_beyond_the_buffer_is_not_believed)
{
    put_order({1, 2});
    fakes::before_each([](const fakes::request &seen) {
        if (seen.command != OVRA_GET_VARIABLE || seen.data_size == 0U)
            return;
        ovra_variable_args_t args;
        memcpy(&args, seen.record.data(), sizeof args);
        memcpy(args.data, "\1\0\2\0", 4);
        *args.data_size = SIZE_MAX;
    });
    fakes::answer_call(1, EFI_SUCCESS);
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), -1), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2, 3}));
}

TEST_F(bootorder, order_that_cannot_be_written)
{
    put_order({1, 2});
    for (const EFI_STATUS status : failures) {
        SCOPED_TRACE(hex_status(status));
        fakes::answer_command(OVRA_SET_VARIABLE, status);
        expect_errors("unable to set BootOrder: " + hex_status(status) + "\n",
                      [&] { EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 0), -1); });
        expect_errors("unable to set BootOrder\n",
                      [&] { EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0001")), -1); });
    }
    fakes::fail_command(OVRA_SET_VARIABLE, EIO);
    expect_errors("unable to set BootOrder: 800000000000000f\n",
                  [&] { EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 0), -1); });
    expect_errors("unable to set BootOrder\n",
                  [&] { EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0001")), -1); });
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2}));
}

TEST_F(bootorder, kept_remove_from_a_missing_order_succeeds_and_says_so)
{
    expect_errors(no_order, [&] { EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0001")), 0); });
    EXPECT_EQ(fakes::requests_of(OVRA_SET_VARIABLE), 0U);
}

TEST_F(bootorder, position_and_name_need_an_order)
{
    int position = -5;
    char *name = nullptr;
    expect_errors(no_order,
                  [&] { EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0001"), &position), -1); });
    expect_errors(no_order, [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 0, &name), -1); });
    EXPECT_EQ(position, -5);
    EXPECT_EQ(name, nullptr);
}

TEST_F(bootorder, position_is_the_first_one)
{
    put_order({5, 7, 6, 7});
    int position = -5;
    for (const auto &[name, expected] : {std::pair("Boot0005", 0), {"Boot0007", 1}, {"Boot0006", 2}}) {
        EXPECT_EQ(ovra_bootorder_get_position(hdl, arg(name), &position), 0);
        EXPECT_EQ(position, expected);
    }
}

TEST_F(bootorder, position_of_an_absent_number_fails_silently)
{
    fakes::put_variable("BootOrder", from_hex("05 00 07 00 06"));
    int position = -5;
    for (const char *absent : {"Boot0001", "Boot0006"})
        expect_errors("", [&] { EXPECT_EQ(ovra_bootorder_get_position(hdl, arg(absent), &position), -1); });
    fakes::put_variable("BootOrder", {});
    expect_errors("", [&] { EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0005"), &position), -1); });
    EXPECT_EQ(position, -5);
}

TEST_F(bootorder, name_at_a_position_has_four_upper_case_digits)
{
    put_order({0x1f, 0, 0xabcd, 0xffff});
    const char *expected[] = {"Boot001F", "Boot0000", "BootABCD", "BootFFFF"};
    for (int position = 0; position < 4; ++position) {
        char *name = nullptr;
        ASSERT_EQ(ovra_bootorder_get_bootname(hdl, position, &name), 0);
        EXPECT_STREQ(name, expected[position]);
        EXPECT_TRUE(is_tracked(hdl, name));
    }
    EXPECT_EQ(tracked_blocks(hdl), 4U);
}

TEST_F(bootorder, position_outside_the_order_has_no_name)
{
    put_order({1, 2, 3});
    char *name = nullptr;
    for (const int position : {3, 4, -1, INT_MAX, INT_MIN})
        expect_errors("index position " + std::to_string(position) + " out of range.  size is 3\n",
                      [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, position, &name), -1); });
    fakes::put_variable("BootOrder", {1, 0, 2});
    expect_errors("index position 1 out of range.  size is 1\n",
                  [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 1, &name), -1); });
    fakes::put_variable("BootOrder", {});
    expect_errors("index position 0 out of range.  size is 0\n",
                  [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 0, &name), -1); });
    EXPECT_EQ(name, nullptr);
}

TEST_F(bootorder, without_memory_remove_leaves_the_order)
{
    const std::string said[] = {unreadable, "unable to malloc boot_num\n", unreadable,
                                "unable to set BootOrder\n"};
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            put_order({1, 2});
            return ovra_bootorder_remove(handle, arg("Boot0002"));
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 4);
            EXPECT_EQ(one.messages.empty(), one.refused == 0);
            // When the sizing has no memory, neither has the buffer of no bytes behind it.
            if (one.refused == 1 || one.n > 0) {
                EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
            }
            EXPECT_EQ(stored("BootOrder"), one.refused == 0 ? hex_order({1}) : hex_order({1, 2}));
        });
}

TEST_F(bootorder, without_memory_there_is_no_position)
{
    const std::string said[] = {unreadable, "unable to malloc boot_order\n", unreadable};
    put_order({1, 2});
    int position = -5;
    for_each_refused_allocation(
        [&](ovra_hdl_t handle) {
            position = -5;
            return ovra_bootorder_get_position(handle, arg("Boot0002"), &position);
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 3);
            EXPECT_EQ(one.messages.empty(), one.refused == 0);
            if (one.refused == 1 || one.n > 0) {
                EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
            }
            EXPECT_EQ(position, one.refused == 0 ? 1 : -5);
        });
}

TEST_F(bootorder, without_memory_there_is_no_name)
{
    const std::string said[] = {unreadable, "unable to malloc boot_num\n", unreadable, "", ""};
    put_order({1, 2});
    char *name = nullptr;
    for_each_refused_allocation(
        [&](ovra_hdl_t handle) {
            name = nullptr;
            const int result = ovra_bootorder_get_bootname(handle, 1, &name);
            EXPECT_EQ(name ? std::string(name) : "", result == 0 ? "Boot0002" : "");
            return result;
        },
        [&](const attempt &one) {
            ASSERT_LE(one.n, 5);
            if (one.refused == 1 || one.n > 0) {
                EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
            }
        });
}

} // namespace
