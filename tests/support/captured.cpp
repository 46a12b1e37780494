// SPDX-License-Identifier: MIT
#include "tests/support/captured.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ovra::test {

namespace fs = std::filesystem;

namespace {

void check(bool done, const fs::path &path)
{
    if (!done)
        throw std::system_error(errno, std::generic_category(), path.string());
}

class descriptor {
public:
    descriptor(const fs::path &path, int flags) : fd(open(path.c_str(), flags | O_CLOEXEC, 0600))
    {
        check(fd != -1, path);
    }
    ~descriptor() { close(fd); }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    operator int() const { return fd; }

private:
    int fd;
};

void put_file(const fs::path &from, const fs::path &to)
{
    check(unlink(to.c_str()) == 0 || errno == ENOENT, to);
    const descriptor in(from, O_RDONLY);
    const descriptor out(to, O_WRONLY | O_CREAT | O_EXCL);
    struct stat status = {};
    check(fstat(in, &status) == 0 && ftruncate(out, status.st_size) == 0, to);
    std::array<char, 16384> part;
    for (off_t at = 0; (at = lseek(in, at, SEEK_DATA)) != -1;) {
        const off_t hole = lseek(in, at, SEEK_HOLE);
        check(hole != -1, from);
        while (at < hole) {
            const ssize_t size = pread(in, part.data(), part.size(), at);
            check(size > 0 && pwrite(out, part.data(), static_cast<size_t>(size), at) == size, to);
            at += size;
        }
    }
    check(errno == ENXIO, from); // no data follows
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    check(fchmod(out, status.st_mode & 07777) == 0 && futimens(out, times.data()) == 0, to);
}

void put_folder(const fs::path &from, const fs::path &to)
{
    fs::create_directories(to);
    fs::permissions(to, fs::status(from).permissions());
    for (const fs::directory_entry &entry : fs::directory_iterator(from)) {
        const fs::path copy = to / entry.path().filename();
        if (entry.is_symlink()) {
            check(unlink(copy.c_str()) == 0 || errno == ENOENT, copy);
            fs::copy_symlink(entry.path(), copy);
        } else if (entry.is_directory()) {
            put_folder(entry.path(), copy);
        } else {
            put_file(entry.path(), copy);
        }
    }
}

} // namespace

void unpack_machine(const std::string &captured, const fs::path &root, const char *part)
{
    put_folder(fs::path(OVRA_CAPTURED_MACHINES) / captured / part, root / part);
}

} // namespace ovra::test
