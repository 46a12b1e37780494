// SPDX-License-Identifier: MIT
// A process that does other things while its disks are read: it changes its folder, forks, cancels threads,
// unloads libraries.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ovra/ovra.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"
#include "tests/support/child_process.h"

namespace {

using namespace devices_test;
using ovra::test::become_nobody;
using ovra::test::status_in_child;

// Another working folder, and back.
class working_folder {
public:
    explicit working_folder(const fs::path &folder) : before(fs::current_path()) { fs::current_path(folder); }
    working_folder(const working_folder &) = delete;
    working_folder &operator=(const working_folder &) = delete;
    ~working_folder()
    {
        std::error_code ignored;
        fs::current_path(before, ignored);
    }

private:
    fs::path before;
};

// A relative folder starts where the process first read it, for all libraries alike.
TEST(device_process, relative_root_is_settled_at_its_first_use)
{
    const sample machine("pc");
    const sample other("q35");
    const std::string name = machine.root().filename();
    for (const std::string &value : {name, "./" + name, name + "/.",
                                     "../" + machine.root().parent_path().filename().string() + "/" + name}) {
        EXPECT_EQ(
            status_in_child([&] {
                const environment named("HWPLAT_ROOT", value.c_str());
                fs::current_path(machine.root().parent_path());
                // libvolset reads it first, the others after a chdir.
                if (drives().size() != 3)
                    return false;
                fs::current_path("/");
                library();
                return drives().size() == 3 && tree_paths().size() > 3 &&
                       link_of("/dev/dsk/c1t3d0s0").starts_with("../../devices/pci@0,0/pci1000,60@3/sd@3,0");
            }),
            0)
            << value;
    }
    // So does ".", which otherwise were another folder, or the live machine, after each chdir.
    EXPECT_EQ(status_in_child([&] {
                  const environment named("HWPLAT_ROOT", ".");
                  fs::current_path(machine.root());
                  const std::string link = link_of("/dev/dsk/c1t3d0s0");
                  fs::current_path("/");
                  const bool same = drives().size() == 3 && link_of("/dev/dsk/c1t3d0s0") == link;
                  fs::current_path(other.root());
                  return same && drives().size() == 3;
              }),
              0);
    // Another value starts anew, and an absolute one is read at each call.
    EXPECT_EQ(status_in_child([&] {
                  fs::current_path(machine.root().parent_path());
                  setenv("HWPLAT_ROOT", name.c_str(), 1);
                  const bool one = drives().size() == 3;
                  setenv("HWPLAT_ROOT", other.root().filename().c_str(), 1);
                  const bool two = drives().size() == 7;
                  fs::current_path("/");
                  const bool still = drives().size() == 7;
                  setenv("HWPLAT_ROOT", machine.root().c_str(), 1);
                  return one && two && still && drives().size() == 3;
              }),
              0);
}

// The folder is its path: a renamed one is gone, and no other machine replaces it.
TEST(device_process, root_that_is_renamed_is_gone)
{
    const sample machine("pc");
    const working_folder here(machine.root().parent_path());
    const std::string name = machine.root().filename();
    const environment named("HWPLAT_ROOT", name.c_str());
    EXPECT_EQ(drives().size(), 3U);
    const fs::path moved = machine.root().string() + "-moved";
    fs::rename(machine.root(), moved);
    int err = 0;
    EXPECT_EQ(vs_get_descriptors(VS_DRIVE, nullptr, &err), nullptr);
    EXPECT_EQ(err, ENOENT);
    fs::rename(moved, machine.root());
    EXPECT_EQ(drives().size(), 3U);
}

void *look_for_ever(void *)
{
    for (;;) {
        int err = 0;
        vs_free_descriptors(vs_get_descriptors(VS_SLICE, nullptr, &err));
        ht_fini(ht_init("/", HT_SUBTREE | HT_PROPS));
        pthread_testcancel();
    }
}

// A thread cancelled inside a call ends after the call, and the call loses nothing.
TEST(device_process, threads_may_be_cancelled)
{
    const sample machine("pc");
    EXPECT_EQ(status_in_child([] {
                  const int free_descriptor = dup(0);
                  close(free_descriptor);
                  for (int i = 0; i < 200; ++i) {
                      pthread_t thread;
                      void *result = nullptr;
                      if (pthread_create(&thread, nullptr, look_for_ever, nullptr) != 0)
                          return false;
                      usleep(static_cast<useconds_t>(i % 20 * 200));
                      if (pthread_cancel(thread) != 0 || pthread_join(thread, &result) != 0 ||
                          result != PTHREAD_CANCELED)
                          return false;
                  }
                  const int free_now = dup(0);
                  close(free_now);
                  return free_now == free_descriptor && drives().size() == 3;
              }),
              0);
}

// A child forked while another thread reads media can read them too, those of the same picture included.
TEST(device_process, children_do_not_wait_for_threads_that_they_have_not)
{
#ifdef OVRA_SANITIZED
    GTEST_SKIP()
        << "a child can find a lock of AddressSanitizer's own allocator held; the release build runs this";
#endif
    const sample machine("pc");
    std::atomic<bool> done = false;
    std::atomic<vs_descriptor_t> drive = 0;
    std::atomic<int> looked = 0;
    std::thread other([&] {
        while (!done) {
            int err = 0;
            vs_descriptor_t *all = vs_get_descriptors(VS_DRIVE, nullptr, &err);
            drive = all[1];
            vs_free_descriptors(vs_get_associated_descriptors(all[0], VS_MEDIA, &err));
            ++looked;
            drive = 0;
            usleep(50);
            vs_free_descriptors(all);
        }
    });
    for (int i = 0; i < 100; ++i) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            int err = 0;
            // The child never releases it.
            if (const vs_descriptor_t mine = drive; mine != 0)
                vs_free_descriptors(vs_get_associated_descriptors(mine, VS_MEDIA, &err));
            _exit(drives().size() == 3 && link_of("/dev/dsk/c1t3d0s0") != "" ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    done = true;
    other.join();
    EXPECT_GT(looked, 0);
}

// Between the two calls a thread sees one machine, whatever changes, and after them the machine as it is.
TEST(device_process, picture_is_kept_between_begin_and_end_only)
{
    const sample machine("q35");
    const auto paths = tree_paths();
    devns_end(); // alone: does nothing
    devns_begin();
    const std::string link = link_of("/dev/dsk/c5t0d0s0");
    EXPECT_EQ(tree_paths(), paths);
    fs::rename(machine.root() / "sys", machine.root() / "gone");
    {
        const sample pc("pc"); // HWPLAT_ROOT is not read again
        devns_begin();
        EXPECT_EQ(drives().size(), 7U);
        devns_end();
        EXPECT_EQ(tree_paths(), paths);
        EXPECT_EQ(link_of("/dev/dsk/c5t0d0s0"), link);
        std::thread([] { EXPECT_EQ(drives().size(), 3U) << "the other thread has none"; }).join();
        EXPECT_EQ(status_in_child([&] {
                      const bool kept = tree_paths() == paths;
                      devns_end();
                      return kept && drives().size() == 3;
                  }),
                  0);
    }
    devns_end();
    EXPECT_THAT(tree_paths(), testing::ElementsAre("/"));
    fs::rename(machine.root() / "gone", machine.root() / "sys");
    EXPECT_EQ(tree_paths(), paths);
}

// A failure is not kept: the next call in the same picture tries again.
TEST(device_process, picture_that_cannot_be_made)
{
    const sample machine("pc");
    const fs::path vendor = machine.root() / "sys/devices/pci0000:00/0000:00:03.0/vendor";
    ASSERT_TRUE(fs::exists(vendor));
    const std::string contents = machine.contents(vendor);
    fs::remove(vendor);
    fs::create_symlink("class", vendor);
    devns_begin();
    int err = 0;
    EXPECT_EQ(vs_get_descriptors(VS_DRIVE, nullptr, &err), nullptr);
    EXPECT_EQ(err, ELOOP);
    fs::remove(vendor);
    machine.put_file(vendor, contents);
    EXPECT_EQ(drives().size(), 3U);
    devns_end();
}

// Other users may not read disks. The error says so, for that disk alone.
TEST(device_process, disk_without_permission)
{
    const sample machine("q35");
    fs::permissions(machine.root(), fs::perms::all);
    const fs::path disk = machine.root() / "dev/sda";
    fs::permissions(disk, fs::perms::none);
    EXPECT_EQ(status_in_child([&] {
                  if (!become_nobody())
                      return false;
                  int err = 0;
                  const bool named =
                      vs_get_descriptor_by_name(VS_SLICE, "/dev/dsk/c5t0d0s0", &err) == 0 && err == EACCES;
                  const vs_descriptor_t drive = vs_get_descriptor_by_name(VS_DRIVE, "c5t0d0", &err);
                  const bool media = drive != 0 &&
                                     vs_get_associated_descriptors(drive, VS_MEDIA, &err) == nullptr &&
                                     err == EACCES;
                  vs_free_descriptor(drive);
                  const std::vector<std::string> others = volumes();
                  return named && media &&
                         link_of("/dev/dsk/c5t0d0s0") == "errno " + std::to_string(EACCES) &&
                         link_of("/dev/dsk/c5t3d0p1").starts_with("../../devices/") && drives().size() == 7 &&
                         !others.empty() && others.back().starts_with("c5t3d0p");
              }),
              0);
}

// An unreadable file of sysfs fails the picture: otherwise other disks would get its numbers.
TEST(device_process, sysfs_without_permission)
{
    const sample machine("q35");
    fs::permissions(machine.root(), fs::perms::all);
    fs::permissions(machine.root() / "sys/devices/pci0000:00/0000:00:03.0/class", fs::perms::none);
    EXPECT_EQ(status_in_child([&] {
                  if (!become_nobody())
                      return false;
                  int err = 0;
                  errno = 0;
                  return ht_init("/", HT_SUBTREE) == nullptr && errno == EACCES &&
                         vs_get_descriptors(VS_DRIVE, nullptr, &err) == nullptr && err == EACCES &&
                         link_of("/dev/dsk/c5t3d0p1") == "errno " + std::to_string(EACCES);
              }),
              0);
}

// A program that keeps loading and unloading the libraries loses nothing.
TEST(device_process, libraries_stay_loaded)
{
    for (const char *library : {"libdevns.so.1", "libhwtree.so.1", "libvolset.so.1", "libkvlist.so.1"}) {
        EXPECT_EQ(system((std::string("readelf -dW '") + OVRA_TEST_LIBRARIES + "/" + library +
                          "' | grep -q NODELETE")
                             .c_str()),
                  0)
            << library;
    }
}

// Messages quote names from folders that anybody may have filled, and go to a terminal.
TEST(device_process, messages_escape_what_is_no_printable_ascii)
{
    const sample machine;
    const std::string name = "sd\x1b[31m\x7f\x0a\xc2\x9b\xe2\x80\xae\xff";
    fs::create_directories(machine.root() / "sys/block" / name);
    const std::string messages = said([] { drives(); });
    EXPECT_EQ(messages,
              "hwplat: sys/block/sd\\x1b[31m\\x7f\\x0a\\xc2\\x9b\\xe2\\x80\\xae\\xff: no link to a device\n");
}

} // namespace
