// SPDX-License-Identifier: MIT
// The machines of tests/machines, through the libraries.
#include <algorithm>
#include <cstdlib>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"
#include "tests/support/machine_text.h"
#include "tests/support/messages.h"
#include "tests/support/rows.h"

namespace {

using namespace devices_test;
using ovra::test::machine_text;
using ovra::test::register_rows;

using lines = std::vector<std::vector<std::string>>;

lines expected(const machine_text &text, const char *section)
{
    const auto found = text.expected.find(section);
    EXPECT_NE(found, text.expected.end()) << text.file << " has no section " << section;
    return found != text.expected.end() ? ovra::test::words_of_lines(found->second) : lines();
}

void append(ht_node_t node, std::vector<std::string> *components)
{
    const char *address = ht_bus_addr(node);
    components->push_back(ht_node_name(node) + (address != nullptr ? "@" + std::string(address) : ""));
    for (ht_node_t child = ht_child_node(node); child != nullptr; child = ht_sibling_node(child))
        append(child, components);
}

// The tree and the drives are those that the command shows.
void has_its_tree_and_drives(testing::Test &, const machine_text &text)
{
    const sample machine;
    ovra::test::lay_out(text, machine.root());
    std::vector<std::string> expected_components;
    std::vector<std::string> expected_drives;
    for (const auto &words : expected(text, "tree")) {
        expected_components.push_back(words.at(0));
        if (words.size() == 3) // with the names of a drive
            expected_drives.push_back(words[1] + ' ' + words[2]);
    }
    std::vector<std::string> components;
    const snapshot tree(ht_init("/", HT_SUBTREE | HT_PROPS));
    ASSERT_TRUE(tree);
    append(tree.get(), &components);
    EXPECT_EQ(components, expected_components);
    std::vector<std::string> seen;
    for (const std::string &row : drives()) {
        std::vector<std::string> words = ovra::test::words_of_lines(row).at(0);
        seen.push_back(words[0] + ' ' + words[2]);
    }
    EXPECT_THAT(seen, testing::UnorderedElementsAreArray(expected_drives));
}
const bool trees_registered =
    register_rows("machine_texts", ovra::test::machine_texts(), has_its_tree_and_drives, __FILE__, __LINE__);

// What the library makes of a volume with its hardware: digits, or why it has no such path.
std::string full_form(const library &ovra, const std::string &name)
{
    const outcome given = ovra.encode(name.c_str(), 1);
    if (given.error == 0)
        return given.text;
    const ovra::test::messages said(1, 0);
    EXPECT_NE(ovra.encode(name.c_str(), 1).error, 0);
    const std::string all = said.text();
    return "refused: " + all.substr(0, all.find('\n'));
}

// Every volume has its short form, which leads back to it; the full form where its controller has one.
void has_its_paths(testing::Test &, const machine_text &text)
{
    const sample machine;
    ovra::test::lay_out(text, machine.root());
    const library ovra;
    const lines short_forms = expected(text, "short");
    EXPECT_EQ(volumes().size(), short_forms.size());
    std::string full;
    for (const auto &words : short_forms) {
        const std::string &name = words.at(0);
        const outcome given = ovra.encode(name.c_str(), 0);
        EXPECT_EQ(given.error, 0) << name;
        EXPECT_EQ(given.text, words.at(1)) << name;
        const std::string link = link_of("/dev/dsk/" + name);
        ASSERT_TRUE(link.starts_with("../../devices/")) << name << ": " << link;
        EXPECT_THAT(ovra.decode(ovra.packed(name.c_str(), 0)).text,
                    testing::HasSubstr(link.substr(std::string("../../devices").size()) + '\n'))
            << name;
        full += name + ' ' + full_form(ovra, name) + '\n';
    }
    if (const char *folder = std::getenv("OVRA_SEEN_MACHINES"))
        std::ofstream(fs::path(folder) / (text.name + ".full")) << full;
    const auto found = text.expected.find("full");
    ASSERT_NE(found, text.expected.end());
    EXPECT_EQ(full, found->second);
}
const bool paths_registered =
    register_rows("machine_paths", ovra::test::machine_texts(), has_its_paths, __FILE__, __LINE__);

} // namespace
