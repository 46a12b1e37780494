// SPDX-License-Identifier: MIT
#include "tools/text/pathtext.h"

#include <algorithm>
#include <string_view>

#include "src/base/device_name.h"

namespace tool {

bool is_device_name(const std::string &text)
{
    return ovra::device_text_of(text) != ovra::device_text::nodes;
}

path_text split_file(const std::string &text)
{
    constexpr std::string_view keyword = "/File("; // as other programs write it
    const size_t named = text.find(keyword);
    if (named != std::string::npos && named != 0 && text.back() == ')' &&
        text.size() > named + keyword.size() + 1)
        return {text.substr(0, named),
                text.substr(named + keyword.size(), text.size() - named - keyword.size() - 1)};
    const size_t close = text.find(")\\");
    const size_t slash = text.find("/\\");
    if (close < slash)
        return {text.substr(0, close + 1), text.substr(close + 1)};
    if (slash != std::string::npos && slash != 0)
        return {text.substr(0, slash), text.substr(slash + 1)};
    return {text, std::nullopt};
}

std::string firmware_file(std::string file)
{
    std::replace(file.begin(), file.end(), '/', '\\');
    return file;
}

std::vector<text_range> nodes_of(const std::string &text)
{
    std::vector<text_range> nodes;
    for (size_t at = 0; at < text.size();) {
        const size_t begin = std::min(text.find_first_not_of('/', at), text.size());
        const size_t end = std::min(text.find('/', begin), text.size());
        nodes.push_back({begin, end});
        at = end + 1;
    }
    return nodes;
}

std::string pointer_at(const std::string &text, text_range part)
{
    const auto [begin, end] = part;
    const std::string mark(std::max<size_t>(columns(printable(text.substr(begin, end - begin))), 1), '^');
    return printable(text) + '\n' + std::string(columns(printable(text.substr(0, begin))), ' ') + mark;
}

namespace {

template <typename object>
void put_texts(object &to, const decoded_path &path)
{
    if (!path.error.empty()) {
        to.member("instances", nullptr);
        to.member("path_error", path.error);
        return;
    }
    to.list_of("instances", path.instances, [](auto &of, const path_text &instance) {
        of.member("device_path", instance.device);
        of.member("file_path", instance.file);
        if (!instance.uefi.empty())
            of.member("uefi_text", instance.uefi);
    });
    if (!path.further.empty())
        to.list_of("further_paths", path.further,
                   [](auto &of, const decoded_path &next) { put_texts(of, next); });
}

} // namespace

json as_json(const decoded_path &path)
{
    json members;
    json_value to(&members);
    put_texts(to, path);
    return members;
}

void put_members(json_members &to, const decoded_path &path)
{
    put_texts(to, path);
}

std::vector<std::vector<std::string>> as_rows(const decoded_path &path)
{
    if (!path.error.empty())
        return {{"Device path", "(has no text: " + path.error + ")"}};
    std::vector<std::vector<std::string>> rows;
    for (const path_text &instance : path.instances) {
        rows.push_back({"Device path", instance.device.empty() ? "none" : printable(instance.device)});
        if (instance.file)
            rows.push_back({"File path", printable(*instance.file)});
        if (!instance.uefi.empty())
            rows.push_back({"Text in UEFI", printable(instance.uefi)});
    }
    for (const decoded_path &next : path.further) {
        auto more = as_rows(next);
        if (!more.empty())
            more.front().front() = "Further path";
        rows.insert(rows.end(), more.begin(), more.end());
    }
    return rows;
}

} // namespace tool
