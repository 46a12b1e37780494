// SPDX-License-Identifier: MIT
#include "tools/machine/files.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

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
