// SPDX-License-Identifier: MIT
// Removing an option: its variable, and its places in BootOrder.

#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootopt_remove : open_handle {
    using open_handle::hdl;
};

struct bootopt_remove_file : file_fixture {};

TEST_F(bootopt_remove, removed_option_is_deleted_and_taken_out_of_the_order)
{
    expect_errors("", [&] {
        fakes::put_variable("Boot0002", {1, 2, 3});
        put_order({1, 2, 3, 2});
        fakes::forget_requests();
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), 0);
        EXPECT_EQ(stored("Boot0002"), "none");
        EXPECT_EQ(stored("BootOrder"), hex_order({1, 3}));
    });
    const auto &deleting = fakes::requests()[0];
    EXPECT_EQ(deleting.command, OVRA_SET_VARIABLE);
    EXPECT_EQ(deleting.name.narrow(), "Boot0002");
    EXPECT_EQ(deleting.attributes, 7U);
    EXPECT_EQ(deleting.data_size, 0U);
    EXPECT_EQ(deleting.data_address, nullptr);
}

TEST_F(bootopt_remove, option_that_cannot_be_deleted_stays_in_the_order)
{
    fakes::put_variable("Boot0002", {1, 2, 3});
    put_order({1, 2});
    for (const EFI_STATUS status : failures)
        expect_errors("unable to remove Boot0002\n", [&] {
            fakes::answer_call(0, status);
            EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), -1);
        });
    expect_errors("unable to remove Boot0002\n", [&] {
        fakes::fail_call(0, EIO);
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), -1);
    });
    expect_errors("unable to remove Boot0009\n",
                  [&] { EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0009")), -1); });
    EXPECT_EQ(stored("Boot0002"), "01 02 03");
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2}));
}

// A name that the conversion would shorten is not the shorter one.
TEST_F(bootopt_remove, option_of_another_name_is_not_removed_through_characters_that_vanish)
{
    fakes::put_variable("Boot0005", {1, 2, 3});
    put_order({5});
    for (const std::string character : {"\xf3\xa0\x80\x80", "\xf3\xa0\x81\x81", "\xf3\xa0\x81\xbf"}) {
        for (const size_t place : {0U, 4U, 8U}) {
            std::string name = "Boot0005";
            name.insert(place, character);
            expect_errors("iconv(" + name + ") failedunable to remove " + name + "\n",
                          [&] { EXPECT_EQ(ovra_bootopt_remove(hdl, name.data()), -1); });
        }
    }
    EXPECT_EQ(fakes::requests().size(), 0U);
    EXPECT_EQ(stored("Boot0005"), "01 02 03");
    EXPECT_EQ(stored("BootOrder"), "05 00");
}

TEST_F(bootopt_remove, removed_option_without_an_order)
{
    expect_errors(no_order, [&] {
        fakes::put_variable("Boot0002", {1, 2, 3});
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), 0);
    });
    EXPECT_EQ(fakes::variable_count(), 0U);
}

TEST_F(bootopt_remove, removed_option_whose_order_fails)
{
    put_order({1, 2});
    expect_errors(unreadable, [&] {
        fakes::put_variable("Boot0002", {1, 2, 3});
        fakes::answer_call(1, EFI_DEVICE_ERROR);
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), -1);
    });
    expect_errors("unable to set BootOrder\n", [&] {
        fakes::put_variable("Boot0002", {1, 2, 3});
        fakes::answer_call(3, EFI_DEVICE_ERROR);
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), -1);
    });
    EXPECT_EQ(stored("BootOrder"), hex_order({1, 2}));
}

TEST_F(bootopt_remove, name_of_a_removed_option_is_not_checked)
{
    fakes::put_variable("boot2", {1});
    fakes::put_variable("Boot0002", {2});
    fakes::put_variable("Other", {3});
    put_order({1, 2});
    EXPECT_EQ(ovra_bootopt_remove(hdl, arg("boot2")), 0);
    EXPECT_EQ(stored("boot2"), "none");
    EXPECT_EQ(stored("Boot0002"), "02");
    EXPECT_EQ(stored("BootOrder"), hex_order({1}));
    expect_errors("", [&] {
        fakes::put_variable("Other", {3});
        EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Other")), -1);
        EXPECT_EQ(stored("Other"), "none");
    });
    EXPECT_EQ(stored("BootOrder"), hex_order({1}));
}

TEST_F(bootopt_remove, option_is_removed_with_a_null_handle_and_not_without_a_driver)
{
    fakes::put_variable("Boot0002", {2});
    put_order({1, 2});
    EXPECT_EQ(ovra_bootopt_remove(nullptr, arg("Boot0002")), 0);
    EXPECT_EQ(stored("BootOrder"), hex_order({1}));
    fakes::set_absent(EACCES);
    expect_errors("unable to remove Boot0001\n",
                  [&] { EXPECT_EQ(ovra_bootopt_remove(nullptr, arg("Boot0001")), -1); });
}

TEST_F(bootopt_remove, without_memory_to_remove_an_option)
{
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            fakes::put_variable("Boot0002", {2});
            put_order({1, 2});
            return ovra_bootopt_remove(handle, arg("Boot0002"));
        },
        [](const attempt &one) {
            EXPECT_EQ(stored("Boot0002"), one.refused != 0 && one.n == 0 ? "02" : "none");
            EXPECT_EQ(stored("BootOrder"), one.refused == 0 ? hex_order({1}) : hex_order({1, 2}));
            if (one.n == 0) {
                EXPECT_EQ(one.messages, "unable to remove Boot0002\n");
            }
        });
}

TEST_F(bootopt_remove_file, removed_option_is_an_empty_file)
{
    folder.write("Boot0002", {1, 2, 3});
    folder.write("BootOrder", order_bytes({1, 2, 3}));
    EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), 0);
    EXPECT_EQ(folder.read("Boot0002"), bytes());
    EXPECT_EQ(stored(folder, "BootOrder"), hex_order({1, 3}));
}

TEST_F(bootopt_remove_file, option_that_cannot_be_removed)
{
    folder.write("BootOrder", order_bytes({1, 2, 3}));
    std::filesystem::create_directory(folder.path() / "Boot0002");
    expect_errors("can't open file Boot0002: Is a directory\nunable to remove Boot0002\n",
                  [&] { EXPECT_EQ(ovra_bootopt_remove(hdl, arg("Boot0002")), -1); });
    EXPECT_EQ(stored(folder, "BootOrder"), hex_order({1, 2, 3}));
}

} // namespace
