// SPDX-License-Identifier: MIT
// BootOrder in test-file mode.
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootorder_file : file_fixture {};

TEST_F(bootorder_file, order_is_a_file_of_its_name)
{
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0002"), 5), 0);
    EXPECT_EQ(stored(folder, "BootOrder"), "02 00");
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot001F"), 0), 0);
    EXPECT_EQ(stored(folder, "BootOrder"), "1f 00 02 00");
    int position = -5;
    EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0002"), &position), 0);
    EXPECT_EQ(position, 1);
    char *name = nullptr;
    EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 0, &name), 0);
    EXPECT_STREQ(name, "Boot001F");
    EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot001F")), 0);
    EXPECT_EQ(stored(folder, "BootOrder"), "02 00");
}

TEST_F(bootorder_file, missing_order)
{
    int position = -5;
    char *name = nullptr;
    expect_errors(no_order, [&] { EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0001")), 0); });
    expect_errors(no_order,
                  [&] { EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0001"), &position), -1); });
    expect_errors(no_order, [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 0, &name), -1); });
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// An empty file asked for with no size is "too small": it can be filled again, but not be read.
TEST_F(bootorder_file, kept_remove_of_the_only_entry_leaves_an_empty_file)
{
    folder.write("BootOrder", {2, 0});
    EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0002")), 0);
    EXPECT_EQ(folder.read("BootOrder"), bytes());
    int position = -5;
    char *name = nullptr;
    expect_errors(unreadable, [&] { EXPECT_EQ(ovra_bootorder_remove(hdl, arg("Boot0002")), -1); });
    expect_errors(unreadable,
                  [&] { EXPECT_EQ(ovra_bootorder_get_position(hdl, arg("Boot0001"), &position), -1); });
    expect_errors(unreadable, [&] { EXPECT_EQ(ovra_bootorder_get_bootname(hdl, 0, &name), -1); });
    EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 9), 0);
    EXPECT_EQ(stored(folder, "BootOrder"), "03 00");
}

TEST_F(bootorder_file, order_that_cannot_be_written)
{
    std::filesystem::create_symlink("missing/BootOrder", "BootOrder");
    expect_errors("can't open file BootOrder: No such file or directory\n"
                  "unable to write new BootOrder: 8000000000000007\n",
                  [&] { EXPECT_EQ(ovra_bootorder_insert(hdl, arg("Boot0003"), 9), -1); });
}

} // namespace
