// SPDX-License-Identifier: MIT
// How libblkid is loaded, with a stand-in for dlopen: while another thread forks, and after a chroot.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <dlfcn.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/child_process.h"

namespace {

std::atomic<int> loads = 0;       // of libblkid, other than by RTLD_NOLOAD
std::atomic<bool> hold = false;   // a load waits for `about_to_fork`, and then for a moment
std::atomic<bool> inside = false; // of a load that is held
std::atomic<bool> about_to_fork = false;

} // namespace

extern "C" __attribute__((visibility("default"))) void *dlopen(const char *name, int flags)
{
    const auto real = reinterpret_cast<void *(*)(const char *, int)>(dlsym(RTLD_NEXT, "dlopen"));
    if (name == nullptr || std::strcmp(name, "libblkid.so.1") != 0 || (flags & RTLD_NOLOAD) != 0)
        return real(name, flags);
    ++loads;
    if (!hold)
        return real(name, flags);
    inside = true;
    while (!about_to_fork)
        usleep(100);
    usleep(200000);
    void *library = real(name, flags);
    inside = false;
    return library;
}

namespace {

using namespace devices_test;
using ovra::test::status_in_child;

// The error of asking for all slices, each of which is on a medium; -1 when there is none.
int error_of_reading()
{
    int err = 0;
    const descriptors found(vs_get_descriptors(VS_SLICE, nullptr, &err));
    return err == 0 && (!found || found[0] == 0) ? -1 : err;
}

TEST(device_loading, a_fork_waits_for_its_end)
{
    const sample machine("q35");
    EXPECT_EQ(status_in_child([] {
                  hold = true;
                  std::thread other(error_of_reading);
                  while (!inside)
                      usleep(100);
                  about_to_fork = true;
                  const int status = status_in_child([] { return !inside && error_of_reading() == 0; });
                  other.join();
                  return status == 0 && error_of_reading() == 0;
              }),
              0);
    EXPECT_EQ(status_in_child([] { return error_of_reading() == 0 && loads == 1; }), 0);
}

// Into the folder that holds the machine's, as a user with that right.
bool change_root(const sample &machine)
{
    const std::string inner = "/" + machine.root().filename().string();
    return chroot(machine.root().parent_path().c_str()) == 0 && chdir("/") == 0 &&
           setenv("HWPLAT_ROOT", inner.c_str(), 1) == 0;
}

bool may_change_root()
{
    return status_in_child(
               [] { return (geteuid() == 0 || unshare(CLONE_NEWUSER) == 0) && chroot("/") == 0; }) == 0;
}

TEST(device_loading, nothing_is_loaded_from_another_root)
{
    if (!may_change_root())
        GTEST_SKIP() << "no right to change the root";
    const sample machine("q35");
    const auto in_child = [&](auto before) {
        return status_in_child([&] {
            if (geteuid() != 0 && unshare(CLONE_NEWUSER) != 0)
                return false;
            const bool prepared = before();
            const int loaded_before = loads;
            return prepared && change_root(machine) &&
                   error_of_reading() == (loaded_before == 0 ? ELIBACC : 0) && loads == loaded_before;
        });
    };
    EXPECT_EQ(in_child([] { return true; }), 0);
    EXPECT_EQ(in_child([] { return error_of_reading() == 0; }), 0);
    EXPECT_EQ(in_child([] { return dlopen("libblkid.so.1", RTLD_NOW) != nullptr; }), 0);
    // A machine's folder is no other root.
    EXPECT_EQ(status_in_child([] { return chroot("/") == -1 || error_of_reading() == 0; }), 0);
}

} // namespace
