// SPDX-License-Identifier: MIT
#include "platform/machine/picture.h"

#include <algorithm>
#include <cinttypes>

#include "platform/machine/debug.h"
#include "platform/machine/failure.h"
#include "platform/machine/shared.h"
#include "platform/machine/sysfs.h"

namespace machine {

namespace {

// A GPT has no more entries.
constexpr std::uint64_t largest_volume_number = most_gpt_entries - 1;

} // namespace

std::optional<volume_name> parse_volume_name(std::string_view text)
{
    const std::size_t letter = text.find_last_of("sp");
    if (letter == std::string_view::npos)
        return std::nullopt;
    const auto number = parse_number(text.substr(letter + 1), 10);
    // A name has a number in its shortest form.
    if (!number || text.substr(letter + 1) != std::to_string(*number))
        return std::nullopt;
    if (*number > largest_volume_number) {
        debug("%.*s: no volume has a number beyond %" PRIu64, static_cast<int>(text.size()), text.data(),
              largest_volume_number);
        return std::nullopt;
    }
    return volume_name{std::string(text.substr(0, letter)),
                       text[letter] == 's' ? table_kind::gpt : table_kind::mbr,
                       static_cast<unsigned>(*number)};
}

picture::picture() : root(open_root())
{
    if (!root.folder)
        throw read_failure{errno};
    devices = read_device_tree(root);
    for (std::size_t i = 0; i < devices.disks.size(); ++i)
        by_name.emplace(devices.disks[i].name(), i);
    media = decltype(media)(devices.disks.size());
}

picture::~picture()
{
    for (const auto &read : media)
        delete read.load();
}

std::shared_ptr<picture> picture::read()
{
    thread_picture &mine = *common_state().of_this_thread();
    if (mine.depth == 0)
        return std::make_shared<picture>();
    if (mine.kept == nullptr)
        mine.kept = new std::shared_ptr<picture>(std::make_shared<picture>());
    return *mine.kept;
}

const medium &picture::medium_of(std::size_t disk)
{
    const medium *known = media[disk].load();
    if (known == nullptr) {
        auto found = std::make_unique<const medium>(read_medium(root, devices.disks[disk]));
        // Another thread may have read it meanwhile: the first result stays.
        if (media[disk].compare_exchange_strong(known, found.get()))
            known = found.release();
    }
    return *known;
}

transport picture::transport_of(std::size_t disk) const
{
    return read_transport(sysfs(root.folder.get()), devices.disks[disk].place);
}

contents picture::contents_of(std::size_t disk)
{
    return read_contents(root, devices.disks[disk], medium_of(disk));
}

std::size_t picture::find_disk(std::string_view name) const
{
    const auto found = by_name.find(name);
    return found != by_name.end() ? found->second : devices.disks.size();
}

unsigned volume_number(table_kind table, const partition &part)
{
    return table == table_kind::gpt ? part.number - 1 : part.number;
}

const partition *find_partition(const medium &medium, const volume_name &name)
{
    if (medium.table != name.table)
        return nullptr;
    for (const partition &part : medium.partitions) {
        if (volume_number(medium.table, part) == name.number)
            return &part;
    }
    return nullptr;
}

// Slices have the letters from a on, partitions those from q on. Higher numbers have the number itself.
static std::string minor_name(const volume_name &name)
{
    const bool slice = name.table == table_kind::gpt;
    const unsigned letters = slice ? 'q' - 'a' : 'z' + 1 - 'q';
    if (name.number < letters)
        return {static_cast<char>((slice ? 'a' : 'q') + name.number)};
    return (slice ? "s" : "p") + std::to_string(name.number);
}

std::optional<std::string> device_link(std::string_view volume)
{
    const auto name = parse_volume_name(volume);
    if (!name)
        return std::nullopt;
    const auto seen = picture::read();
    const std::size_t place = seen->find_disk(name->disk);
    if (place == seen->tree().disks.size())
        return std::nullopt;
    const medium &medium = seen->medium_of(place);
    if (medium.error != 0)
        throw read_failure{medium.error};
    if (find_partition(medium, *name) == nullptr)
        return std::nullopt;
    const std::size_t node = seen->tree().disks[place].node;
    return "../../devices" + seen->tree().path_of(node) + ":" + minor_name(*name);
}

} // namespace machine
