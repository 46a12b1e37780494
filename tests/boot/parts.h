/* SPDX-License-Identifier: MIT */
/* A load option as ovra_bootopt_get splits it. */
#ifndef TESTS_BOOT_PARTS_H
#define TESTS_BOOT_PARTS_H

#include "tests/boot/fixture.h"

namespace ovra::test {

// What an output holds as long as nothing was written there.
inline char untouched_block[1];
inline constexpr int untouched_path_len = -77;
inline constexpr uint32_t untouched_attributes = 0xabababab;
inline constexpr size_t untouched_size = 0x7777777777;

struct parts {
    int result = 0;
    ovra_epath_t path = reinterpret_cast<uint8_t *>(untouched_block);
    int path_len = untouched_path_len;
    char *desc = untouched_block;
    uint32_t attributes = untouched_attributes;
    void *optdata = untouched_block;
    size_t optdata_len = untouched_size;

    bool blocks_untouched() const
    {
        return static_cast<void *>(path) == untouched_block && desc == untouched_block &&
               optdata == untouched_block && optdata_len == untouched_size;
    }
    bool untouched() const
    {
        return blocks_untouched() && path_len == untouched_path_len && attributes == untouched_attributes;
    }
    std::string hex_path() const { return to_hex(path, static_cast<size_t>(path_len)); }
    std::string hex_optdata() const { return to_hex(optdata, optdata_len); }
};

inline parts get(ovra_hdl_t hdl, const char *name = "Boot0001")
{
    parts all;
    all.result = ovra_bootopt_get(hdl, arg(name), &all.path, &all.path_len, &all.desc, &all.attributes,
                                  &all.optdata, &all.optdata_len);
    return all;
}

inline int get_nothing(ovra_hdl_t hdl, const char *name = "Boot0001")
{
    return ovra_bootopt_get(hdl, arg(name), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

} // namespace ovra::test

#endif
