#include "src/rt/diag.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "src/rt/cancel.h"

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

static void vsay(const char *format, va_list args)
{
    if (settled_on(ovra_path_eprint, "OVRA_PATH_EPRINT"))
        print(format, args);
}

void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsay(format, args);
    va_end(args);
}

int fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsay(format, args);
    va_end(args);
    return -1;
}

void trace(const char *format, ...)
{
    if (!settled_on(ovra_path_debug, "OVRA_PATH_DEBUG"))
        return;
    va_list args;
    va_start(args, format);
    print(format, args);
    va_end(args);
}

} // namespace ovra
