// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/boot/parts.h"
#include "tests/fakes/driver.h"
#include "tests/paths/tables.h"

using namespace ovra::test;

namespace {

// The fields of a load option, taken apart without the library.
struct option {
    uint32_t attributes = 0;
    std::u16string description;
    bytes path;
    bytes optional_data;

    explicit option(const bytes &variable)
    {
        uint16_t path_length = 0;
        memcpy(&attributes, variable.data(), sizeof attributes);
        memcpy(&path_length, variable.data() + 4, sizeof path_length);
        size_t at = 6;
        for (;; at += 2) {
            char16_t unit = 0;
            memcpy(&unit, variable.data() + at, sizeof unit);
            if (unit == 0)
                break;
            description += unit;
        }
        at += 2;
        const auto begin = variable.begin() + static_cast<std::ptrdiff_t>(at);
        path.assign(begin, begin + path_length);
        optional_data.assign(begin + path_length, variable.end());
    }
};

class real_options : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        ASSERT_EQ(ovra_init(&hdl), 0);
        for (const auto &row : read_table("options.tsv")) {
            if (row.at(0) != "variable")
                variables.push_back(from_hex(row.at(1)));
        }
        ASSERT_EQ(variables.size(), 69U);
    }
    void TearDown() override { ovra_fini(hdl); }

    ovra_hdl_t hdl = nullptr;
    std::vector<bytes> variables;
    char name[9] = "Boot0000";
};

TEST_F(real_options, read_back_field_by_field)
{
    for (const bytes &variable : variables) {
        fakes::put_variable(name, variable);
        const option wanted(variable);
        const parts given = get(hdl, name);
        ASSERT_EQ(given.result, 0);
        EXPECT_EQ(given.attributes, wanted.attributes);
        EXPECT_EQ(given.hex_path(), to_hex(wanted.path));
        EXPECT_EQ(given.hex_optdata(), to_hex(wanted.optional_data));
        EXPECT_EQ(given.optdata == nullptr, wanted.optional_data.empty());
        // All of them have plain names.
        EXPECT_EQ(std::string(given.desc), std::string(wanted.description.begin(), wanted.description.end()));
    }
}

TEST_F(real_options, written_again_are_the_same_bytes)
{
    for (const bytes &variable : variables) {
        fakes::put_variable(name, variable);
        const parts given = get(hdl, name);
        ASSERT_EQ(given.result, 0);
        fakes::remove_variable(name);
        ASSERT_EQ(ovra_bootopt_set(hdl, name, given.path, given.path_len, given.desc, given.attributes,
                                   given.optdata, given.optdata_len),
                  0);
        EXPECT_EQ(to_hex(*fakes::variable(name)), to_hex(variable));
    }
}

// Through the accessors, and of the path as text what the table of reviewed texts says.
TEST_F(real_options, give_each_field_by_itself)
{
    const auto table = read_table("decoded.tsv");
    for (const bytes &variable : variables) {
        fakes::put_variable(name, variable);
        const option wanted(variable);
        const std::string digits = to_hex(wanted.path);
        const auto row = std::find_if(table.begin(), table.end(), [&](const auto &known) {
            return to_hex(from_hex(known[0])) == digits;
        });
        ASSERT_NE(row, table.end()) << digits;
        SCOPED_TRACE(row->at(1));

        char *text = nullptr;
        ASSERT_EQ(ovra_bootopt_devpath_get(hdl, name, &text), 0);
        EXPECT_EQ(text, row->at(1));
        text = nullptr;
        const int result = ovra_bootopt_bootpath_get(hdl, name, &text);
        EXPECT_EQ(result, row->at(2) == "-" ? -1 : 0);
        EXPECT_EQ(std::string(text ? text : "-"), row->at(2));
        ASSERT_EQ(ovra_bootopt_desc_get(hdl, name, &text), 0);
        EXPECT_EQ(text, std::string(wanted.description.begin(), wanted.description.end()));
        uint32_t attr = 0;
        ASSERT_EQ(ovra_bootopt_attr_get(hdl, name, &attr), 0);
        EXPECT_EQ(attr, wanted.attributes);
        void *optdata = nullptr;
        size_t optdata_len = 0;
        ASSERT_EQ(ovra_bootopt_optdata_get(hdl, name, &optdata, &optdata_len), 0);
        EXPECT_EQ(to_hex(optdata, optdata_len), to_hex(wanted.optional_data));
        EXPECT_EQ(optdata == nullptr, wanted.optional_data.empty());
    }
}

TEST_F(real_options, keep_every_other_byte_when_one_field_is_set)
{
    for (const bytes &variable : variables) {
        fakes::put_variable(name, variable);
        const option wanted(variable);
        ASSERT_EQ(ovra_bootopt_attr_set(hdl, name, wanted.attributes ^ 1), 0);
        bytes changed = variable;
        changed[0] ^= 1;
        EXPECT_EQ(to_hex(*fakes::variable(name)), to_hex(changed));
    }
}

} // namespace
