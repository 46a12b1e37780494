#include "platform/machine/machine.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

namespace machine {

namespace {

struct release {
    void operator()(char *text) const { std::free(text); }
};

/*
 * Whether `path`, open as `folder`, is "/". The numbers alone do not say so: "/" may be mounted a second time
 * elsewhere, and that is a folder like any other.
 */
bool is_live(const char *path, int folder)
{
    struct stat here = {};
    struct stat top = {};
    if (fstat(folder, &here) != 0 || stat("/", &top) != 0)
        return false;
    if (here.st_dev != top.st_dev || here.st_ino != top.st_ino)
        return false;
    std::unique_ptr<char, release> resolved(realpath(path, nullptr));
    return resolved && std::strcmp(resolved.get(), "/") == 0;
}

} // namespace

machine_root open_root()
{
    const char *path = secure_getenv("HWPLAT_ROOT");
    if (path == nullptr)
        path = "/";
    machine_root root;
    root.folder = descriptor(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (root.folder)
        root.live = is_live(path, root.folder.get());
    else
        debug("no machine: cannot open the folder '%s': %s", path, std::strerror(errno));
    return root;
}

void debug(const char *format, ...)
{
    if (secure_getenv("HWPLAT_DEBUG") == nullptr)
        return;
    int saved = errno;
    std::va_list arguments;
    va_start(arguments, format);
    flockfile(stderr);
    std::fputs("hwplat: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    funlockfile(stderr);
    va_end(arguments);
    errno = saved;
}

} // namespace machine
