// SPDX-License-Identifier: MIT
#include "platform/machine/contents.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "platform/machine/failure.h"
#include "platform/machine/filesystem.h"
#include "src/base/crc32.h"

namespace machine {

namespace {

// Tables and the superblocks of file systems are within this much of a disk's beginning or its end.
constexpr std::uint64_t looked_at = 262144;

constexpr std::uint32_t largest_header = 4096;
constexpr std::uint32_t smallest_header = 92;
constexpr std::string_view header_mark = "EFI PART";

class device {
public:
    device(int opened, std::uint64_t bytes) : fd(opened), size(bytes) {}

    // Fewer bytes than asked for where the device ends.
    [[nodiscard]] std::vector<unsigned char> at(std::uint64_t offset, std::size_t count) const
    {
        std::vector<unsigned char> data(count);
        const ssize_t got = offset < size ? pread(fd, data.data(), count, static_cast<off_t>(offset)) : 0;
        if (got < 0)
            throw read_failure{errno};
        data.resize(static_cast<std::size_t>(got));
        return data;
    }

    [[nodiscard]] bool is_blank() const
    {
        const std::uint64_t tail = size > looked_at ? size - looked_at : 0;
        return is_zero(at(0, looked_at)) && is_zero(at(tail, looked_at));
    }

    const int fd;
    const std::uint64_t size;

private:
    static bool is_zero(const std::vector<unsigned char> &data)
    {
        return std::ranges::all_of(data, [](unsigned char byte) { return byte == 0; });
    }
};

std::uint32_t little_endian(const std::vector<unsigned char> &data, std::size_t at)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < sizeof value; ++i)
        value |= static_cast<std::uint32_t>(data[at + i]) << (8 * i);
    return value;
}

bool has_mark(const std::vector<unsigned char> &header)
{
    return header.size() >= smallest_header &&
           std::ranges::equal(
               std::string_view(reinterpret_cast<const char *>(header.data()), header_mark.size()),
               header_mark);
}

// A header of a GPT with its own checksum (UEFI 5.3.2).
bool is_good_header(std::vector<unsigned char> header)
{
    static constexpr std::size_t size_at = 12;
    static constexpr std::size_t sum_at = 16;
    if (!has_mark(header))
        return false;
    const std::uint32_t size = little_endian(header, size_at);
    const std::uint32_t sum = little_endian(header, sum_at);
    if (size < smallest_header || size > header.size() || size > largest_header)
        return false;
    std::fill_n(header.begin() + sum_at, sizeof sum, static_cast<unsigned char>(0));
    return ovra::crc32(ovra::byte_view(header).first(size)) == sum;
}

contents without_entries(const machine_root &root, const disk &disk, const device &on, const medium &table)
{
    contents found;
    found.kind = contents_kind::unknown;
    if (on.is_blank()) {
        found.kind = contents_kind::blank;
    } else if (!table.other.empty()) {
        found.kind = contents_kind::other_table;
        found.detail = table.other;
    } else if (auto system = read_file_system(root, disk, {0, 0, on.size / disk.block_size, {}, {}});
               !system.type.empty()) {
        found.kind = contents_kind::file_system;
        found.detail = std::move(system.type);
    } else if (has_mark(on.at(disk.block_size, disk.block_size)) ||
               has_mark(on.at(on.size - disk.block_size, disk.block_size))) {
        found.kind = contents_kind::damaged_gpt;
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
        if (table.table == table_kind::mbr)
            return found;
        const owned_fd opened = open_disk(root, disk);
        if (!opened && errno != ENOENT)
            throw read_failure{errno};
        const auto size = opened ? device_size(opened.get()) : std::nullopt;
        if (!size || *size < disk.block_size)
            return {};
        const device on(opened.get(), *size);
        if (table.table == table_kind::none)
            return without_entries(root, disk, on, table);
        found.first_damaged = !is_good_header(on.at(disk.block_size, disk.block_size));
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
