// SPDX-License-Identifier: MIT
// Reading a machine while one system call fails: the result is right or an error, and never another disk.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/failing_calls.h"
#include "tests/devices/library.h"
#include "tests/devices/process/outcomes.h"
#include "tests/devices/sample.h"
#include "tests/support/filesystems.h"
#include "tests/support/gpt.h"

namespace {

using namespace devices_test;

// A machine with a disk of each kind of table, a blank one and one without a file, on few functions: the
// number of runs grows with the square of the number of calls.
class failing_reads : public testing::Test {
protected:
    failing_reads()
    {
        const std::string sata = machine.function("pci0000:00/0000:00:1f.2", 0x010601);
        machine.disk("sda", machine.ata(sata, 1, 1, "0:0:0:0"));
        ovra::test::write_gpt(machine.image("sda"), 65536,
                              ovra::test::make_gpt(65536, {{1, 2048, 4095}, {9, 4096, 8191}}));
        machine.disk("sdb", machine.ata(sata, 2, 4, "1:0:0:0"));
        sample::partition(machine.image("sdb"),
                          "label: dos\\nlabel-id: 0xcafe0001\\nstart=2048,size=2048,type=83\\n"
                          "start=4096,size=20480,type=5\\nstart=6144,size=2048,type=83\\n"
                          "start=10240,size=4096,type=83\\n");
        machine.function("pci0000:00/0000:00:02.0", 0x010400);
        machine.disk("sdc", sata + "/host2/target2:0:6/2:0:6:0");
        static_cast<void>(machine.image("sdc"));
        machine.text("sys/devices/node/hid", "PNP0A08");
        machine.text("sys/devices/node/uid", "3");
        machine.text("sys/devices/node/modalias", "acpi:PNP0A08:PNP0A03:");
        fs::create_directory_symlink("../node", machine.root() / "sys/devices/pci0000:00/firmware_node");
    }

    // Each of these begins with the tree, which has a test of its own with every error.
    void expect_told(const std::string &name, const std::function<outcome()> &body,
                     const judgement &is_right = same_or_error)
    {
        if (of_tree == 0)
            of_tree = calls_of(whole_tree);
        expect_each_failure_told(name, body, is_right, of_tree);
    }

    sample machine;
    library ovra;

private:
    long of_tree = 0;
};

// libblkid is loaded with the first medium of a process. When it cannot be, no medium is taken for absent.
TEST_F(failing_reads, loading_what_reads_partition_tables)
{
    if (void *loaded = dlopen("libblkid.so.1", RTLD_LAZY | RTLD_NOLOAD); loaded != nullptr) {
        dlclose(loaded);
        GTEST_SKIP() << "a case before this one has loaded it";
    }
    const auto media = [] { return all_of_kind(VS_MEDIA); };
    EXPECT_GT(expect_each_first_failure_told(
                  "media, first of all", media,
                  [](const outcome &found, const outcome &undisturbed, int injected) {
                      return found.error == ELIBACC || same_but_for_one_drive(found, undisturbed, injected);
                  },
                  calls_of(whole_tree)),
              calls_of(media) + 5);
}

TEST_F(failing_reads, the_machine_is_what_the_tests_say)
{
    EXPECT_THAT(volumes(),
                testing::ElementsAre("c1t0d0s0 2048 2048", "c1t0d0s8 4096 4096", "c1t3d0p0 0 65536",
                                     "c1t3d0p1 2048 2048", "c1t3d0p2 4096 20480", "c1t3d0p5 6144 2048",
                                     "c1t3d0p6 10240 4096"));
    EXPECT_EQ(drives().size(), 3U);
}

TEST_F(failing_reads, encode_of_a_disk)
{
    for (const char *disk : {"c1t0d0s8", "c1t3d0p5"}) {
        for (const int flags : {0, 1})
            expect_told(std::string("encode ") + disk + " " + std::to_string(flags),
                        [&] { return ovra.encode(disk, flags); });
    }
}

TEST_F(failing_reads, tree)
{
    expect_each_failure_told("ht_init", whole_tree, same_or_that_error);
}

TEST_F(failing_reads, descriptors_of_each_kind)
{
    expect_told(
        "drives", [] { return all_of_kind(VS_DRIVE); }, same_or_that_error);
    expect_told(
        "media", [] { return all_of_kind(VS_MEDIA); }, same_but_for_one_drive);
    expect_told(
        "slices", [] { return all_of_kind(VS_SLICE); }, same_but_for_one_drive);
}

TEST_F(failing_reads, media_of_drives)
{
    expect_told("media of each drive", media_of_each_drive, same_but_for_an_error_line);
}

TEST_F(failing_reads, names_and_links)
{
    for (const auto &[kind, name] : {std::pair(VS_SLICE, "c1t0d0s0"), std::pair(VS_PARTITION, "c1t3d0p5"),
                                     std::pair(VS_MEDIA, "c1t0d0"), std::pair(VS_DRIVE, "c1t6d0")}) {
        expect_told(
            std::string("descriptor of ") + name,
            [kind = kind, name = name] {
                int err = 0;
                const vs_descriptor_t found = vs_get_descriptor_by_name(kind, name, &err);
                const outcome said = found != 0 ? said_of(found) : outcome{err, ""};
                vs_free_descriptor(found);
                return said;
            },
            same_or_that_error);
    }
    expect_told(
        "link",
        [] {
            char target[256];
            const ssize_t length = devns_readlink("/dev/dsk/c1t0d0s0", target, sizeof target);
            return length < 0 ? outcome{errno, ""}
                              : outcome{0, std::string(target, static_cast<size_t>(length))};
        },
        same_or_that_error);
}

// A file system that cannot be read is not taken for none.
// A disk with a table, a blank one, and one with a file system.
TEST_F(failing_reads, contents)
{
    sample::patch(machine.root() / "dev/sdb", 0, ovra::test::make_fat(0x1a2b3c4d, "EFI"));
    expect_told(
        "contents",
        [] {
            outcome found;
            int err = 0;
            const descriptors drives(vs_get_descriptors(VS_DRIVE, nullptr, &err));
            for (size_t i = 0; err == 0 && drives[i] != 0; ++i) {
                const attributes list(vs_get_contents(drives[i], &err));
                uint8_t *kind = nullptr;
                unsigned count = 0;
                uint32_t error = 0;
                if (list && kvlist_lookup_uint32(list.get(), "error", &error) == 0)
                    err = static_cast<int>(error);
                else if (list && kvlist_lookup_uint8_array(list.get(), "kind", &kind, &count) == 0)
                    found.text += std::string(kind, kind + count - 1) + ' ';
            }
            return err == 0 ? found : outcome{err, ""};
        },
        same_or_error);
}

TEST_F(failing_reads, attachment)
{
    expect_told(
        "attachment",
        [] {
            int err = 0;
            const vs_descriptor_t drive = vs_get_descriptor_by_name(VS_DRIVE, "c1t3d0", &err);
            const attributes list(drive != 0 ? vs_get_attachment(drive, &err) : nullptr);
            vs_free_descriptor(drive);
            const auto port = list ? attribute(list.get(), "port") : std::nullopt;
            return port ? outcome{0, std::to_string(*port)} : outcome{err, ""};
        },
        same_or_that_error);
}

TEST_F(failing_reads, file_system)
{
    sample::patch(machine.root() / "dev/sda", 2048 * 512, ovra::test::make_fat(0x1a2b3c4d, "EFI"));
    expect_told(
        "file system",
        [] {
            int err = 0;
            const vs_descriptor_t slice = vs_get_descriptor_by_name(VS_SLICE, "c1t0d0s0", &err);
            const attributes list(slice != 0 ? vs_get_file_system(slice, &err) : nullptr);
            vs_free_descriptor(slice);
            uint8_t *uuid = nullptr;
            unsigned count = 0;
            if (list && kvlist_lookup_uint8_array(list.get(), "uuid", &uuid, &count) == 0)
                return outcome{0, {uuid, uuid + count - 1}};
            return outcome{err, ""};
        },
        same_or_error);
}

// An absent name stays absent; an unreadable one does not become absent.
TEST_F(failing_reads, name_that_is_not_there)
{
    expect_told(
        "no such slice",
        [] {
            int err = 0;
            const vs_descriptor_t found = vs_get_descriptor_by_name(VS_SLICE, "c1t0d0s7", &err);
            vs_free_descriptor(found);
            return err == ENOENT ? outcome{0, "absent"} : outcome{err, "found"};
        },
        same_or_that_error);
}

TEST_F(failing_reads, decode_to_devices)
{
    for (const char *disk : {"c1t0d0s8", "c1t3d0p1"}) {
        const std::string packed = ovra.packed(disk, 0);
        expect_told(std::string("decode ") + disk, [&] { return ovra.decode(packed); });
    }
    std::string full = ovra.packed("c1t3d0p1", 1);
    full.erase(full.size() - 4 - 42, 42);
    expect_told("decode full", [&] { return ovra.decode(full); });
}

TEST_F(failing_reads, disks_of_an_option)
{
    ovra.put_option("Boot0001", "c1t0d0s0");
    expect_told("logdev", [&] { return ovra.names(ovra_bootopt_logdev, "Boot0001"); });
}

// A path means all disks that are alike. An unreadable one is passed over, and no other. A shortage of the
// process leaves none out.
TEST(failing_reads_alike, decode_to_devices)
{
    const sample machine;
    const fs::path image = machine.image("image");
    ovra::test::write_gpt(image, 65536, ovra::test::make_gpt(65536, {{1, 2048, 4095}, {3, 4096, 8191}}));
    for (const int host : {0, 1, 2}) {
        const std::string function =
            machine.function("pci0000:00/0000:00:0" + std::to_string(host + 1) + ".0", 0x010601);
        const std::string name = std::string("sd") + static_cast<char>('a' + host);
        machine.disk(name, machine.ata(function, static_cast<unsigned>(host) + 1, 1, "0:0:0:0"));
        fs::create_hard_link(image, machine.root() / "dev" / name);
    }
    const library ovra;
    const std::string packed = ovra.packed("c1t0d0s2", 0);
    EXPECT_EQ(lines(ovra.decode(packed).text).size(), 3U);
    expect_each_failure_told(
        "decode of disks that are alike", [&] { return ovra.decode(packed); },
        [](const outcome &found, const outcome &undisturbed, int injected) {
            if (found.error != 0 || found == undisturbed)
                return true;
            const std::vector<std::string> all = lines(undisturbed.text);
            const std::vector<std::string> left = lines(found.text);
            return (injected == EIO || injected == EACCES) && left.size() + 1 == all.size() &&
                   std::includes(all.begin(), all.end(), left.begin(), left.end());
        });
}

enum class place { functions_of_their_own, one_function };

// A machine whose disks have one image in common, a function for each of them or all on one.
class alike_disks {
public:
    alike_disks(int count, place where)
    {
        ovra::test::write_gpt(image, 65536, ovra::test::make_gpt(65536, {{1, 2048, 4095}}));
        const std::string scsi = machine.function("pci0000:00/0000:00:1f.0", 0x010000);
        for (int i = 0; i < count; ++i) {
            const std::string name = "sd" + std::to_string(i);
            const std::string number = std::to_string(i);
            if (where == place::one_function) {
                machine.disk(name, scsi + "/host0/target0:0:" + number + "/0:0:" + number + ":0");
            } else {
                char folder[40];
                std::snprintf(folder, sizeof folder, "pci0000:00/0000:00:%02x.%d", i / 8, i % 8);
                machine.disk(name, machine.ata(machine.function(folder, 0x010601),
                                               static_cast<unsigned>(i) + 1, 1, "0:0:0:0"));
            }
            fs::create_hard_link(image, machine.root() / "dev" / name);
        }
    }

private:
    const sample machine;
    const fs::path image = machine.image("image");
};

// A call reads the machine once, however many disks its path means.
TEST(failing_reads_alike, a_call_reads_the_machine_once)
{
    const alike_disks disks(100, place::functions_of_their_own);
    const library ovra;
    const std::string packed = ovra.packed("c99t0d0s0", 0);
    EXPECT_EQ(lines(ovra.decode(packed).text).size(), 100U);
    const long of_tree = opens_of(whole_tree);
    const long of_media = opens_of(media_of_each_drive);
    const long of_decode = opens_of([&] { return ovra.decode(packed); });
    const long of_encode = opens_of([&] { return ovra.encode("c99t0d0s0", 1); });
    std::printf(
        "100 disks that are alike: opens of the tree %ld, with all media %ld, to decode a path %ld, to "
        "encode a disk %ld\n",
        of_tree, of_media, of_decode, of_encode);
    EXPECT_GE(of_tree, 1000);
    EXPECT_EQ(of_decode, of_media);
    EXPECT_EQ(of_encode, of_tree + (of_media - of_tree) / 100);
}

// Calls of the system for all disks that a path or an option means: ten times as many for ten times the
// disks.
TEST(failing_reads_alike, ten_times_the_disks_cost_ten_times_the_calls)
{
    struct cost {
        long decode;
        long names;
    };
    for (const place where : {place::functions_of_their_own, place::one_function}) {
        const auto cost_of = [where](int count) {
            const alike_disks disks(count, where);
            const library ovra;
            const char *disk = where == place::one_function ? "c0t0d0s0" : "c1t0d0s0";
            const std::string packed = ovra.packed(disk, 0);
            ovra.put_option("Boot0001", disk);
            EXPECT_EQ(lines(ovra.decode(packed).text).size(), static_cast<std::size_t>(count));
            EXPECT_EQ(lines(ovra.names(ovra_bootopt_logdev, "Boot0001").text).size(),
                      static_cast<std::size_t>(count));
            return cost{calls_of([&] { return ovra.decode(packed); }),
                        calls_of([&] { return ovra.names(ovra_bootopt_logdev, "Boot0001"); })};
        };
        const cost few = cost_of(10);
        const cost many = cost_of(100);
        std::printf(
            "10 and 100 disks that are alike: calls to decode a path %ld and %ld, for the disks of an "
            "option %ld and %ld\n",
            few.decode, many.decode, few.names, many.names);
        EXPECT_GT(few.decode, 100);
        EXPECT_LE(many.decode, 11 * few.decode);
        EXPECT_LE(many.names, 11 * few.names);
    }
}

// File descriptors run out again and again while disks are encoded.
TEST_F(failing_reads, another_thread_at_the_limit_of_descriptors)
{
    const outcome full = ovra.encode("c1t0d0s0", 1);
    const outcome brief = ovra.encode("c1t0d0s0", 0);
    ASSERT_EQ(full.error, 0);
    struct rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit tight = {64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::atomic<bool> done = false;
    std::thread other([&] {
        std::vector<int> taken;
        while (!done) {
            for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
                taken.push_back(fd);
            for (const int fd : taken)
                close(fd);
            taken.clear();
        }
    });
    int right = 0;
    int errors = 0;
    int wrong = 0;
    for (int i = 0; i < 3000; ++i) {
        for (const auto &[flags, expected] : {std::pair(0, brief), std::pair(1, full)}) {
            const outcome found = ovra.encode("c1t0d0s0", flags);
            ++(found.error != 0 ? errors : found == expected ? right : wrong);
        }
    }
    done = true;
    other.join();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    std::printf("6000 encodes beside a thread that takes all descriptors: %d right, %d errors, %d wrong\n",
                right, errors, wrong);
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(errors, 0);
}

} // namespace
