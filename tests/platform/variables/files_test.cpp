// SPDX-License-Identifier: MIT
#include "platform/machine/files.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "tests/platform/failing_calls.h"
#include "tests/platform/machine_folder.h"

using machine::byte_view;
using machine::bytes;
using machine::owned_fd;
using platform_test::failing_call;
using platform_test::machine_folder;
namespace fs = std::filesystem;

namespace {

byte_view view(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

class small_files : public testing::Test {
protected:
    machine_folder disk;
    owned_fd folder{open(disk.store().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};

    int read(const char *name, std::string *text, std::size_t limit = 1000) const
    {
        bytes contents;
        int error = machine::read_file(folder.get(), name, limit, &contents);
        text->assign(reinterpret_cast<const char *>(contents.data()), contents.size());
        return error;
    }
    [[nodiscard]] int replace(const char *name, std::string_view text) const
    {
        owned_fd opened = machine::open_for_reading(folder.get());
        return machine::replace_file(opened.get(), name, view(text));
    }
    [[nodiscard]] std::string text_of(const char *name) const { return disk.contents(disk.store() / name); }
};

TEST_F(small_files, replaced_file_has_the_new_contents_and_nothing_else_is_left)
{
    EXPECT_EQ(replace("a", "one"), 0);
    EXPECT_EQ(replace("a", "second"), 0);
    EXPECT_EQ(text_of("a"), "second");
    EXPECT_EQ(disk.names(), std::vector<std::string>{"a"});
}

TEST_F(small_files, written_file_is_readable_for_all_as_in_efivarfs)
{
    mode_t before = umask(022);
    EXPECT_EQ(replace("a", "one"), 0);
    umask(before);
    EXPECT_EQ(fs::status(disk.store() / "a").permissions(), fs::perms{0644});
}

TEST_F(small_files, write_in_pieces_is_put_together)
{
    failing_call shortened(platform_test::wrapped::write, 0, 3);
    EXPECT_EQ(replace("a", "in three pieces or so"), 0);
    EXPECT_EQ(text_of("a"), "in three pieces or so");
}

TEST_F(small_files, failure_of_any_call_before_the_rename_leaves_the_old_file_alone)
{
    ASSERT_EQ(replace("a", "old"), 0);
    using platform_test::wrapped;
    for (auto [call, error] : {std::pair(wrapped::write, ENOSPC), std::pair(wrapped::fsync, EIO),
                               std::pair(wrapped::renameat, EPERM)}) {
        failing_call failing(call, error);
        EXPECT_EQ(replace("a", "new"), error);
        EXPECT_EQ(text_of("a"), "old");
        EXPECT_EQ(disk.names(), std::vector<std::string>{"a"});
    }
}

TEST_F(small_files, call_that_is_always_broken_off_ends)
{
    ASSERT_EQ(replace("a", "old"), 0);
    using platform_test::wrapped;
    {
        failing_call failing(wrapped::write, EINTR);
        EXPECT_EQ(replace("a", "new"), EINTR);
    }
    failing_call failing(wrapped::read, EINTR);
    std::string text;
    EXPECT_EQ(read("a", &text), EINTR);
}

// The new contents are in place; whether they survive a crash is unknown.
TEST_F(small_files, failure_of_the_last_call_leaves_the_new_file)
{
    ASSERT_EQ(replace("a", "old"), 0);
    failing_call failing(platform_test::wrapped::fsync, EIO, 1);
    EXPECT_EQ(replace("a", "new"), EIO);
    EXPECT_EQ(text_of("a"), "new");
    EXPECT_EQ(disk.names(), std::vector<std::string>{"a"});
}

TEST_F(small_files, temporary_names_are_never_shared)
{
    std::string own = ".hwplat-" + std::to_string(getpid()) + "-";
    for (int i = 0; i < 200; ++i)
        disk.put_file(disk.store() / (own + std::to_string(i) + ".tmp"), "another's");
    EXPECT_EQ(replace("a", "new"), 0);
    EXPECT_EQ(text_of("a"), "new");
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(text_of((own + std::to_string(i) + ".tmp").c_str()), "another's");
}

TEST_F(small_files, temporary_name_is_recognised)
{
    EXPECT_TRUE(machine::is_temporary(".hwplat-123-4.tmp"));
    EXPECT_FALSE(machine::is_temporary("hwplat-123-4.tmp"));
    EXPECT_FALSE(machine::is_temporary(".hwplat-123-4"));
    EXPECT_FALSE(machine::is_temporary("BootOrder-8be4df61-93ca-11d2-aa0d-00e098032b8c"));
    EXPECT_FALSE(machine::is_temporary(".hwplat-8be4df61-93ca-11d2-aa0d-00e098032b8c"));
}

TEST_F(small_files, link_in_a_files_place_is_replaced_and_not_followed)
{
    disk.put_file(disk.root() / "outside", "untouched");
    fs::create_symlink(disk.root() / "outside", disk.store() / "a");
    EXPECT_EQ(replace("a", "new"), 0);
    EXPECT_FALSE(fs::is_symlink(disk.store() / "a"));
    EXPECT_EQ(disk.contents(disk.root() / "outside"), "untouched");
}

TEST_F(small_files, link_is_not_read_through)
{
    disk.put_file(disk.root() / "outside", "secret");
    fs::create_symlink(disk.root() / "outside", disk.store() / "a");
    std::string text;
    EXPECT_EQ(read("a", &text), EBADMSG);
    EXPECT_EQ(text, "");
}

TEST_F(small_files, what_is_no_regular_file_does_not_hang_a_reader)
{
    ASSERT_EQ(mkfifoat(folder.get(), "fifo", 0600), 0);
    fs::create_directory(disk.store() / "folder");
    owned_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string place = (disk.store() / "socket").string();
    place.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    std::string text;
    EXPECT_EQ(read("fifo", &text), EBADMSG);
    EXPECT_EQ(read("folder", &text), EBADMSG);
    EXPECT_EQ(read("socket", &text), EBADMSG);
}

TEST_F(small_files, missing_file_is_enoent)
{
    std::string text;
    EXPECT_EQ(read("a", &text), ENOENT);
    owned_fd opened = machine::open_for_reading(folder.get());
    EXPECT_EQ(machine::remove_file(opened.get(), "a"), ENOENT);
}

TEST_F(small_files, file_is_read_up_to_its_limit)
{
    disk.put_file(disk.store() / "a", "12345");
    disk.put_file(disk.store() / "empty", "");
    std::string text;
    EXPECT_EQ(read("a", &text, 5), 0);
    EXPECT_EQ(text, "12345");
    EXPECT_EQ(read("a", &text, 4), EBADMSG);
    EXPECT_EQ(read("empty", &text, 0), 0);
    EXPECT_EQ(text, "");
}

TEST_F(small_files, huge_sparse_file_is_refused_without_being_read)
{
    disk.put_file(disk.store() / "a", "");
    fs::resize_file(disk.store() / "a", std::uintmax_t{1} << 40);
    std::string text;
    EXPECT_EQ(read("a", &text), EBADMSG);
}

TEST_F(small_files, file_that_says_nothing_of_its_size_is_read_to_its_end)
{
    owned_fd proc(open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC));
    bytes contents;
    EXPECT_EQ(machine::read_file(proc.get(), "maps", 1 << 24, &contents), 0);
    EXPECT_GT(contents.size(), 100u);
    EXPECT_EQ(machine::read_file(proc.get(), "maps", 10, &contents), EBADMSG);
}

TEST_F(small_files, folders_are_opened_without_following_links)
{
    fs::create_directories(disk.root() / "real/inner");
    fs::create_symlink(disk.root() / "real", disk.root() / "link");
    owned_fd root(open(disk.root().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    using machine::missing_folders;
    EXPECT_TRUE(machine::open_below(root.get(), {"real", "inner"}, missing_folders::fail));
    EXPECT_FALSE(machine::open_below(root.get(), {"link", "inner"}, missing_folders::fail));
    EXPECT_FALSE(machine::open_below(root.get(), {"link", "new"}, missing_folders::create));
    EXPECT_FALSE(fs::exists(disk.root() / "real/new"));
    EXPECT_FALSE(machine::open_below(root.get(), {"new", "inner"}, missing_folders::fail));
    EXPECT_FALSE(fs::exists(disk.root() / "new"));
    EXPECT_TRUE(machine::open_below(root.get(), {"new", "inner"}, missing_folders::create));
    EXPECT_TRUE(fs::is_directory(disk.root() / "new/inner"));
}

TEST_F(small_files, list_has_every_name_but_the_two_of_folders)
{
    disk.put_file(disk.store() / ".hidden", "");
    disk.put_file(disk.store() / "b", "");
    std::vector<std::string> names;
    EXPECT_EQ(machine::list_folder(folder.get(), &names), 0);
    std::ranges::sort(names);
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "b"}));
}

TEST(owned_fd, closing_leaves_errno_alone)
{
    errno = E2BIG;
    {
        owned_fd none(987654);
    }
    EXPECT_EQ(errno, E2BIG);
}

TEST(owned_fd, assignment_closes_what_was_held)
{
    int fds[2] = {};
    ASSERT_EQ(pipe(fds), 0);
    owned_fd held(fds[0]);
    held = owned_fd(fds[1]);
    EXPECT_EQ(fcntl(fds[0], F_GETFD), -1);
    EXPECT_EQ(held.get(), fds[1]);
}

TEST(status_of, each_error_has_the_firmwares_word)
{
    EXPECT_EQ(machine::status_of(0), EFI_SUCCESS);
    EXPECT_EQ(machine::status_of(ENOENT), EFI_NOT_FOUND);
    EXPECT_EQ(machine::status_of(EACCES), EFI_ACCESS_DENIED);
    EXPECT_EQ(machine::status_of(EPERM), EFI_ACCESS_DENIED);
    EXPECT_EQ(machine::status_of(EROFS), EFI_WRITE_PROTECTED);
    EXPECT_EQ(machine::status_of(ENOSPC), EFI_VOLUME_FULL);
    EXPECT_EQ(machine::status_of(EDQUOT), EFI_VOLUME_FULL);
    EXPECT_EQ(machine::status_of(EFBIG), EFI_VOLUME_FULL);
    EXPECT_EQ(machine::status_of(ENOMEM), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(machine::status_of(ETIMEDOUT), EFI_TIMEOUT);
    EXPECT_EQ(machine::status_of(EINVAL), EFI_INVALID_PARAMETER);
    EXPECT_EQ(machine::status_of(ENAMETOOLONG), EFI_INVALID_PARAMETER);
    EXPECT_EQ(machine::status_of(EBADMSG), EFI_DEVICE_ERROR);
    EXPECT_EQ(machine::status_of(EIO), EFI_DEVICE_ERROR);
}

} // namespace
