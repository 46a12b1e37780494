// SPDX-License-Identifier: MIT
// From packed paths to text.
#include <algorithm>

#include "tools/machine/devicepaths.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"
#include "tools/text/nodetext.h"
#include "tools/text/rawtext.h"
#include "tools/text/uefitext.h"

namespace tool {

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

// Of a node, without a slash; nothing when the library has none.
std::optional<std::string> device_paths::library_text(byte_view node)
{
    const decoded_path printed = library_texts(with_end(node));
    if (!printed.error.empty())
        return std::nullopt;
    const std::string &text = printed.instances.at(0).device;
    return text.starts_with('/') ? text.substr(1) : text;
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
        const bytes wanted = with_end(nodes);
        return packed == wanted;
    } catch (const failure &) {
        return false;
    }
}

// The library's text where it says all of the node, else one that does.
std::string device_paths::node_text(byte_view node)
{
    std::vector<std::string> texts = fuller_texts(node);
    if (const auto printed = library_text(node))
        texts.insert(texts.begin(), *printed);
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
            exact.file = library_texts(with_end(node)).instances.at(0).file;
            if (come_back({"", exact.file}, node))
                return exact;
            exact.file.reset();
        }
        const bool first_media = node[0] == UEFI_MEDIA && exact.device.empty();
        exact.device += (first_media ? "" : "/") + node_text(node);
    }
    return exact;
}

// What the UEFI specification calls an instance, where that says more of a node than its bytes.
std::string device_paths::uefi_text_of(const std::vector<byte_view> &nodes)
{
    if (std::none_of(nodes.begin(), nodes.end(), [](byte_view node) { return uefi_text(node).has_value(); }))
        return {};
    bool says_more = false;
    std::string all;
    for (const byte_view &node : nodes) {
        std::string text;
        if (is_file(node)) {
            text = library_texts(with_end(node)).instances.at(0).file.value_or("");
        } else {
            const auto named = uefi_text(node);
            text = node_text(node);
            if (named && is_raw(text)) {
                text = *named;
                says_more = true;
            }
        }
        all += (all.empty() ? "" : "/") + text;
    }
    return says_more ? all : std::string();
}

decoded_path device_paths::decode_one(byte_view path)
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
        texts.uefi = uefi_text_of(instances[at]);
    }
    result.bytes_after_end = bytes_after_end(path);
    result.ends_plainly = ends_plainly(path);
    return result;
}

namespace {

// Whether bytes behind an END node are another path. A lone END node is none.
bool is_path(byte_view rest)
{
    return !path_error(rest) && !first_instance_of(rest).empty();
}

} // namespace

decoded_path device_paths::decode(byte_view path)
{
    decoded_path result = decode_one(path);
    if (!result.error.empty() || result.bytes_after_end == 0)
        return result;
    // An option's path may be a list of several, one after another.
    const std::vector<byte_view> all = paths_of(path);
    for (auto next = all.begin() + 1; next < all.end() && is_path(*next); ++next) {
        decoded_path further = decode_one(*next);
        if (!further.error.empty())
            break;
        result.bytes_after_end -= next->size();
        result.ends_plainly = result.ends_plainly && further.ends_plainly;
        result.further.push_back(std::move(further));
    }
    return result;
}

} // namespace tool
