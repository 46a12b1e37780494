// SPDX-License-Identifier: MIT
#include <algorithm>
#include <unordered_map>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/machine/drives.h"
#include "tools/machine/sysfs.h"
#include "tools/machine/treenodes.h"
#include "tools/text/output.h"
#include "tools/text/table.h"

namespace tool {

namespace {

using drives_by_path = std::unordered_map<std::string, drive>;

constexpr const char *string_properties[] = {"acpi-hid", "acpi-uid", "acpi-cid"};
constexpr const char *integer_properties[] = {"vendor-id", "device-id", "revision-id", "class-code", "reg"};

// The name of a property as the members of a document are named.
std::string member_name(std::string property)
{
    std::replace(property.begin(), property.end(), '-', '_');
    return property;
}

json properties_of(ht_node_t node)
{
    json properties = json::object();
    for (const char *name : string_properties) {
        if (const auto text = string_property(node, name))
            properties[member_name(name)] = *text;
    }
    for (const char *name : integer_properties) {
        int *values = nullptr;
        const int count = ht_prop_lookup_ints(HT_DEV_ANY, node, name, &values);
        if (count == 1)
            properties[member_name(name)] = values[0];
        else if (count > 1)
            properties[member_name(name)] = std::vector<int>(values, values + count);
    }
    return properties;
}

json to_json(ht_node_t node, const drives_by_path &drives)
{
    const std::string path = tree_path(node);
    const char *address = ht_bus_addr(node);
    const auto disk = drives.find(path);
    json children = json::array();
    for (ht_node_t child = ht_child_node(node); child; child = ht_sibling_node(child))
        children.push_back(to_json(child, drives));
    return {{"name", ht_node_name(node)},
            {"address", address ? json(address) : json(nullptr)},
            {"path", path},
            {"properties", properties_of(node)},
            {"drive", disk == drives.end() ? json(nullptr) : json(disk->second.name)},
            {"kernel_name", disk == drives.end() ? json(nullptr) : json(disk->second.kernel_name)},
            {"children", std::move(children)}};
}

void append_text(ht_node_t node, size_t depth, const drives_by_path &drives, table *rows)
{
    const char *address = ht_bus_addr(node);
    std::string component = std::string(depth * 2, ' ') + ht_node_name(node);
    if (address)
        component += std::string("@") + address;
    std::string note = string_property(node, "acpi-hid").value_or("");
    const auto disk = drives.find(tree_path(node));
    if (disk != drives.end())
        note = disk->second.name + "  " + disk->second.kernel_name;
    rows->row({printable(component), printable(note)});
    for (ht_node_t child = ht_child_node(node); child; child = ht_sibling_node(child))
        append_text(child, depth + 1, drives, rows);
}

class tree_verb : public verb {
public:
    const char *summary() const override { return "the device tree"; }
    void declare(CLI::App &app) override { add_example(app, "ovra tree"); }

    void run(const general_options &general) override
    {
        require_sysfs(general.folder());
        const tree_owner root = read_tree();
        if (!ht_child_node(root.get()))
            require_devices();
        drives_by_path drives;
        for (drive &drive : read_drives({}))
            drives.emplace(drive.path, drive);
        if (general.json) {
            print_json(to_json(root.get(), drives));
            return;
        }
        table rows;
        append_text(root.get(), 0, drives, &rows);
        print(rows.text());
    }
};

} // namespace

std::unique_ptr<verb> make_tree()
{
    return std::make_unique<tree_verb>();
}

} // namespace tool
