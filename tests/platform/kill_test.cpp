// A writer is killed before each of its system calls in turn: what it was writing is then old or new, never
// torn.
#include <csignal>
#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::in_attributes;
using platform_test::machine_folder;
using platform_test::set_variable;
using platform_test::walk_all;

namespace {

enum class ended { killed, by_itself, untraceable };

/*
 * Runs `body` in a child process, which is killed as it enters its system call number `last` (from 0), so
 * that this one is not carried out. Adds the numbers of the calls that it made to `*made`.
 */
ended run_up_to(int last, const std::function<void()> &body, std::set<long> *made)
{
    pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(1);
        raise(SIGSTOP);
        body();
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
        return ended::untraceable;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
    for (int entered = 0;;) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        if (waitpid(child, &status, 0) != child)
            return ended::untraceable;
        if (WIFEXITED(status))
            return WEXITSTATUS(status) == 0 ? ended::by_itself : ended::untraceable;
        if (WIFSIGNALED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80))
            return ended::untraceable;
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        if (entered++ == last) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return ended::killed;
        }
        made->insert(static_cast<long>(info.entry.nr));
    }
}

class Kill : public testing::Test {
protected:
    machine_folder disk;

    /*
     * Kills `body` at every system call, from the state that `prepare` makes, and hands what is left to
     * `check`. The calls in `expected` must have been among those.
     */
    static void at_every_call(const std::function<void()> &prepare, const std::function<void()> &body,
                              const std::function<void()> &check,
                              std::initializer_list<std::set<long>> expected)
    {
        std::set<long> made;
        int last = 0;
        for (;; ++last) {
            prepare();
            ended how = run_up_to(last, body, &made);
            if (how == ended::untraceable)
                FAIL() << "the child could not be traced";
            check();
            if (testing::Test::HasFailure())
                FAIL() << "killed at call " << last;
            if (how == ended::by_itself)
                break;
            ASSERT_LT(last, 1000);
        }
        for (const std::set<long> &alternatives : expected) {
            bool seen = false;
            for (long call : alternatives)
                seen = seen || made.contains(call);
            EXPECT_TRUE(seen) << "never made: " << *alternatives.begin();
        }
    }

    /* The variable has one of two values; it can be written; nothing of the killed writer stays then. */
    void expect_one_of(const std::string &before, const std::string &after) const
    {
        std::string found = disk.get("A");
        EXPECT_TRUE(found == before || found == after) << testing::PrintToString(found);
        device opened;
        EXPECT_EQ(walk_all(opened.fd()).size(), found == "(none)" ? 0u : 1u);
        EXPECT_EQ(set_variable(opened.fd(), u"B", 7, "later"), EFI_SUCCESS);
        EXPECT_EQ(disk.names().size(), found == "(none)" ? 1u : 2u);
        std::filesystem::remove(disk.file("B"));
    }

    static std::set<long> rename_calls()
    {
#ifdef SYS_renameat
        return {SYS_renameat, SYS_renameat2};
#else
        return {SYS_renameat2};
#endif
    }

    const std::string old_value = in_attributes(7) + "the old value";
};

TEST_F(Kill, creating_leaves_nothing_or_the_whole_variable)
{
    at_every_call([&] { std::filesystem::remove(disk.file("A")); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, "new");
                  },
                  [&] { expect_one_of("(none)", in_attributes(7) + "new"); },
                  {{SYS_openat}, {SYS_flock}, {SYS_write}, {SYS_fsync}, rename_calls()});
}

TEST_F(Kill, rewriting_leaves_the_old_value_or_the_new_one)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, std::string(20000, 'n'));
                  },
                  [&] { expect_one_of(old_value, in_attributes(7) + std::string(20000, 'n')); },
                  {{SYS_openat}, {SYS_flock}, {SYS_write}, {SYS_fsync}, rename_calls()});
}

TEST_F(Kill, appending_leaves_the_old_value_or_the_whole_new_one)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 0x47, " and more");
                  },
                  [&] { expect_one_of(old_value, old_value + " and more"); },
                  {{SYS_openat}, {SYS_flock}, {SYS_write}, {SYS_fsync}, rename_calls()});
}

TEST_F(Kill, deleting_leaves_the_old_value_or_nothing)
{
    at_every_call([&] { disk.put("A", "the old value"); },
                  [] {
                      device opened;
                      set_variable(opened.fd(), u"A", 7, "");
                  },
                  [&] { expect_one_of(old_value, "(none)"); },
                  {{SYS_openat}, {SYS_flock}, {SYS_unlinkat}, {SYS_fsync}});
}

TEST_F(Kill, reset_can_be_played_again)
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
                  check, {{SYS_write}, {SYS_fsync}, {SYS_unlinkat}, rename_calls()});
}

TEST_F(Kill, count_is_never_given_out_twice_and_its_file_never_torn)
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
                  {{SYS_write}, {SYS_fsync}, rename_calls()});
}

} // namespace
