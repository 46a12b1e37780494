// SPDX-License-Identifier: MIT
#include "tools/machine/files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "tools/text/failure.h"

namespace tool {

bool may(const std::string &path, int access_mode)
{
    return faccessat(AT_FDCWD, path.c_str(), access_mode, AT_EACCESS) == 0;
}

bool is_read_only(const std::string &path)
{
    struct statvfs info = {};
    return statvfs(path.c_str(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

std::optional<struct statx> look_at(const std::string &path)
{
    struct statx found = {};
    constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_UID | STATX_SIZE;
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &found) != 0)
        return std::nullopt;
    return found;
}

void for_each_name(const std::string &folder, const std::function<void(std::string_view)> &take)
{
    const auto close = [](DIR *open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(close)> names(opendir(folder.c_str()), close);
    while (const dirent *entry = names ? readdir(names.get()) : nullptr) {
        const std::string_view name = static_cast<const char *>(entry->d_name);
        if (name != "." && name != "..")
            take(name);
    }
}

int can_open(size_t files)
{
    const int fd = open("/", O_PATH | O_CLOEXEC);
    if (fd == -1)
        return errno;
    const int reason = files > 1 ? can_open(files - 1) : 0;
    close(fd);
    return reason;
}

namespace {

// What is left to read, as far as it is not more than a byte beyond the limit. An errno value when that
// fails.
int read_rest(int fd, size_t limit, bytes *to)
{
    constexpr size_t first_room = 1u << 16;
    size_t size = 0;
    for (;;) {
        to->resize(std::min(limit + 1, std::max(first_room, 2 * size)));
        const ssize_t part = read(fd, to->data() + size, to->size() - size);
        if (part == -1 && errno == EINTR)
            continue;
        size += part > 0 ? static_cast<size_t>(part) : 0;
        if (part > 0 && size <= limit)
            continue;
        to->resize(size);
        return part == -1 ? errno : 0;
    }
}

} // namespace

bytes contents(const std::string &file, size_t limit, const char *when_larger)
{
    const std::string cannot = "cannot read " + (file.empty() ? "\"\"" : printable(file)) + ": ";
    // Not blocking, as the name may be a FIFO's or a terminal's.
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1)
        throw failure(cannot + strerror(errno));
    struct stat info = {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        const bool is_folder = S_ISDIR(info.st_mode);
        close(fd);
        throw failure(cannot + (is_folder ? strerror(EISDIR) : "it is not a regular file"));
    }
    bytes data;
    const int error = read_rest(fd, limit, &data);
    close(fd);
    if (error != 0)
        throw failure(cannot + strerror(error));
    if (data.size() > limit)
        throw failure(cannot + when_larger);
    return data;
}

std::string standard_input(size_t limit, const char *when_longer)
{
    bytes data;
    if (const int error = read_rest(STDIN_FILENO, limit, &data); error != 0)
        throw failure(std::string("cannot read standard input: ") + strerror(error));
    if (data.size() > limit)
        throw failure(std::string("standard input is ") + when_longer);
    return {data.begin(), data.end()};
}

bool is_marked(const struct statx &file)
{
    return (file.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

uint64_t largest_file()
{
    struct rlimit limit = {};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur
                                                                                   : UINT64_MAX;
}

} // namespace tool
