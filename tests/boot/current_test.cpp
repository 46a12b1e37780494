// SPDX-License-Identifier: MIT
// BootCurrent and BootNext.
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

using getter = int (*)(ovra_hdl_t, char **);

// BootCurrent and BootNext are read alike.
struct named {
    const char *variable;
    getter get;
    const char *label;
};

constexpr named both[] = {
    {"BootCurrent", ovra_bootcurrent_get, "bootcurrent_get"},
    {"BootNext", ovra_bootnext_get, "bootnext_get"},
};

struct bootcurrent : open_handle {
    // Fails silently, and leaves the output.
    static void expect_none(ovra_hdl_t hdl, const named &one)
    {
        SCOPED_TRACE(one.variable);
        expect_errors("", [&] {
            char *name = arg("untouched");
            EXPECT_EQ(one.get(hdl, &name), -1);
            EXPECT_STREQ(name, "untouched");
        });
    }
};

struct bootnext : open_handle {};
struct bootcurrent_file : file_fixture {};

TEST_F(bootcurrent, number_is_read_as_a_name_of_four_upper_case_digits)
{
    for (const named &one : both)
        for (const auto &[data, expected] : {std::pair("00 00", "Boot0000"),
                                             {"01 00", "Boot0001"},
                                             {"cd ab", "BootABCD"},
                                             {"ff ff", "BootFFFF"}}) {
            fakes::put_variable(one.variable, from_hex(data));
            char *name = nullptr;
            ASSERT_EQ(one.get(hdl, &name), 0);
            EXPECT_STREQ(name, expected);
            EXPECT_TRUE(is_tracked(hdl, name));
            memlist_free(hdl, name);
        }
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootcurrent, variable_is_read_at_once_with_a_size_of_2)
{
    for (const named &one : both) {
        fakes::put_variable(one.variable, {1, 0});
        fakes::forget_requests();
        char *name = nullptr;
        EXPECT_EQ(one.get(hdl, &name), 0);
        ASSERT_EQ(fakes::requests().size(), 1U);
        EXPECT_EQ(fakes::requests()[0].command, OVRA_GET_VARIABLE);
        EXPECT_EQ(fakes::requests()[0].name.narrow(), one.variable);
        EXPECT_EQ(fakes::requests()[0].data_size, 2U);
        EXPECT_EQ(memcmp(&*fakes::requests()[0].guid, &fakes::global_guid, sizeof(EFI_GUID)), 0);
    }
}

TEST_F(bootcurrent, each_reads_its_own_variable)
{
    char *name = nullptr;
    fakes::put_variable("BootCurrent", {1, 0});
    EXPECT_EQ(ovra_bootnext_get(hdl, &name), -1);
    fakes::put_variable("BootNext", {2, 0});
    EXPECT_EQ(ovra_bootnext_get(hdl, &name), 0);
    EXPECT_STREQ(name, "Boot0002");
    EXPECT_EQ(ovra_bootcurrent_get(hdl, &name), 0);
    EXPECT_STREQ(name, "Boot0001");
}

TEST_F(bootcurrent, missing_variable_fails_silently)
{
    for (const named &one : both)
        expect_none(hdl, one);
}

TEST_F(bootcurrent, variable_of_another_size_fails_silently)
{
    for (const named &one : both)
        for (const size_t size : {0U, 1U, 3U, 4U, 1000U}) {
            SCOPED_TRACE(size);
            fakes::put_variable(one.variable, bytes(size, 1));
            expect_none(hdl, one);
        }
}

TEST_F(bootcurrent, any_other_answer_fails_silently)
{
    for (const named &one : both) {
        fakes::put_variable(one.variable, {1, 0});
        for (const EFI_STATUS status : failures) {
            SCOPED_TRACE(hex_status(status));
            fakes::answer_variable(OVRA_GET_VARIABLE, one.variable, status);
            expect_none(hdl, one);
        }
        fakes::fail_variable(OVRA_GET_VARIABLE, one.variable, EIO);
        expect_none(hdl, one);
    }
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootcurrent, null_handle_and_absent_driver)
{
    for (const named &one : both) {
        fakes::set_present();
        fakes::put_variable(one.variable, {1, 0});
        char *name = nullptr;
        EXPECT_EQ(one.get(nullptr, &name), 0);
        EXPECT_STREQ(name, "Boot0001");
        memlist_free(nullptr, name);
        fakes::set_absent(ENOENT);
        expect_none(nullptr, one);
    }
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

TEST_F(bootcurrent, without_memory_the_label_says_which)
{
    for (const named &one : both) {
        fakes::put_variable(one.variable, {1, 0});
        const std::string label = one.label;
        const std::string said[] = {"", "malloc failed for " + label + "\n",
                                    "failed to add " + label + " to memlist\n"};
        for_each_refused_allocation(
            [&](ovra_hdl_t handle) {
                char *name = arg("untouched");
                const int result = one.get(handle, &name);
                EXPECT_STREQ(name, result == 0 ? "Boot0001" : "untouched");
                return result;
            },
            [&](const attempt &tried) {
                ASSERT_LE(tried.n, 3);
                EXPECT_EQ(tried.messages, tried.refused == 0 ? "" : said[tried.n]);
            });
    }
}

TEST_F(bootcurrent_file, variables_are_files_of_their_names)
{
    for (const named &one : both) {
        char *name = nullptr;
        EXPECT_EQ(one.get(hdl, &name), -1);
        for (const size_t size : {0U, 1U, 3U}) {
            folder.write(one.variable, bytes(size, 1));
            expect_errors("", [&] { EXPECT_EQ(one.get(hdl, &name), -1); });
        }
        EXPECT_EQ(name, nullptr);
        folder.write(one.variable, {0x1f, 0});
        EXPECT_EQ(one.get(hdl, &name), 0);
        EXPECT_STREQ(name, "Boot001F");
    }
}

TEST_F(bootnext, set_writes_the_number_and_get_names_it)
{
    EXPECT_EQ(ovra_bootnext_set(hdl, arg("Boot1")), 0);
    EXPECT_EQ(stored("BootNext"), "01 00");
    EXPECT_EQ(fakes::variable_attributes("BootNext"), 7U);
    char *name = nullptr;
    EXPECT_EQ(ovra_bootnext_get(hdl, &name), 0);
    EXPECT_STREQ(name, "Boot0001");
}

TEST_F(bootnext, set_does_not_ask_whether_the_option_exists)
{
    EXPECT_EQ(ovra_bootnext_set(hdl, arg("BootABCD")), 0);
    EXPECT_EQ(stored("BootNext"), "cd ab");
    ASSERT_EQ(fakes::requests().size(), 1U);
    EXPECT_EQ(fakes::requests()[0].command, OVRA_SET_VARIABLE);
}

TEST_F(bootnext, set_replaces_whatever_was_there)
{
    fakes::put_variable("BootNext", bytes(20, 7));
    EXPECT_EQ(ovra_bootnext_set(hdl, arg("boot00ff")), 0);
    EXPECT_EQ(stored("BootNext"), "ff 00");
}

TEST_F(bootnext, any_other_answer_to_the_write_fails_silently)
{
    fakes::put_variable("BootNext", {1, 0});
    for (const EFI_STATUS status : failures) {
        SCOPED_TRACE(hex_status(status));
        fakes::answer_command(OVRA_SET_VARIABLE, status);
        expect_errors("", [&] { EXPECT_EQ(ovra_bootnext_set(hdl, arg("Boot0002")), -1); });
    }
    fakes::fail_command(OVRA_SET_VARIABLE, EIO);
    expect_errors("", [&] { EXPECT_EQ(ovra_bootnext_set(hdl, arg("Boot0002")), -1); });
    EXPECT_EQ(stored("BootNext"), "01 00");
}

TEST_F(bootnext, set_with_a_null_handle_and_without_a_driver)
{
    EXPECT_EQ(ovra_bootnext_set(nullptr, arg("Boot0002")), 0);
    EXPECT_EQ(stored("BootNext"), "02 00");
    fakes::set_absent(ENOENT);
    expect_errors("", [] { EXPECT_EQ(ovra_bootnext_set(nullptr, arg("Boot0003")), -1); });
    EXPECT_EQ(stored("BootNext"), "02 00");
}

TEST_F(bootnext, without_memory_nothing_is_written)
{
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            fakes::put_variable("BootNext", {1, 0});
            return ovra_bootnext_set(handle, arg("Boot0002"));
        },
        [](const attempt &one) {
            EXPECT_EQ(one.messages, "");
            EXPECT_EQ(stored("BootNext"), one.refused == 0 ? "02 00" : "01 00");
        });
}

TEST_F(bootcurrent_file, next_is_written_to_its_file)
{
    EXPECT_EQ(ovra_bootnext_set(hdl, arg("Boot1")), 0);
    EXPECT_EQ(stored(folder, "BootNext"), "01 00");
    std::filesystem::remove("BootNext");
    std::filesystem::create_directory("BootNext");
    expect_errors("can't open file BootNext: Is a directory\n",
                  [&] { EXPECT_EQ(ovra_bootnext_set(hdl, arg("Boot1")), -1); });
}

} // namespace
