/* SPDX-License-Identifier: MIT */
// Device paths between packed form and text, through libovra. No firmware is needed.
#ifndef OVRA_TOOLS_DEVICEPATHS_H
#define OVRA_TOOLS_DEVICEPATHS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "tools/text/pathtext.h"
#include "tools/text/text.h"

namespace tool {

class device_paths {
public:
    device_paths();
    ~device_paths();
    device_paths(const device_paths &) = delete;
    device_paths &operator=(const device_paths &) = delete;

    // Packs what a text says, of one instance, on which a file may stand. Throws a failure that points at the
    // node that cannot be packed as it was typed.
    bytes encode(const std::string &device, const std::optional<std::string> &file);
    // The path of a disk's slice or partition, in the short form.
    bytes encode_disk(const std::string &disk, const std::optional<std::string> &file);
    // All instances of a packed path, and of those that follow it, in texts that encode gives the same bytes
    // for.
    decoded_path decode(byte_view path);

private:
    std::optional<bytes> try_encode(const std::string &device, const std::optional<std::string> &file);
    [[noreturn]] void point_at_failure(const std::string &text, const std::optional<std::string> &file);
    bytes pack(const std::string &text, const std::optional<std::string> &file);
    void require_the_same(const std::string &text, byte_view packed);
    decoded_path library_texts(byte_view path);
    bool come_back(const path_text &texts, byte_view nodes);
    std::optional<std::string> library_text(byte_view node);
    std::string node_text(byte_view node);
    std::string uefi_text_of(const std::vector<byte_view> &nodes);
    decoded_path decode_one(byte_view path);
    path_text exact_texts(const std::vector<byte_view> &nodes);
    int call(const std::function<int()> &function);

    ovra_hdl_t handle = nullptr;
    std::string messages;
};

} // namespace tool

#endif
