/* SPDX-License-Identifier: MIT */
/* A machine in a folder, and other processes that take its lock. */
#ifndef TESTS_PLATFORM_LOCK_FIXTURE_H
#define TESTS_PLATFORM_LOCK_FIXTURE_H

#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"
#include "tests/support/child_process.h"

namespace platform_test {

using ovra::test::child_process;
using ovra::test::signal_line;

/* In a child: takes the lock, says so and keeps it. */
inline int hold_and_say(const signal_line &taken)
{
    if (devns_lock(0, nullptr) != 0)
        return 1;
    taken.send();
    for (;;)
        pause();
}

class machine_lock : public testing::Test {
protected:
    machine_folder disk;

    [[nodiscard]] fs::path file() const { return disk.state("lock"); }

    /* Another process can take the lock, and gives it back. */
    static bool is_free()
    {
        return child_process([] { return devns_lock(0, nullptr) == 0 ? 0 : 1; }).result() == 0;
    }
    static std::string contents_of(const fs::path &path) { return machine_folder::contents(path); }
};

} // namespace platform_test

#endif
