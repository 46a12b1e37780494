/* SPDX-License-Identifier: MIT */
/* The checksum of UEFI's tables and of its key options (ISO 3309). */
#ifndef SRC_BASE_CRC32_H
#define SRC_BASE_CRC32_H

#include <array>

#include "src/base/bytes.h"

namespace ovra {

inline uint32_t crc32(byte_view data)
{
    static constexpr std::array<uint32_t, 256> steps = [] {
        constexpr uint32_t polynomial = 0xedb88320;
        std::array<uint32_t, 256> all = {};
        for (uint32_t at = 0; at < all.size(); ++at) {
            uint32_t value = at;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 1) != 0 ? value >> 1 ^ polynomial : value >> 1;
            all[at] = value;
        }
        return all;
    }();
    uint32_t value = UINT32_MAX;
    for (const uint8_t byte : data)
        value = steps[(value ^ byte) & 0xff] ^ value >> 8;
    return ~value;
}

} // namespace ovra

#endif
