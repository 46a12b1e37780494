#include "src/rt/diag.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

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

static void vsay(const char *format, va_list args)
{
    if (settled_on(ovra_path_eprint, "OVRA_PATH_EPRINT"))
        vfprintf(stderr, format, args);
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
    vfprintf(stderr, format, args);
    va_end(args);
}

} // namespace ovra
