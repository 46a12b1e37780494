// SPDX-License-Identifier: MIT
// The in-memory driver, through the interface that the core uses.
#include <cerrno>
#include <fcntl.h>

#include <gtest/gtest.h>

#include "platform/include/devns.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"

using fakes::bytes;

namespace {

class fake_driver : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        ASSERT_EQ(ovra_init(&hdl), 0);
    }
    void TearDown() override
    {
        ovra_fini(hdl);
        EXPECT_EQ(fakes::open_descriptors(), 0U);
    }

    EFI_STATUS set(const fakes::var_name &name, bytes data, UINT32 attributes = 7)
    {
        EFI_GUID guid = fakes::global_guid;
        EFI_STATUS status = -1;
        fakes::var_name copy = name;
        EXPECT_EQ(ovra_set_variable(hdl, reinterpret_cast<CHAR16 *>(copy.data()), &guid, attributes,
                                    data.size(), data.data(), &status),
                  0);
        return status;
    }

    EFI_STATUS next(std::u16string &name, EFI_GUID &guid)
    {
        CHAR16 buffer[64] = {};
        std::copy(name.begin(), name.end(), buffer);
        UINTN size = sizeof buffer;
        EFI_STATUS status = -1;
        EXPECT_EQ(ovra_get_next_variable_name(hdl, &size, buffer, &guid, &status), 0);
        if (status == EFI_SUCCESS) {
            name.assign(buffer, buffer + size / 2 - 1);
            EXPECT_EQ(size, (name.size() + 1) * 2);
        }
        return status;
    }

    std::vector<std::u16string> names()
    {
        std::vector<std::u16string> all;
        std::u16string name;
        EFI_GUID guid = {};
        while (next(name, guid) == EFI_SUCCESS)
            all.push_back(name);
        return all;
    }

    ovra_hdl_t hdl = nullptr;
};

TEST_F(fake_driver, keeps_what_is_set)
{
    EXPECT_EQ(set("One", {1, 2, 3}), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("One"), (bytes{1, 2, 3}));
    EXPECT_EQ(fakes::variable_attributes("One"), 7U);
    EXPECT_EQ(fakes::variable("One", fakes::other_guid), std::nullopt);
    ASSERT_EQ(fakes::requests().size(), 1U);
    EXPECT_EQ(fakes::requests()[0].name, u"One");
    EXPECT_EQ(fakes::requests()[0].data, (bytes{1, 2, 3}));
    EXPECT_EQ(fakes::requests()[0].answer, EFI_SUCCESS);
}

TEST_F(fake_driver, follows_the_rules_of_the_firmware)
{
    EXPECT_EQ(set("", {1}), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set("One", {1}, 4), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set("One", {}), EFI_NOT_FOUND);
    EXPECT_EQ(set("One", {1}), EFI_SUCCESS);
    EXPECT_EQ(set("One", {2}, 3), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set("One", {2}, 7 | EFI_VARIABLE_APPEND_WRITE), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("One"), (bytes{1, 2}));
    fakes::set_capacity(4, 3);
    EXPECT_EQ(set("One", {1, 2, 3, 4}), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set("Two", {1, 2, 3}), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set("Two", {1, 2}), EFI_SUCCESS);
    EXPECT_EQ(set("One", {}), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("One"), std::nullopt);
    EXPECT_EQ(set("Two", {1}, 0), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable_count(), 0U);
}

TEST_F(fake_driver, enumerates_in_the_order_told)
{
    for (const char *name : {"A", "B", "C", "D"})
        fakes::put_variable(name, {1});
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"A", u"B", u"C", u"D"}));
    fakes::enumerate_first({"D", "B"});
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"D", u"B", u"A", u"C"}));
    fakes::put_variable("A", {2});
    fakes::remove_variable("D");
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"B", u"A", u"C"}));
    std::u16string unknown = u"D";
    EFI_GUID guid = fakes::global_guid;
    EXPECT_EQ(next(unknown, guid), EFI_INVALID_PARAMETER);
}

TEST_F(fake_driver, scripted_enumeration)
{
    fakes::script_enumeration({{.name = "A"},
                               {.status = EFI_DEVICE_ERROR},
                               {.name = "B", .guid = fakes::other_guid},
                               {.error = EIO}});
    std::u16string name;
    EFI_GUID guid = {};
    EXPECT_EQ(next(name, guid), EFI_SUCCESS);
    EXPECT_EQ(name, u"A");
    EXPECT_EQ(next(name, guid), EFI_DEVICE_ERROR);
    EXPECT_EQ(name, u"A");
    EXPECT_EQ(next(name, guid), EFI_SUCCESS);
    EXPECT_EQ(name, u"B");
    EXPECT_EQ(guid.Data1, fakes::other_guid.Data1);
    CHAR16 buffer[1] = {};
    UINTN size = sizeof buffer;
    EFI_STATUS status = 4711;
    errno = 0;
    EXPECT_EQ(ovra_get_next_variable_name(hdl, &size, buffer, &guid, &status), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(status, 4711);
    EXPECT_EQ(next(name, guid), EFI_NOT_FOUND);

    fakes::script_enumeration({{.name = "LongName"}, {.status = EFI_DEVICE_ERROR}}, true);
    size = sizeof buffer;
    EXPECT_EQ(ovra_get_next_variable_name(hdl, &size, buffer, &guid, &status), 0);
    EXPECT_EQ(status, EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 18U);
    EXPECT_EQ(next(name, guid), EFI_SUCCESS);
    EXPECT_EQ(name, u"LongName");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(next(name, guid), EFI_DEVICE_ERROR);
}

TEST_F(fake_driver, rules_count_the_calls_that_they_name)
{
    fakes::put_variable("A", {1});
    fakes::answer_variable(OVRA_SET_VARIABLE, "A", EFI_WRITE_PROTECTED, 1, 1);
    fakes::answer_command(OVRA_SET_VARIABLE, EFI_DEVICE_ERROR, 4);
    EXPECT_EQ(set("A", {2}), EFI_SUCCESS);
    EXPECT_EQ(set("B", {2}), EFI_SUCCESS);
    EXPECT_EQ(set("A", {3}), EFI_WRITE_PROTECTED);
    EXPECT_EQ(set("A", {4}), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("A"), (bytes{4}));
    EXPECT_EQ(set("A", {5}), EFI_DEVICE_ERROR);
    EXPECT_EQ(set("A", {5}), EFI_DEVICE_ERROR);
    EXPECT_EQ(fakes::variable("A"), (bytes{4}));
    fakes::fail_call(1, EINTR);
    UINT32 count = 0;
    EFI_STATUS status = EFI_SUCCESS;
    EXPECT_EQ(ovra_get_next_high_monotonic_count(hdl, &count, &status), 0);
    EXPECT_EQ(ovra_get_next_high_monotonic_count(hdl, &count, &status), -1);
    EXPECT_EQ(ovra_get_next_high_monotonic_count(hdl, &count, &status), 0);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(fakes::requests_of(OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT), 3U);
}

TEST_F(fake_driver, the_store_can_change_between_calls)
{
    fakes::before_each([](const fakes::request &seen) {
        if (seen.command == OVRA_SET_VARIABLE)
            fakes::put_variable("Other", {9});
    });
    EXPECT_EQ(set("A", {1}), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("Other"), (bytes{9}));
}

TEST_F(fake_driver, descriptors_are_watched)
{
    EXPECT_EQ(fakes::open_descriptors(), 1U);
    const int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    EXPECT_EQ(fakes::open_descriptors(), 2U);
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(fakes::closings(), 1U);
    EXPECT_EQ(devns_close(fd), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(fakes::wrong_descriptors(), 1U);
    fakes::set_absent(EACCES);
    EXPECT_EQ(devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR), -1);
    EXPECT_EQ(errno, EACCES);
    fakes::set_present();
    EXPECT_EQ(devns_open("/dev/other", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fakes::openings().size(), 4U);
}

TEST_F(fake_driver, links_are_read_unterminated_and_cut)
{
    fakes::put_link("/dev/dsk/x", "../../devices/y:a");
    char buffer[] = "########";
    EXPECT_EQ(devns_readlink("/dev/dsk/x", buffer, 5), 5);
    EXPECT_STREQ(buffer, "../..###");
    EXPECT_EQ(devns_readlink("/dev/dsk/y", buffer, 5), -1);
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
