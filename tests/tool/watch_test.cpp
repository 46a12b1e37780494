// SPDX-License-Identifier: MIT
// Changes of boot variables told as they happen.
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/support/variable_images.h"
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class watch : public Machine {
protected:
    ~watch() override
    {
        if (child > 0)
            kill(child, SIGKILL);
        end();
    }

    void begin(words arguments)
    {
        int out_ends[2];
        int err_ends[2];
        ASSERT_EQ(pipe2(out_ends, O_CLOEXEC), 0);
        ASSERT_EQ(pipe2(err_ends, O_CLOEXEC), 0);
        arguments.insert(arguments.begin(), OVRA_TOOL);
        std::vector<char *> argv;
        for (std::string &word : arguments)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            dup2(out_ends[1], STDOUT_FILENO);
            dup2(err_ends[1], STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(97);
        }
        close(out_ends[1]);
        close(err_ends[1]);
        out = out_ends[0];
        err = err_ends[0];
        EXPECT_EQ(line_of(err), "Watching the boot variables; Ctrl-C ends it.");
    }

    // The next line, for which it waits some seconds.
    static std::string line_of(int fd)
    {
        constexpr int patience = 20000;
        std::string line;
        for (char c = 0;; line += c) {
            pollfd ready = {fd, POLLIN, 0};
            if (poll(&ready, 1, patience) != 1 || read(fd, &c, 1) != 1)
                return line + "(no line)";
            if (c == '\n')
                return line;
        }
    }
    static std::string behind_time(const std::string &line) { return line.substr(line.find(' ') + 1); }

    // Its exit status, or minus the signal that ended it.
    int end()
    {
        int status = 0;
        if (child <= 0 || waitpid(child, &status, 0) != child)
            return -1000;
        child = 0;
        close(out);
        close(err);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    pid_t child = 0;
    int out = -1;
    int err = -1;
};

TEST_F(watch, tells_of_each_change_and_ends_by_a_signal)
{
    begin({"--root", root, "watch", "--interval", "3600"});
    output({"next", "Boot0001"});
    EXPECT_EQ(behind_time(line_of(out)), "wrote BootNext: Boot0001");
    std::ofstream(file("Boot0005")) << "x"; // shorter than its attributes
    EXPECT_THAT(behind_time(line_of(out)), ::testing::EndsWith(" Boot0005"));
    put("Boot0005", load_option(1, "x", from_hex(sample_path_hex)));
    EXPECT_EQ(behind_time(line_of(out)), "wrote Boot0005: \"x\", 0x00000001 (active)");
    output({"remove", "Boot0003"});
    EXPECT_THAT(behind_time(line_of(out)),
                StartsWith("wrote BootOrder: Boot0000 Boot0001 Boot0002 Boot0004 "));
    EXPECT_EQ(behind_time(line_of(out)), "deleted Boot0003");
    kill(child, SIGTERM);
    EXPECT_EQ(end(), 0);
}

TEST_F(watch, prints_an_object_a_line_and_ends_when_nobody_reads)
{
    begin({"--root", root, "watch", "--json"});
    output({"set", "Boot0001", "--desc", "x", "--no-optdata"});
    const json object = json::parse(line_of(out), nullptr, false);
    EXPECT_EQ(object["action"], "write");
    EXPECT_EQ(object["variable"], "Boot0001");
    EXPECT_THAT(std::string(object["time"]), ::testing::EndsWith("Z"));
    close(out);
    EXPECT_EQ(end(), 0); // though nothing changes any more
}

TEST_F(watch, looks_at_a_file_of_variables)
{
    using namespace ovra::test::images;
    const auto image = folder / "VARS.fd";
    std::ofstream(image, std::ios::binary) << volume(in_volume({"Timeout", std::string("\5\0", 2)}));
    begin({"--vars", image, "watch"});
    EXPECT_EQ(run_command({"--vars", image, "create", "--desc", "x", "--path-hex", "7fff0400"}).status, 0);
    EXPECT_THAT(behind_time(line_of(out)), StartsWith("wrote Boot"));
    kill(child, SIGINT);
    EXPECT_EQ(end(), 0);
}

} // namespace tool_test
