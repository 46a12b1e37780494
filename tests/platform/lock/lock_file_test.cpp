// SPDX-License-Identifier: MIT
// The lock's file: its owner, its mode, and other files under its name.
#include <cerrno>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/platform/lock/fixture.h"

using platform_test::child_process;
using platform_test::device;
using platform_test::machine_folder;
using platform_test::machine_lock;
using platform_test::set_variable;
namespace fs = std::filesystem;

namespace {

// Closes a file descriptor at its end.
class held_fd {
public:
    explicit held_fd(int fd) : number(fd) {}
    held_fd(const held_fd &) = delete;
    held_fd &operator=(const held_fd &) = delete;
    ~held_fd() { close(number); }
    [[nodiscard]] int get() const { return number; }

private:
    int number;
};

TEST_F(machine_lock, is_a_file_of_its_owner_alone)
{
    mode_t before = umask(0);
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    umask(before);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms{0600});
    EXPECT_EQ(devns_unlock(), 0);
    fs::permissions(file(), fs::perms{0666});
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms{0600});
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(machine_lock, is_made_for_its_owner_whatever_the_umask_is)
{
    mode_t before = umask(0777);
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    umask(before);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(file().parent_path()).permissions(), fs::perms{0755});
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(machine_lock, nobody_stops_a_writer_by_locks_of_his_own)
{
    held_fd store(open(disk.store().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(store.get(), LOCK_EX), 0);
    held_fd root(open(disk.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(root.get(), LOCK_EX), 0);
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    held_fd state(open(file().parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(state.get(), LOCK_EX), 0);
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "other data"), EFI_SUCCESS);
}

TEST_F(machine_lock, name_that_is_no_file_of_ours_is_not_touched)
{
    fs::create_directories(file().parent_path());
    machine_folder::put_file(disk.root() / "outside", "untouched");
    fs::permissions(disk.root() / "outside", fs::perms{0644});
    auto expect_refused = [&](const char *what) {
        errno = 0;
        EXPECT_EQ(devns_lock(0, nullptr), -1) << what;
        EXPECT_EQ(errno, EPERM) << what;
        device opened;
        EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_ACCESS_DENIED) << what;
        EXPECT_EQ(contents_of(disk.root() / "outside"), "untouched") << what;
        EXPECT_EQ(fs::status(disk.root() / "outside").permissions(), fs::perms{0644}) << what;
        fs::remove(file());
    };
    fs::create_symlink(disk.root() / "outside", file());
    expect_refused("a link");
    fs::create_symlink(disk.root() / "nowhere", file());
    expect_refused("a link to nothing");
    EXPECT_FALSE(fs::exists(disk.root() / "nowhere"));
    fs::create_hard_link(disk.root() / "outside", file());
    expect_refused("another name of a file");
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    expect_refused("a FIFO");
    fs::create_directory(file());
    expect_refused("a folder");
    if (geteuid() == 0) {
        machine_folder::put_file(file(), "");
        ASSERT_EQ(chown(file().c_str(), 12345, 12345), 0);
        expect_refused("somebody else's file");
    }
}

TEST_F(machine_lock, file_that_is_removed_meanwhile_is_made_anew)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    fs::remove(file());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_TRUE(fs::exists(file()));
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(machine_lock, lives_through_a_program_that_closes_all_descriptors)
{
    EXPECT_EQ(child_process([&] {
                  if (devns_lock(0, nullptr) != 0)
                      return 1;
                  close_range(3, ~0u, 0);
                  int own = open((disk.root() / "own").c_str(), O_RDWR | O_CREAT, 0600);
                  flock(own, LOCK_EX);
                  if (devns_lock(0, nullptr) != 0) // the lock was lost, and is taken anew
                      return 2;
                  if (devns_unlock() != 0 || devns_unlock() != 0 || devns_unlock() != -1)
                      return 3;
                  return fcntl(own, F_GETFD) >= 0 ? 0 : 4;
              }).result(),
              0);
}

TEST_F(machine_lock, user_who_may_not_write_the_machine_cannot_hold_it)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can try as another user";
    fs::permissions(disk.root(), fs::perms{0755});
    constexpr uid_t nobody = 65534;
    auto as_nobody = [&] {
        return child_process([] {
                   if (setgid(nobody) != 0 || setuid(nobody) != 0)
                       return -1;
                   return devns_lock(0, nullptr) == 0 ? 0 : errno;
               })
            .result();
    };
    EXPECT_EQ(as_nobody(), EACCES); // the folder is missing, and he cannot make it
    fs::create_directories(file().parent_path());
    fs::permissions(file().parent_path(), fs::perms{0777});
    fs::permissions(disk.store(), fs::perms{0755});
    EXPECT_EQ(as_nobody(), EACCES);
    EXPECT_FALSE(fs::exists(file()));
    fs::permissions(file().parent_path(), fs::perms{0755});
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(as_nobody(), EACCES);
}

TEST_F(machine_lock, machine_of_a_user_stays_his_when_root_has_written_it)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can try as another user";
    constexpr uid_t nobody = 65534;
    for (const fs::path &folder : {disk.root(), disk.store()})
        ASSERT_EQ(chown(folder.c_str(), nobody, nobody), 0);
    device opened;
    ASSERT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(child_process([] {
                  if (setgid(nobody) != 0 || setuid(nobody) != 0)
                      return 1;
                  device own;
                  return set_variable(own.fd(), u"A", 7, "his data") == EFI_SUCCESS ? 0 : 2;
              }).result(),
              0);
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "root's data"), EFI_SUCCESS);
}

TEST_F(machine_lock, is_given_back_when_its_machine_is_out_of_reach)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    const fs::path moved = disk.root().string() + "-moved";
    fs::rename(disk.root(), moved);
    const int result = devns_unlock();
    fs::rename(moved, disk.root());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(is_free());
    EXPECT_EQ(devns_unlock(), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST_F(machine_lock, ends_at_once_when_descriptors_run_out)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0); // makes the file
    ASSERT_EQ(devns_unlock(), 0);
    const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    int refused = 0;
    for (rlim_t free_numbers = 0; free_numbers < 6; ++free_numbers) {
        const rlimit few = {static_cast<rlim_t>(lowest) + free_numbers, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        const int result = devns_lock(20, nullptr);
        const int error = errno;
        setrlimit(RLIMIT_NOFILE, &before);
        if (result == 0) {
            EXPECT_EQ(devns_unlock(), 0);
            continue;
        }
        EXPECT_EQ(error, EMFILE) << free_numbers;
        ++refused;
    }
    EXPECT_GT(refused, 1);
    EXPECT_TRUE(is_free());
}

TEST_F(machine_lock, folders_that_root_makes_belong_to_the_owner_of_the_machine)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes files of others";
    constexpr uid_t somebody = 65534;
    fs::remove_all(disk.root() / "var");
    ASSERT_EQ(chown(disk.root().c_str(), somebody, somebody), 0);
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(devns_unlock(), 0);
    for (const char *made : {"var", "var/lib", "var/lib/hwplat", "var/lib/hwplat/lock"}) {
        struct stat info = {};
        ASSERT_EQ(lstat((disk.root() / made).c_str(), &info), 0) << made;
        EXPECT_EQ(info.st_uid, somebody) << made;
    }
}

TEST_F(machine_lock, no_machine_no_lock)
{
    platform_test::environment nowhere("HWPLAT_ROOT", (disk.root() / "nowhere").c_str());
    EXPECT_EQ(devns_lock(0, nullptr), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(devns_unlock(), -1);
}

} // namespace
