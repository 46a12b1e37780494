// SPDX-License-Identifier: MIT
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// What an administrator is told about a machine without variables.
class no_variables : public Machine {
protected:
    // Runs without --root, as on a live machine; its root is the folder.
    std::string refusal() const
    {
        surroundings around;
        around.environment["HWPLAT_ROOT"] = root;
        const outcome result = run_command({"list"}, around);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, StartsWith("ovra: no firmware variables on this machine\n"));
        return result.err;
    }
};

TEST_F(no_variables, may_come_from_the_kernels_command_line)
{
    fs::remove_all(variables);
    fs::create_directory(root / "proc");
    for (const char *line : {"quiet efi=noruntime\n", "efi=debug,noruntime root=/dev/sda1\n", "noefi\n"}) {
        std::ofstream(root / "proc/cmdline") << line;
        EXPECT_THAT(refusal(), HasSubstr("The kernel was started with \"efi=noruntime\" or \"noefi\""));
    }
    std::ofstream(root / "proc/cmdline") << "efi=debug noruntime=1\n";
    EXPECT_THAT(refusal(), HasSubstr("'mount -t efivarfs efivarfs /sys/firmware/efi/efivars'"));
    fs::remove_all(root / "sys/firmware/efi");
    EXPECT_THAT(refusal(), HasSubstr("  It was not started by UEFI firmware.\n"));
}

TEST_F(no_variables, may_come_from_an_unmounted_sys)
{
    surroundings around;
    around.environment["HWPLAT_ROOT"] = root;
    fs::remove_all(root / "sys");
    for (const char *verb : {"disks", "tree"}) {
        for (int round = 0; round < 2; ++round) {
            const outcome result = run_command({verb}, around);
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(
                result.err,
                "ovra: there is nothing in " + root.string() +
                    "/sys\n  'mount -t sysfs sysfs /sys' mounts what the kernel tells of its devices.\n");
            fs::create_directory(root / "sys");
        }
        fs::remove(root / "sys");
    }
    fs::create_directories(root / "sys/firmware");
    fs::remove_all(root / "sys/firmware");
    EXPECT_THAT(refusal(), HasSubstr("  /sys is not mounted: 'mount -t sysfs sysfs /sys' does it.\n"));
}

} // namespace tool_test
