/* SPDX-License-Identifier: MIT */
// What stands in the way of a change, with --dry-run as without.
#ifndef TESTS_TOOL_OBSTACLES_H
#define TESTS_TOOL_OBSTACLES_H

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tests/tool/support.h"

namespace tool_test {

namespace fs = std::filesystem;

inline bool set_marks(const fs::path &path, int marks)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    int flags = 0;
    bool done = fd != -1 && ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = (flags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL)) | marks;
    done = done && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    close(fd);
    return done;
}

class writing_obstacles : public Machine {
protected:
    writing_obstacles() { put("BootNext", std::string("\x07\0", 2)); }

    // Both must fail, say the same and change nothing.
    std::string refusal(const words &arguments, const surroundings &around = {}) const
    {
        words dry = arguments;
        dry.emplace_back("--dry-run");
        const auto before = snapshot();
        const outcome planned = run(dry, around);
        EXPECT_EQ(planned.status, 1) << ::testing::PrintToString(arguments) << planned.out;
        const outcome done = run(arguments, around);
        EXPECT_EQ(done.status, 1) << ::testing::PrintToString(arguments) << done.out;
        EXPECT_EQ(planned.err, done.err);
        EXPECT_EQ(planned.out + done.out, "");
        EXPECT_TRUE(snapshot() == before);
        return whole(done.err);
    }

    // Runs `body` where the file system can mark files; the marks are taken away again.
    template <typename body>
    void with_marks(const fs::path &path, int marks, body run_body)
    {
        if (!set_marks(path, marks))
            GTEST_SKIP() << "files cannot be marked here";
        run_body();
        EXPECT_TRUE(set_marks(path, 0));
    }
};

} // namespace tool_test

#endif
