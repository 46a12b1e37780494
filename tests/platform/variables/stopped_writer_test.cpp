// SPDX-License-Identifier: MIT
// A writer is killed before each of its system calls in turn. The value must be old or new afterwards, never
// torn.
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "tests/platform/devns_calls.h"
#include "tests/platform/traced_calls.h"

using platform_test::device;
using platform_test::ended;
using platform_test::in_attributes;
using platform_test::machine_folder;
using platform_test::run_up_to;
using platform_test::set_variable;
using platform_test::traced;
using platform_test::walk_all;
namespace fs = std::filesystem;

namespace {

class stopped_writer : public testing::Test {
protected:
    machine_folder disk;

    // The files of a killed writer, or its lock's, would change the calls of the next writer.
    void remove_temporaries() const
    {
        fs::remove(disk.state("lock"));
        for (const fs::path &folder : {disk.store(), disk.root() / "var/lib/hwplat"}) {
            std::error_code missing;
            for (const auto &entry : fs::directory_iterator(folder, missing)) {
                if (entry.path().extension() == ".tmp")
                    fs::remove(entry.path());
            }
        }
    }

    // Kills `body` at every system call, each time from the state that `prepare` makes, and lets `check` look
    // at the result. The calls must include `expected`.
    void at_every_call(const std::function<void()> &prepare, const std::function<void()> &body,
                       const std::function<void()> &check, const std::set<long> &expected) const
    {
        std::vector<long> killed_at;
        for (;;) {
            ASSERT_LT(killed_at.size(), 1000u);
            remove_temporaries();
            prepare();
            traced run = run_up_to(killed_at.size(), body);
            ASSERT_NE(run.how, ended::untraceable);
            check();
            ASSERT_FALSE(HasFailure())
                << "killed at call " << killed_at.size() << ", number " << run.killed_at;
            if (run.how == ended::killed) {
                killed_at.push_back(run.killed_at);
                continue;
            }
            // The uninterrupted run makes exactly the calls at which the others ended: none was left out.
            EXPECT_EQ(run.made, killed_at);
            for (long call : expected)
                EXPECT_NE(std::ranges::count(killed_at, call), 0) << "never made: " << call;
            return;
        }
    }

    // The variable has one of two values. A write works, and removes what the killed writer left.
    void expect_one_of(const std::string &before, const std::string &after) const
    {
        std::string found = disk.get("A");
        EXPECT_TRUE(found == before || found == after) << testing::PrintToString(found);
        device opened;
        EXPECT_EQ(walk_all(opened.fd()).size(), found == "(none)" ? 0u : 1u);
        EXPECT_EQ(set_variable(opened.fd(), u"B", 7, "later"), EFI_SUCCESS);
        EXPECT_EQ(disk.names().size(), found == "(none)" ? 1u : 2u);
        fs::remove(disk.file("B"));
    }

    const std::string old_value = in_attributes(7) + "the old value";
};

TEST_F(stopped_writer, creating_leaves_nothing_or_the_whole_variable)
{
    at_every_call([&] { fs::remove(disk.file("A")); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, "new");
                  },
                  [&] { expect_one_of("(none)", in_attributes(7) + "new"); },
                  {SYS_openat, SYS_flock, SYS_write, SYS_fsync});
}

TEST_F(stopped_writer, rewriting_leaves_the_old_value_or_the_new_one)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, std::string(20000, 'n'));
                  },
                  [&] { expect_one_of(old_value, in_attributes(7) + std::string(20000, 'n')); },
                  {SYS_openat, SYS_flock, SYS_write, SYS_fsync});
}

TEST_F(stopped_writer, appending_leaves_the_old_value_or_the_whole_new_one)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 0x47, " and more");
                  },
                  [&] { expect_one_of(old_value, old_value + " and more"); },
                  {SYS_openat, SYS_flock, SYS_write, SYS_fsync});
}

TEST_F(stopped_writer, deleting_leaves_the_old_value_or_nothing)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, "");
                  },
                  [&] { expect_one_of(old_value, "(none)"); },
                  {SYS_openat, SYS_flock, SYS_unlinkat, SYS_fsync});
}

TEST_F(stopped_writer, reset_can_be_played_again)
{
    std::string option = in_attributes(1) + std::string("\4\0d\0\0\0\x7f\xff\4\0", 10);
    disk.put("Boot0001", option);
    disk.put("Boot0002", option);
    disk.put("BootOrder", std::string("\1\0", 2));
    auto prepare = [&] {
        disk.put("BootNext", std::string("\2\0", 2));
        disk.put("BootCurrent", std::string("\1\0", 2), 6);
    };
    auto check = [&] {
        bool spent = disk.get("BootNext") == "(none)";
        bool started = disk.get("BootCurrent") == in_attributes(6) + std::string("\2\0", 2);
        EXPECT_TRUE(started || !spent);
        if (!spent) {
            device opened;
            EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), 0);
            EXPECT_EQ(disk.get("BootCurrent"), in_attributes(6) + std::string("\2\0", 2));
            EXPECT_EQ(disk.get("BootNext"), "(none)");
        }
    };
    at_every_call(prepare,
                  [] {
                      device opened;
                      platform_test::reset(opened.fd(), EFI_RESET_COLD);
                  },
                  check, {SYS_write, SYS_fsync, SYS_unlinkat});
}

TEST_F(stopped_writer, count_is_never_given_out_twice_and_its_file_never_torn)
{
    auto count = [] {
        device opened;
        UINT32 next = 0;
        EFI_STATUS status = EFI_SUCCESS;
        ovra_get_next_high_monotonic_count_args_t args = {&next, &status};
        devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args);
    };
    at_every_call([&] { disk.put_file(disk.state("monotonic-count"), "41\n"); }, count,
                  [&] {
                      std::string found = disk.contents(disk.state("monotonic-count"));
                      EXPECT_TRUE(found == "41\n" || found == "42\n") << found;
                  },
                  {SYS_write, SYS_fsync});
}

} // namespace
