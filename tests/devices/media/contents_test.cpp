// SPDX-License-Identifier: MIT
// What is on a disk, whether or not it has a table.
#include <cerrno>

#include <sys/stat.h>

#include "tests/devices/media/fixture.h"

namespace {

using namespace devices_test;

// "kind detail", or "error N".
std::string contents_of(vs_descriptor_t drive)
{
    int err = -1;
    const attributes list(vs_get_contents(drive, &err));
    EXPECT_EQ(err, 0);
    if (!list)
        return "(none)";
    if (const auto error = attribute(list.get(), "error"))
        return "error " + std::to_string(*error);
    std::string text;
    for (const char *name : {"kind", "detail"}) {
        uint8_t *bytes = nullptr;
        unsigned count = 0;
        if (kvlist_lookup_uint8_array(list.get(), name, &bytes, &count) == 0)
            text += (text.empty() ? "" : " ") + std::string(bytes, bytes + count - 1);
    }
    return text + (attribute(list.get(), "first-header-damaged") ? ", first header damaged" : "") +
           (attribute(list.get(), "short") ? ", short" : "") +
           (attribute(list.get(), "more-entries") ? ", more entries" : "");
}

std::string contents_of_the_disk()
{
    const descriptors drives = all_of(VS_DRIVE);
    return drives[0] != 0 ? contents_of(drives[0]) : "(no drive)";
}

TEST_F(disk_media, contents_by_kind)
{
    make_disk();
    EXPECT_EQ(contents_of_the_disk(), "absent");
    image = machine.image("sda", 0);
    EXPECT_EQ(contents_of_the_disk(), "absent");
    image = machine.image("sda");
    EXPECT_EQ(contents_of_the_disk(), "blank");
    sample::patch(image, 200000, "x");
    EXPECT_EQ(contents_of_the_disk(), "unknown");
    make_table("label: sun\\nstart=16065,size=16065\\n");
    EXPECT_EQ(contents_of_the_disk(), "other-table sun");
    make_table("label: dos\\nstart=2048,size=2048,type=83\\n");
    EXPECT_EQ(contents_of_the_disk(), "mbr");
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    EXPECT_EQ(contents_of_the_disk(), "gpt");
}

// A byte of a header that libblkid has to find wrong.
TEST_F(disk_media, contents_with_damaged_headers)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const std::uint64_t at : {512U, 512U + 12, 512U + 16, 512U + 40, 512U + 91}) {
        const std::string good = machine.contents(image).substr(at, 1);
        sample::patch(image, at, std::string(1, static_cast<char>(~good[0])));
        EXPECT_EQ(contents_of_the_disk(), "gpt, first header damaged") << at;
        sample::patch(image, at, good);
    }
    // The other one does no harm while the first is good.
    sample::patch(image, 65535 * 512 + 16, "damaged");
    EXPECT_EQ(contents_of_the_disk(), "gpt");
    sample::patch(image, 512 + 16, "damaged");
    EXPECT_EQ(contents_of_the_disk(), "damaged-gpt");
    // Its mark alone, at either end.
    sample::patch(image, 512, std::string(92, 'x'));
    EXPECT_EQ(contents_of_the_disk(), "damaged-gpt");
    sample::patch(image, 65535 * 512, std::string(92, 'x'));
    EXPECT_EQ(contents_of_the_disk(), "damaged-gpt protective MBR alone");
    sample::patch(image, 510, "xx");
    EXPECT_EQ(contents_of_the_disk(), "unknown");
}

// What libblkid leaves out of a table, and why it takes a good one for none.
TEST_F(disk_media, contents_that_are_not_all_there_is)
{
    make_disk();
    make_gpt_of({{1, 2048, 4095}, {2, 4096, 65535}});
    EXPECT_THAT(volumes(), testing::ElementsAre("c0t0d0s0 2048 2048"));
    EXPECT_EQ(contents_of_the_disk(), "gpt, more entries");
    sample::patch(image, 510, "xx");
    EXPECT_EQ(contents_of_the_disk(), "unused-gpt no protective MBR");
    make_gpt_of({{1, 2048, 4095}});
    fs::resize_file(image, 32000UL * 512);
    EXPECT_EQ(contents_of_the_disk(), "damaged-gpt for a larger disk, short");
    make_mbr({{0x83, 2048, 8192}, {0x83, 65536, 1}});
    EXPECT_EQ(contents_of_the_disk(), "mbr, more entries");
}

TEST_F(disk_media, contents_in_blocks_of_4096)
{
    make_disk(4096);
    image = machine.image("sda");
    ovra::test::write_gpt(image, 8192, ovra::test::make_gpt(8192, {{1, 256, 511}}, 128, 1, 4096), 4096);
    EXPECT_THAT(volumes(), testing::ElementsAre("c0t0d0s0 256 256"));
    EXPECT_EQ(contents_of_the_disk(), "gpt");
    sample::patch(image, 4096 + 16, "damaged");
    EXPECT_EQ(contents_of_the_disk(), "gpt, first header damaged");
}

TEST_F(disk_media, contents_that_cannot_be_read)
{
    make_disk();
    const fs::path device = machine.image("sda");
    fs::rename(device, machine.root() / "dev/sdb");
    fs::create_symlink("sdb", device);
    EXPECT_EQ(contents_of_the_disk(), "error " + std::to_string(ELOOP));
    fs::remove(device);
    ASSERT_EQ(mkfifo(device.c_str(), 0600), 0);
    EXPECT_EQ(contents_of_the_disk(), "absent");
}

TEST_F(disk_media, contents_of_short_images)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const unsigned size : {0U, 1U, 511U})
        EXPECT_EQ((fs::resize_file(image, size), contents_of_the_disk()), "absent") << size;
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const unsigned size : {1500U, 1023U, 513U, 512U})
        EXPECT_EQ((fs::resize_file(image, size), contents_of_the_disk()).find("absent"), std::string::npos)
            << size;
}

TEST_F(disk_media, contents_are_those_of_drives)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const vs_kind_t kind : {VS_MEDIA, VS_SLICE}) {
        const descriptors found = all_of(kind);
        int err = 0;
        EXPECT_EQ(vs_get_contents(found[0], &err), nullptr);
        EXPECT_EQ(err, EINVAL);
    }
}

// A disk in a folder below dev, which may be no link.
TEST_F(disk_media, device_in_a_folder)
{
    const auto function = machine.function("pci0000:00/0000:00:03.0", 0x010400);
    machine.disk("cciss!c0d0", function + "/cciss0/c0d0");
    const fs::path device = machine.image("cciss/c0d0");
    sample::partition(device, "label: gpt\\nstart=2048,size=2048\\n");
    EXPECT_THAT(drives(), testing::ElementsAre(testing::HasSubstr(" cciss/c0d0 ")));
    EXPECT_THAT(volumes(), testing::ElementsAre("c0t0d0s0 2048 2048"));
    fs::rename(machine.root() / "dev/cciss", machine.root() / "dev/other");
    fs::create_directory_symlink("other", machine.root() / "dev/cciss");
    EXPECT_THAT(volumes(), testing::IsEmpty());
}

} // namespace
