// SPDX-License-Identifier: MIT
#include "tools/exchange/outfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/machine/files.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

[[noreturn]] void give_up(const std::string &file, int error)
{
    throw failure("cannot write " + printable(file) + ": " + strerror(error));
}

std::string folder_of(const std::string &file)
{
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

// 0, or an errno value.
int write_whole(int fd, std::string_view contents)
{
    while (!contents.empty()) {
        const ssize_t size = write(fd, contents.data(), contents.size());
        if (size == -1 && errno != EINTR)
            return errno;
        contents.remove_prefix(size > 0 ? static_cast<size_t>(size) : 0);
    }
    return fsync(fd) == 0 ? 0 : errno;
}

// A new file of this name, in which XXXXXX is replaced, with this text.
int make_file(std::string *name, std::string_view contents, mode_t mode)
{
    if (contents.size() > largest_file()) // to write it would be a signal
        return EFBIG;
    const int fd = mkostemp(name->data(), O_CLOEXEC);
    if (fd == -1)
        return errno;
    int error = fchmod(fd, mode) == 0 ? write_whole(fd, contents) : errno;
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error != 0)
        unlink(name->c_str());
    return error;
}

mode_t usual_mode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

void check_write_file(const std::string &file)
{
    struct stat found = {};
    const bool is_there = stat(file.c_str(), &found) == 0;
    if (!is_there && errno != ENOENT)
        give_up(file, errno);
    if (is_there && S_ISDIR(found.st_mode))
        give_up(file, EISDIR);
    if (is_there && !S_ISREG(found.st_mode))
        throw failure("cannot write " + printable(file) + ": it is not a regular file",
                      "Without a file the text goes to standard output.");
    if (file.empty() || !may(folder_of(file), W_OK | X_OK))
        give_up(file, file.empty() ? ENOENT : errno);
}

void write_file(const std::string &file, std::string_view contents)
{
    check_write_file(file);
    std::string name = file + ".XXXXXX";
    if (const int error = make_file(&name, contents, usual_mode()); error != 0)
        give_up(file, error);
    if (rename(name.c_str(), file.c_str()) != 0) {
        const int error = errno;
        unlink(name.c_str());
        give_up(file, error);
    }
}

std::string write_temporary_file(std::string_view contents)
{
    constexpr mode_t own = 0600;
    const char *folder = secure_getenv("TMPDIR");
    std::string name = std::string(folder && *folder == '/' ? folder : "/tmp") + "/ovra.XXXXXX";
    if (const int error = make_file(&name, contents, own); error != 0)
        give_up(name, error);
    return name;
}

} // namespace tool
