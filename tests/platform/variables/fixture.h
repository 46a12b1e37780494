/* SPDX-License-Identifier: MIT */
/* A machine in a folder, and the variable services that are open on it. */
#ifndef TESTS_PLATFORM_VARIABLES_FIXTURE_H
#define TESTS_PLATFORM_VARIABLES_FIXTURE_H

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"

namespace platform_test {

class variables : public testing::Test {
protected:
    machine_folder disk;
    device opened;

    EFI_STATUS set(std::u16string_view name, UINT32 attributes, std::string_view data,
                   const EFI_GUID &guid = global_guid) const
    {
        return platform_test::set_variable(opened.fd(), name, attributes, data, guid);
    }
    value get(std::u16string_view name, const EFI_GUID &guid = global_guid) const
    {
        return platform_test::get_variable(opened.fd(), name, guid);
    }

    struct space {
        EFI_STATUS status = not_answered;
        UINT64 store = 0;
        UINT64 remaining = 0;
        UINT64 variable = 0;
    };
    [[nodiscard]] space query(UINT32 attributes = 7) const
    {
        space found;
        ovra_query_variable_info_args_t args = {attributes, &found.store, &found.remaining, &found.variable,
                                                &found.status};
        EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_QUERY_VARIABLE_INFO, &args), 0);
        return found;
    }

    /* The whole store, to show that a refused request changed nothing. */
    [[nodiscard]] std::string whole_store() const
    {
        std::string text;
        for (const std::string &name : disk.names())
            text += name + "=" + disk.contents(disk.store() / name) + "\n";
        return text;
    }
};

} // namespace platform_test

#endif
