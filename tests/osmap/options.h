/* SPDX-License-Identifier: MIT */
/* Load options in the in-memory driver. */
#ifndef TESTS_OSMAP_OPTIONS_H
#define TESTS_OSMAP_OPTIONS_H

#include "tests/fakes/driver.h"
#include "tests/support/bytes.h"

namespace ovra::test {

/* An option with this packed path, written as hex digits. */
inline void put_option(const char *name, const std::string &path, const EFI_GUID &vendor = fakes::global_guid)
{
    const bytes packed = from_hex(path);
    bytes option = from_hex("01 00 00 00  00 00  41 00 00 00");
    option[4] = static_cast<uint8_t>(packed.size());
    option[5] = static_cast<uint8_t>(packed.size() >> 8);
    option.insert(option.end(), packed.begin(), packed.end());
    fakes::put_variable(name, option, fakes::usual_attributes, vendor);
}

} // namespace ovra::test

#endif
