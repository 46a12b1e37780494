// SPDX-License-Identifier: MIT
// Names of load options, and writing them.
#include <climits>
#include <random>

#include "src/boot/boot.h"
#include "tests/boot/fixture.h"

using namespace ovra::test;

namespace {

struct bootopt : open_handle {
    using open_handle::hdl;

    // Everything that a test does not care about has a value that shows.
    int set(const char *desc, bytes path = from_hex("7f ff 04 00"), bytes optdata = {}, uint32_t attr = 1)
    {
        return ovra_bootopt_set(hdl, arg("Boot0001"), path.data(), static_cast<int>(path.size()), arg(desc),
                                attr, optdata.data(), optdata.size());
    }
};

struct bootopt_file : file_fixture {
    using file_fixture::hdl;
};

struct name_case {
    const char *name;
    const char *option;
    int result;
};

constexpr name_case names[] = {
    {"name_with_upper_case_digits_is_valid", "Boot00FF", 0},
    {"name_with_the_lowest_digits_is_valid", "Boot0000", 0},
    {"name_with_the_highest_digits_is_valid", "BootFFFF", 0},
    {"name_with_the_limits_of_both_ranges_is_valid", "Boot09AF", 0},
    {"name_with_a_lower_case_digit_is_refused", "Boot000a", -1},
    {"name_with_a_lower_case_digit_in_front_is_refused", "Bootf000", -1},
    {"name_in_lower_case_is_refused", "boot0001", -1},
    {"name_in_upper_case_is_refused", "BOOT0001", -1},
    {"name_of_three_digits_is_refused", "Boot001", -1},
    {"name_of_five_digits_is_refused", "Boot00001", -1},
    {"name_without_digits_is_refused", "Boot", -1},
    {"empty_name_is_refused", "", -1},
    {"name_with_text_behind_is_refused", "Boot0001 ", -1},
    {"name_with_text_in_front_is_refused", " Boot001", -1},
    {"name_with_a_character_below_0_is_refused", "Boot000/", -1},
    {"name_with_a_character_above_9_is_refused", "Boot000:", -1},
    {"name_with_a_character_below_a_is_refused", "Boot@000", -1},
    {"name_with_a_character_above_f_is_refused", "Boot0G00", -1},
    {"name_with_a_blank_is_refused", "Boot 001", -1},
    {"name_with_a_sign_is_refused", "Boot-001", -1},
    {"name_with_a_prefix_is_refused", "Boot0x01", -1},
    {"name_of_bytes_above_127_is_refused", "Boot\xef\xbc\x91\x31", -1},
    {"name_of_another_variable_of_eight_characters_is_refused", "BootNext", -1},
};

void check_name(bootopt &test, const name_case &row)
{
    EXPECT_EQ(validate_bootopt(row.option), row.result);
    if (row.result == 0) {
        EXPECT_EQ(ovra_bootopt_set(test.hdl, arg(row.option), nullptr, 0, arg("x"), 1, nullptr, 0), 0);
        EXPECT_EQ(
            ovra_bootopt_get(test.hdl, arg(row.option), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
        return;
    }
    expect_errors("incorrect bootopt name\n", [&] {
        EXPECT_EQ(ovra_bootopt_set(test.hdl, arg(row.option), nullptr, 0, arg("x"), 1, nullptr, 0), -1);
    });
    expect_errors("incorrect bootopt name: " + std::string(row.option) + "\n", [&] {
        EXPECT_EQ(
            ovra_bootopt_get(test.hdl, arg(row.option), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            -1);
    });
    EXPECT_TRUE(fakes::requests().empty());
}

const bool names_registered = register_rows("bootopt", names, check_name, __FILE__, __LINE__);

struct text_case {
    const char *name;
    const char *desc;
    const char *iconv_says; // null: converted
    const char *stored;     // the description's bytes
};

constexpr text_case texts[] = {
    {"empty_description_is_its_terminator", "", nullptr, "00 00"},
    {"description_is_little_endian", "Ab", nullptr, "41 00 62 00 00 00"},
    {"description_with_characters_of_two_and_three_bytes", "\xc3\xa9\xe2\x82\xac", nullptr,
     "e9 00 ac 20 00 00"},
    {"description_with_a_character_above_16_bits_is_refused", "a\xf0\x9f\x98\x80",
     "iconv(a\xf0\x9f\x98\x80) failed", nullptr},
    {"description_that_is_not_utf8_is_refused", "a\xff", "iconv(a\xff) failed", nullptr},
    {"description_that_ends_within_a_character_is_refused", "a\xe2\x82", "iconv(a\xe2\x82) failed", nullptr},
    {"description_with_an_encoded_surrogate_is_refused", "\xed\xa0\x80", "iconv(\xed\xa0\x80) failed",
     nullptr},
};

void check_text(bootopt &test, const text_case &row)
{
    if (row.iconv_says) {
        expect_errors(std::string(row.iconv_says) + "unable to convert description string to UCS-2\n",
                      [&] { EXPECT_EQ(test.set(row.desc), -1); });
        EXPECT_TRUE(fakes::requests().empty());
        return;
    }
    EXPECT_EQ(test.set(row.desc), 0);
    EXPECT_EQ(stored("Boot0001"), hex("01 00 00 00  04 00" + std::string(row.stored) + "7f ff 04 00"));
}

const bool texts_registered = register_rows("bootopt", texts, check_text, __FILE__, __LINE__);

struct length_case {
    const char *name;
    int path_len;
    size_t optdata_len;
};

constexpr length_case lengths[] = {
    {"negative_path_length_is_refused", -1, 0},
    {"negative_path_length_of_whole_64k_is_refused", -65536, 0},
    {"negative_path_length_whose_low_bits_are_small_is_refused", -65532, 0},
    {"least_path_length_is_refused", INT_MIN, 0},
    {"negative_path_length_is_refused_also_with_much_optional_data", -65532, 70000},
    {"negative_path_length_that_the_optional_data_makes_up_for_is_refused", -8, 8},
    {"largest_path_length_is_refused", INT_MAX, 0},
    {"optional_data_of_2_gib_is_refused", 0, size_t(1) << 31},
    {"optional_data_of_nearly_4_gib_is_refused", 0, (size_t(1) << 32) - 8},
    {"optional_data_of_4_gib_is_refused", 0, size_t(1) << 32},
    {"optional_data_of_more_than_4_gib_is_refused", 0, (size_t(1) << 32) + 16},
    {"optional_data_of_all_memory_is_refused", 0, SIZE_MAX},
    {"optional_data_whose_size_wraps_is_refused", 4, SIZE_MAX - 11},
    {"least_path_length_with_2_gib_of_optional_data_is_refused", INT_MIN, (size_t(1) << 31) + 16},
};

// Nothing of path and optional data may be read: there is a little of both.
void check_length(bootopt &test, const length_case &row)
{
    fakes::put_variable("Boot0001", {1, 2, 3});
    bytes path(4, 0x11);
    bytes optdata(4, 0x22);
    for (const char *desc : {"", "x"}) {
        expect_errors("", [&] {
            EXPECT_EQ(ovra_bootopt_set(test.hdl, arg("Boot0001"), path.data(), row.path_len, arg(desc), 1,
                                       optdata.data(), row.optdata_len),
                      -1);
        });
    }
    EXPECT_TRUE(fakes::requests().empty());
    EXPECT_EQ(stored("Boot0001"), "01 02 03");
}

const bool lengths_registered = register_rows("bootopt", lengths, check_length, __FILE__, __LINE__);

TEST_F(bootopt, option_is_stored_in_the_order_of_its_fields)
{
    EXPECT_EQ(set("Li", from_hex("01 02 03 04 05"), from_hex("aa bb cc"), 0x87654321), 0);
    EXPECT_EQ(stored("Boot0001"), hex("21 43 65 87  05 00  4c 00 69 00 00 00  01 02 03 04 05  aa bb cc"));
    EXPECT_EQ(fakes::variable_attributes("Boot0001"), 7U);
    ASSERT_EQ(fakes::requests().size(), 1U);
    EXPECT_EQ(fakes::requests()[0].command, OVRA_SET_VARIABLE);
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootopt, empty_description_gives_the_size_of_the_rest_and_8)
{
    EXPECT_EQ(set("", bytes(10, 1), bytes(3, 2)), 0);
    EXPECT_EQ(fakes::variable("Boot0001")->size(), 6U + 2 + 10 + 3);
}

TEST_F(bootopt, attributes_are_stored_as_they_are)
{
    for (const uint32_t attributes : {0U, 1U, 8U, 0x80000000U, 0xffffffffU}) {
        EXPECT_EQ(set("x", {}, {}, attributes), 0);
        EXPECT_EQ(*fakes::variable("Boot0001"), load_option(attributes, u"x", {}));
    }
}

TEST_F(bootopt, path_and_optional_data_of_no_length_may_be_null)
{
    EXPECT_EQ(ovra_bootopt_set(hdl, arg("Boot0001"), nullptr, 0, arg("x"), 1, nullptr, 0), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"x", {}));
}

TEST_F(bootopt, description_is_written_at_any_length)
{
    for (const size_t length : {127U, 128U, 129U, 5000U, 40000U}) {
        EXPECT_EQ(set(std::string(length, 'd').c_str(), {1, 2}, {3}), 0);
        EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, std::u16string(length, u'd'), {1, 2}, {3}));
    }
}

TEST_F(bootopt, existing_option_is_overwritten_whole)
{
    EXPECT_EQ(set("a long description", bytes(100, 1), bytes(200, 2)), 0);
    EXPECT_EQ(set("b", {7}, {}), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"b", {7}));
    EXPECT_EQ(fakes::variable_count(), 1U);
}

TEST_F(bootopt, path_of_65535_bytes_is_stored_whole)
{
    const bytes path(65535, 0x5a);
    EXPECT_EQ(set("x", path, {1, 2}), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"x", path, {1, 2}));
}

TEST_F(bootopt, kept_size_counts_a_path_above_65535_uncut)
{
    bytes path(65536 + 4, 0x5a);
    EXPECT_EQ(set("x", path, {1, 2}), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"x", bytes(4, 0x5a), {1, 2}) + bytes(65536, 0));

    path.assign(65536, 0x5a);
    EXPECT_EQ(set("x", path, {1, 2}), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"x", {}, {1, 2}) + bytes(65536, 0));
}

TEST_F(bootopt, success_is_traced)
{
    expect_traces("create_bootopt finished: Boot0001\n", [&] { EXPECT_EQ(set("x"), 0); });
}

TEST_F(bootopt, any_other_answer_to_the_write_is_a_failure)
{
    fakes::put_variable("Boot0001", {1, 2, 3});
    for (const EFI_STATUS status : failures) {
        SCOPED_TRACE(hex_status(status));
        fakes::answer_command(OVRA_SET_VARIABLE, status);
        expect_errors("failed to create load option Boot0001\n", [&] { EXPECT_EQ(set("x"), -1); });
        const messages said(0, 1);
        EXPECT_EQ(set("x"), -1);
        EXPECT_EQ(said.text(), "") << "traced as a success";
    }
    EXPECT_EQ(stored("Boot0001"), "01 02 03");
}

TEST_F(bootopt, full_store_leaves_the_old_option)
{
    EXPECT_EQ(set("old", {1}, {2}), 0);
    const bytes old = *fakes::variable("Boot0001");
    fakes::set_capacity(100, 100);
    expect_errors("failed to create load option Boot0001\n",
                  [&] { EXPECT_EQ(set("new", bytes(200, 1)), -1); });
    EXPECT_EQ(*fakes::variable("Boot0001"), old);
}

TEST_F(bootopt, failing_request_is_a_failure_to_write)
{
    fakes::fail_command(OVRA_SET_VARIABLE, EIO);
    expect_errors("failed to create load option Boot0001\n", [&] { EXPECT_EQ(set("x"), -1); });
}

TEST_F(bootopt, null_handle_writes_through_a_driver_of_its_own)
{
    EXPECT_EQ(ovra_bootopt_set(nullptr, arg("Boot0001"), nullptr, 0, arg("x"), 1, nullptr, 0), 0);
    EXPECT_EQ(*fakes::variable("Boot0001"), load_option(1, u"x", {}));
    EXPECT_EQ(fakes::openings().size(), 2U);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

TEST_F(bootopt, absent_driver_is_a_failure_to_write)
{
    fakes::set_absent(ENOENT);
    expect_errors("failed to create load option Boot0001\n", [] {
        EXPECT_EQ(ovra_bootopt_set(nullptr, arg("Boot0001"), nullptr, 0, arg("x"), 1, nullptr, 0), -1);
    });
}

TEST_F(bootopt, what_is_written_is_read_back)
{
    std::mt19937 random(1);
    auto some_bytes = [&](size_t most) {
        bytes some(random() % (most + 1));
        for (uint8_t &byte : some)
            byte = static_cast<uint8_t>(random());
        return some;
    };
    for (int round = 0; round < 300; ++round) {
        std::string desc(random() % 128, ' ');
        for (char &c : desc)
            c = static_cast<char>(' ' + random() % 95);
        const bytes path = some_bytes(300);
        const bytes optdata = some_bytes(300);
        const auto attributes = static_cast<uint32_t>(random());
        ASSERT_EQ(set(desc.c_str(), path, optdata, attributes), 0);

        ovra_epath_t path_read = nullptr;
        int path_len = 0;
        char *desc_read = nullptr;
        uint32_t attributes_read = 0;
        void *optdata_read = nullptr;
        size_t optdata_len = 0;
        ASSERT_EQ(ovra_bootopt_get(hdl, arg("Boot0001"), &path_read, &path_len, &desc_read, &attributes_read,
                                   &optdata_read, &optdata_len),
                  0);
        EXPECT_EQ(desc_read, desc);
        EXPECT_EQ(attributes_read, attributes);
        ASSERT_EQ(static_cast<size_t>(path_len), path.size());
        EXPECT_TRUE(std::equal(path.begin(), path.end(), path_read));
        ASSERT_EQ(optdata_len, optdata.size());
        EXPECT_TRUE(std::equal(optdata.begin(), optdata.end(), static_cast<uint8_t *>(optdata_read)));
    }
}

TEST_F(bootopt, set_without_memory_says_where_and_leaves_the_old_option)
{
    const char *said[] = {"unable to convert description string to UCS-2\n", "",
                          "failed to create load option Boot0001\n"};
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            fakes::put_variable("Boot0001", {1, 2, 3});
            return ovra_bootopt_set(handle, arg("Boot0001"), nullptr, 0, arg("x"), 1, nullptr, 0);
        },
        [&](const attempt &one) {
            if (one.refused == 0) {
                EXPECT_EQ(one.messages, "create_bootopt finished: Boot0001\n");
            } else {
                ASSERT_LT(one.n, 3);
                EXPECT_EQ(one.messages, said[one.n]);
                EXPECT_EQ(stored("Boot0001"), "01 02 03");
            }
        });
}

TEST_F(bootopt_file, option_is_a_file_of_its_name)
{
    bytes path = {1, 2};
    bytes optdata = {3};
    folder.write("Boot0001", bytes(100, 9));
    EXPECT_EQ(ovra_bootopt_set(hdl, arg("Boot0001"), path.data(), 2, arg("x"), 5, optdata.data(), 1), 0);
    EXPECT_EQ(stored(folder, "Boot0001"), hex("05 00 00 00  02 00  78 00 00 00  01 02  03"));
}

TEST_F(bootopt_file, file_that_cannot_be_written_is_a_failure)
{
    std::filesystem::create_directory(folder.path() / "Boot0001");
    expect_errors("can't open file Boot0001: Is a directory\nfailed to create load option Boot0001\n", [&] {
        EXPECT_EQ(ovra_bootopt_set(hdl, arg("Boot0001"), nullptr, 0, arg("x"), 1, nullptr, 0), -1);
    });
}

TEST_F(bootopt_file, refused_name_touches_no_file)
{
    EXPECT_EQ(ovra_bootopt_set(hdl, arg("../x"), nullptr, 0, arg("x"), 1, nullptr, 0), -1);
    EXPECT_EQ(ovra_bootopt_set(hdl, arg("Boot000a"), nullptr, 0, arg("x"), 1, nullptr, 0), -1);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

} // namespace
