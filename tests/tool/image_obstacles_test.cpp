// SPDX-License-Identifier: MIT
// What stands in the way of a change to a file of variables: --dry-run tells of it as the change does.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/tool/images.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace fs = std::filesystem;

TEST_F(image_of_variables, immutable_file_is_said_to_be_that)
{
    put_machine();
    with_marks(image, FS_IMMUTABLE_FL, [&] {
        for (const words &mode : {words{}, words{"--dry-run"}}) {
            EXPECT_EQ(refused(words{"next", "3"} + mode), "ovra: cannot lock the machine: " + image.string() +
                                                              " is immutable or append-only\n"
                                                              "  'chattr -i -a' changes that.\n");
        }
    });
}

TEST_F(image_of_variables, no_permission_is_said)
{
    const auto user = as_user_without_rights();
    if (!user)
        GTEST_SKIP() << "needs root, to be somebody else";
    put_machine();
    chmod(folder.c_str(), 0755);
    EXPECT_EQ(refused({"next", "3"}, *user),
              "ovra: no permission to change the machine\n"
              "  Run this as root, or as the owner of the file and its folder.\n");
    chmod(image.c_str(), 0600);
    EXPECT_EQ(refused({"list"}, *user),
              "ovra: no permission for " + image.string() +
                  "\n  Run this as root, or as the owner of the file and its folder.\n");
    chmod(image.c_str(), 0666);
    chmod(folder.c_str(), 0777);
    EXPECT_THAT(changed_as_planned({"next", "3"}, *user).err, HasSubstr("no permission"));
    // The file is the user's, but not its group.
    constexpr gid_t group = 65533;
    ASSERT_EQ(chown(image.c_str(), ovra::test::nobody, group), 0);
    EXPECT_THAT(changed_as_planned({"next", "3"}, *user).err, HasSubstr("no permission"));
    // A folder may give its group to what is made in it.
    ASSERT_EQ(chown(folder.c_str(), 0, group), 0);
    chmod(folder.c_str(), 02777);
    EXPECT_EQ(changed_as_planned({"next", "3"}, *user).status, 0);
}

TEST_F(image_of_variables, mounted_file_cannot_be_exchanged)
{
    put_machine();
    const fs::path file = image;
    if (mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "who runs this may not mount";
    const outcome done = changed_as_planned({"next", "3"});
    umount(file.c_str());
    EXPECT_EQ(done.status, 1);
    EXPECT_THAT(whole(done.err),
                HasSubstr("cannot write BootNext: something is mounted on " + file.string()));
    EXPECT_FALSE(leaves_something());
}

TEST_F(image_of_variables, things_beside_it_and_long_names_are_no_obstacle)
{
    put_machine();
    fs::create_directory(folder / ".VARS.fd.hwplat.tmp");
    EXPECT_EQ(changed_as_planned({"next", "3"}).status, 0);
    image = folder / std::string(255, 'n');
    put_machine();
    EXPECT_EQ(changed_as_planned({"next", "3"}).status, 0);
}

TEST_F(image_of_variables, further_names_of_the_file_are_told_of)
{
    put_machine();
    const fs::path other = folder / "other.fd";
    fs::create_hard_link(image, other);
    EXPECT_EQ(shown({"list"}), shown({"list"}));
    const outcome done = changed_as_planned({"next", "3"});
    EXPECT_EQ(whole(done.err), image.string() +
                                   " has 2 names (hard links).\n"
                                   "What is changed is in a new file, which takes this name alone.\n");
    EXPECT_EQ(done.status, 0);
    EXPECT_EQ(fs::hard_link_count(other), 1u);
    EXPECT_EQ(changed_as_planned({"next", "--clear"}).err, "");
}

// The command has files of its own open; the change takes some more.
TEST_F(image_of_variables, few_file_descriptors_are_enough_or_not)
{
    if (has_sanitizers())
        GTEST_SKIP() << "the sanitizers open files of their own at the end";
    put_machine();
    int refusals = 0;
    constexpr rlim_t fewest = 7;
    constexpr rlim_t enough = 14;
    for (rlim_t files = fewest; files <= enough; ++files) {
        surroundings around;
        around.limits[RLIMIT_NOFILE] = files;
        const outcome planned = run_on_image({"next", "3", "--dry-run"}, around);
        const outcome done = run_on_image({"next", "3"}, around);
        EXPECT_EQ(planned.status, done.status) << files << planned.err << done.err;
        refusals += done.status != 0 ? 1 : 0;
        EXPECT_FALSE(leaves_something());
    }
    EXPECT_GT(refusals, 0);
    EXPECT_LT(refusals, static_cast<int>(enough - fewest));
}

TEST_F(image_of_variables, that_another_program_exchanges_meanwhile_is_left_alone)
{
    put_machine();
    const fs::path other = folder / "other";
    const std::string contents = volume(in_volume({"Boot0003", option}));
    std::ofstream(other, std::ios::binary) << contents;
    surroundings around;
    around.environment = {{"LD_PRELOAD", OVRA_FAILING_CALLS},
                          {"FAIL", "fsync:.hwplat-:0:1:1"},
                          {"OTHER", other},
                          {"PLACE", image}};
    const outcome refused = run_on_image({"next", "Boot0003"}, around);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(whole(refused.err),
              "ovra: cannot write BootNext: another program has exchanged or written " + image.string() +
                  "\n  Earlier changes of this command may be gone with the old contents: look at it,\n"
                  "  and try again.\n");
    EXPECT_EQ(image_contents(), contents);
    EXPECT_FALSE(leaves_something());
}

// U-Boot's file grows with its variables, here beyond a block with the first change, the second or none. The
// old file is there until the new one is.
TEST_F(image_of_variables, full_file_system_is_noticed_before)
{
    struct {
        std::size_t free_blocks;
        std::size_t size;
        int status;
    } const cases[] = {{1, 3912, 0}, {1, 3920, 1}, {1, 3976, 1}, {2, 3920, 0}, {2, 3976, 1}, {3, 3976, 0}};
    const fs::path disk = folder / "disk";
    fs::create_directory(disk);
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=16k") != 0)
        GTEST_SKIP() << "who runs this may not mount";
    image = disk / "ubootefi.var";
    for (const auto &each : cases) {
        fs::remove(image);
        std::ofstream(disk / "filler", std::ios::trunc) << std::string((3 - each.free_blocks) * 4096, 'f');
        put_image(uboot_file(in_uboot_file({"A", std::string(each.size, 'a')})));
        const outcome done = changed_as_planned({"create", "--desc", "x", "--path-hex", "7fff0400"});
        EXPECT_EQ(done.status, each.status) << each.free_blocks << ' ' << each.size;
        if (each.status != 0) {
            EXPECT_THAT(done.err, HasSubstr("the file system is full"));
        }
    }
    EXPECT_EQ(umount(disk.c_str()), 0);
}

} // namespace tool_test
