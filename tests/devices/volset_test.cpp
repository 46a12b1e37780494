// Descriptors: what they stand for, and what belongs to what.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

class Volset : public testing::Test {
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

TEST_F(Volset, names_by_kind)
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

TEST_F(Volset, what_belongs_to_what)
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

TEST_F(Volset, drives_without_a_medium)
{
    const descriptors all = all_of(VS_DRIVE);
    std::string with;
    for (size_t i = 0; all[i] != 0; ++i)
        with += associated(all[i], VS_MEDIA)[0] != 0 ? '1' : '0';
    EXPECT_EQ(with, "1110011") << "sde is blank, vda has no image";
}

TEST_F(Volset, attributes_of_media)
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

TEST_F(Volset, kinds_that_there_are_none_of)
{
    for (const int kind : {0, 5, 7}) {
        int err = -1;
        EXPECT_EQ(vs_get_descriptors(static_cast<vs_kind_t>(kind), nullptr, &err), nullptr);
        EXPECT_EQ(err, EINVAL);
        EXPECT_EQ(vs_get_descriptor_by_name(static_cast<vs_kind_t>(kind), "c5t0d0s0", &err), 0U);
        EXPECT_EQ(err, EINVAL);
    }
}

TEST_F(Volset, descriptors_stay_usable_while_the_machine_changes)
{
    const descriptors slices = all_of(VS_SLICE);
    fs::remove_all(machine.root() / "dev");
    fs::remove_all(machine.root() / "sys/block");
    EXPECT_EQ(all_of(VS_DRIVE)[0], 0U);
    EXPECT_EQ(name_of(slices[0]), "/dev/dsk/c0t0d0s0");
    EXPECT_EQ(attribute(attributes_of(slices[0]).get(), "start"), 2048U);
    EXPECT_NE(associated(slices[0], VS_MEDIA)[0], 0U);
}

TEST_F(Volset, nothing_is_released)
{
    vs_free_descriptor(0);
    vs_free_descriptors(nullptr);
}

TEST_F(Volset, links_into_short_buffers)
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

TEST_F(Volset, links_of_the_system_come_first)
{
    const fs::path link = machine.root() / "link";
    fs::create_symlink("somewhere", link);
    EXPECT_EQ(link_of(link), "somewhere");
    EXPECT_EQ(link_of(machine.root()), "errno " + std::to_string(EINVAL));
    EXPECT_EQ(link_of("/dev/c5t0d0s0"), "errno " + std::to_string(ENOENT));
}

} // namespace
