// SPDX-License-Identifier: MIT
// The names of all variables, given at once.
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

namespace {

using namespace platform_test;

using file_names = std::multiset<std::string>;

const std::string of_global = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";

// Nothing after a failure, with errno.
std::optional<file_names> all_names_of(int fd)
{
    struct freeing {
        void operator()(char *block) const { free(block); }
    };
    errno = 0;
    const std::unique_ptr<char, freeing> block(devns_variable_names(fd));
    if (!block)
        return std::nullopt;
    file_names all;
    for (const char *at = block.get(); *at != '\0'; at += std::string(at).size() + 1)
        all.insert(at);
    return all;
}

TEST(devns_variable_names, of_an_empty_store_are_none)
{
    const machine_folder disk;
    const device opened;
    EXPECT_EQ(all_names_of(opened.fd()), file_names{});
}

TEST(devns_variable_names, are_those_of_files)
{
    const machine_folder disk;
    const device opened;
    disk.put("A", "data");
    disk.put("a!b", "data");
    disk.put("\xc3\xa4", "data");
    EXPECT_EQ(all_names_of(opened.fd()),
              (file_names{"A" + of_global, "a!b" + of_global, "\xc3\xa4" + of_global}));
    disk.put("B", "data");
    EXPECT_EQ(all_names_of(opened.fd())->size(), 4U);
}

// Nobody looks at the files; a pipe without a writer would keep a reader waiting.
TEST(devns_variable_names, have_those_that_only_reading_tells_from_variables)
{
    const machine_folder disk;
    const device opened;
    disk.put("A", "");
    disk.put_file(disk.file("Short"), "1");
    ASSERT_EQ(mkfifo(disk.file("Fifo").c_str(), 0600), 0);
    EXPECT_EQ(all_names_of(opened.fd()),
              (file_names{"A" + of_global, "Short" + of_global, "Fifo" + of_global}));
}

TEST(devns_variable_names, are_asked_of_the_runtime_services_alone)
{
    const machine_folder disk;
    EXPECT_EQ(all_names_of(-1), std::nullopt);
    EXPECT_EQ(errno, EBADF);
    const int other = devns_open(disk.store().c_str(), O_RDONLY);
    EXPECT_EQ(all_names_of(other), std::nullopt);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(devns_close(other), 0);
}

TEST(devns_variable_names, of_a_folder_that_took_the_number_are_refused)
{
    const machine_folder disk;
    const device opened;
    const machine_folder other;
    other.put("C", "data");
    const int kept = dup(opened.fd());
    const int foreign = open(other.store().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(dup2(foreign, opened.fd()), opened.fd());
    EXPECT_EQ(all_names_of(opened.fd()), std::nullopt);
    EXPECT_EQ(errno, EBADF);
    ASSERT_EQ(dup2(kept, opened.fd()), opened.fd());
    EXPECT_EQ(all_names_of(opened.fd()), file_names{});
    close(kept);
    close(foreign);
}

// It only looks empty.
TEST(devns_variable_names, of_a_folder_that_was_removed_are_an_error)
{
    const machine_folder disk;
    const device opened;
    std::filesystem::remove(disk.store());
    EXPECT_EQ(all_names_of(opened.fd()), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
