// SPDX-License-Identifier: MIT
// What else a process does while its disks are looked at: it changes its folder, forks, cancels threads,
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

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

// The working folder, and back.
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

// Ends with 0 when `body`, in a child, says that all is well; what hangs is killed.
int status_in_child(const std::function<bool()> &body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

// A relative folder is taken from where the process first looked at it, by every library alike.
TEST(Process, relative_root_is_settled_at_its_first_use)
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
                // libvolset looks first, the others after the process went elsewhere.
                if (drives().size() != 3)
                    return false;
                fs::current_path("/");
                ovra_hdl_t handle = nullptr;
                if (ovra_init(&handle) != 0)
                    return false;
                ovra_fini(handle);
                return drives().size() == 3 && tree_paths().size() > 3 &&
                       link_of("/dev/dsk/c1t3d0s0").starts_with("../../devices/pci@0,0/pci1000,60@3/sd@3,0");
            }),
            0)
            << value;
    }
    // "." too, which is another folder, or the live machine, after each chdir.
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
    // Another value is looked at for itself, and an absolute one at each call.
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

// A folder is its path: one that was renamed is gone, and no other machine stands in for it.
TEST(Process, root_that_is_renamed_is_gone)
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

// Cancelled inside a call, a thread ends behind it, and nothing that the call had is lost.
TEST(Process, threads_may_be_cancelled)
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

// A child that is forked while another thread reads media can read them too, those of the same snapshot
// included.
TEST(Process, children_do_not_wait_for_threads_that_they_have_not)
{
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
            // In the child nobody releases it.
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

// Between the two calls a thread sees one machine, whatever becomes of it, and behind them the machine as it
// is.
TEST(Process, picture_is_kept_between_begin_and_end_only)
{
    const sample machine("q35");
    const auto paths = tree_paths();
    devns_end(); // alone, nothing
    devns_begin();
    const std::string link = link_of("/dev/dsk/c5t0d0s0");
    EXPECT_EQ(tree_paths(), paths);
    fs::rename(machine.root() / "sys", machine.root() / "gone");
    {
        const sample pc("pc"); // HWPLAT_ROOT is not looked at again
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

// What fails does not stay: the next call in the same picture tries again.
TEST(Process, picture_that_cannot_be_made)
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

// Other users have no permission to read disks. That is what they are told, of that disk alone.
TEST(Process, disk_without_permission)
{
    const sample machine("q35");
    fs::permissions(machine.root(), fs::perms::all);
    const fs::path disk = machine.root() / "dev/sda";
    fs::permissions(disk, fs::perms::none);
    EXPECT_EQ(status_in_child([&] {
                  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
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

// A file of sysfs that may not be read fails the snapshot: without it other disks would have its numbers.
TEST(Process, sysfs_without_permission)
{
    const sample machine("q35");
    fs::permissions(machine.root(), fs::perms::all);
    fs::permissions(machine.root() / "sys/devices/pci0000:00/0000:00:03.0/class", fs::perms::none);
    EXPECT_EQ(status_in_child([&] {
                  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
                      return false;
                  int err = 0;
                  errno = 0;
                  return ht_init("/", HT_SUBTREE) == nullptr && errno == EACCES &&
                         vs_get_descriptors(VS_DRIVE, nullptr, &err) == nullptr && err == EACCES &&
                         link_of("/dev/dsk/c5t3d0p1") == "errno " + std::to_string(EACCES);
              }),
              0);
}

// A program that loads the libraries and unloads them again and again loses nothing by it.
TEST(Process, libraries_stay_loaded)
{
    for (const char *library : {"libdevns.so.1", "libhwtree.so.1", "libvolset.so.1", "libkvlist.so.1"}) {
        EXPECT_EQ(system((std::string("readelf -dW '") + OVRA_TEST_LIBRARIES + "/" + library +
                          "' | grep -q NODELETE")
                             .c_str()),
                  0)
            << library;
    }
}

// What messages quote comes from folders that anybody may have filled, and goes to a terminal.
TEST(Process, messages_escape_what_is_no_printable_ascii)
{
    const sample machine;
    const std::string name = "sd\x1b[31m\x7f\x0a\xc2\x9b\xe2\x80\xae\xff";
    fs::create_directories(machine.root() / "sys/block" / name);
    const std::string messages = said([] { drives(); });
    EXPECT_EQ(messages,
              "hwplat: sys/block/sd\\x1b[31m\\x7f\\x0a\\xc2\\x9b\\xe2\\x80\\xae\\xff: no link to a device\n");
}

} // namespace
