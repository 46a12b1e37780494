// SPDX-License-Identifier: MIT
// The library in a program that was given rights which its user does not have: the user's environment says
// nothing.
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/guards.h"

using namespace ovra::test;

namespace {

constexpr uid_t user = 65534;
constexpr gid_t group = 65534;
constexpr gid_t other_group = 64999;

// A copy of the probe, beside it: where the tests make their folders set-group-ID may count for nothing.
class copied_probe {
public:
    explicit copied_probe(mode_t mode)
    {
        std::filesystem::copy_file(OVRA_SECURE_PROBE, copy,
                                   std::filesystem::copy_options::overwrite_existing);
        if (chown(copy.c_str(), 0, other_group) != 0 || chmod(copy.c_str(), mode) != 0)
            throw std::runtime_error("cannot change " + copy);
    }
    ~copied_probe() { std::filesystem::remove(copy); }
    copied_probe(const copied_probe &) = delete;
    copied_probe &operator=(const copied_probe &) = delete;

    // What it says as the other user, in a folder of that user, with all variables of the library set.
    std::string run() const
    {
        const temporary_directory folder;
        if (chown(folder.path().c_str(), user, group) != 0)
            return "chown";
        // Opened before: the other user may not get to it by its name.
        const int program = open(copy.c_str(), O_PATH | O_CLOEXEC);
        int ends[2];
        if (pipe(ends) != 0)
            return "pipe";
        const pid_t child = fork();
        if (child == 0) {
            dup2(ends[1], 1);
            dup2(ends[1], 2);
            char name[] = "probe";
            char *arguments[] = {name, nullptr};
            const char *environment[] = {"OVRA_TEST_FILE=1",
                                         "OVRA_PATH_EPRINT=1",
                                         "OVRA_PATH_DEBUG=1",
                                         "HWPLAT_ROOT=/usr",
                                         "HWPLAT_DEBUG=1",
                                         "HWPLAT_VARS=/dev/null",
                                         nullptr};
            if (setgroups(0, nullptr) == 0 && setresgid(group, group, group) == 0 &&
                setresuid(user, user, user) == 0)
                fexecve(program, arguments, const_cast<char **>(environment));
            perror("fexecve");
            _exit(1);
        }
        close(ends[1]);
        std::string said;
        char buffer[256];
        for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
            said.append(buffer, static_cast<size_t>(got));
        close(ends[0]);
        close(program);
        waitpid(child, nullptr, 0);
        return said;
    }

private:
    std::string copy = OVRA_SECURE_PROBE "-copy-" + std::to_string(getpid());
};

class secure : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can make a set-group-ID program for another user";
        struct statvfs status = {};
        ASSERT_EQ(statvfs(OVRA_SECURE_PROBE, &status), 0);
        if (status.f_flag & ST_NOSUID)
            GTEST_SKIP() << "the build's folder is mounted nosuid";
        if (prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1)
            GTEST_SKIP() << "set-group-ID counts for nothing under no_new_privs";
    }
};

TEST_F(secure, environment_is_believed_in_a_program_like_any_other)
{
    EXPECT_EQ(copied_probe(0755).run(),
              "error trace hwplat: debug\nsecure 0: file 1, driver 0, errors 1, traces 1, live 0, vars 1\n");
}

TEST_F(secure, environment_is_not_believed_in_a_set_group_id_program)
{
    EXPECT_EQ(copied_probe(02755).run(), "secure 1: file 0, driver 1, errors 0, traces 0, live 1, vars 0\n");
}

} // namespace
