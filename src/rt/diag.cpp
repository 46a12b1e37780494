// SPDX-License-Identifier: MIT
#include "src/rt/diag.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <ovra/log.h>

#include "src/base/cancel.h"

extern "C" {
int ovra_path_eprint = -1;
int ovra_path_debug = -1;
}

namespace ovra {

// Settled at the first message of its kind, whatever the value of the variable, and never looked up again.
// Threads may get here at once; what one has settled, or the program has set, stands.
static bool settled_on(int &state, const char *variable)
{
    const std::atomic_ref<int> shared(state);
    int value = shared.load(std::memory_order_relaxed);
    if (value == -1) {
        const int settled = secure_getenv(variable) ? 1 : 0;
        if (shared.compare_exchange_strong(value, settled, std::memory_order_relaxed))
            value = settled;
    }
    return value == 1;
}

static void print(const char *format, va_list args)
{
    const uncancelled writing;
    vfprintf(stderr, format, args);
}

// The calling thread's receiver. Messages of calls that the receiver itself makes do not come back to it. It
// lies in the block that every thread is born with: memory found at the first use could be refused, and that
// ends the process.
struct receiver {
    ovra_log_fn *fn;
    void *arg;
    bool busy;
};
[[gnu::tls_model("initial-exec")]] constinit static thread_local receiver log_receiver{};

static void hand_over(int kind, const char *format, va_list args)
{
    const uncancelled calling;
    char text[4096]; // no allocation: the message may be about one that failed
    const int saved = errno;
    vsnprintf(text, sizeof text, format, args);
    const receiver current = log_receiver;
    log_receiver.busy = true;
    current.fn(current.arg, kind, text);
    log_receiver.busy = false;
    errno = saved;
}

static void emit(int kind, bool printed, const char *format, va_list args)
{
    const bool received = log_receiver.fn && !log_receiver.busy && (kind == OVRA_LOG_ERROR || printed);
    if (received) {
        va_list again;
        va_copy(again, args);
        hand_over(kind, format, again);
        va_end(again);
    }
    if (printed)
        print(format, args);
}

void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    emit(OVRA_LOG_ERROR, settled_on(ovra_path_eprint, "OVRA_PATH_EPRINT"), format, args);
    va_end(args);
}

int fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    emit(OVRA_LOG_ERROR, settled_on(ovra_path_eprint, "OVRA_PATH_EPRINT"), format, args);
    va_end(args);
    return -1;
}

void trace(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    emit(OVRA_LOG_TRACE, settled_on(ovra_path_debug, "OVRA_PATH_DEBUG"), format, args);
    va_end(args);
}

} // namespace ovra

void ovra_log_to(ovra_log_fn *fn, void *arg)
{
    ovra::log_receiver.fn = fn;
    ovra::log_receiver.arg = arg;
}
