// SPDX-License-Identifier: MIT
#include "tools/machine/devicepaths.h"

#include <algorithm>
#include <cstdlib>

#include "src/base/nodes.h"
#include "tools/machine/capture.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"
#include "tools/text/nodetext.h"
#include "tools/text/rawtext.h"

namespace tool {

namespace {

constexpr const char *test_files = "OVRA_TEST_FILE";

// The library cuts the length of a name that is too long for a node to the 16 bits that a node has for it,
// and its conversion leaves out some characters.
void require_room_for(const std::optional<std::string> &file)
{
    constexpr size_t most = (UINT16_MAX - sizeof(uefi_device_path_t)) / sizeof(CHAR16) - 1;
    constexpr size_t shown = 40;
    const auto name = to_ucs2(file.value_or(""));
    if (!name)
        throw failure("the file " + in_quotes(*file) + " cannot be packed",
                      "It is no UTF-8 text of characters up to U+FFFF, which is what a node holds.");
    if (name->size() - 1 > most)
        throw failure("the file " + in_quotes(to_utf8(std::span(*name).first(shown)) + "...") +
                          " cannot be packed",
                      format("It has %zu characters; a node holds %zu.", name->size() - 1, most));
}

std::string cannot_be_packed(size_t at, const std::string &node)
{
    return format("node %zu of the path cannot be packed: ", at) +
           (node.empty() ? "it is empty" : in_quotes(node));
}

std::string packed_as(const std::string &node)
{
    try {
        return text_to_pack(node);
    } catch (const unclear_node &) {
        return node;
    }
}

// A path of some nodes.
bytes alone(byte_view nodes)
{
    bytes path(nodes.begin(), nodes.end());
    const byte_view end = ovra::bytes_of(ovra::end_entire);
    path.insert(path.end(), end.begin(), end.end());
    return path;
}

std::string without_slash(const std::string &text)
{
    return text.starts_with('/') ? text.substr(1) : text;
}

} // namespace

device_paths::device_paths()
{
    // A handle opens the firmware unless the library is told to use test files. Paths need neither, and must
    // work where there is no firmware: the variable exists only while the handle is made.
    const bool was_set = getenv(test_files) != nullptr;
    if (!was_set)
        setenv(test_files, "", 1);
    const int result = call([this] { return ovra_init(&handle); });
    if (!was_set)
        unsetenv(test_files);
    if (result != 0)
        throw std::bad_alloc();
}

device_paths::~device_paths()
{
    ovra_fini(handle);
}

int device_paths::call(const std::function<int()> &function)
{
    called done = call_library(function);
    messages = std::move(done.messages);
    return done.result;
}

std::optional<bytes> device_paths::try_encode(const std::string &device,
                                              const std::optional<std::string> &file, int flags)
{
    std::string device_text = device;
    std::string file_text = file.value_or("");
    ovra_path_t instance = {device_text.data(), file ? file_text.data() : nullptr};
    ovra_path_t *paths[] = {&instance, nullptr};
    ovra_epath_t packed = nullptr;
    int size = 0;
    const int result = call([&] { return ovra_epath_encode(handle, paths, flags, &packed, &size); });
    if (result != 0 || !packed)
        return std::nullopt;
    bytes path(packed, packed + size);
    memlist_free(handle, packed); // of a text the block is not the handle's, and is just freed
    return path;
}

// A text says what it packs to, node by node. Throws a failure at a node that does not.
bytes device_paths::pack(const std::string &text, const std::optional<std::string> &file)
{
    std::string to_pack;
    size_t at = 0;
    for (const auto [begin, end] : nodes_of(text)) {
        ++at;
        const std::string node = text.substr(begin, end - begin);
        try {
            to_pack += '/' + text_to_pack(node);
        } catch (const unclear_node &why) {
            // The library's own reason says more.
            if (end == begin || !try_encode('/' + node, std::nullopt, 0))
                point_at_failure(text, file);
            throw failure(cannot_be_packed(at, node), pointer_at(text, {begin, end}) + '\n' + why.what());
        }
    }
    const auto path = try_encode(to_pack, file, 0);
    if (!path)
        point_at_failure(text, file);
    return *path;
}

// Whether the library reads back what was packed: the last guard against a text that says something else.
void device_paths::require_the_same(const std::string &text, byte_view packed)
{
    const std::vector<byte_view> nodes = instances_of(packed).at(0);
    size_t at = 0;
    for (const auto [begin, end] : nodes_of(text)) {
        const byte_view bytes_of_node = nodes.at(at++);
        const std::string node = text.substr(begin, end - begin);
        if (is_raw(text_to_pack(node)))
            continue;
        const decoded_path printed = library_texts(alone(bytes_of_node));
        const std::string found = printed.error.empty() ? without_slash(printed.instances.at(0).device) : "";
        if (!says_the_same(node, found))
            throw failure(cannot_be_packed(at, node), pointer_at(text, {begin, end}) +
                                                          "\nIt would be read back as " + printable(found) +
                                                          '.');
    }
}

bytes device_paths::encode(const std::string &device, const std::optional<std::string> &file)
{
    require_room_for(file);
    if (device.empty() && !file)
        throw failure("a device path is needed");
    if (is_device_name(device)) {
        const auto path = try_encode(device, file, 0);
        if (!path)
            point_at_failure(device, file);
        return *path;
    }
    bytes path = pack(device, file);
    require_one_instance(path);
    require_the_same(device, path);
    return path;
}

bytes device_paths::encode_disk(const std::string &disk, const std::optional<std::string> &file, bool full)
{
    require_room_for(file);
    const auto path = try_encode(disk, file, full ? 1 : 0);
    const std::string said = messages;
    if (!path && full && try_encode(disk, file, 0))
        throw failure(
            "the disk " + in_quotes(disk) + " has no full form",
            "The machine does not tell by which hardware firmware finds it. Without --full the path is the "
            "short form, which firmware finds on any disk.",
            said);
    if (!path)
        throw failure("cannot make a path to the disk " + in_quotes(disk), "'ovra disks' shows the disks.",
                      said);
    return *path;
}

void device_paths::point_at_failure(const std::string &text, const std::optional<std::string> &file)
{
    const std::string said = messages;
    const std::vector<text_range> nodes = nodes_of(text);
    const bool is_name = is_device_name(text); // which has no nodes
    for (size_t at = 0; !is_name && at < nodes.size(); ++at) {
        const auto [begin, end] = nodes[at];
        // An empty node is what a second slash makes.
        const std::string node = text.substr(begin, end - begin);
        if (!try_encode(node.empty() ? "//" : '/' + packed_as(node), std::nullopt, 0))
            throw failure(cannot_be_packed(at + 1, node), pointer_at(text, {begin, end}), messages);
    }
    if (!is_name && file)
        throw failure("the file " + in_quotes(*file) + " cannot be packed", {}, said);
    throw failure("the path " + in_quotes(text) + " cannot be packed", {}, said);
}

decoded_path device_paths::library_texts(byte_view path)
{
    bytes copy(path.begin(), path.end());
    ovra_path_t **paths = nullptr;
    decoded_path result;
    const int status = call([&] {
        return ovra_epath_decode_to_uefi(handle, copy.data(), static_cast<int>(copy.size()), &paths);
    });
    if (status != 0) {
        result.error = path_error(path).value_or("it has a node of a type that has no text");
        result.messages = messages;
        return result;
    }
    if (!paths) {
        result.error = path.empty() ? "it is empty" : path_error(path).value_or("it has no END node");
        return result;
    }
    for (ovra_path_t **instance = paths; *instance; ++instance) {
        path_text text;
        if ((*instance)->device_path)
            text.device = (*instance)->device_path;
        if ((*instance)->file_path)
            text.file = (*instance)->file_path;
        result.instances.push_back(std::move(text));
    }
    free_dpath(handle, paths);
    return result;
}

bool device_paths::come_back(const path_text &texts, byte_view nodes)
{
    // What is shown is escaped, and what is typed is split and takes the separators of firmware.
    // A blank at the end of a line is not seen, and not copied from a terminal.
    const auto is_seen = [](const std::string &text) {
        return printable(text) == text && !text.ends_with(' ');
    };
    if (!is_seen(texts.device) || split_file(texts.device).file || texts.file == "" ||
        (texts.file && (!is_seen(*texts.file) || firmware_file(*texts.file) != *texts.file)))
        return false;
    try {
        const bytes packed = pack(texts.device, texts.file);
        const bytes wanted = alone(nodes);
        return packed == wanted;
    } catch (const failure &) {
        return false;
    }
}

// The library's text where it says all of the node, else one that does.
std::string device_paths::node_text(byte_view node)
{
    const decoded_path printed = library_texts(alone(node));
    std::vector<std::string> texts = fuller_texts(node);
    if (printed.error.empty())
        texts.insert(texts.begin(), without_slash(printed.instances.at(0).device));
    for (const std::string &text : texts) {
        if (come_back({text, std::nullopt}, node))
            return text;
    }
    return raw_text(node);
}

path_text device_paths::exact_texts(const std::vector<byte_view> &nodes)
{
    path_text exact;
    for (const byte_view &node : nodes) {
        if (is_file(node) && &node == &nodes.back()) {
            exact.file = library_texts(alone(node)).instances.at(0).file;
            if (come_back({"", exact.file}, node))
                return exact;
            exact.file.reset();
        }
        const bool first_media = node[0] == UEFI_MEDIA && exact.device.empty();
        exact.device += (first_media ? "" : "/") + node_text(node);
    }
    return exact;
}

decoded_path device_paths::decode(byte_view path)
{
    decoded_path result = library_texts(path);
    if (!result.error.empty())
        return result;
    const auto instances = instances_of(path);
    for (size_t at = 0; at < result.instances.size(); ++at) {
        path_text &texts = result.instances[at];
        bytes nodes;
        for (const byte_view node : instances.at(at))
            nodes.insert(nodes.end(), node.begin(), node.end());
        if (!come_back(texts, nodes))
            texts = exact_texts(instances[at]);
    }
    result.bytes_after_end = bytes_after_end(path);
    result.ends_plainly = ends_plainly(path);
    return result;
}

} // namespace tool
