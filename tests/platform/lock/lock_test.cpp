// SPDX-License-Identifier: MIT
// Who may change a machine, and when: the lock that the library and its callers take.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::get_variable;
using platform_test::machine_folder;
using platform_test::set_variable;
namespace fs = std::filesystem;

namespace {

// A child that runs `body` and ends with what it returns; killed when it is left.
class child_process {
public:
    explicit child_process(const std::function<int()> &body) : number(fork())
    {
        if (number == 0)
            _exit(body());
    }
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;
    ~child_process()
    {
        if (number > 0)
            end();
    }
    [[nodiscard]] pid_t id() const { return number; }
    void end()
    {
        kill(number, SIGKILL);
        result();
    }
    // -1 when it was killed.
    int result()
    {
        int status = -1;
        waitpid(number, &status, 0);
        number = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t number;
};

class owned_descriptor {
public:
    explicit owned_descriptor(int fd) : number(fd) {}
    owned_descriptor(const owned_descriptor &) = delete;
    owned_descriptor &operator=(const owned_descriptor &) = delete;
    ~owned_descriptor() { close(number); }
    [[nodiscard]] int get() const { return number; }

private:
    int number;
};

// A word from one process to the other: who sends it.
class signal_line {
public:
    signal_line() { EXPECT_EQ(pipe(ends), 0); }
    signal_line(const signal_line &) = delete;
    signal_line &operator=(const signal_line &) = delete;
    ~signal_line()
    {
        close(ends[0]);
        close(ends[1]);
    }
    void send() const
    {
        pid_t own = getpid();
        EXPECT_EQ(write(ends[1], &own, sizeof own), static_cast<ssize_t>(sizeof own));
    }
    [[nodiscard]] pid_t wait() const
    {
        pid_t sender = 0;
        EXPECT_EQ(read(ends[0], &sender, sizeof sender), static_cast<ssize_t>(sizeof sender));
        return sender;
    }

private:
    int ends[2] = {-1, -1};
};

int hold_and_say(const signal_line &taken)
{
    if (devns_lock(0, nullptr) != 0)
        return 1;
    taken.send();
    for (;;)
        pause();
}

class Lock : public testing::Test {
protected:
    machine_folder disk;

    [[nodiscard]] fs::path file() const { return disk.state("lock"); }

    // Another process can take the lock, and gives it back.
    static bool is_free()
    {
        return child_process([] { return devns_lock(0, nullptr) == 0 ? 0 : 1; }).result() == 0;
    }
    static std::string contents_of(const fs::path &path) { return machine_folder::contents(path); }
};

TEST_F(Lock, is_a_file_of_its_owner_alone)
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

TEST_F(Lock, is_made_for_its_owner_whatever_the_umask_is)
{
    mode_t before = umask(0777);
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    umask(before);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(file().parent_path()).permissions(), fs::perms{0755});
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(Lock, nobody_stops_a_writer_by_locks_of_his_own)
{
    owned_descriptor store(open(disk.store().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(store.get(), LOCK_EX), 0);
    owned_descriptor root(open(disk.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(root.get(), LOCK_EX), 0);
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    owned_descriptor state(open(file().parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(state.get(), LOCK_EX), 0);
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "other data"), EFI_SUCCESS);
}

TEST_F(Lock, counts_within_a_thread)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
    errno = 0;
    EXPECT_EQ(devns_unlock(), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST_F(Lock, services_find_it_taken_by_their_own_thread)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    EFI_TIME time = {2030, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0};
    EFI_STATUS status = platform_test::not_answered;
    ovra_set_time_args_t clock = {&time, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_TIME, &clock), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    ovra_set_wakeup_time_args_t alarm = {&time, &status, B_TRUE};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_WAKEUP_TIME, &alarm), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    UINT32 number = 0;
    ovra_get_next_high_monotonic_count_args_t count = {&number, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &count), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
}

TEST_F(Lock, other_thread_waits_and_is_told_who_has_it)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    std::thread([] {
        pid_t holder = -1;
        errno = 0;
        EXPECT_EQ(devns_lock(0, &holder), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(holder, getpid());
        EXPECT_EQ(devns_unlock(), -1);
        EXPECT_EQ(errno, EPERM);
    }).join();
    std::atomic<bool> taken = false;
    std::thread waiter([&] {
        EXPECT_EQ(devns_lock(30, nullptr), 0);
        taken = true;
    });
    usleep(20'000);
    EXPECT_FALSE(taken);
    EXPECT_EQ(devns_unlock(), 0);
    waiter.join();
    EXPECT_TRUE(taken);
    EXPECT_TRUE(is_free()); // the thread has ended without giving it back
}

TEST_F(Lock, other_process_is_named_and_its_death_frees_the_lock)
{
    signal_line taken;
    child_process holder([&] { return hold_and_say(taken); });
    EXPECT_EQ(taken.wait(), holder.id());
    pid_t found = -1;
    EXPECT_EQ(devns_lock(1, &found), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(found, holder.id());
    holder.end();
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(Lock, reading_needs_none)
{
    disk.put("A", "data");
    signal_line taken;
    child_process holder([&] { return hold_and_say(taken); });
    EXPECT_EQ(taken.wait(), holder.id());
    device opened;
    EXPECT_EQ(get_variable(opened.fd(), u"A").data, "data");
    EXPECT_EQ(platform_test::walk_all(opened.fd()).size(), 1u);
}

TEST_F(Lock, child_does_not_have_it_and_does_not_keep_it)
{
    signal_line ready;
    child_process parent([&] {
        if (devns_lock(0, nullptr) != 0)
            return 1;
        child_process([&] {
            if (devns_unlock() != -1 || errno != EPERM || devns_lock(0, nullptr) != -1)
                return 1;
            ready.send();
            for (;;)
                pause();
        }).result();
        return 0;
    });
    pid_t grandchild = ready.wait();
    EXPECT_FALSE(is_free());
    parent.end();
    EXPECT_TRUE(is_free());
    EXPECT_EQ(kill(grandchild, SIGKILL), 0); // it lived until now
}

TEST_F(Lock, nor_does_a_child_made_while_another_thread_has_it)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    signal_line ready;
    pid_t child = -1;
    std::thread([&] {
        child = fork();
        if (child == 0) {
            ready.send();
            for (;;)
                pause();
        }
    }).join();
    EXPECT_EQ(ready.wait(), child);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(Lock, name_that_is_no_file_of_ours_is_not_touched)
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

TEST_F(Lock, file_that_is_removed_meanwhile_is_made_anew)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    fs::remove(file());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_TRUE(fs::exists(file()));
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(Lock, lives_through_a_program_that_closes_all_descriptors)
{
    EXPECT_EQ(child_process([&] {
                  if (devns_lock(0, nullptr) != 0)
                      return 1;
                  close_range(3, ~0u, 0);
                  int own = open((disk.root() / "own").c_str(), O_RDWR | O_CREAT, 0600);
                  flock(own, LOCK_EX);
                  if (devns_lock(0, nullptr) != 0) // it was lost, and is taken anew
                      return 2;
                  if (devns_unlock() != 0 || devns_unlock() != 0 || devns_unlock() != -1)
                      return 3;
                  return fcntl(own, F_GETFD) >= 0 ? 0 : 4;
              }).result(),
              0);
}

TEST_F(Lock, user_who_may_not_write_the_machine_cannot_hold_it)
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
    EXPECT_EQ(as_nobody(), EACCES); // there is no folder yet, and he cannot make it
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(as_nobody(), EACCES);
}

TEST_F(Lock, machine_of_a_user_stays_his_when_root_has_written_it)
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

TEST_F(Lock, is_given_back_when_its_machine_is_out_of_reach)
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

TEST_F(Lock, ends_at_once_when_descriptors_run_out)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0); // the file is there from here on
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

TEST_F(Lock, folders_that_root_makes_belong_to_the_owner_of_the_machine)
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

TEST_F(Lock, no_machine_no_lock)
{
    platform_test::environment nowhere("HWPLAT_ROOT", (disk.root() / "nowhere").c_str());
    EXPECT_EQ(devns_lock(0, nullptr), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(devns_unlock(), -1);
}

TEST_F(Lock, what_eight_processes_read_change_and_write_is_all_there)
{
    constexpr int processes = 8;
    constexpr int times = 60;
    disk.put("A", "0");
    std::vector<std::unique_ptr<child_process>> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(std::make_unique<child_process>([] {
            device opened;
            for (int time = 0; time < times; ++time) {
                if (devns_lock(30, nullptr) != 0)
                    return 1;
                int number = std::stoi(get_variable(opened.fd(), u"A").data) + 1;
                if (set_variable(opened.fd(), u"A", 7, std::to_string(number)) != EFI_SUCCESS ||
                    devns_unlock() != 0)
                    return 2;
            }
            return 0;
        }));
    }
    // Others are killed in the midst of it; each took part until then or had not begun.
    for (int i = 0; i < 20; ++i) {
        child_process killed([] {
            for (;;) {
                if (devns_lock(30, nullptr) == 0)
                    devns_unlock();
            }
            return 0;
        });
        usleep(3'000);
    }
    for (auto &child : children)
        EXPECT_EQ(child->result(), 0);
    EXPECT_EQ(disk.get("A").substr(4), std::to_string(processes * times));
}

TEST_F(Lock, threads_keep_each_other_out)
{
    disk.put("A", "0");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            device opened;
            for (int time = 0; time < 50; ++time) {
                EXPECT_EQ(devns_lock(30, nullptr), 0);
                int number = std::stoi(get_variable(opened.fd(), u"A").data) + 1;
                EXPECT_EQ(set_variable(opened.fd(), u"A", 7, std::to_string(number)), EFI_SUCCESS);
                EXPECT_EQ(devns_unlock(), 0);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(disk.get("A").substr(4), "200");
}

} // namespace
