// SPDX-License-Identifier: MIT
// Writes to an efivarfs, on an ordinary folder: the calls are the same, without a firmware.
#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "platform/machine/reset.h"
#include "platform/machine/services.h"
#include "platform/machine/variables.h"
#include "tests/platform/failing_calls.h"
#include "tests/platform/machine_folder.h"

using platform_test::calls_of;
using platform_test::failing_call;
using platform_test::global_guid;
using platform_test::global_suffix;
using platform_test::machine_folder;
using platform_test::wrapped;

namespace {

class efivarfs : public testing::Test {
protected:
    machine_folder disk;
    std::unique_ptr<machine::runtime_services> services = machine::open_services();

    void SetUp() override { services->kind = machine::store_kind::efivarfs; }
    // An immutable file would outlive its folder.
    void TearDown() override
    {
        for (const std::string &name : disk.names())
            set_immutable(disk.store() / name, false);
    }

    static std::string name(std::string_view variable)
    {
        return std::string(variable) + std::string(global_suffix);
    }

    EFI_STATUS set(std::string_view variable, UINT32 attributes, std::string_view data) const
    {
        std::vector<CHAR16> units(variable.begin(), variable.end());
        return machine::set_variable(*services, units, global_guid, attributes, data.size(), data.data());
    }

    static int flags_of(const std::filesystem::path &path)
    {
        machine::owned_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        int flags = 0;
        return ioctl(file.get(), FS_IOC_GETFLAGS, &flags) == 0 ? flags : -1;
    }
    static bool set_immutable(const std::filesystem::path &path, bool immutable)
    {
        machine::owned_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        int flags = 0;
        if (!file || ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0)
            return false;
        flags = immutable ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        return ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
    }
};

TEST_F(efivarfs, new_variable_is_one_write_of_attributes_and_data)
{
    int before = calls_of(wrapped::write);
    EXPECT_EQ(set("A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(calls_of(wrapped::write) - before, 1);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0data", 8));
    EXPECT_EQ(disk.names(), std::vector<std::string>{name("A")});
}

// The kernel gives an ordinary user 100 reads a second: each is a call of the firmware.
TEST_F(efivarfs, variable_is_read_at_once_and_its_size_without_reading)
{
    disk.put("A", std::string(5000, 'a'));
    std::vector<CHAR16> units = {'A'};
    std::string data(6000, '\0');
    UINTN size = 0;
    UINT32 attributes = 0;
    int before = calls_of(wrapped::read);
    EXPECT_EQ(machine::get_variable(*services, units, global_guid, nullptr, &size, nullptr),
              EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 5000u);
    EXPECT_EQ(calls_of(wrapped::read) - before, 0);
    size = data.size();
    EXPECT_EQ(machine::get_variable(*services, units, global_guid, &attributes, &size, data.data()),
              EFI_SUCCESS);
    EXPECT_EQ(data.substr(0, static_cast<std::size_t>(size)), std::string(5000, 'a'));
    EXPECT_EQ(attributes, 7u);
    EXPECT_EQ(calls_of(wrapped::read) - before, 1);
}

TEST_F(efivarfs, size_of_what_only_reading_tells_is_read)
{
    std::vector<CHAR16> units = {'A'};
    const auto status_of_size = [&] {
        UINTN size = 0;
        return machine::get_variable(*services, units, global_guid, nullptr, &size, nullptr);
    };
    EXPECT_EQ(status_of_size(), EFI_NOT_FOUND);
    for (const char *contents : {"", "\7\0\0\0"}) {
        disk.put_file(disk.file("A"), {contents, *contents == '\0' ? 0u : 4u});
        EXPECT_EQ(status_of_size(), EFI_NOT_FOUND);
    }
    disk.put_file(disk.file("A"), "12");
    EXPECT_EQ(status_of_size(), EFI_DEVICE_ERROR);
    disk.put("A", "data");
    std::filesystem::permissions(disk.file("A"), std::filesystem::perms(0600));
    failing_call denied(wrapped::openat, EACCES);
    EXPECT_EQ(status_of_size(), EFI_ACCESS_DENIED);
}

TEST_F(efivarfs, rewrite_is_one_write_from_the_start_of_the_same_file)
{
    disk.put("A", "data");
    std::filesystem::create_hard_link(disk.file("A"), disk.root() / "same");
    int before = calls_of(wrapped::write);
    EXPECT_EQ(set("A", 7, "longer data"), EFI_SUCCESS);
    EXPECT_EQ(calls_of(wrapped::write) - before, 1);
    EXPECT_EQ(disk.contents(disk.root() / "same"), std::string("\7\0\0\0longer data", 15));
}

TEST_F(efivarfs, append_hands_the_firmware_only_what_is_new)
{
    disk.put("A", "data");
    EXPECT_EQ(set("A", 0x47, "more"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\x47\0\0\0more", 8));
}

TEST_F(efivarfs, size_of_zero_deletes_the_file)
{
    disk.put("A", "data");
    EXPECT_EQ(set("A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), "(none)");
    EXPECT_EQ(set("A", 7, ""), EFI_NOT_FOUND);
}

TEST_F(efivarfs, firmwares_rules_are_checked_before_it_is_asked)
{
    disk.put("A", "data");
    EXPECT_EQ(set("A", 3, "data"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set("A", 5, "data"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set("A", 0x80000007, "data"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0data", 8));
}

TEST_F(efivarfs, capacity_and_signatures_are_the_firmwares_own_affair)
{
    EXPECT_EQ(set("A", 0x27, std::string(40000, 'x')), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A").size(), 40004u);
}

TEST_F(efivarfs, refused_write_has_the_firmwares_word_and_leaves_no_new_file)
{
    for (auto [error, status] :
         {std::pair(EACCES, EFI_SECURITY_VIOLATION), std::pair(ENOSPC, EFI_OUT_OF_RESOURCES),
          std::pair(EROFS, EFI_WRITE_PROTECTED), std::pair(EINVAL, EFI_INVALID_PARAMETER),
          std::pair(EIO, EFI_DEVICE_ERROR)}) {
        failing_call failing(wrapped::write, error);
        EXPECT_EQ(set("A", 7, "data"), status);
        EXPECT_EQ(disk.names().size(), 0u);
    }
}

TEST_F(efivarfs, write_that_is_always_broken_off_is_a_device_error)
{
    failing_call failing(wrapped::write, EINTR);
    EXPECT_EQ(set("A", 7, "data"), EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(efivarfs, empty_file_is_no_variable_and_can_be_written)
{
    disk.put_file(disk.file("A"), "");
    EXPECT_EQ(set("A", 7, ""), EFI_NOT_FOUND);
    EXPECT_EQ(set("A", 0x47, ""), EFI_NOT_FOUND);
    UINTN size = 0;
    std::vector<CHAR16> units = {'A'};
    EXPECT_EQ(machine::get_variable(*services, units, global_guid, nullptr, &size, nullptr), EFI_NOT_FOUND);
    EXPECT_EQ(set("A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0data", 8));
}

TEST_F(efivarfs, name_that_the_kernel_would_change_is_not_made)
{
    EXPECT_EQ(set("a/b", 7, "data"), EFI_UNSUPPORTED);
    EXPECT_EQ(disk.names().size(), 0u);
}

// A new file is immutable from the start if the kernel does not know its name.
TEST_F(efivarfs, refused_variable_is_removed_though_immutable)
{
    disk.put("probe", "data");
    bool immutable = set_immutable(disk.file("probe"), true) && set_immutable(disk.file("probe"), false);
    std::filesystem::remove(disk.file("probe"));
    if (!immutable)
        GTEST_SKIP() << "this user or file system has no immutable files";
    failing_call failing(wrapped::write, EINVAL);
    failing.before_failing([](int fd) {
        int flags = 0;
        ioctl(fd, FS_IOC_GETFLAGS, &flags);
        flags |= FS_IMMUTABLE_FL;
        ioctl(fd, FS_IOC_SETFLAGS, &flags);
    });
    EXPECT_EQ(set("A", 7, "data"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(efivarfs, refused_rewrite_leaves_the_variable)
{
    disk.put("A", "data");
    failing_call failing(wrapped::write, ENOSPC);
    EXPECT_EQ(set("A", 7, "other"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0data", 8));
}

TEST_F(efivarfs, short_write_is_a_device_error)
{
    failing_call shortened(wrapped::write, 0, 3);
    EXPECT_EQ(set("A", 7, "data"), EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(efivarfs, immutable_flag_is_lifted_for_a_write_and_put_back)
{
    disk.put("A", "data");
    if (!set_immutable(disk.file("A"), true))
        GTEST_SKIP() << "this user or file system has no immutable files";
    int flags = flags_of(disk.file("A"));
    EXPECT_EQ(set("A", 7, "last"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0last", 8));
    EXPECT_EQ(flags_of(disk.file("A")), flags);
}

TEST_F(efivarfs, immutable_flag_is_put_back_after_a_refused_write)
{
    disk.put("A", "data");
    if (!set_immutable(disk.file("A"), true))
        GTEST_SKIP() << "this user or file system has no immutable files";
    int flags = flags_of(disk.file("A"));
    failing_call failing(wrapped::write, ENOSPC);
    EXPECT_EQ(set("A", 7, "last"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(flags_of(disk.file("A")), flags);
}

TEST_F(efivarfs, immutable_variable_is_deleted)
{
    disk.put("A", "data");
    if (!set_immutable(disk.file("A"), true))
        GTEST_SKIP() << "this user or file system has no immutable files";
    EXPECT_EQ(set("A", 0, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(efivarfs, space_is_what_the_file_system_reports)
{
    machine::variable_space space;
    ASSERT_EQ(machine::query_variable_info(*services, 7, &space), EFI_SUCCESS);
    EXPECT_GT(space.store, 0u);
    EXPECT_LE(space.remaining, space.store);
    EXPECT_EQ(space.variable, space.remaining);
}

// Kernels hold some of the store back: "free" counts that, "available" does not.
TEST_F(efivarfs, space_is_what_can_be_written)
{
    const platform_test::replaced_fstatfs reports{[](int, struct statfs *info) {
        *info = {};
        info->f_bsize = 2;
        info->f_blocks = 131022;
        info->f_bfree = 123312;
        info->f_bavail = 120752;
        return 0;
    }};
    machine::variable_space space;
    ASSERT_EQ(machine::query_variable_info(*services, 7, &space), EFI_SUCCESS);
    EXPECT_EQ(space.store, 262044u);
    EXPECT_EQ(space.remaining, 241504u);
    EXPECT_EQ(space.variable, 241504u);
}

TEST_F(efivarfs, space_cannot_be_read)
{
    const platform_test::replaced_fstatfs fails{[](int, struct statfs *) { return EIO; }};
    machine::variable_space space = {1, 2, 3};
    EXPECT_EQ(machine::query_variable_info(*services, 7, &space), EFI_DEVICE_ERROR);
    EXPECT_EQ(space.store, 1u);
}

TEST_F(efivarfs, space_is_unsupported_where_nothing_is_reported)
{
    machine::owned_fd proc(open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC));
    machine::variable_space space = {1, 2, 3};
    EXPECT_EQ(machine::efivarfs_space(proc.get(), &space), EFI_UNSUPPORTED);
    EXPECT_EQ(space.store, 1u);
}

TEST_F(efivarfs, reset_below_another_root_is_not_played_on_real_firmware)
{
    disk.put("BootNext", std::string("\1\0", 2));
    EXPECT_EQ(machine::reset_system(*services, EFI_RESET_COLD), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_NE(disk.get("BootNext"), "(none)");
}

} // namespace
