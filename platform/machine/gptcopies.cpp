// SPDX-License-Identifier: MIT
#include "platform/machine/gptcopies.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include <unistd.h>

#include "platform/machine/bootrecord.h"
#include "platform/machine/failure.h"
#include "src/base/crc32.h"

namespace machine {

namespace {

constexpr std::uint32_t smallest_header = 92;
constexpr std::uint32_t largest_header = 4096;
constexpr std::string_view header_mark = "EFI PART";
constexpr std::uint32_t read_entry_size = 128; // by libblkid and the kernel; UEFI allows more
constexpr std::uint64_t most_entry_bytes = 8 << 20;
constexpr std::uint64_t first_block = 1;

constexpr std::size_t size_at = 12;
constexpr std::size_t sum_at = 16;
constexpr std::size_t own_block_at = 24;
constexpr std::size_t last_usable_at = 48;
constexpr std::size_t entries_at = 72;
constexpr std::size_t count_at = 80;
constexpr std::size_t entry_size_at = 84;
constexpr std::size_t entries_sum_at = 88;

bool is_marked(const std::vector<unsigned char> &header)
{
    return header.size() >= smallest_header &&
           std::equal(header_mark.begin(), header_mark.end(), header.begin(),
                      [](char mark, unsigned char byte) { return static_cast<unsigned char>(mark) == byte; });
}

// With its mark, its own checksum and its own place.
bool is_good_header(std::vector<unsigned char> header, std::uint64_t place)
{
    const std::uint32_t size = little_endian(header, size_at);
    const std::uint32_t sum = little_endian(header, sum_at);
    if (size < smallest_header || size > header.size() || size > largest_header ||
        little_endian64(header, own_block_at) != place)
        return false;
    std::fill_n(header.begin() + sum_at, sizeof sum, static_cast<unsigned char>(0));
    return ovra::crc32(ovra::byte_view(header).first(size)) == sum;
}

// An entry without a type is not used.
std::uint32_t used_entries(const std::vector<unsigned char> &entries, std::uint32_t entry_size)
{
    constexpr std::size_t type_size = 16;
    std::uint32_t used = 0;
    for (std::size_t at = 0; at + type_size <= entries.size(); at += entry_size) {
        const auto type = entries.begin() + static_cast<std::ptrdiff_t>(at);
        used += std::any_of(type, type + type_size, [](unsigned char byte) { return byte != 0; }) ? 1 : 0;
    }
    return used;
}

} // namespace

std::vector<unsigned char> device_bytes::at(std::uint64_t offset, std::size_t count) const
{
    std::vector<unsigned char> data(offset < size ? std::min<std::uint64_t>(count, size - offset) : 0);
    const ssize_t got = data.empty() ? 0 : pread(fd, data.data(), data.size(), static_cast<off_t>(offset));
    if (got < 0)
        throw read_failure{errno};
    data.resize(static_cast<std::size_t>(got));
    return data;
}

gpt_copy read_gpt_copy(const device_bytes &device, std::uint64_t place, std::uint32_t block_size)
{
    gpt_copy found;
    const std::vector<unsigned char> header = device.at(place * block_size, block_size);
    found.has_mark = is_marked(header);
    found.is_good_header = found.has_mark && is_good_header(header, place);
    if (!found.is_good_header)
        return found;
    const std::uint64_t blocks = device.size / block_size;
    const std::uint64_t start = little_endian64(header, entries_at);
    found.entry_size = little_endian(header, entry_size_at);
    const std::uint64_t bytes = std::uint64_t{little_endian(header, count_at)} * found.entry_size;
    found.is_beyond = little_endian64(header, last_usable_at) >= blocks || start >= blocks;
    if (found.is_beyond || found.entry_size < read_entry_size || bytes > most_entry_bytes)
        return found;
    const std::vector<unsigned char> entries = device.at(start * block_size, bytes);
    found.are_good_entries =
        entries.size() == bytes && ovra::crc32(entries) == little_endian(header, entries_sum_at);
    if (found.are_good_entries)
        found.used = used_entries(entries, found.entry_size);
    return found;
}

gpt_copies read_gpt_copies(const device_bytes &device, std::uint32_t block_size)
{
    const std::uint64_t blocks = device.size / block_size;
    gpt_copies found;
    found.first = read_gpt_copy(device, first_block, block_size);
    if (blocks > first_block + 1)
        found.last = read_gpt_copy(device, blocks - 1, block_size);
    return found;
}

bool is_left_to_gpt(const device_bytes &device)
{
    return is_protective(entries_of(device.at(0, record_size)));
}

gpt_reason why_no_slices(const device_bytes &device, const gpt_copies &copies, std::uint32_t block_size)
{
    constexpr std::uint32_t block_sizes[] = {512, 1024, 2048, 4096};
    const gpt_copy &seen = copies.first.is_good_header ? copies.first : copies.last;
    if (seen.is_good()) {
        if (seen.entry_size != read_entry_size)
            return {false, "entries of " + std::to_string(seen.entry_size) + " bytes"};
        if (!is_left_to_gpt(device))
            return {false, "no protective MBR"};
    }
    for (const std::uint32_t other : block_sizes) {
        if (other != block_size && read_gpt_copy(device, first_block, other).is_good_header)
            return {false, "blocks of " + std::to_string(other) + " bytes"};
    }
    if (!copies.has_mark())
        return {true, "protective MBR alone"};
    if (seen.is_beyond)
        return {true, "for a larger disk"};
    return {true, seen.is_good_header ? "entries damaged" : ""};
}

} // namespace machine
