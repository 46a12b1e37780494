// SPDX-License-Identifier: MIT
// Reading a link, as one of the platform's calls that are counted and can be made to fail.
#include <cerrno>
#include <cstring>

#include "platform/include/devns.h"
#include "tests/fakes/platform.h"

using fakes::failing;

extern "C" {
ssize_t __real_devns_readlink(const char *path, char *buf, size_t size);
ssize_t __wrap_devns_readlink(const char *path, char *buf, size_t size);
}

ssize_t __wrap_devns_readlink(const char *path, char *buf, size_t size)
{
    const auto failure = fakes::next_call();
    if (!failure)
        return __real_devns_readlink(path, buf, size);
    switch (*failure) {
    case failing::error:
    case failing::nothing:
        errno = EIO;
        return -1;
    case failing::error_and_result: // more than there is room for
        memset(buf, 'x', size);
        return static_cast<ssize_t>(size + 100);
    case failing::empty:
        break;
    }
    return 0;
}
