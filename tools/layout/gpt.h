/* SPDX-License-Identifier: MIT */
/* GUID partition tables made by hand: many of them at little cost, and such as no tool would write. */
#ifndef OVRA_TOOLS_LAYOUT_GPT_H
#define OVRA_TOOLS_LAYOUT_GPT_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/base/crc32.h"

namespace layout {

struct gpt_entry {
    unsigned number = 0; /* from 1 */
    std::uint64_t first = 0;
    std::uint64_t last = 0; /* the entry's own last block */
    std::string label = {}; /* ASCII */
};

/* What stands at the start and at the end of a disk. */
struct gpt_bytes {
    std::string head; /* protective MBR, header, entries */
    std::string tail; /* entries, header */
};

inline std::uint32_t crc32(const std::string &data)
{
    return ovra::crc32({reinterpret_cast<const std::uint8_t *>(data.data()), data.size()});
}

inline void put_number(std::string *data, std::size_t at, std::uint64_t value, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        (*data)[at + i] = static_cast<char>(value >> (8 * i) & 0xff);
}

/*
 * A table of `count` entries for a disk of `blocks` of `block` bytes, with both checksums right whatever the
 * entries say. The GUID of an entry is `seed` and its number, each in 8 bytes.
 */
inline gpt_bytes make_gpt(std::uint64_t blocks, const std::vector<gpt_entry> &entries, unsigned count = 128,
                          std::uint64_t seed = 1, std::size_t block = 512)
{
    constexpr std::size_t entry_size = 128;
    std::string table(count * entry_size, '\0');
    for (const gpt_entry &entry : entries) {
        const std::size_t at = (entry.number - 1) * entry_size;
        put_number(&table, at, 0x477284830fc63daf, 8); // type: Linux file system data
        put_number(&table, at + 8, 0xe47d47d8693d798e, 8);
        put_number(&table, at + 16, seed, 8);
        put_number(&table, at + 24, entry.number, 8);
        put_number(&table, at + 32, entry.first, 8);
        put_number(&table, at + 40, entry.last, 8);
        for (std::size_t i = 0; i < entry.label.size(); ++i)
            table[at + 56 + 2 * i] = entry.label[i];
    }
    const std::uint64_t table_blocks = (table.size() + block - 1) / block;
    const std::uint32_t table_sum = crc32(table);
    table.resize(table_blocks * block);
    const auto header = [&](std::uint64_t own, std::uint64_t other, std::uint64_t table_at) {
        std::string data(92, '\0');
        data.replace(0, 8, "EFI PART");
        put_number(&data, 8, 0x10000, 4); // revision
        put_number(&data, 12, data.size(), 4);
        put_number(&data, 24, own, 8);
        put_number(&data, 32, other, 8);
        put_number(&data, 40, 2 + table_blocks, 8); // the first usable block, and the last
        put_number(&data, 48, blocks - 2 - table_blocks, 8);
        put_number(&data, 56, seed, 8);
        put_number(&data, 72, table_at, 8);
        put_number(&data, 80, count, 4);
        put_number(&data, 84, entry_size, 4);
        put_number(&data, 88, table_sum, 4);
        put_number(&data, 16, crc32(data), 4);
        data.resize(block);
        return data;
    };
    std::string mbr(block, '\0');
    mbr[446 + 4] = '\xee';
    put_number(&mbr, 446 + 8, 1, 4);
    put_number(&mbr, 446 + 12, 0xffffffff, 4);
    put_number(&mbr, 510, 0xaa55, 2);
    return {mbr + header(1, blocks - 1, 2) + table, table + header(blocks - 1, 1, blocks - 1 - table_blocks)};
}

/* A sparse image that holds nothing but the table. */
inline void write_gpt(const std::filesystem::path &image, std::uint64_t blocks, const gpt_bytes &table,
                      std::size_t block = 512)
{
    std::ofstream stream(image, std::ios::binary | std::ios::trunc);
    stream << table.head;
    stream.seekp(static_cast<std::streamoff>(blocks * block - table.tail.size()));
    stream << table.tail;
    if (!stream.flush())
        throw std::runtime_error("cannot write " + image.string());
}

} // namespace layout

#endif
