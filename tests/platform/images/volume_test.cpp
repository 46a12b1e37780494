// SPDX-License-Identifier: MIT
// The variables in an image of a virtual machine's firmware.
#include "tests/platform/images/fixture.h"

using platform_test::added;
using platform_test::being_replaced;
using platform_test::deleted;
using platform_test::device;
using platform_test::entry;
using platform_test::global_guid;
using platform_test::header_begun;
using platform_test::header_only;
using platform_test::in_volume;
using platform_test::other_guid;
using platform_test::replaced;
using platform_test::volume;

namespace {

constexpr std::size_t first = 72 + 28; // variable in a volume

using volume_image = platform_test::image_file;

// A volume with little room, and the sizes of what is in it.
platform_test::volume_shape small_store(std::size_t bytes)
{
    platform_test::volume_shape shape;
    shape.store = 28 + bytes;
    return shape;
}

TEST_F(volume_image, variables_are_listed_and_read)
{
    put(volume(in_volume({"Timeout", "t"}) + in_volume({"BootOrder", "1234"}) +
               in_volume({"Timeout", "other", 3, added, other_guid})));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"BootOrder", u"Timeout", u"Timeout"}));
    const auto found = get(u"Timeout", other_guid);
    EXPECT_EQ(found.status, EFI_SUCCESS);
    EXPECT_EQ(found.attributes, 3u);
    EXPECT_EQ(found.data, "other");
    EXPECT_EQ(get(u"Timeout").data, "t");
    EXPECT_EQ(get(u"Absent").status, EFI_NOT_FOUND);
}

TEST_F(volume_image, plain_headers_are_read_and_written)
{
    platform_test::volume_shape shape;
    shape.authenticated = false;
    const std::string before = in_volume({"A", "old"}, false);
    put(volume(before, shape));
    EXPECT_EQ(get(u"A").data, "old");
    EXPECT_EQ(set(u"B", 7, "new"), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(before + in_volume({"B", "new"}, false), shape));
}

TEST_F(volume_image, only_what_is_there_counts)
{
    put(volume(in_volume({"Deleted", "1", 7, deleted}) + in_volume({"Replaced", "1", 7, replaced}) +
               in_volume({"Begun", "1", 7, header_only}) + in_volume({"Old", "old", 7, being_replaced}) +
               in_volume({"Half", "old", 7, being_replaced}) + in_volume({"Half", "new"}) +
               in_volume({"NoData", ""})));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"Half", u"Old"}));
    EXPECT_EQ(get(u"Old").data, "old");
    EXPECT_EQ(get(u"Half").data, "new");
    EXPECT_EQ(get(u"NoData").status, EFI_NOT_FOUND);
}

// Firmware that was stopped twice while it wrote the same variable. It takes the value that it finds last.
TEST_F(volume_image, last_of_several_values_that_are_being_replaced_counts)
{
    const std::string first_value = in_volume({"A", "first", 7, being_replaced});
    const std::string second_value = in_volume({"A", "second", 3, being_replaced});
    const std::string other = in_volume({"B", "b"});
    put(volume(first_value + other + second_value));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"A", u"B"}));
    EXPECT_EQ(get(u"A").data, "second");
    EXPECT_EQ(get(u"A").attributes, 3u);
    // A new value wins wherever it stands.
    put(volume(first_value + in_volume({"A", "new"}) + second_value));
    EXPECT_EQ(get(u"A").data, "new");
    // What counts is what stays when the room is needed.
    put(volume(first_value + second_value, small_store(first_value.size() + second_value.size() + 10)));
    EXPECT_EQ(set(u"C", 7, "c"), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, "second");
    EXPECT_EQ(set(u"A", 3, ""), EFI_SUCCESS);
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"C"}));
}

// The firmware goes on behind a header that it did not write to its end, whatever its sizes say.
TEST_F(volume_image, header_that_was_only_begun_ends_nothing)
{
    const std::string begun = in_volume({"A", "data", 7, header_begun}).substr(0, 60);
    put(volume(begun + in_volume({"B", "b"})));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"B"}));
    EXPECT_EQ(set(u"A", 7, "new"), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(begun + in_volume({"B", "b"}) + in_volume({"A", "new"})));
}

TEST_F(volume_image, new_variable_comes_behind_the_others)
{
    const std::string before = in_volume({"A", "a"}) + in_volume({"Gone", "g", 7, deleted});
    put(volume(before));
    EXPECT_EQ(set(u"Boot0001", 7, "option"), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(before + in_volume({"Boot0001", "option"})));
    EXPECT_EQ(left_behind(), 0u);
}

TEST_F(volume_image, change_and_removal_mark_the_old_value)
{
    put(volume(in_volume({"A", "a"}) + in_volume({"B", "b"}) + in_volume({"C", "c", 7, being_replaced})));
    EXPECT_EQ(set(u"A", 7, "longer"), EFI_SUCCESS);
    EXPECT_EQ(set(u"B", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(set(u"C", 0, ""), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(in_volume({"A", "a", 7, replaced}) + in_volume({"B", "b", 7, deleted}) +
                                 in_volume({"C", "c", 7, replaced}) + in_volume({"A", "longer"})));
    EXPECT_EQ(set(u"B", 7, ""), EFI_NOT_FOUND);
}

TEST_F(volume_image, both_values_go_when_a_replaced_one_is_left)
{
    put(volume(in_volume({"A", "old", 7, being_replaced}) + in_volume({"A", "new"})));
    EXPECT_EQ(set(u"A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(names().size(), 0u);
    EXPECT_EQ(contents(), volume(in_volume({"A", "old", 7, replaced}) + in_volume({"A", "new", 7, deleted})));
}

TEST_F(volume_image, append_adds_to_the_value)
{
    put(volume(in_volume({"A", "12"})));
    EXPECT_EQ(set(u"A", 0x47, "34"), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, "1234");
    EXPECT_EQ(get(u"A").attributes, 7u);
}

TEST_F(volume_image, requests_get_what_a_folder_machine_answers)
{
    const std::string image = volume(in_volume({"A", "a"}) + in_volume({"Setup", "s", 3}));
    put(image);
    EXPECT_EQ(set(u"A", 3, "x"), EFI_INVALID_PARAMETER);         // other attributes than the stored ones
    EXPECT_EQ(set(u"New", 6, "x"), EFI_INVALID_PARAMETER);       // volatile
    EXPECT_EQ(set(u"New", 3, "x"), EFI_INVALID_PARAMETER);       // not for the system
    EXPECT_EQ(set(u"New", 0x27, "x"), EFI_UNSUPPORTED);          // signed
    EXPECT_EQ(set(u"N\u00e9w", 7, "x"), EFI_UNSUPPORTED);        // no name for the kernel
    EXPECT_EQ(set(u"BootCurrent", 6, "x"), EFI_WRITE_PROTECTED); // of the firmware
    EXPECT_EQ(set(u"A", 7, std::string(7169, 'x')), EFI_INVALID_PARAMETER);
    EXPECT_EQ(contents(), image);
    EXPECT_EQ(set(u"A", 7, std::string(7168, 'x')), EFI_SUCCESS);
    EXPECT_EQ(set(u"Setup", 3, "changed"), EFI_SUCCESS);
    EXPECT_EQ(get(u"Setup").data, "changed");
}

TEST_F(volume_image, signed_variables_are_neither_changed_nor_removed)
{
    const std::string image = volume(in_volume({"PK", "key", 0x27}) + in_volume({"Vendor", "key", 0x87}));
    put(image);
    EXPECT_EQ(get(u"PK").attributes, 0x27u);
    EXPECT_EQ(set(u"PK", 0x27, "x"), EFI_UNSUPPORTED);
    EXPECT_EQ(set(u"PK", 7, ""), EFI_SECURITY_VIOLATION);
    EXPECT_EQ(set(u"PK", 0, ""), EFI_SECURITY_VIOLATION);
    EXPECT_EQ(set(u"Vendor", 0, ""), EFI_SECURITY_VIOLATION);
    EXPECT_EQ(contents(), image);
}

struct room {
    EFI_STATUS status = platform_test::not_answered;
    UINT64 store = 0;
    UINT64 remaining = 0;
    UINT64 variable = 0;
};

room query()
{
    const device opened;
    room found;
    ovra_query_variable_info_args_t args = {7, &found.store, &found.remaining, &found.variable,
                                            &found.status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_QUERY_VARIABLE_INFO, &args), 0);
    return found;
}

TEST_F(volume_image, room_is_that_of_the_store_without_what_counts)
{
    const std::string a = in_volume({"A", "a"});
    put(volume(a + in_volume({"B", "b", 7, deleted})));
    const room found = query();
    EXPECT_EQ(found.status, EFI_SUCCESS);
    EXPECT_EQ(found.store, 0xe000u - first);
    EXPECT_EQ(found.remaining, 0xe000u - first - a.size());
    EXPECT_EQ(found.variable, 7168u);
    platform_test::volume_shape large;
    large.store = 0x40000 - 72;
    large.length = 0x84000;
    put(volume("", large));
    EXPECT_EQ(query().variable, 32768u);
}

TEST_F(volume_image, room_of_the_dead_is_taken_back_only_when_needed)
{
    const std::string dead = in_volume({"Dead", std::string(100, 'd'), 7, deleted});
    const std::string key = in_volume({"PK", std::string(50, 'k'), 0x27});
    const std::string half = in_volume({"Half", "old", 3, being_replaced});
    const std::string next = in_volume({"New", std::string(40, 'n')});
    const auto shape = small_store(dead.size() + key.size() + half.size() + next.size());
    put(volume(dead + key + half, shape));
    ASSERT_EQ(set(u"New", 7, std::string(40, 'n')), EFI_SUCCESS);
    ASSERT_EQ(contents(), volume(dead + key + half + next, shape)); // it just fits
    ASSERT_EQ(set(u"New", 7, std::string(44, 'N')), EFI_SUCCESS);
    EXPECT_EQ(
        contents(),
        volume(key + in_volume({"Half", "old", 3, added}) + in_volume({"New", std::string(44, 'N')}), shape));
}

TEST_F(volume_image, full_store_loses_nothing)
{
    const std::string key = in_volume({"PK", std::string(50, 'k'), 0x27});
    const std::string one = in_volume({"A", std::string(40, 'a')});
    const auto shape = small_store(key.size() + one.size() + 3);
    const std::string image = volume(key + one, shape);
    put(image);
    EXPECT_EQ(set(u"B", 7, "b"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set(u"A", 7, std::string(44, 'a')), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(set(u"A", 0x47, "more"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(contents(), image);
    EXPECT_EQ(set(u"A", 7, std::string(40, 'A')), EFI_SUCCESS);
    EXPECT_EQ(contents(), volume(key + in_volume({"A", std::string(40, 'A')}), shape));
}

TEST_F(volume_image, names_that_no_file_can_have_are_kept)
{
    std::string strange = in_volume({"Xa", "data"});
    strange.replace(60, 2, "\0\xd8", 2); // a surrogate alone
    const std::string slash = in_volume({"a/b", "slash"});
    const std::string alias = in_volume({"a!b", "alias"});
    put(volume(strange + slash + alias));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"a/b"}));
    EXPECT_EQ(get(u"a/b").data, "slash");
    EXPECT_EQ(set(u"a!b", 7, "changed"), EFI_SUCCESS);
    std::string gone = slash;
    gone[2] = static_cast<char>(replaced);
    EXPECT_EQ(contents(), volume(strange + gone + alias + in_volume({"a/b", "changed"})));
}

// The services may be opened anew for each step of a walk, and variables removed on the way.
TEST_F(volume_image, walk_goes_on_through_openings_and_changes)
{
    put(volume(in_volume({"A", "a"}) + in_volume({"B", "b"}) + in_volume({"C", "c"})));
    platform_test::walk steps;
    std::vector<std::u16string> seen;
    for (;;) {
        const device opened;
        if (steps.next(opened.fd()) != EFI_SUCCESS)
            break;
        seen.push_back(steps.text());
        EXPECT_EQ(set_variable(opened.fd(), steps.text(), 7, ""), EFI_SUCCESS);
    }
    EXPECT_EQ(seen, (std::vector<std::u16string>{u"A", u"B", u"C"}));
    EXPECT_EQ(names().size(), 0u);
}

TEST_F(volume_image, walk_of_another_file_in_the_folder_is_another_walk)
{
    put(volume(in_volume({"A", "a"}) + in_volume({"C", "c"})));
    platform_test::walk steps;
    {
        const device opened;
        ASSERT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    }
    platform_test::machine_folder::put_file(folder / "other.fd",
                                            volume(in_volume({"A", "a"}) + in_volume({"B", "b"})));
    named.set((folder / "other.fd").c_str());
    const device opened;
    ASSERT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    EXPECT_EQ(steps.text(), u"B");
}

TEST_F(volume_image, reset_plays_boot_next)
{
    const std::string option("\1\0\0\0\4\0d\0\0\0\x7f\xff\4\0", 14);
    const std::string rest = in_volume({"Boot0001", option}) + in_volume({"PK", "key", 0x27});
    put(volume(rest + in_volume({"BootNext", std::string("\1\0", 2)})));
    const device opened;
    EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), 0);
    const std::string after = volume(rest + in_volume({"BootNext", std::string("\1\0", 2), 7, deleted}));
    EXPECT_EQ(contents(), after);
    EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_EQ(contents(), after);
}

TEST_F(volume_image, clock_is_the_hosts_and_nothing_of_it_is_kept)
{
    put(volume(""));
    const device opened;
    EFI_TIME time = {};
    EFI_STATUS status = platform_test::not_answered;
    ovra_get_time_args_t clock = {&time, nullptr, &status};
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_TIME, &clock), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(time.timezone, 0);
    EXPECT_GE(time.year, 2026);
    ovra_set_time_args_t setting = {&time, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_TIME, &setting), 0);
    EXPECT_EQ(status, EFI_UNSUPPORTED);
    ovra_set_wakeup_time_args_t alarm = {&time, &status, B_TRUE};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_WAKEUP_TIME, &alarm), 0);
    EXPECT_EQ(status, EFI_UNSUPPORTED);
    UINT32 count = 0;
    ovra_get_next_high_monotonic_count_args_t counting = {&count, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &counting), 0);
    EXPECT_EQ(status, EFI_UNSUPPORTED);
    EXPECT_EQ(left_behind(), 0u);
}

} // namespace
