/* SPDX-License-Identifier: MIT */
#ifndef TESTS_DEVICES_MEDIA_FIXTURE_H
#define TESTS_DEVICES_MEDIA_FIXTURE_H

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/gpt.h"

namespace devices_test {

/* A machine with one disk, c0t0d0. */
class disk_media : public testing::Test {
protected:
    void make_disk(unsigned block_size = 512)
    {
        machine.disk("sda",
                     machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                     65536, block_size);
    }
    /* Gives the disk an image of 32 MiB with a table from sfdisk. */
    void make_table(const std::string &script)
    {
        image = machine.image("sda");
        sample::partition(image, script);
    }

    /* Gives the disk an MBR made by hand: entries of (type, start, size). */
    void make_mbr(const std::vector<std::array<uint32_t, 3>> &entries)
    {
        image = machine.image("sda");
        sample::patch(image, 0x1b8, "\xcd\xab\x34\x12");
        for (size_t i = 0; i < entries.size(); ++i) {
            std::string entry(16, '\0');
            entry[4] = static_cast<char>(entries[i][0]);
            for (size_t byte = 0; byte < 4; ++byte) {
                entry[8 + byte] = static_cast<char>(entries[i][1] >> (8 * byte) & 0xff);
                entry[12 + byte] = static_cast<char>(entries[i][2] >> (8 * byte) & 0xff);
            }
            sample::patch(image, 0x1be + 16 * i, entry);
        }
        sample::patch(image, 0x1fe, "\x55\xaa");
    }

    /* Gives the disk a GPT made by hand, with correct checksums. */
    void make_gpt_of(const std::vector<ovra::test::gpt_entry> &entries)
    {
        image = machine.image("sda");
        ovra::test::write_gpt(image, 65536, ovra::test::make_gpt(65536, entries));
    }

    std::string what_is_said(std::vector<std::string> *found)
    {
        return said([&] { *found = volumes(); });
    }

    /*
     * Expects a drive without a medium, and a message that says why. With another `error` than ENOENT the
     * medium is not absent but unreadable.
     */
    void expect_no_medium(const std::string &message, int error = ENOENT)
    {
        std::vector<std::string> found;
        const std::string messages = said([&] { found = volumes(); });
        EXPECT_THAT(found, testing::IsEmpty());
        EXPECT_THAT(messages, testing::HasSubstr("hwplat: " + message));
        EXPECT_EQ(drives().size(), 1U);
        EXPECT_EQ(all_of(VS_MEDIA)[0], 0U);
        EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(error));
        for (const auto &[kind, name] : {std::pair(VS_SLICE, "c0t0d0s0"), std::pair(VS_MEDIA, "c0t0d0")}) {
            int err = 0;
            EXPECT_EQ(vs_get_descriptor_by_name(kind, name, &err), 0U);
            EXPECT_EQ(err, error);
        }
    }

    sample machine;
    fs::path image;
};

} // namespace devices_test

#endif
