// SPDX-License-Identifier: MIT
// Programs that close file descriptors, cancel threads and fork around the library.
#include "platform/include/devns.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"
#include "tests/support/child_process.h"

using ovra::test::child_process;
using platform_test::device;
using platform_test::get_variable;
using platform_test::machine_folder;
using platform_test::set_variable;
using platform_test::walk_all;
namespace fs = std::filesystem;

namespace {

// The numbers above 2 that are open.
std::vector<int> open_numbers()
{
    std::vector<int> found;
    for (int fd = 3; fd < 200; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0)
            found.push_back(fd);
    }
    return found;
}

// A program that becomes a daemon closes all file descriptors it does not know.
TEST(devns_number, that_is_the_programs_own_file_by_now_is_left_alone)
{
    machine_folder disk;
    fs::create_directory(disk.root() / "own");
    device opened;
    EXPECT_EQ(child_process([&] {
                  close_range(3, ~0u, 0);
                  // Folders of its own take all the numbers that the library had.
                  for (int i = 0; i < 20; ++i) {
                      if (open((disk.root() / "own").c_str(), O_RDONLY | O_DIRECTORY) < 0)
                          return 1;
                  }
                  auto before = open_numbers();
                  std::vector<CHAR16> name = platform_test::ucs2(u"BootNext");
                  EFI_GUID guid = platform_test::global_guid;
                  UINT32 attributes = 7;
                  UINTN size = 2;
                  EFI_STATUS status = platform_test::not_answered;
                  char data[2] = {1, 0};
                  ovra_variable_args_t args = {
                      name.data(), &guid, &attributes, &size, data, &status, name.size() * sizeof(CHAR16)};
                  errno = 0;
                  if (devns_ioctl(opened.fd(), OVRA_SET_VARIABLE, &args) != -1 || errno != EBADF)
                      return 2;
                  if (status != platform_test::not_answered || !fs::is_empty(disk.root() / "own"))
                      return 3;
                  errno = 0;
                  if (devns_close(opened.fd()) != -1 || errno != EBADF)
                      return 4;
                  if (open_numbers() != before)
                      return 5;
                  // Now the number belongs to the program alone.
                  return devns_close(opened.fd()) == 0 && fcntl(opened.fd(), F_GETFD) < 0 ? 0 : 6;
              }).result(),
              0);
    EXPECT_TRUE(fs::is_empty(disk.store()));
}

TEST(devns_number, that_was_closed_is_a_bad_one)
{
    machine_folder disk;
    device opened;
    EXPECT_EQ(child_process([&] {
                  close_range(3, ~0u, 0);
                  errno = 0;
                  if (set_variable(opened.fd(), u"A", 7, "data") != platform_test::not_answered ||
                      errno != EBADF)
                      return 1;
                  device again;
                  if (set_variable(again.fd(), u"A", 7, "data") != EFI_SUCCESS)
                      return 2;
                  return get_variable(again.fd(), u"A").data == "data" ? 0 : 3;
              }).result(),
              0);
}

TEST(devns_number, number_that_is_given_anew_is_no_service)
{
    machine_folder disk;
    disk.put_file(disk.root() / "file", "text");
    EXPECT_EQ(child_process([&] {
                  device opened;
                  close_range(3, ~0u, 0);
                  int fd = -1;
                  while (fd < opened.fd())
                      fd = devns_open((disk.root() / "file").c_str(), O_RDONLY);
                  return fd == opened.fd() && devns_close(fd) == 0 && fcntl(fd, F_GETFD) < 0 ? 0 : 1;
              }).result(),
              0);
}

// A cancelled thread ends at its next cancellation point, but not within a call: nothing is left half done.
TEST(devns_threads, cancelled_inside_a_call_finish_it)
{
    machine_folder disk;
    disk.put("A", "data");
    for (int round = 0; round < 30; ++round) {
        std::atomic<bool> started = false;
        std::thread thread([&] {
            device opened;
            for (;;) {
                if (set_variable(opened.fd(), u"A", 7, std::string(1000, 'x')) != EFI_SUCCESS)
                    ADD_FAILURE();
                walk_all(opened.fd());
                devns_close(devns_open("/dev/null", O_RDONLY));
                started = true;
                pthread_testcancel();
            }
        });
        while (!started)
            std::this_thread::yield();
        usleep(static_cast<unsigned>(round) * 37);
        EXPECT_EQ(pthread_cancel(thread.native_handle()), 0);
        thread.join();
        EXPECT_EQ(devns_lock(30, nullptr), 0);
        EXPECT_EQ(devns_unlock(), 0);
    }
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST(devns_threads, child_made_meanwhile_does_not_hang)
{
#ifdef OVRA_SANITIZED
    GTEST_SKIP() << "the sanitizer's allocator does not give back its own mutexes in a child";
#endif
    machine_folder disk;
    for (char letter = 'A'; letter < 'Z'; ++letter)
        disk.put(std::string(1, letter), "data");
    device shared;
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!done) {
                device own;
                walk_all(own.fd());
                walk_all(shared.fd());
                EXPECT_EQ(set_variable(own.fd(), u"A", 7, "data"), EFI_SUCCESS);
            }
        });
    }
    for (int round = 0; round < 60; ++round) {
        EXPECT_EQ(child_process([&] {
                      alarm(60); // a child that hangs is killed
                      device own;
                      if (walk_all(own.fd()).size() != 25 || walk_all(shared.fd()).size() != 25)
                          return 1;
                      return set_variable(own.fd(), u"B", 7, "data") == EFI_SUCCESS ? 0 : 2;
                  }).result(),
                  0);
    }
    done = true;
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
