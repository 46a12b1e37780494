// SPDX-License-Identifier: MIT
#include <cerrno>

#include <gtest/gtest.h>
#include <linux/magic.h>

#include "platform/machine/services.h"
#include "tests/platform/machine_folder.h"

using machine::store_kind;
using platform_test::environment;
using platform_test::machine_folder;
namespace fs = std::filesystem;

namespace {

TEST(runtime_services, is_there_when_the_machine_has_the_folder_of_variables)
{
    machine_folder disk;
    auto services = machine::open_services();
    ASSERT_TRUE(services);
    EXPECT_EQ(services->kind, store_kind::folder);
    EXPECT_FALSE(services->root.live);
    EXPECT_TRUE(services->variables);
}

TEST(runtime_services, is_not_there_without_the_folder)
{
    machine_folder disk;
    fs::remove(disk.store());
    EXPECT_FALSE(machine::open_services());
    EXPECT_EQ(errno, ENOENT);
    disk.put_file(disk.store(), "a file");
    EXPECT_FALSE(machine::open_services());
    EXPECT_EQ(errno, ENOENT);
}

TEST(runtime_services, is_not_there_without_the_root)
{
    environment missing("HWPLAT_ROOT", "/nowhere/at/all");
    EXPECT_FALSE(machine::open_services());
    EXPECT_EQ(errno, ENOENT);
}

TEST(runtime_services, variables_behind_a_link_are_not_the_machines)
{
    machine_folder disk;
    fs::create_directory(disk.root() / "elsewhere");
    fs::remove(disk.store());
    fs::create_directory_symlink(disk.root() / "elsewhere", disk.store());
    EXPECT_FALSE(machine::open_services());
    EXPECT_EQ(errno, ENOENT);
}

TEST(runtime_services, says_why_there_is_none_when_asked_to)
{
    machine_folder disk;
    fs::remove(disk.store());
    environment debug("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(machine::open_services());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hwplat: no firmware variables: sys/firmware/efi/efivars: No such file or directory\n");
}

TEST(runtime_services, kind_of_store_follows_the_file_system)
{
    EXPECT_EQ(machine::kind_of_filesystem(EFIVARFS_MAGIC), store_kind::efivarfs);
    EXPECT_EQ(machine::kind_of_filesystem(EXT4_SUPER_MAGIC), store_kind::folder);
    EXPECT_EQ(machine::kind_of_filesystem(TMPFS_MAGIC), store_kind::folder);
}

TEST(runtime_services, place_where_efivarfs_is_not_mounted_is_no_store)
{
    EXPECT_EQ(machine::kind_of_filesystem(SYSFS_MAGIC), store_kind::none);
}

} // namespace
