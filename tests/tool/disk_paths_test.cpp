// SPDX-License-Identifier: MIT
// Disks that are named by a file: a link to a device, or a file on the disk.
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "tests/tool/disks.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const std::string told = "c5t0d0s0, /dev/sda1, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n";

} // namespace

class disk_paths : public disks_verb {
protected:
    // The disk that a name is taken for, or what is said instead.
    std::string found(const std::string &name) const
    {
        const outcome result = run({"find", name, "--json"});
        return result.status == 0 ? json::parse(result.out)["disk"].get<std::string>() : whole(result.err);
    }

    void link(const std::string &target, const std::string &path) const
    {
        fs::create_directories((root / path).parent_path());
        fs::create_symlink(target, root / path);
    }

    // A table of mounts as the kernel shows it, and folders to mount on.
    void put_mounts(const std::string &lines) const
    {
        put_text("proc/self/mountinfo", "20 1 8:99 / / rw - ext4 /dev/sdx1 rw\n" + lines);
        for (const char *made : {"boot/efi/EFI/a", "boot/efi/efi", "srv/esp", "run/user"})
            fs::create_directories(root / made);
        put_text("boot/efi/EFI/a/grub.efi", "");
    }

    void put_esp() const { put_mounts("30 20 8:1 / /boot/efi rw shared:3 - vfat /dev/sda1 rw\n"); }

    // The file that a new option of this disk boots.
    json file_of(const std::string &disk, const words &more = {}) const
    {
        const outcome planned =
            run(words{"create", "--desc", "x", "--dry-run", "--disk", disk, "--json"} + more);
        EXPECT_EQ(planned.status, 0) << planned.err;
        const json path = json::parse(planned.out)["changes"][0]["path"];
        return parsed({"path", "decode", path})["instances"][0]["file_path"];
    }
};

TEST_F(disk_paths, lead_to_devices_by_any_spelling)
{
    link("../../sda1", "dev/disk/by-id/ata-QEMU-part1");
    link("/dev/sda1", "dev/disk/by-path/absolute");
    link("by-id/ata-QEMU-part1", "dev/disk/twice");
    link("../../../../../../dev/sda1", "dev/disk/above");
    link("/dev/disk", "links");
    for (const char *name :
         {"/dev/disk/by-id/ata-QEMU-part1", "/dev/disk/by-path/absolute", "/dev/disk/twice",
          "/dev/disk/above", "//dev///sda1", "/dev/./sda1", "/dev/disk/../sda1", "/dev/disk/by-id/../../sda1",
          "/../dev/sda1", "/links/twice", "/links/../sda1", "/dev/sda1/"})
        EXPECT_EQ(found(name), "c5t0d0s0") << name;
    EXPECT_EQ(run({"find", "/dev/disk/twice"}).err, "/dev/disk/twice is " + told);
    const outcome packed = run({"path", "encode", "/dev/disk/twice"});
    EXPECT_EQ(packed.out, run({"path", "encode", "c5t0d0s0"}).out);
}

// A link of the machine's is the machine's: where it leads on the host does not matter.
TEST_F(disk_paths, lead_nowhere_else)
{
    std::ofstream(folder / "sda1") << "of the host";
    link((folder / "sda1").string(), "dev/outward");
    EXPECT_THAT(found("/dev/outward"),
                HasSubstr("\"/dev/outward\" is " + (folder / "sda1").string() + ", which is no"));
    link("/tmp", "outward");
    EXPECT_THAT(found("/outward"), HasSubstr("ovra: there is no file \"/outward\"\n"));
    link("loop2", "dev/loop1");
    link("loop1", "dev/loop2");
    EXPECT_THAT(found("/dev/loop1"), HasSubstr("ovra: cannot follow \"/dev/loop1\": Too many levels"));
    link("round", "dev/round/round");
    EXPECT_THAT(found("/dev/round/round/x"), HasSubstr("ovra: cannot follow "));
    EXPECT_THAT(found("/dev/nothing/../sda1"), HasSubstr("ovra: cannot follow "));
    EXPECT_THAT(found("/" + std::string(300, 'x')), HasSubstr("ovra: cannot follow "));
    link(std::string(4000, 'x'), "dev/long");
    EXPECT_THAT(found("/dev/long"), HasSubstr("ovra: cannot follow "));
    for (const char *relative : {"./dev/sda1", "dev/sda1", ".", ".."})
        EXPECT_EQ(found(relative), "ovra: \"" + std::string(relative) +
                                       "\" is no absolute path\n  In the "
                                       "machine's folder a path begins at its root, as /boot/efi.\n");
}

TEST_F(disk_paths, that_are_no_disk_are_refused)
{
    EXPECT_THAT(found("/no/such\x1b[2Jfile"),
                HasSubstr("ovra: there is no file \"/no/such\\u001b[2Jfile\"\n"));
    ASSERT_EQ(mkfifo((root / "dev/fifo").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    EXPECT_THAT(found("/dev/fifo"), HasSubstr("ovra: no disk is named \"/dev/fifo\"\n"));
    EXPECT_THAT(found("/pipe"), HasSubstr("\"/pipe\" is neither a disk of this machine nor a file on one\n"));
    link("../dm-7", "dev/mapper/root");
    put_text("sys/block/dm-7/slaves/sda2", "");
    put_text("sys/block/dm-7/slaves/sdb1", "");
    EXPECT_EQ(found("/dev/mapper/root"),
              "ovra: \"/dev/mapper/root\" is /dev/dm-7, which is no disk that a path can lead to\n"
              "  It lies on sda2, sdb1. 'ovra disks' shows the disks with their names.\n");
}

// The numbers of a device node are those of the machine that runs the command.
TEST_F(disk_paths, to_nodes_of_another_machine_are_refused)
{
    if (mknod((root / "node").c_str(), S_IFBLK | 0600, makedev(8, 1)) != 0)
        GTEST_SKIP() << "who runs this may not make device nodes";
    put_text("sys/dev/block/8:1", "");
    EXPECT_THAT(found("/node"), HasSubstr("\"/node\" is neither a disk of this machine nor a file on one\n"));
    fs::rename(root / "node", root / "dev/sda1");
    EXPECT_EQ(found("/dev/sda1"), "c5t0d0s0");
}

TEST_F(disk_paths, to_mapped_devices_are_those_of_the_kernel)
{
    const std::string above = "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:0";
    put_partitioned_disk("dm-4", above);
    put_text(above + "/block/dm-4/dm/name", "multi path");
    put_text("dev/mapper/multi path", "");
    const outcome result = run({"find", "/dev/mapper/multi path", "--part", "2"});
    EXPECT_THAT(result.err, ::testing::StartsWith("/dev/mapper/multi path --part 2 is c1t9d0s1, "));
    EXPECT_THAT(found("/dev/mapper/other"), HasSubstr("no disk is named"));
}

TEST_F(disk_paths, of_mounted_disks)
{
    put_esp();
    for (const char *name :
         {"/boot/efi", "/boot/efi/", "/boot/efi/EFI/a", "/boot/efi/EFI/a/grub.efi", "/boot/../boot/efi"})
        EXPECT_EQ(found(name), "c5t0d0s0") << name;
    EXPECT_EQ(run({"find", "/boot/efi"}).err, "/boot/efi is on " + told);
    EXPECT_EQ(found("/boot"), "ovra: \"/boot\" is on /dev/sdx1, which is no disk that a path can lead to\n"
                              "  'ovra disks' shows the disks with their names.\n");
    EXPECT_THAT(found("/boot/efi/none"), HasSubstr("there is no file \"/boot/efi/none\"\n"));
}

TEST_F(disk_paths, of_files_give_the_file_too)
{
    put_esp();
    EXPECT_EQ(file_of("/boot/efi/EFI/a/grub.efi"), "\\EFI\\a\\grub.efi");
    EXPECT_EQ(file_of("/boot/efi/EFI/a/grub.efi", {"--file", "/b.efi"}), "\\b.efi");
    const words create = {"create", "--desc", "x", "--dry-run", "--json", "--disk"};
    EXPECT_EQ(json::parse(run(create + words{"/boot/efi/EFI/a/grub.efi"}).out)["file"], "\\EFI\\a\\grub.efi");
    EXPECT_FALSE(json::parse(run(create + words{"/boot/efi"}).out).contains("file"));
    EXPECT_EQ(file_of("/boot/efi/EFI/a"), nullptr);
    EXPECT_EQ(file_of("/boot/efi"), nullptr);
    const outcome made = run({"create", "--desc", "x", "--disk", "/boot/efi/EFI/a/grub.efi"});
    EXPECT_EQ(made.err, "/boot/efi/EFI/a/grub.efi is on " + told +
                            "The file is named as firmware does, \\EFI\\a\\grub.efi.\n");
    put_text("boot/efi/back\\slash", "");
    EXPECT_THAT(found("/boot/efi/back\\slash"), HasSubstr("\" has a backslash in its name\n"));
    put_mounts("30 20 8:1 / /boot/efi rw - ext4 /dev/sda1 rw\n");
    EXPECT_THAT(run({"create", "--desc", "x", "--disk", "/boot/efi/EFI/a/grub.efi", "--dry-run"}).err,
                HasSubstr("ovra: warning: the file system of c5t0d0s0 (sda1) is ext4\n"));
}

// What is mounted may be a folder of a disk, or one file of it.
TEST_F(disk_paths, of_bind_mounts_are_those_of_the_disk)
{
    put_mounts("30 20 8:1 /EFI /srv/esp rw - vfat /dev/sda1 rw\n"
               "31 20 8:1 /x/y.efi /run/y.efi rw - vfat /dev/sda1 rw\n"
               "32 20 8:1 / /boot/my\\040efi rw - vfat /dev/sda1 rw\n");
    put_text("srv/esp/b/c.efi", "");
    put_text("run/y.efi", "");
    put_text("boot/my efi/d.efi", "");
    EXPECT_EQ(file_of("/srv/esp/b/c.efi"), "\\EFI\\b\\c.efi");
    EXPECT_EQ(file_of("/run/y.efi"), "\\x\\y.efi");
    EXPECT_EQ(file_of("/boot/my efi/d.efi"), "\\d.efi");
}

TEST_F(disk_paths, of_hidden_mounts_are_not_taken)
{
    put_mounts("30 20 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
               "31 20 8:17 / /boot rw - ext4 /dev/sdb1 rw\n");
    EXPECT_EQ(found("/boot/efi"), "c5t3d0p1") << "what is mounted above hides it";
    put_mounts("30 20 8:17 / /boot/efi rw - ext4 /dev/sdb1 rw\n"
               "31 30 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n");
    EXPECT_EQ(found("/boot/efi"), "c5t0d0s0") << "one on the other";
    put_mounts("30 20 8:1 / /boot rw - vfat /dev/sda1 rw\n30 30 8:1 / /boot rw - vfat /dev/sda1 rw\n");
    EXPECT_EQ(found("/boot/efi"), "c5t0d0s0") << "in a circle";
}

TEST_F(disk_paths, name_a_file_as_people_see_it)
{
    put_esp();
    const auto planned = [this](const std::string &file) {
        return run({"create", "--desc", "x", "--dry-run", "--disk", "sda1", "--file", file});
    };
    EXPECT_EQ(file_of("/boot/efi", {"--file", "/boot/efi/EFI/a/grub.efi"}), "\\EFI\\a\\grub.efi");
    EXPECT_THAT(planned("/boot/efi/EFI/a/grub.efi").err,
                HasSubstr("The file on c5t0d0s0 (sda1) is \\EFI\\a\\grub.efi.\n"));
    EXPECT_THAT(planned("\\efi\\A\\GRUB.EFI").err, Not(HasSubstr("there is no file")));
    for (const char *absent : {"grub.efi", "EFI/a/shim.efi", "/boot/efi/EFI/a/shim.efi"}) {
        const outcome made = planned(absent);
        EXPECT_EQ(made.status, 0);
        EXPECT_THAT(made.err, HasSubstr("there is no file /boot/efi/")) << absent;
    }
    fs::create_directories(root / "boot/efi/boot/efi/EFI/a");
    put_text("boot/efi/boot/efi/EFI/a/grub.efi", "");
    EXPECT_EQ(file_of("sda1", {"--file", "/boot/efi/EFI/a/grub.efi"}), "\\boot\\efi\\EFI\\a\\grub.efi")
        << "the partition has it by that name";
}

TEST_F(disk_paths, of_files_on_no_disk_are_refused)
{
    put_mounts("30 20 0:44 / /run/user rw - tmpfs tmpfs rw\n"
               "31 20 0:45 /@ /srv rw - btrfs /dev/sda2 rw\n"
               "32 20 0:46 / /boot rw - overlay overlay rw\n");
    EXPECT_EQ(found("/run/user"),
              "ovra: \"/run/user\" is on a file system of kind tmpfs, which is on no disk\n"
              "  'ovra disks' shows the disks with their names.\n");
    EXPECT_THAT(found("/boot/efi"), HasSubstr("of kind overlay, which is on no disk\n"));
    EXPECT_EQ(
        found("/srv/esp"),
        "ovra: \"/srv/esp\" is on a file system of kind btrfs, which can be on several disks and in parts "
        "of them\n  Name the disk: /dev/sda2\n");
}

TEST_F(disk_paths, need_to_know_what_is_mounted)
{
    fs::create_directories(root / "boot/efi");
    const std::string unknown =
        "ovra: what is mounted where is not known\n  The machine's folder has neither "
        "proc/self/mountinfo nor etc/mtab. Name the disk.\n";
    EXPECT_EQ(found("/boot/efi"), unknown);
    put_text("etc/mtab", "/dev/sdb1 / ext4 rw 0 0\n/dev/sda1 /boot/efi vfat rw 0 0\nnonsense\n\n /");
    EXPECT_EQ(found("/boot/efi"), "c5t0d0s0");
    EXPECT_EQ(found("/boot"), "c5t3d0p1");
    put_text("etc/mtab", "LABEL=x /boot vfat rw 0 0\n/dev/sda1 /boot/efi btrfs rw 0 0\n");
    EXPECT_THAT(found("/boot/efi"), HasSubstr("of kind btrfs, "));
    EXPECT_THAT(found("/boot"), HasSubstr("of kind vfat, which is on no disk"));
    EXPECT_THAT(found("/dev"), HasSubstr("No file system is mounted there or above it."));
    fs::remove(root / "etc/mtab");
    // What the kernel tells of this machine is nothing about that one.
    fs::create_directories(root / "proc");
    if (mount("proc", (root / "proc").c_str(), "proc", 0, nullptr) != 0)
        GTEST_SKIP() << "who runs this may not mount";
    const std::string said = found("/boot/efi");
    umount((root / "proc").c_str());
    EXPECT_EQ(said, unknown);
}

// The kernel's number of a device holds, whatever name it was mounted by.
TEST_F(disk_paths, of_mounts_go_by_the_number_of_the_device)
{
    put_mounts("30 20 8:1 / /boot/efi rw - vfat /dev/root rw\n");
    EXPECT_THAT(found("/boot/efi"), HasSubstr("\"/boot/efi\" is on /dev/root, which is no disk"));
    fs::create_directories(root / "sys/devices/pci0000:00/sda/sda1");
    link("../../devices/pci0000:00/sda/sda1", "sys/dev/block/8:1");
    EXPECT_EQ(found("/boot/efi"), "c5t0d0s0");
}

TEST_F(disk_paths, of_the_machine_that_runs_the_command)
{
    const auto said = [](const char *name) { return whole(run_command({"path", "encode", name}).err); };
    EXPECT_THAT(said("/dev/null"),
                HasSubstr("\"/dev/null\" is neither a disk of this machine nor a file on one\n"));
    EXPECT_THAT(said("/dev/pts"), HasSubstr("which is on no disk\n"));
    surroundings empty;
    empty.environment["HWPLAT_ROOT"] = "";
    EXPECT_THAT(run_command({"path", "encode", "/dev/disk/x"}, empty).err,
                HasSubstr("HWPLAT_ROOT is empty: there is no machine\n"));
}

} // namespace tool_test
