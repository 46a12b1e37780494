// SPDX-License-Identifier: MIT
// Every allocation of every call is refused once, and once together with all that follow it. The call must
// say so, keep no memory and no file descriptor, and leave the store as it was.
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"
#include "tests/support/refused_new.h"

namespace {

using namespace platform_test;

class refused_memory : public testing::Test {
protected:
    machine_folder disk;
    device opened;
    EFI_STATUS status = not_answered;
    EFI_GUID guid = global_guid;
    std::vector<CHAR16> name = ucs2(u"A name that is not short");
    std::string data = "a value that does not fit into a string object itself";
    std::string buffer = std::string(1000, '\0');

    [[nodiscard]] std::string everything() const
    {
        std::string text;
        for (const auto &entry : fs::recursive_directory_iterator(disk.root())) {
            if (entry.is_regular_file())
                text += entry.path().string() + "=" + disk.contents(entry.path()) + "\n";
        }
        return text;
    }

    int call(int command, void *record) const { return devns_ioctl(opened.fd(), command, record); }

    int set(UINT32 attributes, UINTN size)
    {
        ovra_variable_args_t args = {
            name.data(), &guid, &attributes, &size, data.data(), &status, name.size() * sizeof(CHAR16)};
        return call(OVRA_SET_VARIABLE, &args);
    }

    // `prepare` makes the state before `body`, which returns the library's result. Each refusal must give -1
    // and ENOMEM; the last run, without a refusal, `expected`.
    void sweep(const std::function<void()> &prepare, const std::function<int()> &body, EFI_STATUS expected)
    {
        std::string before;
        int result = 0;
        int error = 0;
        ovra::test::for_each_refused_new(
            [&] {
                prepare();
                before = everything();
                status = not_answered;
            },
            [&] {
                result = body();
                error = errno;
            },
            [&](long n, bool refused) {
                EXPECT_EQ(result, refused ? -1 : 0) << n;
                EXPECT_EQ(status, refused ? not_answered : expected) << n;
                EXPECT_LT(n, 1000);
                if (refused) {
                    EXPECT_EQ(error, ENOMEM) << n;
                    EXPECT_EQ(everything(), before) << n;
                }
            });
    }

    std::function<void()> nothing = [] {};
    std::function<void()> with_variable = [this] {
        disk.put_file(disk.file("A name that is not short"),
                      in_attributes(7) + "the old value, which is long as well");
    };
    std::function<void()> without_variable = [this] { fs::remove(disk.file("A name that is not short")); };
};

TEST_F(refused_memory, open)
{
    sweep(
        nothing,
        [this] {
            int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
            status = fd < 0 ? not_answered : EFI_SUCCESS;
            return fd < 0 ? -1 : devns_close(fd);
        },
        EFI_SUCCESS);
}

TEST_F(refused_memory, get_variable)
{
    sweep(
        with_variable,
        [this] {
            UINTN size = buffer.size();
            ovra_variable_args_t args = {
                name.data(), &guid, nullptr, &size, buffer.data(), &status, name.size() * sizeof(CHAR16)};
            return call(OVRA_GET_VARIABLE, &args);
        },
        EFI_SUCCESS);
}

TEST_F(refused_memory, set_variable_anew)
{
    sweep(
        without_variable, [this] { return set(7, data.size()); }, EFI_SUCCESS);
}

TEST_F(refused_memory, set_variable_again)
{
    sweep(
        with_variable, [this] { return set(7, data.size()); }, EFI_SUCCESS);
}

TEST_F(refused_memory, append_to_variable)
{
    sweep(
        with_variable, [this] { return set(0x47, data.size()); }, EFI_SUCCESS);
}

TEST_F(refused_memory, delete_variable)
{
    sweep(
        with_variable, [this] { return set(7, 0); }, EFI_SUCCESS);
}

TEST_F(refused_memory, first_and_next_variable)
{
    with_variable();
    disk.put("Another name that is not short", "data");
    for (int i = 0; i < 20; ++i) // more walks than a file descriptor keeps: a new one replaces another
        EXPECT_EQ(platform_test::walk().next(opened.fd()), EFI_SUCCESS);
    for (const char16_t *previous : {u"", u"A name that is not short"}) {
        sweep(
            nothing,
            [this, previous] {
                CHAR16 text[64] = {};
                std::ranges::copy(std::u16string_view(previous), text);
                UINTN size = sizeof text;
                EFI_GUID vendor = global_guid;
                ovra_get_next_variable_name_args_t args = {&size, text, &vendor, &status};
                return call(OVRA_GET_NEXT_VARIABLE_NAME, &args);
            },
            EFI_SUCCESS);
    }
}

TEST_F(refused_memory, names_of_variables)
{
    with_variable();
    sweep(
        nothing,
        [this] {
            char *names = devns_variable_names(opened.fd());
            const int result = names != nullptr ? 0 : -1;
            const int error = errno;
            free(names);
            errno = error;
            return result;
        },
        not_answered);
}

TEST_F(refused_memory, query_variable_info)
{
    with_variable();
    sweep(
        nothing,
        [this] {
            UINT64 numbers[3] = {};
            ovra_query_variable_info_args_t args = {7, &numbers[0], &numbers[1], &numbers[2], &status};
            return call(OVRA_QUERY_VARIABLE_INFO, &args);
        },
        EFI_SUCCESS);
}

TEST_F(refused_memory, time_and_count)
{
    disk.put_file(disk.state("time-offset"), "1 2 0 0\n");
    disk.put_file(disk.state("wakeup"), "1 2024 1 1 0 0 0 0 0 0\n");
    EFI_TIME time = {};
    time.year = 2024;
    time.month = time.day = 1;
    sweep(
        nothing,
        [&] {
            EFI_TIME now = {};
            ovra_get_time_args_t args = {&now, nullptr, &status};
            return call(OVRA_GET_TIME, &args);
        },
        EFI_SUCCESS);
    sweep(
        nothing,
        [&] {
            ovra_set_time_args_t args = {&time, &status};
            return call(OVRA_SET_TIME, &args);
        },
        EFI_SUCCESS);
    sweep(
        nothing,
        [&] {
            BOOLEAN enabled = B_FALSE;
            BOOLEAN pending = B_FALSE;
            EFI_TIME found = {};
            ovra_get_wakeup_time_args_t args = {&enabled, &pending, &found, &status};
            return call(OVRA_GET_WAKEUP_TIME, &args);
        },
        EFI_SUCCESS);
    sweep(
        nothing,
        [&] {
            ovra_set_wakeup_time_args_t args = {&time, &status, B_TRUE};
            return call(OVRA_SET_WAKEUP_TIME, &args);
        },
        EFI_SUCCESS);
    sweep(
        nothing,
        [&] {
            UINT32 count = 0;
            ovra_get_next_high_monotonic_count_args_t args = {&count, &status};
            return call(OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args);
        },
        EFI_SUCCESS);
}

TEST_F(refused_memory, reset)
{
    disk.put("Boot0001", in_attributes(1) + std::string("\4\0d\0\0\0\x7f\xff\4\0", 10));
    disk.put("BootOrder", std::string("\1\0", 2));
    sweep([this] { disk.put("BootNext", std::string("\1\0", 2)); },
          [this] {
              ovra_reset_system_args_t args = {};
              int result = call(OVRA_RESET_SYSTEM, &args);
              if (result == 0)
                  status = EFI_SUCCESS;
              return result;
          },
          EFI_SUCCESS);
}

} // namespace
