// SPDX-License-Identifier: MIT
#include "tools/machine/capture.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include <ovra/log.h>

namespace tool {

namespace {

// Where the user asked for messages they appear as they are written, and are not told a second time.
bool shown_as_written()
{
    static const bool asked = secure_getenv("OVRA_PATH_EPRINT") || secure_getenv("OVRA_PATH_DEBUG") ||
                              secure_getenv("HWPLAT_DEBUG");
    return asked;
}

void append_error(void *arg, int kind, const char *text)
{
    if (kind != OVRA_LOG_ERROR)
        return;
    try {
        static_cast<std::string *>(arg)->append(text);
    } catch (const std::bad_alloc &) { // a reason less; the library cannot pass an exception on
    }
}

// Receives the library's errors while it exists.
class receiver {
public:
    explicit receiver(std::string *to)
    {
        if (!shown_as_written())
            ovra_log_to(append_error, to);
    }
    ~receiver() { ovra_log_to(nullptr, nullptr); }
    receiver(const receiver &) = delete;
    receiver &operator=(const receiver &) = delete;
};

} // namespace

called call_library(const std::function<int()> &function)
{
    called done;
    const receiver receiver(&done.messages);
    errno = 0;
    done.result = function();
    done.error = errno;
    return done;
}

} // namespace tool
