// SPDX-License-Identifier: MIT
#include "tests/devices/process/outcomes.h"

#include <cerrno>
#include <cstdlib>
#include <set>
#include <sstream>

namespace devices_test {

outcome said_of(vs_descriptor_t descriptor)
{
    int err = 0;
    char *name = vs_get_name(descriptor, &err);
    if (name == nullptr)
        return {err, ""};
    outcome found = {0, name};
    free(name);
    const attributes list(vs_get_attributes(descriptor, &err));
    if (!list)
        return {err, ""};
    for (const char *attribute :
         {"blocksize", "nblocks", "volserno", "relsect", "nsectors", "start", "size"}) {
        if (const auto value = devices_test::attribute(list.get(), attribute))
            found.text += std::string(" ") + attribute + ' ' + std::to_string(*value);
    }
    for (const char *attribute : {"kernel-name", "devfs-path", "uguid"}) {
        uint8_t *bytes = nullptr;
        unsigned count = 0;
        if (kvlist_lookup_uint8_array(list.get(), attribute, &bytes, &count) == 0)
            found.text += std::string(" ") + attribute + ' ' + ovra::test::to_digits(bytes, count);
    }
    found.text += '\n';
    return found;
}

static outcome said_of_all(const vs_descriptor_t *array)
{
    outcome all;
    for (; *array != 0; ++array) {
        const outcome one = said_of(*array);
        if (one.error != 0)
            return one;
        all.text += one.text;
    }
    return all;
}

outcome all_of_kind(vs_kind_t kind)
{
    int err = 0;
    const descriptors all(vs_get_descriptors(kind, nullptr, &err));
    return all ? said_of_all(all.get()) : outcome{err, ""};
}

outcome media_of_each_drive()
{
    int err = 0;
    const descriptors all(vs_get_descriptors(VS_DRIVE, nullptr, &err));
    if (!all)
        return {err, ""};
    outcome found;
    for (std::size_t i = 0; all[i] != 0; ++i) {
        const descriptors media(vs_get_associated_descriptors(all[i], VS_MEDIA, &err));
        const outcome said = media ? said_of_all(media.get()) : outcome{err, ""};
        if (said.error == ENOMEM || said.error == EMFILE)
            return said;
        found.text += said.error != 0     ? "error " + std::to_string(said.error) + '\n'
                      : said.text.empty() ? "none\n"
                                          : said.text;
    }
    return found;
}

outcome whole_tree()
{
    const snapshot tree(ht_init("/", HT_SUBTREE | HT_PROPS));
    if (!tree)
        return {errno, ""};
    outcome found;
    std::vector<ht_node_t> nodes = {tree.get()};
    while (!nodes.empty()) {
        ht_node_t node = nodes.back();
        nodes.pop_back();
        char *path = ht_devfs_path(node);
        if (path == nullptr)
            return {errno, ""};
        found.text += path;
        ht_devfs_path_free(path);
        for (const char *name : {"vendor-id", "device-id", "class-code", "reg"}) {
            int *values = nullptr;
            if (ht_prop_lookup_ints(HT_DEV_ANY, node, name, &values) == 1)
                found.text += ' ' + std::to_string(values[0]);
        }
        for (const char *name : {"acpi-hid", "acpi-uid", "acpi-cid"}) {
            char *text = nullptr;
            if (ht_prop_lookup_strings(HT_DEV_ANY, node, name, &text) == 1)
                found.text += std::string(" ") + text;
        }
        found.text += '\n';
        for (ht_node_t child = ht_child_node(node); child != nullptr; child = ht_sibling_node(child))
            nodes.push_back(child);
    }
    return found;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line);
    return all;
}

// The drive that a line of said_of is about.
static std::string drive_of(const std::string &line)
{
    const std::string name = line.substr(0, line.find(' '));
    const std::string volume = name.substr(name.rfind('/') + 1);
    return volume.substr(0, volume.find_first_of("sp"));
}

bool same_but_for_one_drive(const outcome &found, const outcome &undisturbed, int injected)
{
    if (found.error != 0 || found == undisturbed)
        return found.error == 0 || found.error == injected;
    const std::vector<std::string> left = lines(found.text);
    std::set<std::string> missing;
    std::size_t next = 0;
    for (const std::string &line : lines(undisturbed.text)) {
        if (next < left.size() && left[next] == line)
            ++next;
        else
            missing.insert(drive_of(line));
    }
    return next == left.size() && missing.size() == 1 && (injected == EIO || injected == EACCES);
}

bool same_but_for_an_error_line(const outcome &found, const outcome &undisturbed, int injected)
{
    if (found.error != 0 || found == undisturbed)
        return found.error == 0 || found.error == injected;
    const std::vector<std::string> before = lines(undisturbed.text);
    const std::vector<std::string> after = lines(found.text);
    if (before.size() != after.size())
        return false;
    int differences = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i] == after[i])
            continue;
        ++differences;
        if (after[i] != "error " + std::to_string(injected))
            return false;
    }
    return differences == 1;
}

} // namespace devices_test
