// SPDX-License-Identifier: MIT
#include <string>

#include <gtest/gtest.h>

#include "src/base/device_name.h"

using ovra::device_text;
using ovra::device_text_of;

TEST(device_text, disk_has_a_c_and_a_digit_or_stands_among_the_slices)
{
    for (const char *name : {"c0t0d0s0", "c9", "c0t0d0p1", "/dev/dsk/c0t0d0s0", "/dev/dsk/c", "/dev/dsk/cd"})
        EXPECT_EQ(device_text_of(name), device_text::disk) << name;
    for (int c = 1; c < 256; ++c) {
        const bool digit = c >= '0' && c <= '9';
        const auto expected = digit ? device_text::disk : device_text::nodes;
        EXPECT_EQ(device_text_of(std::string("c") + static_cast<char>(c)), expected) << c;
    }
}

TEST(device_text, other_name_stands_below_a_folder_of_devices)
{
    for (const char *name : {"/dev/rdsk/c0t0d0p1", "/dev/dsk/", "/dev/dsk/d0", "/dev/sda1", "/dev/",
                             "/devices/", "/devices/pci@0,0"})
        EXPECT_EQ(device_text_of(name), device_text::name) << name;
}

TEST(device_text, anything_else_is_a_path)
{
    for (const char *text : {"", "c", "C0t0d0s0", "d0", "PciRoot(0x0)/Pci(0x1f,0x2)", "/dev", "/devices",
                             "dev/dsk/c0", "/Dev/dsk/c0t0d0s0", "//dev/sda", "cd0", " c0"})
        EXPECT_EQ(device_text_of(text), device_text::nodes) << text;
}
