// SPDX-License-Identifier: MIT
#include "tools/machine/loaders.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "src/base/ascii.h"
#include "src/base/nodes.h"
#include "src/base/text.h"
#include "tools/machine/pathnodes.h"
#include "tools/machine/sysfs.h"

namespace tool {

namespace {

constexpr size_t mounts_limit = 1 << 24;

// The kernel writes blanks and backslashes in the names of folders as \040 and \134.
std::string unescaped(const std::string &text)
{
    const auto is_octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 3 < text.size() && is_octal(text[at + 1]) && is_octal(text[at + 2]) &&
            is_octal(text[at + 3])) {
            plain +=
                static_cast<char>((text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 + text[at + 3] - '0');
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

} // namespace

mounted_loaders::mounted_loaders()
{
    if (!has_devices())
        return;
    std::istringstream lines(files.text("/proc/self/mountinfo", mounts_limit).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string skipped;
        std::string root;
        std::string place;
        std::string type;
        std::string source;
        words >> skipped >> skipped >> skipped >> root >> place;
        while (words >> skipped && skipped != "-") {
        }
        words >> type >> source;
        const std::string devices = "/dev/";
        if (words && root == "/" && type == "vfat" && source.starts_with(devices))
            places[source.substr(devices.size())] = unescaped(place);
    }
}

std::optional<std::string> mounted_loaders::missing(const std::string &kernel_name,
                                                    const std::string &firmware_file) const
{
    const auto mounted = places.find(kernel_name);
    if (mounted == places.end())
        return std::nullopt;
    std::string folder = mounted->second == "/" ? "" : mounted->second;
    std::string rest = firmware_file;
    std::replace(rest.begin(), rest.end(), '\\', '/');
    std::istringstream parts(rest);
    for (std::string part; std::getline(parts, part, '/');) {
        if (part.empty())
            continue;
        const std::vector<std::string> names = files.names(folder);
        const auto found = std::find_if(names.begin(), names.end(),
                                        [&part](const std::string &name) { return ovra::alike(name, part); });
        if (names.empty())
            return std::nullopt; // it may be there
        if (found == names.end())
            return mounted->second + (rest.starts_with('/') ? "" : "/") + rest;
        folder += '/' + *found;
    }
    return std::nullopt;
}

std::optional<std::string> mounted_loaders::below_mount_point(const std::string &kernel_name,
                                                              const std::string &firmware_file) const
{
    const auto mounted = places.find(kernel_name);
    if (mounted == places.end() || mounted->second == "/")
        return std::nullopt;
    std::string front = mounted->second + '/';
    std::replace(front.begin(), front.end(), '/', '\\');
    if (!firmware_file.starts_with(front) || !missing(kernel_name, firmware_file))
        return std::nullopt;
    std::string rest = firmware_file.substr(front.size() - 1);
    return missing(kernel_name, rest) ? std::nullopt : std::optional(rest);
}

std::string file_in(byte_view path)
{
    std::string file;
    const std::vector<byte_view> nodes = instances_of(path).front();
    for (const byte_view node : nodes) {
        if (!is_file(node))
            continue;
        const byte_view text = node.subspan(sizeof(uefi_device_path_t));
        std::vector<CHAR16> units(text.size() / sizeof(CHAR16));
        if (!units.empty())
            memcpy(units.data(), text.data(), units.size() * sizeof(CHAR16));
        file += to_utf8(units);
    }
    return file;
}

} // namespace tool
