// SPDX-License-Identifier: MIT
// Reading load options that are damaged, missing, or cannot be had from the firmware.
#include "tests/boot/parts.h"

using namespace ovra::test;

namespace {

struct bootopt_damage : open_handle {
    using open_handle::hdl;
};

struct bootopt_damage_file : file_fixture {
    using file_fixture::hdl;
};

constexpr char too_short[] = "unable to read load option for Boot0001: 0\n";

struct damaged_case {
    const char *name;
    const char *variable;
    const char *said;
    bool header_read; // attributes and the path's length were there to be read
};

constexpr damaged_case damaged[] = {
    {"kept_variable_of_one_byte_is_refused", "01", too_short, false},
    {"variable_shorter_than_its_header_is_refused", "01 00 00 00 04", too_short, false},
    {"variable_that_ends_behind_its_header_is_refused", "01 00 00 00 00 00", too_short, true},
    {"variable_that_ends_within_a_character_is_refused", "01 00 00 00 00 00  41", too_short, true},
    {"variable_that_ends_within_the_terminator_is_refused", "01 00 00 00 00 00  41 00 00", too_short, true},
    {"description_without_terminator_is_refused", "01 00 00 00 00 00  41 00 42 00", too_short, true},
    {"zero_bytes_across_two_characters_are_no_terminator", "01 00 00 00 00 00  41 00 00 42", too_short, true},
    {"path_length_one_beyond_the_end_is_refused", "01 00 00 00 05 00  00 00  01 02 03 04", too_short, true},
    {"path_length_far_beyond_the_end_is_refused", "01 00 00 00 ff ff  00 00  01 02 03 04", too_short, true},
    {"path_length_without_a_path_is_refused", "01 00 00 00 01 00  00 00", too_short, true},
};

void check_damaged(bootopt_damage &test, const damaged_case &row)
{
    fakes::put_variable("Boot0001", from_hex(row.variable));
    expect_errors(row.said, [&] {
        const parts all = get(test.hdl);
        EXPECT_EQ(all.result, -1);
        EXPECT_TRUE(all.blocks_untouched());
        EXPECT_EQ(all.attributes, row.header_read ? 1U : untouched_attributes);
        EXPECT_EQ(all.path_len == untouched_path_len, !row.header_read);
    });
    expect_errors(row.said, [&] { EXPECT_EQ(get_nothing(test.hdl), -1); });
    EXPECT_EQ(tracked_blocks(test.hdl), 0U);
}

const bool damaged_registered = register_rows("bootopt_damage", damaged, check_damaged, __FILE__, __LINE__);

ovra_variable_args_t args_of(const fakes::request &seen)
{
    ovra_variable_args_t args;
    memcpy(&args, seen.record.data(), sizeof args);
    return args;
}

TEST_F(bootopt_damage, description_of_128_characters_without_terminator_is_too_short)
{
    fakes::put_variable("Boot0001", load_option(9, 2, units(std::u16string(128, u'd'))));
    expect_errors(too_short, [&] { EXPECT_EQ(get_nothing(hdl), -1); });
}

TEST_F(bootopt_damage, option_cut_at_any_byte_is_refused_until_only_optional_data_is_missing)
{
    const bytes path = from_hex("04 04 06 00 41 00 7f ff 04 00");
    const bytes whole = load_option(1, u"Linux", path, {1, 2, 3, 4, 5});
    const size_t needed = whole.size() - 5;
    for (size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        fakes::put_variable("Boot0001", bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
        const messages said(1, 0);
        const parts all = get(hdl);
        if (size >= needed) {
            EXPECT_EQ(all.result, 0);
            EXPECT_EQ(said.text(), "");
            EXPECT_STREQ(all.desc, "Linux");
            EXPECT_EQ(all.hex_path(), to_hex(path));
            EXPECT_EQ(all.optdata_len, size - needed);
            continue;
        }
        EXPECT_EQ(all.result, -1);
        EXPECT_EQ(said.text(), size == 0 ? "unable to read variable Boot0001\n" : too_short);
        EXPECT_TRUE(all.blocks_untouched());
        EXPECT_EQ(all.attributes, size < 6 ? untouched_attributes : 1U);
        EXPECT_EQ(all.path_len, size < 6 ? untouched_path_len : 10);
    }
}

TEST_F(bootopt_damage, missing_option_cannot_be_read)
{
    expect_errors("unable to read variable Boot0002\n", [&] {
        const parts all = get(hdl, "Boot0002");
        EXPECT_EQ(all.result, -1);
        EXPECT_TRUE(all.untouched());
    });
}

TEST_F(bootopt_damage, option_of_another_vendor_is_not_read)
{
    fakes::put_variable("Boot0001", load_option(1, u"x", {}), 7, fakes::other_guid);
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get_nothing(hdl), -1); });
}

TEST_F(bootopt_damage, empty_variable_cannot_be_read)
{
    fakes::put_variable("Boot0001", {});
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get(hdl).result, -1); });
    fakes::answer_command(OVRA_GET_VARIABLE, EFI_BUFFER_TOO_SMALL); // the size stays 0
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get(hdl).result, -1); });
}

TEST_F(bootopt_damage, any_other_answer_to_the_sizing_is_a_failure)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    for (const EFI_STATUS status : failures) {
        SCOPED_TRACE(hex_status(status));
        fakes::answer_command(OVRA_GET_VARIABLE, status);
        fakes::forget_requests();
        expect_errors("unable to read variable Boot0001\n", [&] {
            const parts all = get(hdl);
            EXPECT_EQ(all.result, -1);
            EXPECT_TRUE(all.untouched());
        });
        EXPECT_EQ(fakes::requests().size(), 2U); // one each
    }
}

TEST_F(bootopt_damage, failing_requests)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    fakes::fail_command(OVRA_GET_VARIABLE, EIO, 0, 2);
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get(hdl).result, -1); });
    const messages said(1, 0);
    fakes::fail_call(1, EIO);
    EXPECT_EQ(get(hdl).result, -1);
    EXPECT_EQ(said.text(), "unable to read load option for Boot0001: 800000000000000f\n");
}

TEST_F(bootopt_damage, any_other_answer_to_the_reading_is_a_failure)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    for (const EFI_STATUS status : failures) {
        expect_errors("unable to read load option for Boot0001: " + hex_status(status) + "\n", [&] {
            fakes::answer_call(1, status);
            const parts all = get(hdl);
            EXPECT_EQ(all.result, -1);
            EXPECT_TRUE(all.untouched());
        });
    }
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootopt_damage, option_that_grew_meanwhile_is_not_asked_for_again)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    fakes::before_each([](const fakes::request &seen) {
        if (seen.data_size != 0U)
            fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3, 4}));
    });
    const messages said(1, 0);
    EXPECT_EQ(get(hdl).result, -1);
    EXPECT_EQ(said.text(), "unable to read load option for Boot0001: 8000000000000005\n");
    EXPECT_EQ(fakes::requests().size(), 2U);
}

TEST_F(bootopt_damage, option_that_shrank_meanwhile_has_its_new_size)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, bytes(100, 3)));
    bytes now = load_option(1, u"Linux", {1, 2}, {4, 5});
    fakes::before_each([&](const fakes::request &seen) {
        if (seen.data_size != 0U)
            fakes::put_variable("Boot0001", now);
    });
    EXPECT_EQ(get(hdl).hex_optdata(), "04 05");
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, bytes(100, 3)));
    now.resize(8);
    const messages said(1, 0);
    EXPECT_EQ(get(hdl).result, -1);
    EXPECT_EQ(said.text(), too_short);
}

TEST_F(bootopt_damage, size_beyond_the_buffer_is_not_believed)
{
    const bytes option = load_option(1, u"Linux", {1, 2}, {3});
    fakes::put_variable("Boot0001", option);
    fakes::before_each([&](const fakes::request &seen) {
        if (seen.data_size == 0U)
            return;
        const auto args = args_of(seen);
        memcpy(args.data, option.data(), option.size());
        *args.data_size = SIZE_MAX;
    });
    fakes::answer_call(1, EFI_SUCCESS);
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.hex_optdata(), "03");
}

TEST_F(bootopt_damage, absent_driver_is_a_failure_to_read)
{
    fakes::set_absent(ENOENT);
    expect_errors("unable to read variable Boot0001\n", [] {
        const parts all = get(nullptr);
        EXPECT_EQ(all.result, -1);
        EXPECT_TRUE(all.untouched());
    });
}

TEST_F(bootopt_damage, without_memory_blocks_are_taken_back_and_null)
{
    // The name's conversion, the buffer, the name's conversion, then the blocks; the list grows with the
    // first.
    const char *said[] = {"unable to read variable Boot0001\n",
                          "unable to allocate buffer for load option Boot0001\n",
                          "unable to read load option for Boot0001: 8000000000000002\n",
                          "malloc failed for desc_temp\n",
                          "failed to add desc_temp to memlist\n",
                          "malloc failed for optdata\n",
                          "malloc failed for encoded path\n"};
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    parts all;
    size_t tracked = 0;
    for_each_refused_allocation(
        [&](ovra_hdl_t handle) {
            all = get(handle);
            tracked = tracked_blocks(handle);
            return all.result;
        },
        [&](const attempt &one) {
            if (one.refused == 0) {
                EXPECT_EQ(one.messages, "");
                EXPECT_EQ(one.n, 7);
                return;
            }
            ASSERT_LT(one.n, 7);
            EXPECT_EQ(one.messages, said[one.n]);
            EXPECT_EQ(tracked, 0U);
            if (one.n < 3) {
                EXPECT_TRUE(all.untouched());
            } else {
                EXPECT_EQ(all.attributes, 1U);
                EXPECT_EQ(all.path_len, 2);
                EXPECT_EQ(all.desc, nullptr);
                EXPECT_EQ(all.optdata, nullptr);
                EXPECT_EQ(all.path, nullptr);
                EXPECT_EQ(all.optdata_len, untouched_size) << "not among what a failure may write";
            }
        });
}

TEST_F(bootopt_damage, without_memory_to_track_a_block_the_others_are_taken_back)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    const char *labels[] = {"desc_temp", "optdata", "encoded path"};
    for (size_t filled = 0; filled < 3; ++filled) {
        ovra_hdl_t full = nullptr;
        ASSERT_EQ(ovra_init(&full), 0);
        for (size_t i = 0; i < 20 - filled; ++i)
            ASSERT_NE(memlist_malloc(full, 1, "test"), nullptr);
        ASSERT_EQ(full->memlist_size, 20U);
        {
            const messages said(1, 0);
            refuse_from(4 + static_cast<long>(filled), false);
            const parts all = get(full);
            EXPECT_EQ(stop_refusing(), 1);
            EXPECT_EQ(said.text(), std::string("failed to add ") + labels[filled] + " to memlist\n");
            EXPECT_EQ(all.result, -1);
            EXPECT_EQ(all.desc, nullptr);
            EXPECT_EQ(all.optdata, nullptr);
            EXPECT_EQ(all.path, nullptr);
        }
        EXPECT_EQ(tracked_blocks(full), 20 - filled);
        EXPECT_EQ(get(full).result, 0);
        ovra_fini(full);
    }
}

TEST_F(bootopt_damage, without_memory_an_output_that_was_not_asked_for_is_not_written)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    for_each_refused_allocation([](ovra_hdl_t handle) {
        parts all;
        const int result =
            ovra_bootopt_get(handle, arg("Boot0001"), &all.path, nullptr, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(all.desc, untouched_block);
        EXPECT_EQ(all.optdata, untouched_block);
        EXPECT_EQ(all.optdata_len, untouched_size);
        return result;
    });
}

TEST_F(bootopt_damage_file, missing_and_empty_files_cannot_be_read)
{
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get(hdl).result, -1); });
    folder.write("Boot0001", {});
    expect_errors("unable to read variable Boot0001\n", [&] { EXPECT_EQ(get(hdl).result, -1); });
}

TEST_F(bootopt_damage_file, file_cut_at_any_byte_is_refused_until_only_optional_data_is_missing)
{
    const bytes whole = load_option(1, u"Linux", {1, 2}, {3, 4});
    for (size_t size = 1; size <= whole.size(); ++size) {
        folder.write("Boot0001", bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
        const messages said(1, 0);
        EXPECT_EQ(get(hdl).result, size >= whole.size() - 2 ? 0 : -1);
        EXPECT_EQ(said.text(), size >= whole.size() - 2 ? "" : too_short);
    }
}

TEST_F(bootopt_damage_file, without_memory)
{
    const char *said[] = {"unable to allocate buffer for load option Boot0001\n",
                          "malloc failed for desc_temp\n", "failed to add desc_temp to memlist\n",
                          "malloc failed for optdata\n", "malloc failed for encoded path\n"};
    folder.write("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    for_each_refused_allocation([](ovra_hdl_t handle) { return get(handle).result; },
                                [&](const attempt &one) {
                                    ASSERT_LE(one.n, 5);
                                    EXPECT_EQ(one.messages, one.refused == 0 ? "" : said[one.n]);
                                });
}

} // namespace
