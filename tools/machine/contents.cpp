// SPDX-License-Identifier: MIT
#include "tools/machine/contents.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <sys/stat.h>

#include "platform/include/devns.h"
#include "platform/include/kvlist.h"
#include "platform/include/volset.h"
#include "tools/machine/machinefiles.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

struct contents_releasing {
    void operator()(vs_descriptor_t *all) const { vs_free_descriptors(all); }
    void operator()(kvlist_t *list) const { kvlist_free(list); }
    void operator()(char *text) const { free(text); }
};
using value_list = std::unique_ptr<kvlist_t, contents_releasing>;

[[noreturn]] void fail_to_read(int error)
{
    throw failure(std::string("cannot read a disk: ") + strerror(error));
}

std::string text_attribute(kvlist_t *list, const char *name)
{
    uint8_t *array = nullptr;
    unsigned count = 0;
    if (kvlist_lookup_uint8_array(list, name, &array, &count) != 0 || count == 0)
        return {};
    const auto *text = reinterpret_cast<const char *>(array);
    return {text, strnlen(text, count)};
}

uint32_t number_attribute(kvlist_t *list, const char *name)
{
    uint32_t number = 0;
    return kvlist_lookup_uint32(list, name, &number) == 0 ? number : 0;
}

value_list values_of(vs_descriptor_t of, kvlist_t *(*get)(vs_descriptor_t, int *))
{
    int error = 0;
    value_list list(get(of, &error));
    if (!list)
        fail_to_read(error);
    return list;
}

bool is_special(const std::string &kernel_name)
{
    struct stat file = {};
    return lstat(machine_files().on_host("/dev/" + kernel_name).c_str(), &file) == 0 &&
           !S_ISREG(file.st_mode) && !S_ISBLK(file.st_mode);
}

drive_contents contents_of(vs_descriptor_t drive, bool reads_media)
{
    drive_contents found;
    const value_list attributes = values_of(drive, vs_get_attributes);
    found.metadata = text_attribute(attributes.get(), "metadata");
    std::istringstream members(text_attribute(attributes.get(), "members"));
    for (std::string member; members >> member;)
        found.members.push_back(member);
    if (!reads_media)
        return found;
    const value_list contents = values_of(drive, vs_get_contents);
    found.kind = text_attribute(contents.get(), "kind");
    found.detail = text_attribute(contents.get(), "detail");
    found.first_header_damaged = number_attribute(contents.get(), "first-header-damaged") != 0;
    found.is_short = number_attribute(contents.get(), "short") != 0;
    found.has_more = number_attribute(contents.get(), "more-entries") != 0;
    found.error = static_cast<int>(number_attribute(contents.get(), "error"));
    found.is_special_file =
        found.kind == "absent" && is_special(text_attribute(attributes.get(), "kernel-name"));
    return found;
}

} // namespace

std::string drive_contents::text() const
{
    if (error == ELOOP) // links in place of devices are not followed
        return "cannot be read: its file is a link";
    if (error != 0)
        return std::string("cannot be read: ") + strerror(error);
    if (kind == "gpt")
        return first_header_damaged ? "GPT, its first header damaged" : "GPT";
    if (kind == "mbr")
        return "MBR";
    if (kind == "damaged-gpt")
        return detail.empty() ? "GPT, both headers damaged" : "GPT, damaged: " + printable(detail);
    if (kind == "unused-gpt")
        return "GPT, which Linux does not use: " + printable(detail);
    if (kind == "other-table")
        return "partition table of kind " + printable(detail) + ", which is not used";
    if (kind == "file-system")
        return printable(detail) + " file system without a partition table";
    if (kind == "blank")
        return "blank";
    if (is_special_file)
        return "cannot be read: its file is neither a device nor an image";
    return kind == "unknown" ? "no partition table" : "no medium that can be read";
}

std::string drive_contents::doubt() const
{
    if (is_short)
        return "its device or image ends before the disk does";
    if (kind == "damaged-gpt" || kind == "unused-gpt")
        return text();
    return has_more ? text() + " with entries that make no sense" : "";
}

bool is_made_by_the_kernel(const std::string &path)
{
    static constexpr const char *buses[] = {"/dm@", "/loop@", "/nbd@", "/virtual@"};
    return std::any_of(std::begin(buses), std::end(buses),
                       [&](const char *bus) { return path.starts_with(bus); });
}

bool drive_contents::is_no_disk(const std::string &path) const
{
    static constexpr const char *tables[] = {"gpt", "mbr", "damaged-gpt", "unused-gpt", "other-table"};
    return error == 0 && is_made_by_the_kernel(path) &&
           std::find(std::begin(tables), std::end(tables), kind) == std::end(tables);
}

std::string drive_contents::members_text() const
{
    std::string all;
    for (size_t at = 0; at < members.size(); ++at)
        all += (at == 0 ? "" : at + 1 == members.size() ? " and " : ", ") + printable(members[at]);
    return all;
}

std::unordered_map<std::string, drive_contents> read_contents(bool reads_media)
{
    int error = 0;
    const std::unique_ptr<vs_descriptor_t, contents_releasing> drives(
        vs_get_descriptors(VS_DRIVE, nullptr, &error));
    if (!drives)
        fail_to_read(error);
    std::unordered_map<std::string, drive_contents> found;
    for (const vs_descriptor_t *at = drives.get(); *at; ++at) {
        const std::unique_ptr<char, contents_releasing> name(vs_get_name(*at, &error));
        if (!name)
            fail_to_read(error);
        found.emplace(name.get(), contents_of(*at, reads_media));
    }
    return found;
}

one_moment::one_moment()
{
    devns_begin();
}

one_moment::~one_moment()
{
    devns_end();
}

} // namespace tool
