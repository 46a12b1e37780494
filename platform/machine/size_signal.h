/* SPDX-License-Identifier: MIT */
#ifndef HWPLAT_MACHINE_SIZE_SIGNAL_H
#define HWPLAT_MACHINE_SIZE_SIGNAL_H

#include <cerrno>
#include <csignal>
#include <ctime>

namespace machine {

/* While it lives, a write beyond the limit for files fails with EFBIG without the signal of setrlimit(2). */
class no_size_signal {
public:
    no_size_signal()
    {
        sigemptyset(&signal);
        sigaddset(&signal, SIGXFSZ);
        sigset_t pending = {};
        was_pending = sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &signal, &before);
    }
    no_size_signal(const no_size_signal &) = delete;
    no_size_signal &operator=(const no_size_signal &) = delete;
    ~no_size_signal()
    {
        const int saved = errno;
        const timespec at_once = {};
        while (!was_pending && sigtimedwait(&signal, nullptr, &at_once) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        errno = saved;
    }

private:
    sigset_t signal = {};
    sigset_t before = {};
    bool was_pending = false;
};

} // namespace machine

#endif
