/* SPDX-License-Identifier: MIT */
// Device paths between packed form and text, through libovra. No firmware is needed.
#ifndef OVRA_TOOLS_DEVICEPATHS_H
#define OVRA_TOOLS_DEVICEPATHS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool {

struct path_text {
    std::string device; // may be empty
    std::optional<std::string> file;
};

struct decoded_path {
    std::vector<path_text> instances;
    size_t bytes_behind_end = 0; // what no text shows
    bool ends_plainly = true;    // what no text shows either
    std::string error;           // why it cannot be shown as text; empty if it can
    std::string messages;        // what libovra said about that
};

class device_paths {
public:
    device_paths();
    ~device_paths();
    device_paths(const device_paths &) = delete;
    device_paths &operator=(const device_paths &) = delete;

    // Packs what a text says, of one instance, on which a file may stand. Throws a failure that points at the
    // node that cannot be packed as it was typed.
    bytes encode(const std::string &device, const std::optional<std::string> &file);
    // The path of a disk's slice or partition; `full`: behind the disk's hardware nodes.
    bytes encode_disk(const std::string &disk, const std::optional<std::string> &file, bool full);
    // All instances of a packed path, in texts that encode gives the same bytes for.
    decoded_path decode(byte_view path);

private:
    std::optional<bytes> try_encode(const std::string &device, const std::optional<std::string> &file,
                                    int flags);
    [[noreturn]] void point_at_failure(const std::string &text, const std::optional<std::string> &file);
    bytes pack(const std::string &text, const std::optional<std::string> &file);
    void require_the_same(const std::string &text, byte_view packed);
    decoded_path library_texts(byte_view path);
    bool come_back(const path_text &texts, byte_view nodes);
    std::string node_text(byte_view node);
    path_text exact_texts(const std::vector<byte_view> &nodes);
    int call(const std::function<int()> &function);

    ovra_hdl_t handle = nullptr;
    std::string messages;
};

// Bytes behind the last END node of which the text speaks: the first END-entire node, else the last at all.
size_t bytes_behind_end(byte_view packed);

// The nodes of each instance of a packed path, as far as they can be told.
std::vector<std::vector<byte_view>> instances_of(byte_view packed);

bool is_file(byte_view node);

// Whether a path ends in an END-entire node, and every END node is no more than its header.
bool ends_plainly(byte_view packed);

// Throws a failure when a path that was encoded has an END node before its last node.
void require_one_instance(byte_view encoded);

// Whether the library takes a text for the name of a device of the operating system.
bool is_device_name(const std::string &text);

// A text at the end of which a file may stand, as firmware writes it: HD(...)/\EFI\a.efi, also without the
// slash, or as other programs do: HD(...)/File(\EFI\a.efi).
path_text split_file(const std::string &text);

// The name of a file with the separators of firmware.
std::string firmware_file(std::string file);

// The path in `packed` with other device nodes, respectively another file, in its first instance. Every other
// byte stays, also of nodes that have no text. `nodes` is a packed path of just what is new. Throws a failure
// when the path is not well-formed.
bytes with_devices(byte_view packed, byte_view nodes);
bytes with_file(byte_view packed, byte_view nodes);

// One line to standard error, and what to do about it.
void warn(const std::string &what, const std::string &advice = {});

json as_json(const decoded_path &path);

// Rows with the texts of all instances.
std::vector<std::vector<std::string>> as_rows(const decoded_path &path);

} // namespace tool

#endif
