// SPDX-License-Identifier: MIT
#include "platform/machine/contents.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "platform/machine/failure.h"
#include "platform/machine/filesystem.h"
#include "platform/machine/gptcopies.h"

namespace machine {

namespace {

// Tables and the superblocks of file systems are within this much of a disk's beginning or its end.
constexpr std::uint64_t looked_at = 262144;

bool is_zero(const std::vector<unsigned char> &data)
{
    return std::ranges::all_of(data, [](unsigned char byte) { return byte == 0; });
}

bool is_blank(const device_bytes &on)
{
    const std::uint64_t tail = on.size > looked_at ? on.size - looked_at : 0;
    return is_zero(on.at(0, looked_at)) && is_zero(on.at(tail, looked_at));
}

void put_reason(const device_bytes &on, const gpt_copies &copies, std::uint32_t block_size, contents *found)
{
    gpt_reason reason = why_no_slices(on, copies, block_size);
    found->kind = reason.is_damaged ? contents_kind::damaged_gpt : contents_kind::unused_gpt;
    found->detail = std::move(reason.text);
}

contents without_entries(const machine_root &root, const disk &disk, const device_bytes &on,
                         const medium &table)
{
    contents found;
    found.kind = contents_kind::unknown;
    if (is_blank(on)) {
        found.kind = contents_kind::blank;
        return found;
    }
    const gpt_copies copies = read_gpt_copies(on, disk.block_size);
    // What was on the disk before it had this MBR may still look like a file system.
    const bool is_gpt = is_left_to_gpt(on);
    if (!is_gpt && !table.other.empty()) {
        found.kind = contents_kind::other_table;
        found.detail = table.other;
        return found;
    }
    auto system =
        is_gpt ? file_system{} : read_file_system(root, disk, {0, 0, on.size / disk.block_size, {}, {}});
    if (!system.type.empty()) {
        found.kind = contents_kind::file_system;
        found.detail = std::move(system.type);
    } else if (is_gpt || copies.has_mark()) {
        put_reason(on, copies, disk.block_size, &found);
    }
    return found;
}

} // namespace

contents read_contents(const machine_root &root, const disk &disk, const medium &table)
{
    contents found;
    try {
        if (table.error != 0)
            throw read_failure{table.error};
        found.kind = table.table == table_kind::mbr ? contents_kind::mbr : contents_kind::gpt;
        found.has_more = table.has_more;
        const owned_fd opened = open_disk(root, disk);
        if (!opened && errno != ENOENT)
            throw read_failure{errno};
        const auto size = opened ? device_size(opened.get()) : std::nullopt;
        if (!size || *size < disk.block_size)
            return {};
        const device_bytes on(opened.get(), *size);
        if (table.table == table_kind::none) {
            found = without_entries(root, disk, on, table);
        } else if (table.table == table_kind::gpt) {
            const gpt_copies copies = read_gpt_copies(on, disk.block_size);
            found.first_damaged = !copies.first.is_good_header;
            const gpt_copy &used = copies.first.is_good() ? copies.first : copies.last;
            found.has_more = found.has_more || used.used > table.partitions.size();
        }
        found.is_short = *size / disk.block_size < disk.blocks;
    } catch (const read_failure &failure) {
        if (is_shortage(failure.error))
            throw;
        found = {};
        // A drive without a medium, such as a card reader without a card.
        if (failure.error != ENOMEDIUM)
            found.error = failure.error;
    }
    return found;
}

} // namespace machine
