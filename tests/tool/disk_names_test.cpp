// SPDX-License-Identifier: MIT
// The names that a disk may be given by, and what is said of them.
#include "tests/tool/disks.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(disks_verb, may_be_given_by_their_linux_names)
{
    const struct {
        const char *given;
        const char *name;
    } cases[] = {{"/dev/sda1", "c5t0d0s0"},         {"sda9", "c5t0d0s8"},
                 {"/dev/nvme0n1p3", "c2t0d0s2"},    {"sdb5", "c5t3d0p5"},
                 {"/dev/dsk/c5t0d0s0", "c5t0d0s0"}, {"/dev/rdsk/c5t3d0p1", "c5t3d0p1"}};
    const auto planned = [this](const char *disk) {
        return json::parse(run({"create", "--desc", "x", "--dry-run", "--json", "--disk", disk}).out);
    };
    for (const auto &[given, name] : cases) {
        EXPECT_EQ(planned(given)["changes"], planned(name)["changes"]) << given;
        EXPECT_EQ(parsed({"find", given})["disk"], name) << given;
    }
    EXPECT_EQ(parsed({"create", "--desc", "x", "--disk", "/dev/sda1", "--file", "\\a", "--dry-run"})["disk"],
              "c5t0d0s0");
    EXPECT_EQ(json::parse(run({"create", "--desc", "y", "--disk", "/dev/sdb5", "--json"}).out)["disk"],
              "c5t3d0p5");
    EXPECT_EQ(output({"remove", "Boot0008"}).find("/dev"), std::string::npos);
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "/dev/sda1", "--file", "\\a"}).err,
              "/dev/sda1 is c5t0d0s0, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n");
    EXPECT_EQ(run({"find", "/dev/sda1"}).out, "Boot0008  x\n");
    EXPECT_EQ(run({"find", "c5t0d0s0"}).out, "Boot0008  x\n");
    EXPECT_EQ(run({"find", "c5t0d0s1"}).out, "no option boots from c5t0d0s1 (sda2)\n");
}

TEST_F(disks_verb, are_told_of_by_their_other_names)
{
    const std::string uuid = "PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01";
    EXPECT_EQ(run({"find", "c5t0d0s0"}).err, "c5t0d0s0 is /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "sda1"}).err, "sda1 is c5t0d0s0, /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "/dev/dsk/c5t0d0s0"}).err,
              "/dev/dsk/c5t0d0s0 is c5t0d0s0, /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "c5t3d0p5"}).err, "c5t3d0p5 is /dev/sdb5, PARTUUID=1234abcd-05.\n");
    EXPECT_EQ(run({"find", "c5t3d0p0"}).err, "c5t3d0p0 is /dev/sdb, MBR signature 1234abcd.\n");
    // A disk that is not taken is not told of.
    EXPECT_EQ(run({"find", "c5t0d0s77"}).err,
              "ovra: no disk is named \"c5t0d0s77\"\n  'ovra disks' shows the disks with their names.\n");
}

TEST_F(disks_verb, may_be_given_by_what_identifies_them)
{
    const auto created = [this](const std::string &disk) {
        return json::parse(
            run({"create", "--desc", "x", "--dry-run", "--json", "--disk", disk}).out)["changes"];
    };
    EXPECT_EQ(created("PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02"), created("c5t0d0s1"));
    EXPECT_EQ(created("partuuid=5F9F0A37-8A44-4AD0-9C2E-1D9E6F5B7C02"), created("c5t0d0s1"));
    EXPECT_EQ(created("PARTUUID=1234abcd-05"), created("c5t3d0p5"));
    EXPECT_EQ(created("/dev/disk/by-partuuid/1234abcd-05"), created("c5t3d0p5"));
    const outcome found = run({"find", "PARTUUID=1234abcd-05"});
    EXPECT_EQ(found.err, "PARTUUID=1234abcd-05 is c5t3d0p5, /dev/sdb5.\n");
    for (const char *none : {"PARTUUID=", "PARTUUID=1234abcd-09", "PARTUUID=1234abcd", "PARTUUID=5f9f0a37"})
        EXPECT_THAT(failure({"find", none}),
                    HasSubstr("ovra: no disk is named \"" + std::string(none) + "\"\n"));
    // A copy of a disk identifies itself as the other does.
    put_disk("sdz", "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:0");
    fs::copy_file(root / "dev/sda", root / "dev/sdz");
    EXPECT_THAT(failure({"find", "PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02"}),
                HasSubstr("names more than one disk\n  They are "));
}

// Firmware looks for a short form by what identifies the partition.
TEST_F(disks_verb, that_another_has_the_identity_of_are_warned_of)
{
    const words create = {"create", "--desc", "x", "--dry-run", "--file", "\\a", "--disk"};
    const auto said_of = [&](const words &more) {
        const outcome result = run(create + more);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.err;
    };
    EXPECT_THAT(said_of({"c5t0d0s1"}), Not(HasSubstr("warning")));
    EXPECT_THAT(said_of({"c5t3d0p1"}), Not(HasSubstr("warning")));
    const std::string host = "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:";
    put_disk("sdy", host + "0");
    put_disk("sdz", host + "1");
    fs::copy_file(root / "dev/sda", root / "dev/sdy");
    fs::copy_file(root / "dev/sdb", root / "dev/sdz");
    const std::string advice =
        "  The firmware may take either. With --full the path leads to one of them alone.\n";
    EXPECT_EQ(said_of({"c5t0d0s1"}),
              "c5t0d0s1 is /dev/sda2, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02.\n"
              "ovra: warning: c1t9d0s1 (sdy2) has the same PARTUUID as c5t0d0s1 (sda2)\n" +
                  advice);
    EXPECT_THAT(said_of({"c1t9d0s1"}),
                HasSubstr("c5t0d0s1 (sda2) has the same PARTUUID as c1t9d0s1 (sdy2)\n"));
    EXPECT_THAT(said_of({"c5t3d0p1"}),
                HasSubstr("warning: c1t9d1p1 (sdz1) has the same PARTUUID as c5t3d0p1 (sdb1)\n" + advice));
    EXPECT_THAT(said_of({"c5t3d0p0"}),
                HasSubstr("warning: c1t9d1p0 (sdz) has the same MBR signature as c5t3d0p0 (sdb)\n" + advice));
    EXPECT_THAT(said_of({"c5t0d0s1", "--full"}), Not(HasSubstr("warning")));
    EXPECT_THAT(said_of({"c2t0d0s0"}), Not(HasSubstr("warning")));
    const outcome set = run({"set", "Boot0003", "--devpath", "c5t0d0s1", "--dry-run"});
    EXPECT_EQ(set.status, 0);
    EXPECT_THAT(set.err,
                HasSubstr(" has the same PARTUUID as c5t0d0s1 (sda2)\n  The firmware may take either.\n"));
}

TEST_F(disks_verb, that_are_logical_partitions_are_warned_of)
{
    for (const words &more : {words{}, words{"--full"}}) {
        const outcome result =
            run(words{"create", "--desc", "x", "--disk", "c5t3d0p5", "--file", "\\a", "--dry-run"} + more);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "c5t3d0p5 is /dev/sdb5, PARTUUID=1234abcd-05.\n"
                              "ovra: warning: the path has the number 0 for c5t3d0p5 (sdb5), a logical\n"
                              "      partition\n"
                              "  Firmware that goes by the number does not find it.\n");
    }
    EXPECT_THAT(run({"find", "c5t3d0p5"}).err, Not(HasSubstr("warning")));
}

// Behind a name that ends in a digit Linux writes a "p" before the number.
TEST_F(disks_verb, of_an_sd_host_may_be_given_by_their_linux_names)
{
    const std::string host = "sys/devices/pci0000:00/0000:00:1e.0";
    for (const auto &[file, text] :
         {std::pair("vendor", "0x8086"), {"device", "0xa32b"}, {"revision", "0x10"}, {"class", "0x080501"}})
        put_text(host + "/" + file, text);
    put_partitioned_disk("mmcblk0", host + "/mmc_host/mmc0/mmc0:0001");
    const json found = parsed({"find", "/dev/mmcblk0p2"});
    EXPECT_THAT(found["disk"].get<std::string>(), ::testing::MatchesRegex("c[0-9]+t0d0s1"));
    EXPECT_EQ(volume(parsed({"disks"}), found["disk"])["kernel_name"], "mmcblk0p2");
    EXPECT_EQ(run({"find", "mmcblk02"}).status, 1);
}

TEST_F(disks_verb, that_are_not_there_are_refused)
{
    for (const char *disk : {"/dev/sda4", "sda01", "sdap1", "nvme0n11", "", "/dev/", "c9t0d0s0", "c9t0d0",
                             "c5t0d0s0x", "c5t0d0s99999999999"}) {
        EXPECT_EQ(run({"find", disk}).status, 1) << disk;
        const outcome created = run({"create", "--desc", "x", "--disk", disk});
        EXPECT_EQ(created.status, 1) << disk;
        EXPECT_EQ(created.out, "") << disk;
    }
    // An option of a whole disk cannot be made: firmware is to find a file on it.
    EXPECT_EQ(
        whole(run({"create", "--desc", "x", "--disk", "sda"}).err),
        "ovra: \"sda\" is the whole disk c5t0d0 (sda)\n"
        "  One of its slices or partitions is needed. 'ovra disks' shows the disks with their names.\n");
    EXPECT_EQ(get("Boot0008"), "(none)");
}

} // namespace tool_test
