/* SPDX-License-Identifier: MIT */
/* A child process that is killed at a system call of one's choice. */
#ifndef TESTS_PLATFORM_TRACED_CALLS_H
#define TESTS_PLATFORM_TRACED_CALLS_H

#include <csignal>
#include <cstddef>
#include <functional>
#include <set>
#include <vector>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace platform_test {

enum class ended { killed, by_itself, untraceable };

/* Calls for memory may differ from run to run and change no file: they are not counted. */
inline bool is_counted(long call)
{
    static const std::set<long> for_memory = {SYS_brk,    SYS_mmap,    SYS_munmap, SYS_mprotect,
                                              SYS_mremap, SYS_madvise, SYS_futex,  SYS_sched_yield};
    return !for_memory.contains(call);
}

struct traced {
    ended how = ended::untraceable;
    std::vector<long> made; /* the counted calls that were carried out */
    long killed_at = -1;    // the call that was not
};

/*
 * Runs `body` in a child process and kills it as it enters its system call number `last` (from 0), which is
 * not carried out.
 */
inline traced run_up_to(std::size_t last, const std::function<void()> &body)
{
    traced result;
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
        return result;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
    for (;;) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        if (waitpid(child, &status, 0) != child)
            return result;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            result.how = ended::by_itself;
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80))
            return result;
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        auto call = static_cast<long>(info.entry.nr);
        if (!is_counted(call))
            continue;
        if (result.made.size() == last) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            result.how = ended::killed;
            result.killed_at = call;
            return result;
        }
        result.made.push_back(call);
    }
}

} // namespace platform_test

#endif
