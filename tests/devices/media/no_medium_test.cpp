// SPDX-License-Identifier: MIT
// Disks without a usable table, and damaged tables.
#include <algorithm>
#include <cerrno>
#include <sstream>

#include <sys/stat.h>

#include "tests/devices/media/fixture.h"

namespace {

using namespace devices_test;

TEST_F(disk_media, blank_disk)
{
    make_disk();
    image = machine.image("sda");
    expect_no_medium("dev/sda: no partition table");
}

TEST_F(disk_media, short_images)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const unsigned size : {0U, 1U, 511U, 512U, 513U, 1023U, 1024U, 1500U}) {
        fs::resize_file(image, size);
        std::vector<std::string> found;
        said([&] { found = volumes(); });
        for (const std::string &row : found)
            EXPECT_TRUE(row.starts_with("c0t0d0p")) << row;
        EXPECT_EQ(drives().size(), 1U);
    }
}

TEST_F(disk_media, disk_without_a_file)
{
    make_disk();
    expect_no_medium("dev/sda: no disk or image that can be read");
}

// A call for the medium of an unreadable disk fails with the reason. Lists of all media lack it.
TEST_F(disk_media, disk_that_cannot_be_opened)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    const descriptors drive = all_of(VS_DRIVE);
    fs::rename(image, machine.root() / "dev/sdb");
    fs::create_symlink("sdb", image);
    expect_no_medium("dev/sda: no disk or image that can be read: " + std::string(strerror(ELOOP)), ELOOP);
    int err = 0;
    EXPECT_EQ(vs_get_associated_descriptors(drive[0], VS_MEDIA, &err), nullptr);
    EXPECT_EQ(err, ELOOP);
    fs::remove(image);
    EXPECT_EQ(associated(all_of(VS_DRIVE)[0], VS_MEDIA)[0], 0U);
}

TEST_F(disk_media, what_is_no_image)
{
    make_disk();
    fs::create_directories(machine.root() / "dev/sda");
    expect_no_medium("dev/sda: no disk or image that can be read");
    fs::remove(machine.root() / "dev/sda");
    ASSERT_EQ(mkfifo((machine.root() / "dev/sda").c_str(), 0600), 0);
    expect_no_medium("dev/sda: no disk or image that can be read");
    fs::remove(machine.root() / "dev/sda");

    // A link, even to a disk of the machine.
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    fs::rename(image, machine.root() / "dev/sdb");
    fs::create_symlink("sdb", image);
    expect_no_medium("dev/sda: no disk or image that can be read", ELOOP);
}

TEST_F(disk_media, table_of_another_kind)
{
    make_disk();
    make_table("label: sun\\nstart=16065,size=16065\\n");
    expect_no_medium("sda: a partition table of kind sun is not used");
}

// Every byte of a table's first sectors is changed. The drive must stay, and nothing is invented.
TEST_F(disk_media, damaged_tables)
{
    make_disk();
    for (const char *script :
         {"label: gpt\\nstart=2048,size=2048\\n", "label: dos\\nstart=2048,size=2048,type=83\\n"}) {
        make_table(script);
        const std::string good = machine.contents(image);
        const std::vector<std::string> undamaged = volumes();
        ASSERT_FALSE(undamaged.empty());
        for (size_t at = 0; at < 1200; at += at >= 440 && at < 700 ? 1 : 16) {
            const std::string byte(1, static_cast<char>(~good[at]));
            sample::patch(image, at, byte);
            // A damaged entry of an MBR may be another partition with its number.
            const bool in_entries = at >= 446 && at < 510;
            const std::string damaged = "c0t0d0p" + std::to_string((at - 446) / 16 + 1) + ' ';
            for (const std::string &row : volumes()) {
                EXPECT_TRUE(std::ranges::count(undamaged, row) == 1 || row == "c0t0d0p0 0 65536" ||
                            (in_entries && row.starts_with(damaged)))
                    << at << ": " << row;
                std::istringstream fields(row);
                std::string name;
                uint64_t first = 0;
                uint64_t size = 0;
                EXPECT_TRUE(fields >> name >> first >> size) << row;
                // Such a partition of an MBR may end beyond the disk, as it does for the kernel.
                EXPECT_TRUE(size > 0 && first < 65536) << at << ": " << row;
                EXPECT_TRUE((in_entries && row.starts_with(damaged)) || size <= 65536 - first)
                    << at << ": " << row;
            }
            sample::patch(image, at, good.substr(at, 1));
        }
        EXPECT_EQ(volumes(), undamaged);
    }
}

} // namespace
