/* SPDX-License-Identifier: MIT */
/* What the tests of the boot manager share: handles, the bytes of its variables, and what it must say. */
#ifndef TESTS_BOOT_FIXTURE_H
#define TESTS_BOOT_FIXTURE_H

#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <ovra/ovra.h>

#include "platform/include/devns.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/rt/open_handle.h"
#include "tests/support/bytes.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/processor_time.h"
#include "tests/support/rows.h"
#include "tests/support/sweep.h"

namespace ovra::test {

/* What the boot manager says of a missing and of an unreadable order. */
inline constexpr char no_order[] = "BootOrder doesn't exist\n";
inline constexpr char unreadable[] = "unable to read BootOrder\n";

inline constexpr char one_two_three[] = "01 00 02 00 03 00";

/* The interface takes char * and changes nothing behind it: a literal shows that. */
inline char *arg(const char *text)
{
    return const_cast<char *>(text);
}

inline size_t tracked_blocks(ovra_hdl_t hdl)
{
    size_t count = 0;
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        count += hdl->memlist_addr[slot] ? 1 : 0;
    return count;
}

inline bool is_tracked(ovra_hdl_t hdl, const void *block)
{
    for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
        if (block && hdl->memlist_addr[slot] == block)
            return true;
    return false;
}

/* A handle in test-file mode, in a folder of its own, on a machine without runtime services. */
class file_fixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::set_absent(ENOENT);
        ASSERT_EQ(ovra_init(&hdl), 0);
    }
    void TearDown() override
    {
        if (hdl)
            ovra_fini(hdl);
        EXPECT_EQ(fakes::openings().size(), 0U) << "the driver was asked";
    }

    const environment files{"OVRA_TEST_FILE", ""};
    const temporary_directory folder;
    ovra_hdl_t hdl = nullptr;
};

/*
 * Calls `body` with the error messages on, where it must write exactly `text`, and off, where it must write
 * nothing. Traces are off.
 */
template <typename body_t>
void expect_errors(const std::string &text, const body_t &body)
{
    {
        const messages said(1, 0);
        body();
        EXPECT_EQ(said.text(), text);
    }
    const messages said(0, 0);
    body();
    EXPECT_EQ(said.text(), "") << "with the switch off";
}

/* The same for traces; the error messages do not bring them. */
template <typename body_t>
void expect_traces(const std::string &text, const body_t &body)
{
    {
        const messages said(0, 1);
        body();
        EXPECT_EQ(said.text(), text);
    }
    const messages said(1, 0);
    body();
    EXPECT_EQ(said.text(), "") << "with the switch off";
}

/* What firmware may answer in place of success: its errors, a warning, and what is no status at all. */
inline constexpr EFI_STATUS failures[] = {
    EFI_INVALID_PARAMETER,
    EFI_UNSUPPORTED,
    EFI_BUFFER_TOO_SMALL,
    EFI_DEVICE_ERROR,
    EFI_WRITE_PROTECTED,
    EFI_OUT_OF_RESOURCES,
    EFI_NOT_FOUND,
    EFI_ACCESS_DENIED,
    EFI_SECURITY_VIOLATION,
    EFI_ERROR_CODE(0),
    1,
    EFI_STATUS(INT64_MAX),
    -1,
};

/* A status as messages print it. */
inline std::string hex_status(EFI_STATUS status)
{
    char text[17];
    snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(status));
    return text;
}

inline bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline void append16(bytes *to, size_t value)
{
    to->push_back(static_cast<uint8_t>(value));
    to->push_back(static_cast<uint8_t>(value >> 8));
}

/* Units as they stand in a variable, without a terminator. */
inline bytes units(const std::u16string &text)
{
    bytes all;
    for (const char16_t unit : text)
        append16(&all, unit);
    return all;
}

/* A load option with the path length as it is told. */
inline bytes load_option(uint32_t attributes, size_t path_length, const bytes &behind)
{
    bytes option;
    append16(&option, attributes);
    append16(&option, attributes >> 16);
    append16(&option, path_length);
    return option + behind;
}

inline bytes load_option(uint32_t attributes, const std::u16string &description, const bytes &path,
                         const bytes &optdata = {})
{
    return load_option(attributes, path.size(), units(description) + bytes{0, 0} + path + optdata);
}

/* BootOrder, or any array of numbers. */
using numbers = std::vector<uint16_t>;
inline bytes order_bytes(const numbers &entries)
{
    bytes all;
    for (const uint16_t entry : entries)
        append16(&all, entry);
    return all;
}

inline void put_order(const numbers &entries)
{
    fakes::put_variable("BootOrder", order_bytes(entries));
}

/* BootOrder as it is in the store, in hex; "none" without one. */
inline std::string stored(const char *name)
{
    const auto data = fakes::variable(name);
    return data ? to_hex(*data) : "none";
}

inline std::string stored(const temporary_directory &folder, const char *name)
{
    const auto data = folder.read(name);
    return data ? to_hex(*data) : "none";
}

inline std::string hex_order(const numbers &entries)
{
    return to_hex(order_bytes(entries));
}

inline std::string boot_name(unsigned number)
{
    char name[16];
    snprintf(name, sizeof name, "Boot%04X", number);
    return name;
}

} // namespace ovra::test

#endif
