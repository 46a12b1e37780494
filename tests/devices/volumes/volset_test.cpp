// SPDX-License-Identifier: MIT
// Descriptors: their names, attributes and associations.
#include <atomic>
#include <cerrno>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

class volset_calls : public testing::Test {
protected:
    static vs_descriptor_t named(vs_kind_t kind, const char *name)
    {
        int err = -1;
        const vs_descriptor_t found = vs_get_descriptor_by_name(kind, name, &err);
        EXPECT_EQ(err, found != 0 ? 0 : ENOENT) << name;
        return found;
    }
    static int association_error(vs_descriptor_t of, vs_kind_t kind)
    {
        int err = -1;
        const descriptors found(vs_get_associated_descriptors(of, kind, &err));
        EXPECT_EQ(found == nullptr, err != 0);
        return err;
    }

    sample machine{"q35"};
};

TEST_F(volset_calls, names_by_kind)
{
    for (const auto &[kind, name, there] : {std::tuple(VS_SLICE, "/dev/dsk/c5t0d0s0", true),
                                            std::tuple(VS_PARTITION, "/dev/rdsk/c5t3d0p1", true),
                                            std::tuple(VS_SLICE, "/dev/rdsk/c5t0d0s0", false),
                                            std::tuple(VS_PARTITION, "/dev/dsk/c5t3d0p1", false),
                                            std::tuple(VS_SLICE, "/dev/dsk/c5t3d0p1", false),
                                            std::tuple(VS_PARTITION, "/dev/rdsk/c5t0d0s0", false),
                                            std::tuple(VS_SLICE, "/dev/dsk/c5t0d0s2", false),
                                            std::tuple(VS_PARTITION, "/dev/rdsk/c5t3d0p4", false),
                                            std::tuple(VS_PARTITION, "/dev/rdsk/c5t0d0p0", false)}) {
        const vs_descriptor_t found = named(kind, name);
        EXPECT_EQ(found != 0, there) << name;
        if (found != 0) {
            EXPECT_EQ(name_of(found), name);
        }
        vs_free_descriptor(found);
    }
}

// Names work without their folder; drives and media have none.
TEST_F(volset_calls, names_without_a_folder)
{
    for (const auto &[kind, name, own] :
         {std::tuple(VS_SLICE, "c5t0d0s0", "/dev/dsk/c5t0d0s0"),
          std::tuple(VS_PARTITION, "c5t3d0p1", "/dev/rdsk/c5t3d0p1"),
          std::tuple(VS_DRIVE, "c5t3d0", "c5t3d0"), std::tuple(VS_DRIVE, "/dev/dsk/c5t3d0", "c5t3d0"),
          std::tuple(VS_DRIVE, "c4t0d0", "c4t0d0"), std::tuple(VS_MEDIA, "c5t3d0", "c5t3d0")}) {
        const vs_descriptor_t found = named(kind, name);
        ASSERT_NE(found, 0U) << name;
        EXPECT_EQ(name_of(found), own);
        vs_free_descriptor(found);
    }
    for (const auto &[kind, name] :
         {std::pair(VS_SLICE, "c5t0d0"), std::pair(VS_PARTITION, "c5t3d0"), std::pair(VS_DRIVE, "c5t3d0p1"),
          std::pair(VS_DRIVE, "/dev/rdsk/c5t3d0"), std::pair(VS_MEDIA, "c5t3d0p1"),
          std::pair(VS_MEDIA, "c4t0d0"), std::pair(VS_DRIVE, "c9t0d0"), std::pair(VS_DRIVE, "")})
        EXPECT_EQ(named(kind, name), 0U) << name;
}

// A medium has the name of its drive.
TEST_F(volset_calls, names_of_media)
{
    std::vector<std::string> names;
    const descriptors media = all_of(VS_MEDIA);
    for (size_t i = 0; media[i] != 0; ++i)
        names.push_back(name_of(media[i]));
    EXPECT_THAT(names, testing::ElementsAre("c0t0d0", "c1t1d2", "c2t0d0", "c5t0d0", "c5t3d0"));
}

TEST_F(volset_calls, what_belongs_to_what)
{
    const vs_descriptor_t slice = named(VS_SLICE, "/dev/dsk/c5t0d0s8");
    const vs_descriptor_t partition = named(VS_PARTITION, "/dev/rdsk/c5t3d0p5");
    for (const vs_descriptor_t of : {slice, partition}) {
        const descriptors media = associated(of, VS_MEDIA);
        ASSERT_NE(media[0], 0U);
        EXPECT_EQ(media[1], 0U);
        const descriptors same = associated(media[0], of == slice ? VS_SLICE : VS_PARTITION);
        size_t count = 0;
        while (same[count] != 0)
            ++count;
        EXPECT_EQ(count, of == slice ? 3U : 5U);
        EXPECT_EQ(associated(media[0], of == slice ? VS_PARTITION : VS_SLICE)[0], 0U);
        EXPECT_EQ(association_error(media[0], VS_DRIVE), EINVAL);
        EXPECT_EQ(association_error(media[0], VS_MEDIA), EINVAL);
        for (const vs_kind_t kind : {VS_DRIVE, VS_PARTITION, VS_SLICE})
            EXPECT_EQ(association_error(of, kind), EINVAL);
    }
    vs_free_descriptor(slice);
    vs_free_descriptor(partition);
    const descriptors all = all_of(VS_DRIVE);
    EXPECT_EQ(association_error(all[0], VS_SLICE), EINVAL);
    EXPECT_EQ(association_error(all[0], static_cast<vs_kind_t>(5)), EINVAL);
}

TEST_F(volset_calls, drives_without_a_medium)
{
    const descriptors all = all_of(VS_DRIVE);
    std::string with;
    for (size_t i = 0; all[i] != 0; ++i)
        with += associated(all[i], VS_MEDIA)[0] != 0 ? '1' : '0';
    EXPECT_EQ(with, "1110011") << "sde is blank, vda has no image";
}

TEST_F(volset_calls, attributes_of_media)
{
    const vs_descriptor_t slice = named(VS_SLICE, "/dev/dsk/c2t0d0s2");
    const descriptors gpt = associated(slice, VS_MEDIA);
    vs_free_descriptor(slice);
    EXPECT_EQ(attribute(attributes_of(gpt[0]).get(), "blocksize"), 4096U);
    EXPECT_EQ(attribute(attributes_of(gpt[0]).get(), "nblocks"), 16384U);
    EXPECT_EQ(attribute(attributes_of(gpt[0]).get(), "volserno"), std::nullopt);
    const vs_descriptor_t partition = named(VS_PARTITION, "/dev/rdsk/c5t3d0p0");
    const descriptors mbr = associated(partition, VS_MEDIA);
    vs_free_descriptor(partition);
    EXPECT_EQ(attribute(attributes_of(mbr[0]).get(), "volserno"), 0x1234abcdU);
}

TEST_F(volset_calls, kinds_that_there_are_none_of)
{
    for (const int kind : {0, 5, 7}) {
        int err = -1;
        EXPECT_EQ(vs_get_descriptors(static_cast<vs_kind_t>(kind), nullptr, &err), nullptr);
        EXPECT_EQ(err, EINVAL);
        EXPECT_EQ(vs_get_descriptor_by_name(static_cast<vs_kind_t>(kind), "c5t0d0s0", &err), 0U);
        EXPECT_EQ(err, EINVAL);
    }
}

TEST_F(volset_calls, descriptors_stay_usable_while_the_machine_changes)
{
    const descriptors slices = all_of(VS_SLICE);
    fs::remove_all(machine.root() / "dev");
    fs::remove_all(machine.root() / "sys/block");
    EXPECT_EQ(all_of(VS_DRIVE)[0], 0U);
    EXPECT_EQ(name_of(slices[0]), "/dev/dsk/c0t0d0s0");
    EXPECT_EQ(attribute(attributes_of(slices[0]).get(), "start"), 2048U);
    EXPECT_NE(associated(slices[0], VS_MEDIA)[0], 0U);
}

TEST_F(volset_calls, two_threads_at_once)
{
    const std::vector<std::string> paths = tree_paths();
    const std::vector<std::string> parts = volumes();
    const std::string link = link_of("/dev/dsk/c5t0d0s0");
    std::atomic<int> differences = 0;
    const auto look = [&] {
        for (int i = 0; i < 20; ++i)
            differences +=
                (tree_paths() != paths) + (volumes() != parts) + (link_of("/dev/dsk/c5t0d0s0") != link);
    };
    std::thread other(look);
    look();
    other.join();
    EXPECT_EQ(differences, 0);
}

// Descriptors of one picture, whose media are read when they are first asked for.
TEST_F(volset_calls, two_threads_with_descriptors_of_one_array)
{
    const descriptors all = all_of(VS_DRIVE);
    const auto look = [&](std::vector<std::string> *names) {
        for (size_t i = 0; all[i] != 0; ++i) {
            const descriptors media = associated(all[i], VS_MEDIA);
            for (size_t j = 0; media[j] != 0; ++j)
                names->push_back(name_of(media[j]));
        }
    };
    std::vector<std::string> here;
    std::vector<std::string> there;
    std::thread other(look, &there);
    look(&here);
    other.join();
    EXPECT_THAT(here, testing::ElementsAre("c0t0d0", "c1t1d2", "c2t0d0", "c5t0d0", "c5t3d0"));
    EXPECT_EQ(there, here);
}

TEST_F(volset_calls, nothing_is_released)
{
    vs_free_descriptor(0);
    vs_free_descriptors(nullptr);
}

TEST_F(volset_calls, links_into_short_buffers)
{
    const std::string link = link_of("/dev/dsk/c5t0d0s0");
    char buffer[8] = "#######";
    EXPECT_EQ(devns_readlink("/dev/dsk/c5t0d0s0", buffer, 5), 5);
    EXPECT_EQ(std::string(buffer, 7), link.substr(0, 5) + "##");
    EXPECT_EQ(devns_readlink("/dev/dsk/c5t0d0s0", buffer, 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(devns_readlink(nullptr, buffer, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(devns_readlink("/dev/dsk/c5t0d0s0", nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(volset_calls, links_of_the_system_come_first)
{
    const fs::path link = machine.root() / "link";
    fs::create_symlink("somewhere", link);
    EXPECT_EQ(link_of(link), "somewhere");
    EXPECT_EQ(link_of(machine.root()), "errno " + std::to_string(EINVAL));
    EXPECT_EQ(link_of("/dev/c5t0d0s0"), "errno " + std::to_string(ENOENT));
}

} // namespace
