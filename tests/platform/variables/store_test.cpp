// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "platform/machine/enumerate.h"
#include "platform/machine/services.h"
#include "platform/machine/store.h"
#include "platform/machine/variables.h"
#include "tests/platform/failing_calls.h"
#include "tests/platform/machine_folder.h"

using machine::stopped_writers;
using platform_test::calls_of;
using platform_test::environment;
using platform_test::global_suffix;
using platform_test::machine_folder;
using platform_test::wrapped;
namespace fs = std::filesystem;

namespace {

class variable_store : public testing::Test {
protected:
    machine_folder disk;
    std::unique_ptr<machine::runtime_services> services = machine::open_services();

    static std::string name(std::string_view variable)
    {
        return std::string(variable) + std::string(global_suffix);
    }
    [[nodiscard]] bool is_there(const std::string &file_name) const
    {
        bool found = false;
        EXPECT_EQ(machine::find_variable(*services, file_name, &found), EFI_SUCCESS);
        return found;
    }
    EFI_STATUS set(std::string_view variable, std::string_view data) const
    {
        const std::vector<CHAR16> units(variable.begin(), variable.end());
        return machine::set_variable(*services, units, platform_test::global_guid, 7, data.size(),
                                     data.data());
    }
    [[nodiscard]] UINT64 space_used() const
    {
        UINT64 used = 0;
        EXPECT_EQ(machine::space_used(*services, stopped_writers::leave, &used), EFI_SUCCESS);
        return used;
    }
    // By another thread, which has not the lock.
    [[nodiscard]] UINT64 counted_anew() const
    {
        UINT64 used = 0;
        std::thread([&] { used = space_used(); }).join();
        return used;
    }
    EFI_STATUS read(std::string_view variable, machine::stored_variable *found) const
    {
        return machine::read_variable(*services, name(variable), found);
    }
};

TEST_F(variable_store, file_is_attributes_and_data)
{
    disk.put("A", "data", 0x80000007);
    machine::stored_variable found;
    ASSERT_EQ(read("A", &found), EFI_SUCCESS);
    EXPECT_EQ(found.attributes, 0x80000007);
    EXPECT_EQ(found.data().size(), 4u);
    EXPECT_TRUE(is_there(name("A")));
}

TEST_F(variable_store, file_of_fewer_than_four_bytes_is_damaged)
{
    for (const char *contents : {"", "1", "12", "123"}) {
        disk.put_file(disk.file("A"), contents);
        machine::stored_variable found;
        EXPECT_EQ(read("A", &found), EFI_DEVICE_ERROR) << contents;
        EXPECT_FALSE(is_there(name("A")));
    }
}

TEST_F(variable_store, file_that_cannot_be_looked_at_is_not_absent)
{
    disk.put("A", "data");
    disk.put("B", "data");
    const platform_test::failing_call failing(platform_test::wrapped::fstatat, EIO);
    bool found = false;
    EXPECT_EQ(machine::find_variable(*services, name("A"), &found), EFI_DEVICE_ERROR);
    UINT64 used = 7;
    EXPECT_EQ(machine::space_used(*services, stopped_writers::leave, &used), EFI_DEVICE_ERROR);
    EXPECT_EQ(used, 7u);
    std::vector<CHAR16> text = {'A', 0, 0, 0};
    UINTN size = text.size() * sizeof(CHAR16);
    EFI_GUID guid = platform_test::global_guid;
    EXPECT_EQ(machine::next_variable(*services, &size, text.data(), &guid), EFI_DEVICE_ERROR);
}

// A machine that was removed does not have "no variables".
TEST_F(variable_store, folder_that_is_gone_has_no_empty_list)
{
    fs::remove(disk.store());
    std::vector<CHAR16> text(10);
    UINTN size = text.size() * sizeof(CHAR16);
    EFI_GUID guid = {};
    EXPECT_EQ(machine::next_variable(*services, &size, text.data(), &guid), EFI_DEVICE_ERROR);
    machine::variable_space space;
    EXPECT_EQ(machine::query_variable_info(*services, 7, &space), EFI_DEVICE_ERROR);
    const std::vector<CHAR16> name = {'A'};
    EXPECT_EQ(machine::set_variable(*services, name, platform_test::global_guid, 7, 4, "data"),
              EFI_DEVICE_ERROR);
}

TEST_F(variable_store, empty_file_is_one_that_an_efivarfs_was_never_given)
{
    disk.put_file(disk.file("A"), "");
    machine::stored_variable found;
    EXPECT_EQ(read("A", &found), EFI_DEVICE_ERROR);
    services->kind = machine::store_kind::efivarfs;
    EXPECT_EQ(read("A", &found), EFI_NOT_FOUND);
    EXPECT_FALSE(is_there(name("A")));
}

TEST_F(variable_store, file_of_four_bytes_is_a_variable_that_does_not_exist)
{
    disk.put("A", "");
    machine::stored_variable found;
    EXPECT_EQ(read("A", &found), EFI_NOT_FOUND);
    EXPECT_FALSE(is_there(name("A")));
}

TEST_F(variable_store, what_is_no_regular_file_is_damaged)
{
    fs::create_directory(disk.file("Folder"));
    ASSERT_EQ(mkfifo(disk.file("Fifo").c_str(), 0600), 0);
    disk.put("Real", "data");
    fs::create_symlink(disk.file("Real"), disk.file("Link"));
    for (const char *variable : {"Folder", "Fifo", "Link"}) {
        machine::stored_variable found;
        EXPECT_EQ(read(variable, &found), EFI_DEVICE_ERROR) << variable;
        EXPECT_FALSE(is_there(name(variable))) << variable;
    }
}

TEST_F(variable_store, file_larger_than_any_variable_is_damaged)
{
    disk.put("A", "data");
    fs::resize_file(disk.file("A"), machine::largest_variable_file + 1);
    machine::stored_variable found;
    EXPECT_EQ(read("A", &found), EFI_DEVICE_ERROR);
    EXPECT_FALSE(is_there(name("A")));
    fs::resize_file(disk.file("A"), machine::largest_variable_file);
    EXPECT_EQ(read("A", &found), EFI_SUCCESS);
}

TEST_F(variable_store, says_what_it_passes_over_when_asked_to)
{
    disk.put_file(disk.file("A"), "12");
    environment debug("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(is_there(name("A")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hwplat: skipped variable '" + name("A") + "': damaged, or without data\n");
}

TEST_F(variable_store, space_is_attributes_name_with_terminator_and_data)
{
    EXPECT_EQ(machine::space_taken(9, 4), 4u + 20u + 4u);
    disk.put("BootOrder", "1234");
    disk.put("A", "1");
    disk.put_file(disk.store() / "notes.txt", "not a variable");
    disk.put_file(disk.file("Damaged"), "12");
    UINT64 used = 0;
    ASSERT_EQ(machine::space_used(*services, stopped_writers::leave, &used), EFI_SUCCESS);
    EXPECT_EQ(used, (4u + 20u + 4u) + (4u + 4u + 1u));
}

TEST_F(variable_store, what_stopped_writers_left_is_removed_under_the_lock_only)
{
    disk.put_file(disk.store() / ".hwplat-1-1.tmp", "half");
    UINT64 used = 1;
    ASSERT_EQ(machine::space_used(*services, stopped_writers::leave, &used), EFI_SUCCESS);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(disk.names().size(), 1u);
    ASSERT_EQ(machine::space_used(*services, stopped_writers::clean_up, &used), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_store, who_has_the_lock_counts_the_space_once)
{
    for (int number = 0; number < 100; ++number)
        disk.put("V" + std::to_string(number), "1");
    const machine::held_lock lock(services->root);
    ASSERT_EQ(lock.error(), 0);
    const int before = calls_of(wrapped::fstatat);
    EXPECT_GT(space_used(), 0u);
    for (const char *name : {"A", "B", "C"})
        EXPECT_EQ(set(name, "data"), EFI_SUCCESS);
    EXPECT_EQ(set("A", "longer data"), EFI_SUCCESS);
    const int looks = calls_of(wrapped::fstatat) - before;
    EXPECT_GE(looks, 100);
    EXPECT_LT(looks, 150);
    EXPECT_EQ(space_used(), counted_anew());
}

TEST_F(variable_store, space_that_was_counted_is_what_there_is_after_every_change)
{
    disk.put("A", "data");
    disk.put_file(disk.root() / "var/lib/hwplat/capacity", "100 50\n");
    const machine::held_lock lock(services->root);
    EXPECT_EQ(space_used(), counted_anew());
    EXPECT_EQ(set("B", std::string(40, 'b')), EFI_SUCCESS);
    EXPECT_EQ(space_used(), counted_anew());
    EXPECT_EQ(set("C", std::string(40, 'c')), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(space_used(), counted_anew());
    EXPECT_EQ(set("B", "b"), EFI_SUCCESS); // shorter
    EXPECT_EQ(space_used(), counted_anew());
    EXPECT_EQ(set("C", std::string(40, 'c')), EFI_SUCCESS);
    EXPECT_EQ(set("A", ""), EFI_SUCCESS); // removed
    EXPECT_EQ(space_used(), counted_anew());
    platform_test::failing_call failing(wrapped::fsync, EIO);
    EXPECT_EQ(set("A", "data"), EFI_DEVICE_ERROR);
    EXPECT_EQ(space_used(), counted_anew());
}

TEST_F(variable_store, what_stopped_writers_left_is_removed_though_the_space_is_known)
{
    disk.put_file(disk.store() / ".hwplat-1-1.tmp", "half");
    const machine::held_lock lock(services->root);
    EXPECT_EQ(space_used(), 0u);
    EXPECT_EQ(set("A", "data"), EFI_SUCCESS);
    EXPECT_EQ(disk.names(), std::vector<std::string>{name("A")});
}

TEST_F(variable_store, space_is_counted_anew_without_the_lock)
{
    {
        const machine::held_lock lock(services->root);
        EXPECT_EQ(space_used(), 0u);
    }
    disk.put("A", "another process's");
    EXPECT_EQ(space_used(), counted_anew());
    const machine::held_lock lock(services->root);
    EXPECT_EQ(space_used(), counted_anew());
}

TEST_F(variable_store, capacity_is_256_kib_and_32_kib_a_variable_unless_the_machine_says_otherwise)
{
    machine::capacity limits;
    EXPECT_EQ(machine::capacity_of(*services, &limits), EFI_SUCCESS);
    EXPECT_EQ(limits.store, 262144u);
    EXPECT_EQ(limits.variable, 32768u);
    disk.put_file(disk.state("capacity"), "1000 100\n");
    EXPECT_EQ(machine::capacity_of(*services, &limits), EFI_SUCCESS);
    EXPECT_EQ(limits.store, 1000u);
    EXPECT_EQ(limits.variable, 100u);
}

TEST_F(variable_store, capacity_that_makes_no_sense_is_not_taken_as_absent)
{
    for (const char *text :
         {"", "1000", "0 100\n", "1000 -1\n", "1000 99999999\n", "99999999999999999999 1\n"}) {
        disk.put_file(disk.state("capacity"), text);
        machine::capacity limits = {1, 2};
        EXPECT_EQ(machine::capacity_of(*services, &limits), EFI_DEVICE_ERROR) << text;
    }
}

} // namespace
