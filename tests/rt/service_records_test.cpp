// SPDX-License-Identifier: MIT
// The records of the runtime services, byte for byte as the driver is given them.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/rt/services.h"
#include "tests/support/bytes.h"

using namespace ovra::test;

namespace {

class service_records : public open_handle {
protected:
    // The record of the one request made, from its byte `from` up to `to`: padding has no value.
    static std::string record(size_t from = 0, size_t to = SIZE_MAX)
    {
        EXPECT_EQ(fakes::requests().size(), 1U);
        if (fakes::requests().empty())
            return "";
        const bytes &all = fakes::requests().front().record;
        return to_hex(all.data() + from, std::min(to, all.size()) - from);
    }

    arguments a;
};

// What a field holds in a record: eight bytes, lowest first.
std::string field(uint64_t value)
{
    return to_hex(&value, sizeof value);
}

std::string field(const void *pointer)
{
    return field(reinterpret_cast<uint64_t>(pointer));
}

std::string fields(std::initializer_list<std::string> all)
{
    std::string text;
    for (const std::string &one : all)
        text += (text.empty() ? "" : " ") + one;
    return text;
}

TEST_F(service_records, each_has_its_command_and_the_size_of_its_record)
{
    for (const service &one : all_services()) {
        arguments fresh;
        fakes::forget_requests();
        EXPECT_EQ(one.call(hdl, fresh), 0) << one.name;
        ASSERT_EQ(fakes::requests().size(), 1U) << one.name;
        EXPECT_EQ(fakes::requests()[0].command, one.command) << one.name;
        EXPECT_EQ(fakes::requests()[0].record.size(), one.record_size) << one.name;
        EXPECT_EQ(fakes::requests()[0].fd, hdl->ovra_fd) << one.name;
    }
}

TEST_F(service_records, monotonic_count_is_command_16)
{
    EXPECT_EQ(ovra_get_next_high_monotonic_count(hdl, &a.high_count, &a.status), 0);
    EXPECT_EQ(fakes::requests()[0].command, 16);
}

TEST_F(service_records, get_variable_record)
{
    ASSERT_EQ(ovra_get_variable(hdl, a.name, &a.guid, &a.attributes, &a.data_size, a.data, &a.status), 0);
    EXPECT_EQ(record(), fields({field(a.name), field(&a.guid), field(&a.attributes), field(&a.data_size),
                                field(a.data), field(&a.status), field(6)}));
}

TEST_F(service_records, get_variable_passes_null_attributes_and_data_as_null)
{
    ASSERT_EQ(ovra_get_variable(hdl, a.name, &a.guid, nullptr, &a.data_size, nullptr, &a.status), 0);
    EXPECT_EQ(record(), fields({field(a.name), field(&a.guid), field(nullptr), field(&a.data_size),
                                field(nullptr), field(&a.status), field(6)}));
    EXPECT_EQ(fakes::requests()[0].attributes, std::nullopt);
    EXPECT_EQ(fakes::requests()[0].data_address, nullptr);
}

TEST_F(service_records, set_variable_record_points_at_copies_of_attributes_and_size)
{
    for (uint8_t i = 0; i < 5; ++i)
        a.data[i] = static_cast<uint8_t>(i + 1);
    ASSERT_EQ(ovra_set_variable(hdl, a.name, &a.guid, 0x07, 5, a.data, &a.status), 0);
    ASSERT_EQ(fakes::requests().size(), 1U);
    const fakes::request &seen = fakes::requests()[0];
    EXPECT_EQ(record(0, 16), fields({field(a.name), field(&a.guid)}));
    EXPECT_EQ(record(32), fields({field(a.data), field(&a.status), field(6)}));
    EXPECT_EQ(seen.attributes, 7U);
    EXPECT_EQ(seen.data_size, 5U);
    EXPECT_EQ(seen.data, (bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(memcmp(&*seen.guid, &fakes::global_guid, sizeof(EFI_GUID)), 0);
}

TEST_F(service_records, set_variable_passes_attributes_unchanged)
{
    for (const UINT32 attributes : {0U, 1U, 7U, 0x47U, 0x80000000U, 0xffffffffU}) {
        fakes::forget_requests();
        ASSERT_EQ(ovra_set_variable(hdl, a.name, &a.guid, attributes, 1, a.data, &a.status), 0);
        EXPECT_EQ(fakes::requests()[0].attributes, attributes);
    }
}

TEST_F(service_records, set_variable_of_size_0_passes_through_and_deletes)
{
    fakes::put_variable("Ab", {1, 2, 3});
    ASSERT_EQ(ovra_set_variable(hdl, a.name, &a.guid, 7, 0, nullptr, &a.status), 0);
    EXPECT_EQ(a.status, EFI_SUCCESS);
    EXPECT_EQ(fakes::requests()[0].data_size, 0U);
    EXPECT_EQ(fakes::requests()[0].data_address, nullptr);
    EXPECT_EQ(fakes::variable("Ab"), std::nullopt);
}

TEST_F(service_records, variable_name_size_counts_the_terminator)
{
    struct {
        const char16_t *name;
        UINTN size;
    } const cases[] = {{u"", 2}, {u"A", 4}, {u"Boot0001", 18}, {u"\u00e9\u4e2d", 6}};
    for (const auto &one : cases) {
        fakes::forget_requests();
        std::u16string name = one.name;
        auto *text = reinterpret_cast<CHAR16 *>(name.data());
        ASSERT_EQ(ovra_get_variable(hdl, text, &a.guid, nullptr, &a.data_size, nullptr, &a.status), 0);
        ASSERT_EQ(ovra_set_variable(hdl, text, &a.guid, 7, 0, nullptr, &a.status), 0);
        for (const fakes::request &seen : fakes::requests()) {
            EXPECT_EQ(seen.variable_name_size, one.size);
            EXPECT_EQ(to_hex(seen.name_bytes), to_hex(text, one.size));
        }
    }
}

TEST_F(service_records, variable_name_size_of_a_long_name)
{
    std::vector<CHAR16> name(100000, 'x');
    name.push_back(0);
    ASSERT_EQ(ovra_get_variable(hdl, name.data(), &a.guid, nullptr, &a.data_size, nullptr, &a.status), 0);
    EXPECT_EQ(fakes::requests()[0].variable_name_size, 200002U);
}

TEST_F(service_records, get_next_variable_name_record)
{
    ASSERT_EQ(ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.name_size), field(a.name), field(&a.guid), field(&a.status)}));
}

TEST_F(service_records, query_variable_info_record_holds_attributes_by_value)
{
    ASSERT_EQ(ovra_query_variable_info(hdl, 0xa1b2c3d4, &a.max_storage, &a.remaining_storage, &a.max_size,
                                       &a.status),
              0);
    EXPECT_EQ(record(0, 4), "d4 c3 b2 a1");
    EXPECT_EQ(record(8), fields({field(&a.max_storage), field(&a.remaining_storage), field(&a.max_size),
                                 field(&a.status)}));
}

TEST_F(service_records, get_time_record)
{
    ASSERT_EQ(ovra_get_time(hdl, &a.time, &a.capabilities, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.time), field(&a.capabilities), field(&a.status)}));
}

TEST_F(service_records, get_time_passes_null_capabilities_as_null)
{
    ASSERT_EQ(ovra_get_time(hdl, &a.time, nullptr, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.time), field(nullptr), field(&a.status)}));
}

TEST_F(service_records, set_time_record)
{
    ASSERT_EQ(ovra_set_time(hdl, &a.time, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.time), field(&a.status)}));
}

TEST_F(service_records, get_wakeup_time_record)
{
    ASSERT_EQ(ovra_get_wakeup_time(hdl, &a.enabled, &a.pending, &a.time, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.enabled), field(&a.pending), field(&a.time), field(&a.status)}));
}

TEST_F(service_records, set_wakeup_time_record_holds_enable_last_by_value)
{
    ASSERT_EQ(ovra_set_wakeup_time(hdl, B_TRUE, &a.time, &a.status), 0);
    EXPECT_EQ(record(0, 20), fields({field(&a.time), field(&a.status), "01 00 00 00"}));
    fakes::forget_requests();
    ASSERT_EQ(ovra_set_wakeup_time(hdl, B_FALSE, nullptr, &a.status), 0);
    EXPECT_EQ(record(0, 20), fields({field(nullptr), field(&a.status), "00 00 00 00"}));
}

TEST_F(service_records, reset_system_record_holds_status_and_type_by_value)
{
    for (const EFI_RESET_TYPE type : {EFI_RESET_COLD, EFI_RESET_WARM, EFI_RESET_SHUTDOWN}) {
        fakes::forget_requests();
        ASSERT_EQ(ovra_reset_system(hdl, type, EFI_DEVICE_ERROR, 3, a.data), 0);
        const uint32_t value = type;
        EXPECT_EQ(record(0, 28),
                  fields({field(3), "07 00 00 00 00 00 00 80", field(a.data), to_hex(&value, sizeof value)}));
    }
}

TEST_F(service_records, reset_system_without_data)
{
    ASSERT_EQ(ovra_reset_system(hdl, EFI_RESET_COLD, EFI_SUCCESS, 0, nullptr), 0);
    const fakes::request &seen = fakes::requests()[0];
    EXPECT_EQ(seen.reset_type, EFI_RESET_COLD);
    EXPECT_EQ(seen.reset_status, EFI_SUCCESS);
    EXPECT_EQ(seen.data_size, 0U);
    EXPECT_EQ(seen.data_address, nullptr);
}

TEST_F(service_records, high_monotonic_count_record)
{
    ASSERT_EQ(ovra_get_next_high_monotonic_count(hdl, &a.high_count, &a.status), 0);
    EXPECT_EQ(record(), fields({field(&a.high_count), field(&a.status)}));
}

} // namespace
