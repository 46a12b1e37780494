/* SPDX-License-Identifier: MIT */
/* Stored bytes, seen without being owned. */
#ifndef SRC_BASE_BYTES_H
#define SRC_BASE_BYTES_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace ovra {

static_assert(std::endian::native == std::endian::little, "stored records are read in place");

using byte_view = std::span<const uint8_t>;

/* The bytes of a record as it is stored. */
template <typename record>
byte_view bytes_of(const record &stored)
{
    static_assert(std::is_trivially_copyable_v<record> && std::has_unique_object_representations_v<record>);
    return {reinterpret_cast<const uint8_t *>(&stored), sizeof stored};
}

/* The bytes of UCS-2 text as they are stored. */
inline byte_view bytes_of_units(std::span<const uint16_t> units)
{
    return {reinterpret_cast<const uint8_t *>(units.data()), units.size_bytes()};
}

} // namespace ovra

#endif
