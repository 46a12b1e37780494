// SPDX-License-Identifier: MIT
// Reading sound load options.
#include "tests/boot/parts.h"

using namespace ovra::test;

namespace {

struct bootopt_get : open_handle {
    using open_handle::hdl;
};

struct bootopt_get_file : file_fixture {
    using file_fixture::hdl;
};

struct stored_text {
    const char *name;
    std::u16string stored;
    std::string desc;
};

std::string repeat(const char *text, size_t times)
{
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

const stored_text stored_texts[] = {
    {"empty_description", u"", ""},
    {"description_of_127_characters_reads_back", std::u16string(127, u'd'), std::string(127, 'd')},
    {"description_with_characters_of_two_and_three_bytes", u"\u00e9\u20ac", "\xc3\xa9\xe2\x82\xac"},
    {"description_with_a_surrogate_pair", u"a\xd83d\xde00z", "a\xf0\x9f\x98\x80z"},
    {"description_of_the_last_character", u"\xdbff\xdfff", "\xf4\x8f\xbf\xbf"},
    {"description_ends_at_a_high_surrogate_without_a_low_one", u"ab\xd83dz", "ab"},
    {"description_ends_at_a_high_surrogate_before_the_terminator", u"ab\xd83d", "ab"},
    {"description_ends_at_a_low_surrogate_without_a_high_one", u"ab\xde00z", "ab"},
    {"description_ends_at_reversed_surrogates", u"ab\xde00\xd83d", "ab"},
    {"description_ends_at_the_first_of_two_high_surrogates", u"ab\xd83d\xd83d\xde00", "ab"},
    {"description_of_254_bytes_is_not_cut", std::u16string(127, u'\u00e9'), repeat("\xc3\xa9", 127)},
    {"description_of_256_bytes_is_not_cut", u"a" + std::u16string(85, u'\u20ac'),
     "a" + repeat("\xe2\x82\xac", 85)},
    {"description_is_cut_at_255_bytes_before_a_character_that_does_not_fit", std::u16string(127, u'\u20ac'),
     repeat("\xe2\x82\xac", 85)},
    {"description_is_cut_at_254_bytes_before_a_character_that_does_not_fit",
     u"ab" + std::u16string(100, u'\u20ac'), "ab" + repeat("\xe2\x82\xac", 84)},
    {"description_is_cut_before_a_pair_that_does_not_fit",
     u"a" + std::u16string(84, u'\u20ac') + u"\xd83d\xde00", "a" + repeat("\xe2\x82\xac", 84)},
};

void check_stored_text(bootopt_get &test, const stored_text &row)
{
    fakes::put_variable("Boot0001", load_option(1, row.stored, {1, 2}, {3}));
    const parts all = get(test.hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(to_hex(all.desc, strlen(all.desc)), to_hex(row.desc.data(), row.desc.size()));
    EXPECT_EQ(all.hex_path(), "01 02");
    EXPECT_EQ(all.hex_optdata(), "03");
}

const bool stored_texts_registered =
    register_rows("bootopt_get", stored_texts, check_stored_text, __FILE__, __LINE__);

TEST_F(bootopt_get, option_is_split_into_its_parts)
{
    fakes::put_variable(
        "Boot0001",
        load_option(0x87654321, u"Linux", from_hex("04 04 06 00 41 00 7f ff 04 00"), from_hex("aa bb cc")));
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.attributes, 0x87654321U);
    EXPECT_EQ(all.path_len, 10);
    EXPECT_STREQ(all.desc, "Linux");
    EXPECT_EQ(all.hex_path(), "04 04 06 00 41 00 7f ff 04 00");
    EXPECT_EQ(all.hex_optdata(), "aa bb cc");
}

TEST_F(bootopt_get, blocks_belong_to_the_handle)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    const parts first = get(hdl);
    EXPECT_TRUE(is_tracked(hdl, first.desc));
    EXPECT_TRUE(is_tracked(hdl, first.optdata));
    EXPECT_TRUE(is_tracked(hdl, first.path));
    EXPECT_EQ(tracked_blocks(hdl), 3U);
    memlist_free(hdl, first.desc);
    memlist_free(hdl, first.optdata);
    memlist_free(hdl, first.path);
    EXPECT_EQ(tracked_blocks(hdl), 0U);

    count_blocks();
    const parts second = get(hdl);
    EXPECT_EQ(second.result, 0);
    EXPECT_EQ(live_blocks(), 3);
    ovra_fini(hdl);
    hdl = nullptr;
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(bootopt_get, variable_is_sized_and_then_read)
{
    const bytes option = load_option(1, u"Linux", {1, 2}, {3});
    fakes::put_variable("Boot0001", option);
    EXPECT_EQ(get_nothing(hdl), 0);
    ASSERT_EQ(fakes::requests().size(), 2U);
    const auto &sizing = fakes::requests()[0];
    EXPECT_EQ(sizing.command, OVRA_GET_VARIABLE);
    EXPECT_EQ(sizing.name.narrow(), "Boot0001");
    EXPECT_EQ(memcmp(&*sizing.guid, &fakes::global_guid, sizeof(EFI_GUID)), 0);
    EXPECT_EQ(sizing.data_size, 0U);
    EXPECT_EQ(sizing.data_address, nullptr);
    const auto &reading = fakes::requests()[1];
    EXPECT_EQ(reading.command, OVRA_GET_VARIABLE);
    EXPECT_EQ(reading.data_size, option.size());
}

TEST_F(bootopt_get, all_outputs_may_be_null)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    expect_errors("", [&] { EXPECT_EQ(get_nothing(hdl), 0); });
    EXPECT_EQ(tracked_blocks(hdl), 0U);
}

TEST_F(bootopt_get, each_output_is_filled_alone)
{
    fakes::put_variable("Boot0001", load_option(5, u"Linux", {1, 2}, {3}));
    parts all;
    char *name = arg("Boot0001");
    EXPECT_EQ(ovra_bootopt_get(hdl, name, &all.path, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(to_hex(all.path, 2), "01 02");
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, &all.path_len, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(all.path_len, 2);
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, nullptr, &all.desc, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(all.desc, "Linux");
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, nullptr, nullptr, &all.attributes, nullptr, nullptr), 0);
    EXPECT_EQ(all.attributes, 5U);
    EXPECT_EQ(tracked_blocks(hdl), 2U);
}

TEST_F(bootopt_get, optional_data_needs_both_outputs)
{
    fakes::put_variable("Boot0001", load_option(5, u"Linux", {1, 2}, {3}));
    parts all;
    char *name = arg("Boot0001");
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, nullptr, nullptr, nullptr, &all.optdata, nullptr), 0);
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, nullptr, nullptr, nullptr, nullptr, &all.optdata_len), 0);
    EXPECT_TRUE(all.untouched());
    EXPECT_EQ(tracked_blocks(hdl), 0U);
    EXPECT_EQ(ovra_bootopt_get(hdl, name, nullptr, nullptr, nullptr, nullptr, &all.optdata, &all.optdata_len),
              0);
    EXPECT_EQ(all.hex_optdata(), "03");
}

TEST_F(bootopt_get, option_without_optional_data_gives_null_and_0)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}));
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.optdata, nullptr);
    EXPECT_EQ(all.optdata_len, 0U);
    EXPECT_EQ(tracked_blocks(hdl), 2U);
}

TEST_F(bootopt_get, option_without_a_path_gives_a_block_of_no_bytes)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {}, {3}));
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.path_len, 0);
    EXPECT_TRUE(is_tracked(hdl, all.path));
    EXPECT_EQ(all.hex_optdata(), "03");
}

TEST_F(bootopt_get, description_of_128_characters_is_refused_on_read)
{
    for (const size_t length : {128U, 129U, 1000U, 30000U}) {
        fakes::put_variable("Boot0001", load_option(9, std::u16string(length, u'd'), {1, 2}, {3}));
        const std::string said = "invalid description length " + std::to_string((length + 1) * 2) + "\n";
        expect_errors(said, [&] {
            const parts all = get(hdl);
            EXPECT_EQ(all.result, -1);
            EXPECT_TRUE(all.blocks_untouched());
            EXPECT_EQ(all.attributes, 9U);
            EXPECT_EQ(all.path_len, 2);
        });
        expect_errors(said, [&] { EXPECT_EQ(get_nothing(hdl), -1); });
    }
}

TEST_F(bootopt_get, kept_offset_of_optional_data_has_16_bits)
{
    bytes path(65535, 0);
    for (size_t i = 0; i < path.size(); ++i)
        path[i] = static_cast<uint8_t>(i * 7);
    const bytes option = load_option(1, u"ab", path, {0xaa, 0xbb});
    fakes::put_variable("Boot0001", option);
    const size_t offset = (6U + 6 + 65535) % 65536;
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.path_len, 65535);
    EXPECT_TRUE(std::equal(path.begin(), path.end(), all.path));
    ASSERT_EQ(all.optdata_len, option.size() - offset);
    EXPECT_EQ(memcmp(all.optdata, option.data() + offset, all.optdata_len), 0);
}

TEST_F(bootopt_get, offset_of_optional_data_is_0_at_65536_and_right_below)
{
    for (const size_t end : {65535U, 65536U}) {
        const bytes option = load_option(1, u"", bytes(end - 8, 0x5a), {0xaa, 0xbb});
        fakes::put_variable("Boot0001", option);
        const parts all = get(hdl);
        ASSERT_EQ(all.result, 0);
        const size_t offset = end == 65536 ? 0 : end;
        ASSERT_EQ(all.optdata_len, option.size() - offset);
        EXPECT_EQ(memcmp(all.optdata, option.data() + offset, all.optdata_len), 0);
    }
}

TEST_F(bootopt_get, null_handle_gives_blocks_that_nobody_tracks)
{
    fakes::put_variable("Boot0001", load_option(1, u"Linux", {1, 2}, {3}));
    const parts all = get(nullptr);
    ASSERT_EQ(all.result, 0);
    EXPECT_STREQ(all.desc, "Linux");
    memlist_free(nullptr, all.desc);
    memlist_free(nullptr, all.optdata);
    memlist_free(nullptr, all.path);
    EXPECT_EQ(fakes::openings().size(), 3U);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

TEST_F(bootopt_get_file, option_is_a_file_of_its_name)
{
    folder.write("Boot0001", load_option(3, u"\u00e9", {1, 2}, {3}));
    const parts all = get(hdl);
    ASSERT_EQ(all.result, 0);
    EXPECT_EQ(all.attributes, 3U);
    EXPECT_STREQ(all.desc, "\xc3\xa9");
    EXPECT_EQ(all.hex_path(), "01 02");
    EXPECT_EQ(all.hex_optdata(), "03");
}

} // namespace
