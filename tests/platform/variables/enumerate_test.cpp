// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::global_guid;
using platform_test::global_suffix;
using platform_test::machine_folder;
using platform_test::not_answered;
using platform_test::other_suffix;
using platform_test::set_variable;
using platform_test::walk;
using platform_test::walk_all;
namespace fs = std::filesystem;

namespace {

using names = std::vector<std::u16string>;

class variable_walk : public testing::Test {
protected:
    machine_folder disk;
    device opened;

    [[nodiscard]] names all() const
    {
        EFI_STATUS ended = EFI_SUCCESS;
        names found = walk_all(opened.fd(), &ended);
        EXPECT_EQ(ended, EFI_NOT_FOUND);
        return found;
    }

    // What a walk that begins at this variable finds first.
    [[nodiscard]] std::u16string after(char16_t name) const
    {
        walk steps;
        steps.name[0] = name;
        steps.guid = global_guid;
        EXPECT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
        return steps.text();
    }

    // Many small variables, made without the library: "V00000" and so on.
    void put_many(int count) const
    {
        int folder = open(disk.store().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        for (int i = 0; i < count; ++i) {
            char name[64] = {};
            std::snprintf(name, sizeof name, "V%05d%s", i, global_suffix.data());
            int fd = openat(folder, name, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            ASSERT_EQ(write(fd, "\7\0\0\0x", 5), 5);
            close(fd);
        }
        close(folder);
    }
};

TEST_F(variable_walk, empty_store_is_not_found_at_once)
{
    EXPECT_EQ(all(), names{});
}

TEST_F(variable_walk, one_variable_comes_once)
{
    disk.put("A", "data");
    walk steps;
    UINTN size = 4;
    EFI_STATUS status = not_answered;
    ovra_get_next_variable_name_args_t args = {&size, steps.name.data(), &steps.guid, &status};
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_VARIABLE_NAME, &args), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(steps.text(), u"A");
    EXPECT_EQ(std::memcmp(&steps.guid, &global_guid, sizeof global_guid), 0);
    EXPECT_EQ(steps.next(opened.fd()), EFI_NOT_FOUND);
    EXPECT_EQ(steps.text(), u"A");
}

TEST_F(variable_walk, order_is_that_of_the_file_names_bytes)
{
    for (const char *name : {"b", "B", "a", "\xc3\xa4", "A-", "A", "a!b"})
        disk.put(name, "data");
    disk.put_file(disk.file("A", other_suffix), "\7\7\7\7data");
    EXPECT_EQ(all(), (names{u"A-", u"A", u"A", u"B", u"a/b", u"a", u"b", u"\u00e4"}));
}

TEST_F(variable_walk, same_name_of_two_vendors_comes_twice)
{
    disk.put("A", "data");
    disk.put_file(disk.file("A", other_suffix), "\7\7\7\7data");
    walk steps;
    ASSERT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    EXPECT_EQ(std::memcmp(&steps.guid, &platform_test::other_guid, sizeof steps.guid), 0);
    ASSERT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    EXPECT_EQ(std::memcmp(&steps.guid, &global_guid, sizeof steps.guid), 0);
    EXPECT_EQ(steps.next(opened.fd()), EFI_NOT_FOUND);
}

TEST_F(variable_walk, what_is_no_variable_is_skipped)
{
    disk.put("A", "data");
    disk.put("Z", "data");
    disk.put("Empty", "");
    for (const char *contents : {"", "1", "12", "123"})
        disk.put_file(disk.file(std::string("Short").append(contents)), contents);
    disk.put_file(disk.store() / "notes.txt", "\7\0\0\0data");
    disk.put_file(disk.store() / global_suffix, "\7\7\7\7data");
    disk.put_file(disk.store() / "Upper-8BE4DF61-93CA-11D2-AA0D-00E098032B8C", "\7\7\7\7data");
    disk.put_file(disk.file("\xff\xfe"), "\7\7\7\7data");
    disk.put_file(disk.store() / ".hwplat-1-1.tmp", "\7\7\7\7data");
    fs::create_directory(disk.file("Folder"));
    fs::create_symlink(disk.file("A"), disk.file("Link"));
    ASSERT_EQ(mkfifo(disk.file("Fifo").c_str(), 0600), 0);
    EXPECT_EQ(all(), (names{u"A", u"Z"}));
}

TEST_F(variable_walk, short_buffer_gets_the_needed_size_and_keeps_the_name)
{
    disk.put("BootOrder", "data");
    disk.put("A", "data");
    std::vector<CHAR16> name = {'A', 0, 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    EFI_GUID guid = global_guid;
    for (UINTN room : {UINTN{4}, UINTN{19}}) {
        UINTN size = room;
        EFI_STATUS status = not_answered;
        ovra_get_next_variable_name_args_t args = {&size, name.data(), &guid, &status};
        ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_VARIABLE_NAME, &args), 0);
        EXPECT_EQ(status, EFI_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 20u);
        EXPECT_EQ(name, (std::vector<CHAR16>{'A', 0, 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'}));
    }
    UINTN size = 20;
    EFI_STATUS status = not_answered;
    ovra_get_next_variable_name_args_t args = {&size, name.data(), &guid, &status};
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_VARIABLE_NAME, &args), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(name, platform_test::ucs2(u"BootOrder"));
}

TEST_F(variable_walk, name_that_does_not_end_in_its_buffer_is_refused)
{
    disk.put("A", "data");
    CHAR16 name[2] = {'A', 'B'};
    EFI_GUID guid = global_guid;
    for (UINTN room : {UINTN{0}, UINTN{1}, UINTN{2}, UINTN{4}}) {
        UINTN size = room;
        EFI_STATUS status = not_answered;
        ovra_get_next_variable_name_args_t args = {&size, name, &guid, &status};
        ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_VARIABLE_NAME, &args), 0);
        EXPECT_EQ(status, EFI_INVALID_PARAMETER);
        EXPECT_EQ(size, room);
    }
}

TEST_F(variable_walk, unknown_previous_name_is_refused)
{
    disk.put("A", "data");
    for (const auto &name : {std::u16string(u"B"), std::u16string(1, 0xd800), std::u16string(300, u'a')}) {
        walk steps;
        std::ranges::copy(name, steps.name.begin());
        steps.guid = global_guid;
        EXPECT_EQ(steps.next(opened.fd()), EFI_INVALID_PARAMETER);
    }
    walk other_vendor;
    other_vendor.name[0] = 'A';
    other_vendor.guid = platform_test::other_guid;
    EXPECT_EQ(other_vendor.next(opened.fd()), EFI_INVALID_PARAMETER);
}

TEST_F(variable_walk, walk_may_begin_at_any_variable)
{
    for (const char *name : {"A", "B", "C"})
        disk.put(name, "data");
    EXPECT_EQ(after(u'B'), u"C");
}

TEST_F(variable_walk, walk_goes_on_from_a_variable_made_meanwhile)
{
    disk.put("A", "data");
    disk.put("C", "data");
    EXPECT_EQ(all(), (names{u"A", u"C"}));
    disk.put("B", "data");
    EXPECT_EQ(after(u'B'), u"C");
}

TEST_F(variable_walk, walk_from_the_middle_sees_what_was_made_since_the_last_one)
{
    disk.put("A", "data");
    disk.put("D", "data");
    EXPECT_EQ(all(), (names{u"A", u"D"}));
    for (const char *made : {"C", "B"}) {
        disk.put(made, "data");
        EXPECT_EQ(after(u'A'), (std::u16string{static_cast<char16_t>(made[0])}));
    }
}

TEST_F(variable_walk, variable_made_meanwhile_does_not_come_twice)
{
    for (const char *name : {"A", "B", "C"})
        disk.put(name, "data");
    walk steps;
    names found;
    while (steps.next(opened.fd()) == EFI_SUCCESS) {
        found.push_back(steps.text());
        disk.put("AA", "data");
        disk.put("BB", "data");
    }
    EXPECT_EQ(found, (names{u"A", u"B", u"C"}));
}

TEST_F(variable_walk, new_walk_sees_what_has_changed)
{
    disk.put("A", "data");
    EXPECT_EQ(all(), (names{u"A"}));
    disk.put("B", "data");
    fs::remove(disk.file("A"));
    EXPECT_EQ(all(), (names{u"B"}));
}

TEST_F(variable_walk, deleting_each_variable_found_visits_all_of_them)
{
    put_many(1000);
    walk steps;
    std::set<std::u16string> seen;
    while (steps.next(opened.fd()) == EFI_SUCCESS) {
        EXPECT_TRUE(seen.insert(steps.text()).second);
        ASSERT_EQ(set_variable(opened.fd(), steps.text(), 0, ""), EFI_SUCCESS);
    }
    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_walk, deleting_others_meanwhile_visits_each_remaining_one_once)
{
    put_many(1000);
    walk steps;
    std::vector<std::u16string> seen;
    while (steps.next(opened.fd()) == EFI_SUCCESS) {
        seen.push_back(steps.text());
        // Deletes the next one and the one after it: every third is left.
        walk ahead = steps;
        for (int i = 0; i < 2; ++i) {
            if (ahead.next(opened.fd()) == EFI_SUCCESS) {
                ASSERT_EQ(set_variable(opened.fd(), ahead.text(), 0, ""), EFI_SUCCESS);
            }
        }
    }
    EXPECT_EQ(seen.size(), 334u);
    EXPECT_EQ(all(), seen);
}

// Whether a walk from the start through `fd` that deletes what it finds visits all with the letter.
class deleting_walk {
public:
    deleting_walk(int fd, char16_t which) : number(fd), letter(which) {}
    // False at the end.
    bool step()
    {
        status = steps.next(number);
        if (status != EFI_SUCCESS)
            return false;
        if (steps.text().front() == letter) {
            EXPECT_EQ(set_variable(number, steps.text(), 0, ""), EFI_SUCCESS);
            ++deleted;
        }
        return true;
    }
    EFI_STATUS status = EFI_SUCCESS;
    int deleted = 0;

private:
    int number;
    char16_t letter;
    walk steps;
};

TEST_F(variable_walk, walks_that_delete_do_not_disturb_each_other)
{
    for (int i = 0; i < 50; ++i) {
        for (const char *letter : {"A", "B"})
            disk.put(letter + std::to_string(100 + i), "data");
    }
    device second;
    // In turn one step of each: through two file descriptors, and twice through one.
    deleting_walk one(opened.fd(), u'A');
    deleting_walk two(second.fd(), u'B');
    deleting_walk three(second.fd(), u'C');
    bool going = true;
    while (going) {
        going = one.step();
        going = two.step() || going;
        going = three.step() || going;
    }
    for (const deleting_walk *each : {&one, &two, &three})
        EXPECT_EQ(each->status, EFI_NOT_FOUND);
    EXPECT_EQ(one.deleted, 50);
    EXPECT_EQ(two.deleted, 50);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_walk, threads_that_walk_and_delete_do_not_disturb_each_other)
{
    for (int i = 0; i < 40; ++i) {
        for (const char *letter : {"A", "B", "C", "D"})
            disk.put(letter + std::to_string(100 + i), "data");
    }
    std::vector<std::thread> threads;
    for (char16_t letter : {u'A', u'B', u'C', u'D'}) {
        // Two of them have a file descriptor of their own, two share one.
        threads.emplace_back([this, letter] {
            device own;
            deleting_walk all(letter < u'C' ? own.fd() : opened.fd(), letter);
            while (all.step()) {
            }
            EXPECT_EQ(all.status, EFI_NOT_FOUND);
            EXPECT_EQ(all.deleted, 40);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_walk, walk_goes_on_through_another_descriptor_from_what_it_deleted)
{
    put_many(30);
    walk steps;
    int seen = 0;
    for (;;) {
        device fresh;
        EFI_STATUS status = steps.next(fresh.fd());
        if (status != EFI_SUCCESS) {
            EXPECT_EQ(status, EFI_NOT_FOUND);
            break;
        }
        ++seen;
        ASSERT_EQ(set_variable(fresh.fd(), steps.text(), 0, ""), EFI_SUCCESS);
    }
    EXPECT_EQ(seen, 30);
}

TEST_F(variable_walk, walks_of_two_machines_do_not_mix)
{
    disk.put("A", "data");
    disk.put("B", "data");
    machine_folder other;
    device of_other;
    other.put("A", "data");
    other.put("X", "data");
    walk one;
    walk two;
    ASSERT_EQ(one.next(opened.fd()), EFI_SUCCESS);
    ASSERT_EQ(two.next(of_other.fd()), EFI_SUCCESS);
    ASSERT_EQ(one.next(opened.fd()), EFI_SUCCESS);
    ASSERT_EQ(two.next(of_other.fd()), EFI_SUCCESS);
    EXPECT_EQ(one.text(), u"B");
    EXPECT_EQ(two.text(), u"X");
    EXPECT_EQ(one.next(opened.fd()), EFI_NOT_FOUND);
    EXPECT_EQ(two.next(of_other.fd()), EFI_NOT_FOUND);
}

TEST_F(variable_walk, sixty_thousand_variables_cost_seconds_through_a_fresh_descriptor_each)
{
    constexpr int count = 60'000;
    put_many(count);
    // A walk that reads the folder anew for each name would read 3,600,000,000 entries here: half an hour.
    constexpr std::clock_t bound = 60 * CLOCKS_PER_SEC; // of this process's time
    std::clock_t start = std::clock();
    walk steps;
    int found = 0;
    EFI_STATUS status = EFI_SUCCESS;
    while (status == EFI_SUCCESS) {
        device fresh;
        status = steps.next(fresh.fd());
        found += status == EFI_SUCCESS ? 1 : 0;
        ASSERT_LT(std::clock() - start, bound) << found << " variables so far";
    }
    EXPECT_EQ(status, EFI_NOT_FOUND);
    EXPECT_EQ(found, count);
}

} // namespace
