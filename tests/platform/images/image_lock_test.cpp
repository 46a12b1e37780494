// SPDX-License-Identifier: MIT
// Who may change a file of variables, and when.
#include <cerrno>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include "tests/platform/images/fixture.h"
#include "tests/platform/traced_calls.h"
#include "tests/support/child_process.h"

using ovra::test::child_process;
using ovra::test::signal_line;
using platform_test::device;
using platform_test::in_uboot_file;
using platform_test::in_volume;
using platform_test::uboot_file;
using platform_test::volume;

namespace {

class image_lock : public platform_test::image_file {
protected:
    image_lock() { put(volume(in_volume({"A", "a"}))); }

    // Another process can take the lock, and gives it back.
    static bool is_free()
    {
        return child_process([] { return devns_lock(0, nullptr) == 0 ? 0 : 1; }).result() == 0;
    }

    // A lock of some bytes, as an emulator takes them. It ends with the file descriptor.
    [[nodiscard]] int lock_bytes(short type, off_t start, off_t length) const
    {
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock wanted = {};
        wanted.l_type = type;
        wanted.l_whence = SEEK_SET;
        wanted.l_start = start;
        wanted.l_len = length;
        EXPECT_EQ(fcntl(file, F_OFD_SETLK, &wanted), 0) << strerror(errno);
        return file;
    }

    void expect_refused() const
    {
        const std::string before = contents();
        pid_t holder = -1;
        errno = 0;
        EXPECT_EQ(devns_lock(30, &holder), -1); // at once: an emulator runs for days
        EXPECT_EQ(errno, EBUSY);
        EXPECT_EQ(set(u"B", 7, "b"), EFI_ACCESS_DENIED);
        const device opened;
        EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), -1);
        EXPECT_EQ(get(u"A").data, "a");
        EXPECT_EQ(contents(), before);
        EXPECT_EQ(left_behind(), 0u);
    }
};

TEST_F(image_lock, emulator_that_runs_keeps_the_file)
{
    for (const off_t byte : {100, 101, 103, 201, 203}) {
        const int held = lock_bytes(F_RDLCK, byte, 1);
        expect_refused();
        close(held);
        EXPECT_EQ(devns_lock(0, nullptr), 0) << byte;
        EXPECT_EQ(devns_unlock(), 0);
    }
}

TEST_F(image_lock, other_locks_of_the_file_count_too)
{
    int held = lock_bytes(F_WRLCK, 5000, 10);
    expect_refused();
    close(held);
    for (const int kind : {LOCK_SH, LOCK_EX}) {
        held = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(held, kind), 0);
        expect_refused();
        close(held);
    }
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
}

TEST_F(image_lock, emulator_does_not_start_meanwhile)
{
    const auto can_start = [this] {
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock wanted = {};
        wanted.l_type = F_RDLCK;
        wanted.l_whence = SEEK_SET;
        wanted.l_start = 100;
        wanted.l_len = 1;
        const bool taken = fcntl(file, F_OFD_SETLK, &wanted) == 0;
        close(file);
        return taken;
    };
    EXPECT_TRUE(can_start());
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_FALSE(can_start());
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
    EXPECT_FALSE(can_start()); // the lock went to the new file
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(can_start());
}

TEST_F(image_lock, file_that_another_program_put_in_its_place_is_left_alone)
{
    const auto exchange = [this] {
        const fs::path other = folder / "other";
        machine_folder::put_file(other, volume(in_volume({"A", "other"})));
        fs::rename(other, path);
        return contents();
    };
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
    const std::string other = exchange();
    for (const std::string_view data : {"c", ""}) {
        errno = 0;
        EXPECT_EQ(set(u"A", 7, data), EFI_DEVICE_ERROR);
        EXPECT_EQ(errno, ESTALE);
        EXPECT_EQ(contents(), other);
        EXPECT_EQ(left_behind(), 0u);
    }
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_EQ(set(u"A", 7, "c"), EFI_SUCCESS); // under a lock of the file that is there now
}

TEST_F(image_lock, is_held_across_changes_and_counted)
{
    for (int depth = 0; depth < 2; ++depth)
        ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
    EXPECT_EQ(set(u"B", 7, ""), EFI_SUCCESS);
    for (const bool last : {false, true}) {
        EXPECT_EQ(devns_unlock(), 0);
        EXPECT_EQ(is_free(), last);
    }
    EXPECT_EQ(devns_unlock(), -1);
    EXPECT_EQ(left_behind(), 0u);
}

TEST_F(image_lock, other_process_waits_for_it_and_is_told_who_has_it)
{
    signal_line taken;
    child_process holder([&] {
        if (devns_lock(0, nullptr) != 0 || set(u"B", 7, "b") != EFI_SUCCESS)
            return 1;
        taken.send();
        for (;;)
            pause();
    });
    EXPECT_EQ(taken.wait(), holder.id());
    pid_t found = -1;
    errno = 0;
    EXPECT_EQ(devns_lock(0, &found), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(found, holder.id());
    std::thread waiter([] {
        EXPECT_EQ(devns_lock(30, nullptr), 0);
        EXPECT_EQ(devns_unlock(), 0);
    });
    usleep(20'000);
    holder.end();
    waiter.join();
    EXPECT_EQ(get(u"B").data, "b");
}

TEST_F(image_lock, two_files_of_a_folder_have_a_lock_each)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    platform_test::machine_folder::put_file(folder / "other.fd", volume(""));
    named.set((folder / "other.fd").c_str());
    EXPECT_TRUE(is_free());
    EXPECT_EQ(set(u"B", 7, "b"), EFI_SUCCESS);
    named.set(path.c_str());
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(image_lock, changes_of_several_processes_are_all_there)
{
    constexpr int writers = 4;
    constexpr int times = 25;
    std::vector<std::unique_ptr<child_process>> children;
    for (int i = 0; i < writers; ++i) {
        children.push_back(std::make_unique<child_process>([i] {
            for (int n = 0; n < times; ++n) {
                if (set(u"A", 0x47, std::string(1, static_cast<char>('b' + i))) != EFI_SUCCESS)
                    return 1;
            }
            return 0;
        }));
    }
    // A reader sees one state after another meanwhile.
    std::size_t seen = 0;
    for (int n = 0; n < 200; ++n) {
        const auto now = get(u"A");
        EXPECT_EQ(now.status, EFI_SUCCESS);
        EXPECT_GE(now.data.size(), seen);
        seen = now.data.size();
    }
    for (const auto &child : children)
        EXPECT_EQ(child->result(), 0);
    const std::string data = get(u"A").data;
    EXPECT_EQ(data.size(), 1u + writers * times);
    for (int i = 0; i < writers; ++i)
        EXPECT_EQ(std::ranges::count(data, 'b' + i), times);
    EXPECT_EQ(left_behind(), 0u);
}

TEST_F(image_lock, threads_see_one_change_after_another)
{
    constexpr int last = 20;
    put(volume(in_volume({"A", "0"})));
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([] {
            const device opened;
            for (int seen = 0; seen < last;) {
                const int now = std::stoi(platform_test::get_variable(opened.fd(), u"A").data);
                ASSERT_GE(now, seen);
                seen = now;
            }
        });
    }
    for (int i = 1; i <= last; ++i)
        EXPECT_EQ(set(u"A", 7, std::to_string(i)), EFI_SUCCESS);
    for (std::thread &reader : readers)
        reader.join();
}

TEST_F(image_lock, needs_the_permission_to_write_the_file)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to be somebody else";
    chmod(folder.c_str(), 0777);
    const int status = child_process([] {
                           if (setresuid(65534, 65534, 65534) != 0)
                               return 1;
                           errno = 0;
                           if (devns_lock(0, nullptr) != -1 || errno != EACCES)
                               return 2;
                           if (set(u"B", 7, "b") != EFI_ACCESS_DENIED)
                               return 3;
                           return get(u"A").data == "a" ? 0 : 4;
                       }).result();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(left_behind(), 0u);
}

// The new file would be the writer's own, and the emulator could not open it.
TEST_F(image_lock, file_that_cannot_keep_its_owner_is_not_written)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to be somebody else";
    chmod(folder.c_str(), 0777);
    chmod(path.c_str(), 0666);
    const std::string before = contents();
    EXPECT_EQ(child_process([] {
                  if (setresuid(65534, 65534, 65534) != 0)
                      return 1;
                  return set(u"B", 7, "b") == EFI_ACCESS_DENIED ? 0 : 2;
              }).result(),
              0);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(left_behind(), 0u);
}

// A writer is killed at each of its system calls in turn.
TEST_F(image_lock, killed_writer_leaves_the_old_file_or_the_new_one)
{
    const std::string before = contents();
    const std::string after = volume(in_volume({"A", "a"}) + in_volume({"B", "b"}));
    std::set<long> killed_at;
    std::size_t call = 0;
    for (bool done = false; !done; ++call) {
        ASSERT_LT(call, 1000u);
        put(before);
        const auto run = platform_test::run_up_to(call, [] { set(u"B", 7, "b"); });
        ASSERT_NE(run.how, platform_test::ended::untraceable);
        done = run.how == platform_test::ended::by_itself;
        killed_at.insert(run.killed_at);
        const std::string found = contents();
        ASSERT_TRUE(found == before || found == after) << "killed at call " << call;
        ASSERT_TRUE(!done || found == after);
        ASSERT_EQ(set(u"C", 7, "c"), EFI_SUCCESS); // and the next writer is not in its way
        ASSERT_EQ(left_behind(), 0u);
    }
    for (const long expected : {SYS_fsync, SYS_write, SYS_fcntl, SYS_flock, SYS_renameat})
        EXPECT_TRUE(killed_at.contains(expected)) << expected;
}

} // namespace
