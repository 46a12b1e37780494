// SPDX-License-Identifier: MIT
#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/captured.h"

namespace devices_test {

namespace {

void run(const std::string &command)
{
    if (system(command.c_str()) != 0)
        throw std::runtime_error(command);
}

std::string hex(unsigned value)
{
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "0x%x", value);
    return text.data();
}

std::string text_attribute(kvlist_t *list, const char *name)
{
    uint8_t *bytes = nullptr;
    unsigned count = 0;
    if (kvlist_lookup_uint8_array(list, name, &bytes, &count) != 0)
        return "(none)";
    return {bytes, bytes + count - 1};
}

void walk(ht_node_t node, std::vector<std::string> *paths)
{
    char *path = ht_devfs_path(node);
    paths->emplace_back(path);
    ht_devfs_path_free(path);
    for (ht_node_t child = ht_child_node(node); child != nullptr; child = ht_sibling_node(child))
        walk(child, paths);
}

} // namespace

sample::sample(const std::string &captured)
{
    ovra::test::unpack_machine(captured, root());
}

void sample::text(const std::string &path, const std::string &contents) const
{
    put_file(root() / path, contents + "\n");
}

std::string sample::function(const std::string &place, unsigned class_code, unsigned vendor,
                             unsigned device) const
{
    const std::string path = "sys/devices/" + place;
    text(path + "/vendor", hex(vendor));
    text(path + "/device", hex(device));
    text(path + "/revision", "0x01");
    text(path + "/class", hex(class_code));
    return path;
}

void sample::disk(const std::string &name, const std::string &place, std::uint64_t units,
                  unsigned block_size) const
{
    const std::string path = place + "/block/" + name;
    text(path + "/size", std::to_string(units));
    text(path + "/queue/logical_block_size", std::to_string(block_size));
    fs::create_directory_symlink("../..", root() / path / "device");
    fs::create_directories(root() / "sys/block");
    fs::create_directory_symlink(".." + path.substr(3), root() / "sys/block" / name);
}

std::string sample::ata(const std::string &function, unsigned host, unsigned port, const std::string &address,
                        unsigned links) const
{
    const std::string name = "ata" + std::to_string(host);
    const std::string port_path = function + "/" + name + "/ata_port/" + name;
    text(port_path + "/port_no", std::to_string(port));
    text(port_path + "/nr_pmp_links", std::to_string(links));
    return function + "/" + name + "/host" + std::to_string(host) + "/target/" + address;
}

fs::path sample::image(const std::string &name, std::uint64_t units) const
{
    const fs::path path = root() / "dev" / name;
    put_file(path, "");
    fs::resize_file(path, units * 512);
    return path;
}

void sample::partition(const fs::path &image, const std::string &script)
{
    run("printf '" + script + "' | " OVRA_SFDISK " --quiet --no-tell-kernel '" + image.string() +
        "' >/dev/null 2>&1");
}

void sample::patch(const fs::path &image, std::uint64_t offset, const std::string &bytes)
{
    std::fstream stream(image, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream << bytes;
    if (!stream.flush())
        throw std::runtime_error("cannot write " + image.string());
}

attributes attributes_of(vs_descriptor_t desc)
{
    int err = -1;
    attributes list(vs_get_attributes(desc, &err));
    EXPECT_EQ(err, 0);
    EXPECT_NE(list, nullptr);
    return list;
}

descriptors all_of(vs_kind_t kind)
{
    int err = -1;
    descriptors found(vs_get_descriptors(kind, nullptr, &err));
    EXPECT_EQ(err, 0);
    EXPECT_NE(found, nullptr);
    return found;
}

descriptors associated(vs_descriptor_t desc, vs_kind_t kind)
{
    int err = -1;
    descriptors found(vs_get_associated_descriptors(desc, kind, &err));
    EXPECT_EQ(err, 0);
    EXPECT_NE(found, nullptr);
    return found;
}

std::string name_of(vs_descriptor_t desc)
{
    int err = -1;
    char *name = vs_get_name(desc, &err);
    EXPECT_EQ(err, 0);
    const std::string text = name != nullptr ? name : "(none)";
    free(name);
    return text;
}

std::optional<std::uint64_t> attribute(kvlist_t *list, const char *name)
{
    uint32_t small = 0;
    if (kvlist_lookup_uint32(list, name, &small) == 0)
        return small;
    uint64_t large = 0;
    if (kvlist_lookup_uint64(list, name, &large) == 0)
        return large;
    return std::nullopt;
}

std::vector<std::string> drives()
{
    std::vector<std::string> rows;
    const descriptors found = all_of(VS_DRIVE);
    for (size_t i = 0; found[i] != 0; ++i) {
        const attributes list = attributes_of(found[i]);
        rows.push_back(name_of(found[i]) + ' ' + text_attribute(list.get(), "devfs-path") + ' ' +
                       text_attribute(list.get(), "kernel-name") + ' ' +
                       std::to_string(attribute(list.get(), "blocksize").value_or(0)) + ' ' +
                       std::to_string(attribute(list.get(), "nblocks").value_or(0)));
    }
    return rows;
}

std::vector<std::string> volumes()
{
    std::vector<std::string> rows;
    const descriptors media = all_of(VS_MEDIA);
    for (size_t i = 0; media[i] != 0; ++i) {
        for (const auto &[kind, start, size] :
             {std::tuple(VS_PARTITION, "relsect", "nsectors"), std::tuple(VS_SLICE, "start", "size")}) {
            const descriptors found = associated(media[i], kind);
            for (size_t j = 0; found[j] != 0; ++j) {
                const attributes list = attributes_of(found[j]);
                const std::string name = name_of(found[j]);
                rows.push_back(name.substr(name.rfind('/') + 1) + ' ' +
                               std::to_string(attribute(list.get(), start).value()) + ' ' +
                               std::to_string(attribute(list.get(), size).value()));
            }
        }
    }
    return rows;
}

std::vector<std::string> tree_paths()
{
    std::vector<std::string> paths;
    const snapshot tree(ht_init("/", HT_SUBTREE | HT_PROPS));
    if (tree)
        walk(tree.get(), &paths);
    return paths;
}

std::string link_of(const std::string &path)
{
    std::array<char, 1024> target;
    const ssize_t length = devns_readlink(path.c_str(), target.data(), target.size());
    if (length < 0)
        return "errno " + std::to_string(errno);
    return {target.data(), static_cast<size_t>(length)};
}

} // namespace devices_test
