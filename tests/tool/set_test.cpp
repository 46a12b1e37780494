// SPDX-License-Identifier: MIT
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class set_verb : public Machine {
protected:
    set_verb() { put("Boot0003", option()); }

    static std::string option(uint32_t attributes = 0x109, std::string_view description = "Old",
                              std::string_view optional_data = "\x01\x02\x03")
    {
        return load_option(attributes, description, from_hex(sample_path_hex), optional_data);
    }
};

TEST_F(set_verb, changes_the_description_alone)
{
    EXPECT_EQ(output({"set", "Boot0003", "--desc", "New"}),
              "wrote Boot0003: \"New\", 0x00000109 (active, hidden, application), optional data 010203 (3 "
              "bytes)\n");
    EXPECT_EQ(get("Boot0003"), option(0x109, "New"));
}

TEST_F(set_verb, changes_the_attributes_alone)
{
    output({"set", "Boot0003", "--attr", "0xFFFFFFFF"});
    EXPECT_EQ(get("Boot0003"), option(0xffffffff));
    output({"set", "Boot0003", "--attr", "10"});
    EXPECT_EQ(get("Boot0003"), option(10));
}

TEST_F(set_verb, active_and_inactive_change_one_bit)
{
    output({"set", "Boot0003", "--inactive"});
    EXPECT_EQ(get("Boot0003"), option(0x108));
    output({"set", "Boot0003", "--active"});
    EXPECT_EQ(get("Boot0003"), option(0x109));
}

TEST_F(set_verb, changes_the_optional_data_alone)
{
    output({"set", "Boot0003", "--optdata-text", "q"});
    EXPECT_EQ(get("Boot0003"), option(0x109, "Old", std::string("q\0\0\0", 4)));
    std::ofstream(folder / "data") << "file";
    output({"set", "Boot0003", "--optdata-file", folder / "data"});
    EXPECT_EQ(get("Boot0003"), option(0x109, "Old", "file"));
    output({"set", "Boot0003", "--no-optdata"});
    EXPECT_EQ(get("Boot0003"), option(0x109, "Old", ""));
}

TEST_F(set_verb, changes_several_fields_at_once)
{
    output({"set", "3", "--desc", "New", "--attr", "1", "--no-optdata"});
    EXPECT_EQ(get("Boot0003"), option(1, "New", ""));
}

TEST_F(set_verb, leaves_other_variables_alone)
{
    auto expected = snapshot();
    output({"set", "Boot0003", "--desc", "New"});
    auto changed = snapshot();
    const std::string name = std::filesystem::relative(file("Boot0003"), root);
    expected.erase(name);
    changed.erase(name);
    EXPECT_EQ(changed, expected);
}

TEST_F(set_verb, keeps_bytes_that_are_no_well_formed_path)
{
    put("Boot0003", load_option(1, "x", "not a path", "data"));
    output({"set", "Boot0003", "--inactive"});
    EXPECT_EQ(get("Boot0003"), load_option(0, "x", "not a path", "data"));
}

TEST_F(set_verb, says_when_there_is_nothing_to_change)
{
    const auto before = snapshot();
    EXPECT_EQ(output({"set", "Boot0003", "--desc", "Old", "--active"}), "nothing to change\n");
    EXPECT_EQ(parsed({"set", "Boot0003", "--active"})["changes"], json::array());
    EXPECT_EQ(snapshot(), before);
}

// 100 characters of three bytes each in UTF-8: storable, but the library returns 256 bytes of the 300.
std::string long_description()
{
    std::string units;
    for (int character = 0; character < 100; ++character)
        units += "\xcb\x7a";
    std::string option = load_option(1, "", from_hex("7fff0400"), "data");
    return option.insert(6, units);
}

TEST_F(set_verb, keeps_a_description_that_the_library_cuts)
{
    put("Boot0003", long_description());
    output({"set", "Boot0003", "--inactive"});
    std::string expected = long_description();
    expected[0] = 0;
    EXPECT_EQ(get("Boot0003"), expected);
    output({"set", "Boot0003", "--desc", "short"});
    EXPECT_EQ(get("Boot0003"), load_option(0, "short", from_hex("7fff0400"), "data"));
}

TEST_F(set_verb, keeps_a_description_that_is_no_text)
{
    const std::string damaged("\x01\0\0\0\x04\0\x00\xd8z\0\0\0\x7f\xff\x04\0", 16);
    put("Boot0003", damaged);
    output({"set", "Boot0003", "--inactive"});
    EXPECT_EQ(get("Boot0003"), std::string(1, '\0') + damaged.substr(1));
}

TEST_F(set_verb, never_writes_optional_data_that_the_library_finds_at_the_wrong_place)
{
    // Description and path of 65538 bytes: the library takes the optional data to begin at byte 2.
    const std::string far = load_option(1, "x", std::string(65528, 'p'), "data");
    put("Boot0003", far);
    EXPECT_THAT(failure({"set", "Boot0003", "--inactive"}),
                HasSubstr("the description and the path have 65538 bytes together"));
    EXPECT_EQ(get("Boot0003"), far);
}

TEST_F(set_verb, warns_of_a_description_that_the_library_could_not_read_back)
{
    std::string ideographs;
    for (int character = 0; character < 86; ++character)
        ideographs += "\u7acb";
    for (const std::string &description : {std::string(128, 'x'), ideographs}) {
        const outcome result = run({"set", "Boot0003", "--desc", description});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(whole(result.err),
                    HasSubstr("the description has more than 127 characters or 256 bytes in UTF-8"));
        EXPECT_EQ(parsed({"show", "Boot0003"})["description"], description);
    }
    output({"set", "Boot0003", "--desc", std::string(127, 'x')});
    output({"set", "Boot0003", "--desc", ideographs.substr(3)});
}

TEST_F(set_verb, refuses_text_that_is_not_for_ucs2)
{
    EXPECT_EQ(run({"set", "Boot0003", "--optdata-text", "\U0001F600"}).status, 2);
    for (const char *text : {"\xff", "\xc3", "\xc0\x80", "\xed\xa0\x80"}) {
        EXPECT_EQ(run({"set", "Boot0003", "--desc", text}).status, 2) << text;
        EXPECT_EQ(run({"set", "Boot0003", "--optdata-text", text}).status, 2) << text;
    }
    EXPECT_EQ(get("Boot0003"), option());
}

TEST_F(set_verb, refuses_an_option_that_does_not_exist)
{
    EXPECT_THAT(failure({"set", "Boot001F", "--active"}), HasSubstr("ovra: no such option: Boot001F\n"));
}

TEST_F(set_verb, refuses_a_damaged_option)
{
    put("Boot0003", option().substr(0, 20));
    EXPECT_THAT(failure({"set", "Boot0003", "--desc", "x"}),
                HasSubstr("ovra: cannot read Boot0003: damaged\n"));
}

TEST_F(set_verb, dry_run_changes_nothing)
{
    const auto before = snapshot();
    EXPECT_THAT(output({"set", "Boot0003", "--desc", "New", "--dry-run"}),
                HasSubstr("would write Boot0003: \"New\", 0x00000109"));
    EXPECT_EQ(parsed({"--dry-run", "set", "Boot0003", "--inactive"})["changes"][0]["attributes"], 0x108);
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
