// SPDX-License-Identifier: MIT
// The table of nodes and their texts.
#include <set>

#include "tests/print/golden.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"
#include "tests/support/rows.h"

using namespace ovra::test;

namespace {

struct golden : open_handle {
    using open_handle::hdl;
};

bool is_file_path(const bytes &node)
{
    return node[0] == 4 && node[1] == 4;
}

void path_decodes_to_its_texts(golden &test, const golden_case &row)
{
    const messages said;
    bytes path = ended(row.nodes);
    ovra_path_t **paths = nullptr;
    ASSERT_EQ(ovra_epath_decode_to_uefi(test.hdl, path.data(), static_cast<int>(path.size()), &paths), 0);
    ASSERT_NE(paths, nullptr);
    ASSERT_NE(paths[0], nullptr);
    EXPECT_STREQ(paths[0]->device_path, row.device.c_str());
    EXPECT_STREQ(paths[0]->file_path, row.file ? row.file->c_str() : nullptr);
    EXPECT_EQ(paths[1], nullptr);
    EXPECT_EQ(said.text(), "");
    free_dpath(test.hdl, paths);
}

void nodes_print_to_the_same_texts_one_by_one(golden &, const golden_case &row)
{
    std::optional<std::string> device;
    std::optional<std::string> file;
    for (const bytes &node : split_nodes(row.nodes)) {
        std::optional<std::string> &to = is_file_path(node) ? file : device;
        const auto piece = printed(node, to);
        ASSERT_TRUE(piece) << to_hex(node);
        to = to.value_or("") + *piece;
    }
    EXPECT_EQ(device.value_or(""), row.device);
    EXPECT_EQ(file, row.file);
}

void printer_of_the_type_agrees(golden &, const golden_case &row)
{
    static constexpr c_printer printers[] = {nullptr,          print_hardware_path,
                                             print_acpi_path,  print_messaging_path,
                                             print_media_path, print_bios_path};
    for (const bytes &node : split_nodes(row.nodes)) {
        if (node[0] == 0 || node[0] > 5)
            continue;
        EXPECT_EQ(printed(node, {}, printers[node[0]]), printed(node)) << to_hex(node);
        EXPECT_EQ(printed(node, "x", printers[node[0]]), printed(node, "x")) << to_hex(node);
    }
}

const bool cases_registered[] = {
    register_rows("golden_path_decodes_to_its_texts", golden_cases(), path_decodes_to_its_texts, __FILE__,
                  __LINE__),
    register_rows("golden_nodes_print_to_the_same_texts_one_by_one", golden_cases(),
                  nodes_print_to_the_same_texts_one_by_one, __FILE__, __LINE__),
    register_rows("golden_printer_of_the_type_agrees", golden_cases(), printer_of_the_type_agrees, __FILE__,
                  __LINE__),
};

} // namespace

TEST(golden_table, names_say_one_rule_each)
{
    std::set<std::string> names;
    for (const golden_case &one : golden_cases())
        EXPECT_TRUE(names.insert(one.name).second) << one.name;
}
