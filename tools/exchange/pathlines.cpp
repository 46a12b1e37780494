// SPDX-License-Identifier: MIT
#include "tools/exchange/pathlines.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>

#include "src/base/nodes.h"
#include "tools/machine/pathnodes.h"
#include "tools/paste/pasted.h"
#include "tools/text/failure.h"
#include "tools/text/nodeparse.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

constexpr const char *first_path = "path";
constexpr const char *path_bytes = "path-bytes";
constexpr const char *next_instance = "instance";
constexpr const char *next_path = "further-path";
constexpr const char *file_key = "file";
constexpr const char *no_path = "none";

using path_packer = std::function<bytes(const std::string &device, const std::optional<std::string> &file)>;

std::string file_of_line(const text_line &line)
{
    if (line.value.empty())
        throw line_error(line.number, "the name of a file is needed");
    if (line.value.find('"') != std::string::npos) // no file system of firmware has it in names
        throw line_error(line.number, "a file is named without quotes");
    return firmware_file(line.value);
}

// The path of lines, of which each but `file` begins an instance or a path.
bytes packed(const text_lines &lines, const path_packer &pack)
{
    bytes all;
    for (auto at = lines.begin(); at != lines.end();) {
        const text_line &device = *at++;
        std::optional<std::string> file;
        if (at != lines.end() && at->key == file_key)
            file = file_of_line(*at++);
        try {
            const bytes part = pack(device.value, file);
            all.insert(all.end(), part.begin(), part.end());
        } catch (const failure &reason) {
            throw line_error(device.number, reason.advice.empty() ? std::string(reason.what())
                                                                  : reason.what() + ('\n' + reason.advice));
        }
        if (at != lines.end() && at->key == next_instance) // in place of the END node of a whole path
            all[all.size() - sizeof(uefi_device_path_t) + offsetof(uefi_device_path_t, subtype)] =
                UEFI_END_INSTANCE;
    }
    return all;
}

// Whether a value stays the same when the text is read: blanks around it do not count.
bool stays(const std::string &value)
{
    return printable(value) == value && !value.starts_with(' ') && !value.ends_with(' ');
}

// Nothing when the texts do not say all of the path.
std::optional<text_lines> texts_of(const decoded_path &path, const char *key)
{
    if (!path.error.empty() || !path.ends_plainly || path.bytes_after_end != 0)
        return std::nullopt;
    text_lines lines;
    for (const path_text &instance : path.instances) {
        const bool says_something = !instance.device.empty() || instance.file;
        if (!says_something || !stays(instance.device) || (instance.file && !stays(*instance.file)))
            return std::nullopt;
        lines.push_back({lines.empty() ? key : next_instance, instance.device});
        if (instance.file)
            lines.push_back({file_key, *instance.file});
    }
    return lines;
}

std::optional<text_lines> texts_of(byte_view path, device_paths &paths)
{
    const decoded_path decoded = paths.decode(path);
    std::optional<text_lines> lines = texts_of(decoded, first_path);
    for (const decoded_path &further : decoded.further) {
        const auto more = texts_of(further, next_path);
        if (!lines || !more)
            return std::nullopt;
        lines->insert(lines->end(), more->begin(), more->end());
    }
    return lines;
}

bytes pack_any(device_paths &paths, const std::string &device, const std::optional<std::string> &file)
{
    if (device.empty() || is_device_name(device))
        return paths.encode(device, file);
    try {
        const pasted_path pasted = pack_pasted(paths, device, file, device);
        for (const std::string &each : pasted.assumed)
            warn(printable(each));
        for (const std::string &each : pasted.decided)
            fprintf(stderr, "%s.\n", printable(each).c_str());
        return pasted.packed;
    } catch (const unclear_node &why) {
        throw failure(why.what());
    }
}

} // namespace

bool is_key_of_path(const std::string &key)
{
    static constexpr const char *keys[] = {first_path, path_bytes, next_instance, next_path, file_key};
    return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

text_lines path_lines_of(byte_view path, device_paths &paths)
{
    if (path.empty())
        return {{first_path, no_path}};
    const auto lines = texts_of(path, paths);
    try {
        if (lines && std::ranges::equal(
                         packed(*lines, [&paths](const auto &device,
                                                 const auto &file) { return paths.encode(device, file); }),
                         path))
            return *lines;
    } catch (const line_error &) { // it has no text then
    }
    return {{path_bytes, hex(path)}};
}

bytes path_of(const text_lines &lines, device_paths &paths)
{
    const text_line &first = lines.front();
    if (first.key == path_bytes || (first.key == first_path && first.value == no_path)) {
        if (lines.size() > 1)
            throw line_error(lines[1].number, "nothing of a path follows " + first.key + " = " +
                                                  (first.key == first_path ? no_path : "..."));
        const auto data = first.key == first_path ? bytes{} : parse_hex(first.value);
        if (!data)
            throw line_error(first.number, "pairs of hexadecimal digits are needed");
        return *data;
    }
    if (first.key != first_path)
        throw line_error(first.number, first.key + " stands after path");
    for (auto at = lines.begin() + 1; at != lines.end(); ++at) {
        if (at->key == first_path || at->key == path_bytes)
            throw line_error(at->number, "the option has a path already; another one is further-path");
        if (at->key == file_key && std::prev(at)->key == file_key)
            throw line_error(at->number, "the path has a file already");
    }
    return packed(lines,
                  [&paths](const auto &device, const auto &file) { return pack_any(paths, device, file); });
}

} // namespace tool
