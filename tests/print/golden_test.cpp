// SPDX-License-Identifier: MIT
// The table of nodes and their texts.
#include <set>

#include "tests/print/golden.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

class golden : public open_handle, public ::testing::WithParamInterface<golden_case> {};

bool is_file_path(const bytes &node)
{
    return node[0] == 4 && node[1] == 4;
}

} // namespace

TEST_P(golden, path_decodes_to_its_texts)
{
    const messages said;
    bytes path = ended(GetParam().nodes);
    ovra_path_t **paths = nullptr;
    ASSERT_EQ(ovra_epath_decode_to_uefi(hdl, path.data(), static_cast<int>(path.size()), &paths), 0);
    ASSERT_NE(paths, nullptr);
    ASSERT_NE(paths[0], nullptr);
    EXPECT_STREQ(paths[0]->device_path, GetParam().device.c_str());
    EXPECT_STREQ(paths[0]->file_path, GetParam().file ? GetParam().file->c_str() : nullptr);
    EXPECT_EQ(paths[1], nullptr);
    EXPECT_EQ(said.text(), "");
    free_dpath(hdl, paths);
}

TEST_P(golden, nodes_print_to_the_same_texts_one_by_one)
{
    std::optional<std::string> device;
    std::optional<std::string> file;
    for (const bytes &node : split_nodes(GetParam().nodes)) {
        std::optional<std::string> &to = is_file_path(node) ? file : device;
        const auto piece = printed(node, to);
        ASSERT_TRUE(piece) << to_hex(node);
        to = to.value_or("") + *piece;
    }
    EXPECT_EQ(device.value_or(""), GetParam().device);
    EXPECT_EQ(file, GetParam().file);
}

TEST_P(golden, printer_of_the_type_agrees)
{
    static constexpr c_printer printers[] = {nullptr,          print_hardware_path,
                                             print_acpi_path,  print_messaging_path,
                                             print_media_path, print_bios_path};
    for (const bytes &node : split_nodes(GetParam().nodes)) {
        if (node[0] == 0 || node[0] > 5)
            continue;
        EXPECT_EQ(printed(node, {}, printers[node[0]]), printed(node)) << to_hex(node);
        EXPECT_EQ(printed(node, "x", printers[node[0]]), printed(node, "x")) << to_hex(node);
    }
}

INSTANTIATE_TEST_SUITE_P(table, golden, ::testing::ValuesIn(golden_cases()),
                         [](const auto &one) { return one.param.name; });

TEST(golden_table, names_say_one_rule_each)
{
    std::set<std::string> names;
    for (const golden_case &one : golden_cases())
        EXPECT_TRUE(names.insert(one.name).second) << one.name;
}
