/* SPDX-License-Identifier: MIT */
/* One call of each runtime service. */
#ifndef TESTS_RT_SERVICES_H
#define TESTS_RT_SERVICES_H

#include <functional>
#include <vector>

#include "platform/include/devns.h"
#include "src/rt/rt.h"
#include "tests/rt/open_handle.h"

namespace ovra::test {

inline constexpr EFI_STATUS untouched = 0x1234567890;

// One call of each service with everything that it needs.
struct arguments {
    CHAR16 name[64] = {'A', 'b'};
    UINTN name_size = sizeof name;
    EFI_GUID guid = fakes::global_guid;
    UINT32 attributes = 0;
    UINT32 high_count = 0;
    UINTN data_size = 0;
    uint8_t data[16] = {};
    UINT64 max_storage = 0, remaining_storage = 0, max_size = 0;
    EFI_TIME time = {};
    EFI_TIME_CAPABILITIES capabilities = {};
    BOOLEAN enabled = B_FALSE, pending = B_FALSE;
    EFI_STATUS status = untouched;
};

struct service {
    const char *name;
    int command;
    size_t record_size;
    std::function<int(ovra_hdl_t, arguments &)> call;
};

inline const std::vector<service> &all_services()
{
    static const std::vector<service> all = {
        {"get_variable", 1, 56,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_get_variable(hdl, a.name, &a.guid, &a.attributes, &a.data_size, a.data, &a.status);
         }},
        {"get_next_variable_name", 2, 32,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status);
         }},
        {"set_variable", 3, 56,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_set_variable(hdl, a.name, &a.guid, 7, sizeof a.data, a.data, &a.status);
         }},
        {"query_variable_info", 4, 40,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_query_variable_info(hdl, 7, &a.max_storage, &a.remaining_storage, &a.max_size,
                                             &a.status);
         }},
        {"get_time", 5, 24,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_get_time(hdl, &a.time, &a.capabilities, &a.status);
         }},
        {"set_time", 6, 16,
         [](ovra_hdl_t hdl, arguments &a) { return ovra_set_time(hdl, &a.time, &a.status); }},
        {"get_wakeup_time", 7, 32,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_get_wakeup_time(hdl, &a.enabled, &a.pending, &a.time, &a.status);
         }},
        {"set_wakeup_time", 8, 24,
         [](ovra_hdl_t hdl, arguments &a) { return ovra_set_wakeup_time(hdl, B_TRUE, &a.time, &a.status); }},
        {"reset_system", 9, 32,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_reset_system(hdl, EFI_RESET_WARM, EFI_DEVICE_ERROR, 3, a.data);
         }},
        {"get_next_high_monotonic_count", 16, 16,
         [](ovra_hdl_t hdl, arguments &a) {
             return ovra_get_next_high_monotonic_count(hdl, &a.high_count, &a.status);
         }},
    };
    return all;
}

inline bool has_status(const service &one)
{
    return one.command != OVRA_RESET_SYSTEM;
}

} // namespace ovra::test

#endif
