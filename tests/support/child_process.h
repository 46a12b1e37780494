/* SPDX-License-Identifier: MIT */
/* Child processes of a test, and a line between them. */
#ifndef TESTS_SUPPORT_CHILD_PROCESS_H
#define TESTS_SUPPORT_CHILD_PROCESS_H

#include <csignal>
#include <cstdio>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ovra::test {

inline constexpr uid_t nobody = 65534;

/* Takes root's rights away from this process; whether it has none now. */
inline bool become_nobody()
{
    return geteuid() != 0 || (setgid(nobody) == 0 && setuid(nobody) == 0);
}

/* What a child ends with, as waitpid says it: 0 if `body` gives true. One that hangs is ended by a signal. */
inline int status_in_child(const std::function<bool()> &body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

/* A child that runs `body` and exits with its result. Killed at the end of its scope. */
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
    /* Waits for the end. The exit status; -1 when the child was killed. */
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

/* A line from one process to another, which receives the id of the sender. */
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

} // namespace ovra::test

#endif
