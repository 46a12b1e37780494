// SPDX-License-Identifier: MIT
#include "platform/machine/debug.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/machine/malloced.h"

namespace machine {

void debug(const char *format, ...)
{
    if (secure_getenv("HWPLAT_DEBUG") == nullptr)
        return;
    const int saved = errno;
    std::va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    const malloced_text message(length >= 0 ? text : nullptr);
    flockfile(stderr);
    std::fputs("hwplat: ", stderr);
    for (const char *at = message ? message.get() : "(no memory for the message)"; *at != '\0'; ++at) {
        if (*at >= ' ' && *at <= '~')
            std::fputc(*at, stderr);
        else
            std::fprintf(stderr, "\\x%02x", static_cast<unsigned char>(*at));
    }
    std::fputc('\n', stderr);
    funlockfile(stderr);
    errno = saved;
}

} // namespace machine
