// SPDX-License-Identifier: MIT
// Lists of decoded instances.
#include <cstring>
#include <utility>
#include <vector>

#include "src/print/paths.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class paths : public open_handle {
protected:
    bool recorded(void *block) const { return memlist_holds(hdl, block); }

    size_t recorded_blocks() const
    {
        size_t blocks = 0;
        for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
            blocks += hdl->memlist_addr[slot] != nullptr;
        return blocks;
    }
};

size_t length_of(ovra_path_t **list)
{
    size_t length = 0;
    while (list && list[length])
        ++length;
    return length;
}

TEST_F(paths, texts_are_copied_and_tracked)
{
    char device[] = "/Pci(0x0,0x0)";
    char file[] = "\\a";
    ovra_path_t **list = nullptr;
    ASSERT_EQ(add_path(hdl, device, file, &list), 0);
    memset(device, 'x', sizeof device - 1);
    memset(file, 'x', sizeof file - 1);
    ASSERT_EQ(length_of(list), 1U);
    EXPECT_STREQ(list[0]->device_path, "/Pci(0x0,0x0)");
    EXPECT_STREQ(list[0]->file_path, "\\a");
    for (void *block : {static_cast<void *>(list), static_cast<void *>(list[0]),
                        static_cast<void *>(list[0]->device_path), static_cast<void *>(list[0]->file_path)})
        EXPECT_TRUE(recorded(block));
    EXPECT_EQ(recorded_blocks(), 4U);
}

TEST_F(paths, instance_without_file_has_none)
{
    ovra_path_t **list = nullptr;
    ASSERT_EQ(add_path(hdl, "d", nullptr, &list), 0);
    EXPECT_EQ(list[0]->file_path, nullptr);
    EXPECT_EQ(recorded_blocks(), 3U);
}

TEST_F(paths, instance_without_device_text_has_an_empty_one)
{
    ovra_path_t **list = nullptr;
    ASSERT_EQ(add_path(hdl, nullptr, "f", &list), 0);
    EXPECT_STREQ(list[0]->device_path, "");
    EXPECT_STREQ(list[0]->file_path, "f");
}

TEST_F(paths, instances_are_appended_in_order)
{
    const realloc_guard moves(realloc_policy::moves);
    count_blocks();
    ovra_path_t **list = nullptr;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(add_path(hdl, std::to_string(i).c_str(), i % 2 ? "odd" : nullptr, &list), 0);
        ASSERT_EQ(length_of(list), static_cast<size_t>(i) + 1);
        ASSERT_TRUE(recorded(list));
        for (int j = 0; j <= i; ++j)
            ASSERT_EQ(list[j]->device_path, std::to_string(j));
    }
    stop_counting();
}

TEST_F(paths, builder_gives_the_same_list)
{
    ovra_path_t **added = nullptr;
    ovra::path_list_builder builder(hdl);
    for (int i = 0; i < 40; ++i) {
        const char *file = i % 2 ? "odd" : nullptr;
        ASSERT_EQ(add_path(hdl, std::to_string(i).c_str(), file, &added), 0);
        ASSERT_EQ(builder.append(std::to_string(i).c_str(), file), 0);
    }
    ovra_path_t **built = builder.release();
    ASSERT_EQ(length_of(built), length_of(added));
    EXPECT_TRUE(recorded(built));
    for (size_t i = 0; i < 40; ++i) {
        EXPECT_STREQ(built[i]->device_path, added[i]->device_path);
        EXPECT_STREQ(built[i]->file_path, added[i]->file_path);
    }
}

TEST_F(paths, builder_without_an_instance_gives_no_list)
{
    EXPECT_EQ(ovra::path_list_builder(hdl).release(), nullptr);
    EXPECT_EQ(recorded_blocks(), 0U);
}

TEST_F(paths, builder_releases_what_is_not_taken)
{
    {
        ovra::path_list_builder builder(hdl);
        for (int i = 0; i < 10; ++i)
            ASSERT_EQ(builder.append("device", "file"), 0);
    }
    EXPECT_EQ(recorded_blocks(), 0U);
}

TEST_F(paths, free_releases_everything_and_forgets_it)
{
    count_blocks();
    void *other = memlist_malloc(hdl, 1, "test");
    ovra_path_t **list = nullptr;
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(add_path(hdl, "device", i % 2 ? "file" : nullptr, &list), 0);
    free_dpath(hdl, list);
    EXPECT_EQ(live_blocks(), 2); // the handle's list and the other block
    EXPECT_EQ(recorded_blocks(), 1U);
    EXPECT_TRUE(recorded(other));
    stop_counting();
}

TEST_F(paths, free_of_null_is_ignored)
{
    free_dpath(hdl, nullptr);
    free_dpath(nullptr, nullptr);
    EXPECT_EQ(hdl->memlist_end, 0U);
}

TEST_F(paths, fini_releases_what_was_not_freed)
{
    count_blocks();
    ovra_path_t **list = nullptr;
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(add_path(hdl, "device", "file", &list), 0);
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(paths, refused_record_and_array_speak_with_their_labels)
{
    void *slot = memlist_malloc(hdl, 1, "test"); // the handle's list has room now
    ASSERT_NE(slot, nullptr);
    messages said;
    const char *expected[] = {"malloc failed for struct ovra_path_t\n", "", "",
                              "malloc failed for decoded_path\n"};
    for (long n = 0; n < 4; ++n) {
        ovra_path_t **list = nullptr;
        refuse_from(n, false);
        EXPECT_EQ(add_path(hdl, "device", "file", &list), -1);
        EXPECT_EQ(stop_refusing(), 1);
        EXPECT_EQ(said.take(), expected[n]);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(recorded_blocks(), 1U);
    }
    ovra_path_t **list = nullptr;
    ASSERT_EQ(add_path(hdl, "device", nullptr, &list), 0);
    refuse_from(2, false);
    EXPECT_EQ(add_path(hdl, "device", nullptr, &list), -1);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(said.take(), "realloc failed for decoded_path\n");
    EXPECT_EQ(length_of(list), 1U);
    EXPECT_STREQ(list[0]->device_path, "device");
}

TEST_F(paths, add_survives_every_refusal)
{
    for (const realloc_policy policy : {realloc_policy::moves, realloc_policy::stays}) {
        const realloc_guard as_told(policy);
        for_each_refused_allocation([](ovra_hdl_t fresh) {
            ovra_path_t **list = nullptr;
            for (size_t i = 0; i < 20; ++i) { // over growths of the array and of the handle's list
                ovra_path_t **const before = list;
                if (add_path(fresh, "device", i % 2 ? "file" : nullptr, &list) != 0) {
                    EXPECT_EQ(list, before);
                    EXPECT_EQ(length_of(list), i);
                    return -1;
                }
            }
            return 0;
        });
    }
}

TEST_F(paths, builder_survives_every_refusal)
{
    const realloc_guard moves(realloc_policy::moves);
    for_each_refused_allocation([](ovra_hdl_t fresh) {
        ovra::path_list_builder builder(fresh);
        for (int i = 0; i < 20; ++i)
            if (builder.append("device", i % 2 ? "file" : nullptr) != 0)
                return -1;
        return builder.release() ? 0 : -1;
    });
}

TEST_F(paths, list_of_many_instances_is_resized_a_few_times_only)
{
    constexpr long instances = 1000;
    count_blocks();
    ovra::path_list_builder builder(hdl);
    for (long i = 0; i < instances; ++i)
        ASSERT_EQ(builder.append("d", nullptr), 0);
    // Two blocks each, ten doublings, and the handle's own list, which grows by 20, with an index that
    // doubles.
    EXPECT_LE(allocations(), 2 * instances + 10 + (2 * instances + 1) / 20 + 2 + 10);
    stop_counting();
}

} // namespace
