/* SPDX-License-Identifier: MIT */
/* Temporary folders that cost little. */
#ifndef TESTS_SUPPORT_MEMORY_FOLDER_H
#define TESTS_SUPPORT_MEMORY_FOLDER_H

#include <cstdlib>

#include <sys/statvfs.h>
#include <unistd.h>

namespace ovra::test {

/*
 * While it lives, temporary folders are made in memory, if the environment does not say where and the system
 * has a file system there with room: a large machine is many files.
 */
class folders_in_memory {
public:
    folders_in_memory()
    {
        constexpr const char *memory = "/dev/shm";
        constexpr unsigned long room = 256UL << 20;
        struct statvfs status = {};
        moved = std::getenv("TMPDIR") == nullptr && statvfs(memory, &status) == 0 &&
                status.f_bavail * status.f_frsize >= room && access(memory, W_OK | X_OK) == 0;
        if (moved)
            setenv("TMPDIR", memory, 1);
    }
    folders_in_memory(const folders_in_memory &) = delete;
    folders_in_memory &operator=(const folders_in_memory &) = delete;
    ~folders_in_memory()
    {
        if (moved)
            unsetenv("TMPDIR");
    }

private:
    bool moved = false;
};

} // namespace ovra::test

#endif
