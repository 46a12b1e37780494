// SPDX-License-Identifier: MIT
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::in_attributes;
using platform_test::machine_folder;
using platform_test::reset;
namespace fs = std::filesystem;

namespace {

std::string numbers(std::initializer_list<unsigned> options)
{
    std::string bytes;
    for (unsigned option : options) {
        bytes.push_back(static_cast<char>(option & 0xff));
        bytes.push_back(static_cast<char>(option >> 8));
    }
    return bytes;
}

class machine_reset : public testing::Test {
protected:
    machine_folder disk;
    device opened;

    void put_option(std::string_view name, UINT32 attributes = 1) const
    {
        disk.put(name, in_attributes(attributes) + std::string("\4\0d\0\0\0\x7f\xff\4\0", 10));
    }
    void expect_current(std::initializer_list<unsigned> options) const
    {
        EXPECT_EQ(disk.get("BootCurrent"), in_attributes(6) + numbers(options));
    }
};

TEST_F(machine_reset, takes_the_first_active_option_of_the_order)
{
    put_option("Boot0001", 0);
    put_option("Boot001F");
    put_option("Boot0003");
    disk.put("BootOrder", numbers({1, 0x1f, 3}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({0x1f});
}

TEST_F(machine_reset, takes_boot_next_and_deletes_it)
{
    put_option("Boot0001");
    put_option("Boot0002");
    disk.put("BootOrder", numbers({1}));
    disk.put("BootNext", numbers({2}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_WARM), 0);
    expect_current({2});
    EXPECT_EQ(disk.get("BootNext"), "(none)");
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_WARM), 0);
    expect_current({1});
}

// As OVMF does: only options of the order must be active.
TEST_F(machine_reset, boot_next_starts_an_inactive_option_too)
{
    put_option("Boot0001");
    put_option("Boot0002", 0);
    disk.put("BootOrder", numbers({1}));
    disk.put("BootNext", numbers({2}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({2});
    EXPECT_EQ(disk.get("BootNext"), "(none)");
}

TEST_F(machine_reset, every_kind_plays_the_next_start)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    for (int type : {EFI_RESET_COLD, EFI_RESET_WARM, EFI_RESET_SHUTDOWN}) {
        fs::remove(disk.file("BootCurrent"));
        EXPECT_EQ(reset(opened.fd(), type), 0);
        expect_current({1});
    }
}

TEST_F(machine_reset, option_numbers_are_four_upper_case_digits)
{
    put_option("BootABCD");
    put_option("Bootabce");
    disk.put("BootOrder", numbers({0xabce, 0xabcd}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({0xabcd});
}

TEST_F(machine_reset, boot_next_that_cannot_be_started_is_spent_all_the_same)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    for (const std::string &next : {numbers({9}), numbers({1, 2}), std::string("\1", 1)}) {
        disk.put("BootNext", next);
        EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
        expect_current({1});
        EXPECT_EQ(disk.get("BootNext"), "(none)");
    }
    disk.put_file(disk.file("BootNext"), "12");
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_EQ(disk.get("BootNext"), "(none)");
}

TEST_F(machine_reset, passes_over_options_that_are_missing_or_damaged)
{
    put_option("Boot0005");
    disk.put("Boot0002", std::string("\1\0\0\0\4", 5));
    disk.put_file(disk.file("Boot0003"), "12");
    fs::create_directory(disk.file("Boot0004"));
    disk.put("BootOrder", numbers({1, 2, 3, 4, 5}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({5});
}

TEST_F(machine_reset, without_anything_to_start_there_is_no_boot_current)
{
    disk.put("BootCurrent", numbers({7}), 6);
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_EQ(disk.get("BootCurrent"), "(none)");
    disk.put("BootOrder", numbers({1}));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_EQ(disk.get("BootCurrent"), "(none)");
}

TEST_F(machine_reset, half_a_number_at_the_end_of_the_order_is_not_read)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({9}) + "\1");
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_EQ(disk.get("BootCurrent"), "(none)");
}

TEST_F(machine_reset, boot_current_is_rewritten_whatever_its_attributes_were)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    disk.put("BootCurrent", numbers({7}), 7);
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({1});
}

TEST_F(machine_reset, full_store_does_not_stop_a_start)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    disk.put_file(disk.state("capacity"), "1 1\n");
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    expect_current({1});
}

TEST_F(machine_reset, other_variables_are_left_alone)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    disk.put("Volatile", "data", 6);
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_NE(disk.get("Volatile"), "(none)");
    EXPECT_EQ(disk.names().size(), 4u);
}

TEST_F(machine_reset, data_and_status_of_the_record_are_not_looked_at)
{
    put_option("Boot0001");
    disk.put("BootOrder", numbers({1}));
    ovra_reset_system_args_t args = {};
    args.data_size = ~UINTN{0};
    args.reset_status = EFI_DEVICE_ERROR;
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_RESET_SYSTEM, &args), 0);
    expect_current({1});
}

TEST_F(machine_reset, that_fails_keeps_boot_next_for_another_try)
{
    put_option("Boot0001");
    disk.put("BootNext", numbers({1}));
    fs::create_directory(disk.file("BootCurrent"));
    EXPECT_EQ(reset(opened.fd(), EFI_RESET_COLD), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_NE(disk.get("BootNext"), "(none)");
}

} // namespace
