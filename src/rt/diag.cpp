#include "src/rt/diag.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <ovra/log.h>

extern "C" {
int ovra_path_eprint = -1;
int ovra_path_debug = -1;
}

namespace ovra {

// Settled at the first message of its kind, whatever the value of the variable, and never looked up again.
static bool settled_on(int &state, const char *variable)
{
    if (state == -1)
        state = getenv(variable) ? 1 : 0;
    return state == 1;
}

// The calling thread's receiver. Messages of calls that the receiver itself makes do not come back to it.
struct receiver {
    ovra_log_fn *fn;
    void *arg;
    bool busy;
};
static thread_local receiver log_receiver;

static void hand_over(int kind, const char *format, va_list args)
{
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
        vfprintf(stderr, format, args);
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
