// SPDX-License-Identifier: MIT
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/machine/debug.h"
#include "platform/machine/root.h"
#include "tests/platform/machine_folder.h"

using platform_test::environment;
using platform_test::machine_folder;
namespace fs = std::filesystem;

namespace {

bool same_folder(int fd, const fs::path &path)
{
    struct stat one = {};
    struct stat other = {};
    return fstat(fd, &one) == 0 && stat(path.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

TEST(machine_root, is_the_live_one_without_the_variable)
{
    environment unset("HWPLAT_ROOT", nullptr);
    machine::machine_root root = machine::open_root();
    EXPECT_TRUE(root.live);
    EXPECT_TRUE(same_folder(root.folder.get(), "/"));
}

TEST(machine_root, is_the_folder_that_the_variable_names)
{
    machine_folder disk;
    machine::machine_root root = machine::open_root();
    EXPECT_FALSE(root.live);
    EXPECT_TRUE(same_folder(root.folder.get(), disk.root()));
}

TEST(machine_root, is_settled_at_each_call)
{
    machine_folder one;
    machine_folder other;
    EXPECT_TRUE(same_folder(machine::open_root().folder.get(), other.root()));
    environment changed("HWPLAT_ROOT", one.root().c_str());
    EXPECT_TRUE(same_folder(machine::open_root().folder.get(), one.root()));
}

TEST(machine_root, every_way_to_write_the_top_is_the_live_machine)
{
    machine_folder disk;
    fs::create_symlink("/", disk.root() / "top");
    for (const std::string &path : {std::string("/"), std::string("//"), std::string("/."),
                                    std::string("/tmp/.."), (disk.root() / "top").string()}) {
        environment named("HWPLAT_ROOT", path.c_str());
        EXPECT_TRUE(machine::open_root().live) << path;
    }
}

TEST(machine_root, empty_variable_names_no_folder)
{
    environment empty("HWPLAT_ROOT", "");
    errno = 0;
    EXPECT_FALSE(machine::open_root().folder);
    EXPECT_EQ(errno, ENOENT);
}

TEST(machine_root, what_is_no_folder_is_refused)
{
    machine_folder disk;
    disk.put_file(disk.root() / "file", "");
    environment file("HWPLAT_ROOT", (disk.root() / "file").c_str());
    EXPECT_FALSE(machine::open_root().folder);
    EXPECT_EQ(errno, ENOTDIR);
    environment missing("HWPLAT_ROOT", (disk.root() / "missing").c_str());
    EXPECT_FALSE(machine::open_root().folder);
    EXPECT_EQ(errno, ENOENT);
}

TEST(debug_message, is_silent_without_the_variable)
{
    environment unset("HWPLAT_DEBUG", nullptr);
    testing::internal::CaptureStderr();
    machine::debug("number %d", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(debug_message, writes_one_line_with_the_variable_whatever_its_value)
{
    environment set("HWPLAT_DEBUG", "");
    testing::internal::CaptureStderr();
    errno = E2BIG;
    machine::debug("number %d", 1);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "hwplat: number 1\n");
}

} // namespace
