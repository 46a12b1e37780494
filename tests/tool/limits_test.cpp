// SPDX-License-Identifier: MIT
// Limits of the process that stand in the way of a change.
#include <fstream>
#include <set>

#include "tests/tool/obstacles.h"

namespace tool_test {

TEST_F(writing_obstacles, are_limits_of_file_sizes)
{
    surroundings around;
    around.limits[RLIMIT_FSIZE] = 5;
    EXPECT_EQ(refusal({"set", "Boot0003", "--desc", "x"}, around),
              "ovra: cannot write Boot0003: this program may not write so large a file\n"
              "  'ulimit -f unlimited' lifts the limit of the shell.\n");
    refusal({"next", "Boot0001"}, around);
    refusal({"time", "--set", "2031-02-03T04:05:06"}, around);
    around.limits[RLIMIT_FSIZE] = 4096;
    EXPECT_EQ(run({"next", "Boot0001"}, around).status, 0);
}

// As many files as the command has open at a time, and a few more and less.
TEST_F(writing_obstacles, are_limits_of_open_files)
{
    if (has_sanitizers())
        GTEST_SKIP() << "the sanitizers open files of their own at the end";
    std::set<int> seen;
    for (const bool has_lock : {false, true}) {
        for (rlim_t files = 5; files < 12; ++files) { // with less no library is loaded
            for (const words &arguments :
                 {writers[0], writers[2], words{"time", "--set", "2031-02-03T04:05:06"}}) {
                surroundings around;
                around.limits[RLIMIT_NOFILE] = files;
                fs::remove(root / "var/lib/hwplat/lock");
                if (has_lock)
                    std::ofstream(root / "var/lib/hwplat/lock").flush();
                const auto before = snapshot();
                const int planned = run(arguments + words{"--dry-run"}, around).status;
                EXPECT_EQ(run(arguments, around).status, planned)
                    << ::testing::PrintToString(arguments) << " with " << files
                    << (has_lock ? " and a lock" : "");
                seen.insert(planned);
                for (const auto &[name, contents] : before) {
                    if (const fs::path path = root / name; fs::is_regular_file(path))
                        std::ofstream(path, std::ios::binary) << contents;
                }
            }
        }
    }
    EXPECT_THAT(seen, ::testing::ElementsAre(0, 1));
}

} // namespace tool_test
