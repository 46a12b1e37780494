/* SPDX-License-Identifier: MIT */
// The state behind driver.h, shared by what sets it up and what serves from it.
#ifndef TESTS_FAKES_DRIVER_STATE_H
#define TESTS_FAKES_DRIVER_STATE_H

#include <cstring>
#include <list>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "tests/fakes/driver.h"

namespace fakes {

using variable_key = std::pair<std::u16string, std::string>; // name, the bytes of the GUID

inline variable_key key_of(const std::u16string &name, const EFI_GUID &guid)
{
    return {name, std::string(reinterpret_cast<const char *>(&guid), sizeof guid)};
}

struct stored {
    std::u16string name;
    EFI_GUID guid;
    uint32_t attributes;
    bytes data;
};

struct driver_state {
    std::list<stored> store; // in the order of enumeration
    std::map<variable_key, std::list<stored>::iterator> index;
    uint64_t store_size = 0;
    uint64_t store_capacity = UINT64_MAX;
    uint64_t single_capacity = UINT64_MAX;

    int absent = 0;
    int errno_of_close = 0;
    std::vector<rule> rules;
    std::optional<std::vector<enumeration_step>> script;
    size_t script_position = 0;
    bool repeat_last = false;

    EFI_TIME clock = {2026, 1, 2, 3, 4, 5, 0, 6, 0, 0, 0};
    EFI_TIME_CAPABILITIES capabilities = {1, 50000000, 0};
    fakes::alarm alarm;
    UINT32 high_count = 1;
    storage_info info;

    std::vector<request> requests;
    std::function<void(const request &)> hook;
    std::vector<opening> openings;
    std::set<int> open;
    int next_descriptor = 1000; // never given twice: use after close shows
    unsigned closings = 0;
    unsigned wrong_descriptors = 0;
    std::map<std::string, std::string> links;
};

/* The one of the process. */
driver_state *the_driver();

/* Takes a variable out of the store. */
void erase_variable(driver_state &driver,
                    std::map<variable_key, std::list<stored>::iterator>::iterator found);

/* A record of the caller's, which need not be aligned. */
template <typename record>
record copy_of(const void *from)
{
    record copy;
    memcpy(&copy, from, sizeof copy);
    return copy;
}

/* What a call hands over. */
request decode(int fd, int command, const void *record);

} // namespace fakes

#endif
