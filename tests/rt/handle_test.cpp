// SPDX-License-Identifier: MIT
// Opening and closing a handle.
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <utility>

#include <gtest/gtest.h>

#include "platform/include/devns.h"
#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

static_assert(offsetof(ovra_hdl, memlist_size) == 0);
static_assert(offsetof(ovra_hdl, memlist_end) == 8);
static_assert(offsetof(ovra_hdl, memlist_addr) == 16);
static_assert(offsetof(ovra_hdl, ovra_fd) == 24);

namespace {

class handle : public ::testing::Test {
protected:
    void SetUp() override { fakes::reset(); }
    void TearDown() override
    {
        EXPECT_EQ(fakes::open_descriptors(), 0U);
        EXPECT_EQ(fakes::wrong_descriptors(), 0U);
    }

    environment test_file{"OVRA_TEST_FILE", nullptr};
    ovra_hdl_t hdl = nullptr;
};

TEST_F(handle, init_opens_the_driver_for_reading_and_writing)
{
    ASSERT_EQ(ovra_init(&hdl), 0);
    ASSERT_EQ(fakes::openings().size(), 1U);
    EXPECT_EQ(fakes::openings()[0].path, "/devices/pseudo/ovra@0:ovra");
    EXPECT_EQ(fakes::openings()[0].flags, O_RDWR);
    EXPECT_EQ(hdl->ovra_fd, fakes::openings()[0].fd);
    EXPECT_TRUE(fakes::requests().empty());
    ovra_fini(hdl);
    EXPECT_EQ(fakes::closings(), 1U);
}

TEST_F(handle, fresh_one_tracks_nothing)
{
    ASSERT_EQ(ovra_init(&hdl), 0);
    EXPECT_EQ(hdl->memlist_size, 0U);
    EXPECT_EQ(hdl->memlist_end, 0U);
    EXPECT_EQ(hdl->memlist_addr, nullptr);
    ovra_fini(hdl);
}

TEST_F(handle, in_test_file_mode_no_driver_is_opened_even_where_there_is_none)
{
    fakes::set_absent(ENOENT);
    for (const char *value : {"", "1", "0", "/some/file"}) {
        test_file.set(value);
        ASSERT_EQ(ovra_init(&hdl), 0) << value;
        EXPECT_EQ(hdl->ovra_fd, -1);
        EXPECT_EQ(hdl->memlist_size, 0U);
        EXPECT_EQ(hdl->memlist_addr, nullptr);
        ovra_fini(hdl);
    }
    EXPECT_TRUE(fakes::openings().empty());
    EXPECT_EQ(fakes::closings(), 0U);
}

TEST_F(handle, absent_driver_fails_init_silently_with_its_errno)
{
    for (const int error : {ENOENT, EACCES, EMFILE}) {
        fakes::set_absent(error);
        const messages said;
        const errno_spoiled_by_free spoiled;
        count_blocks();
        errno = 0;
        EXPECT_EQ(ovra_init(&hdl), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(live_blocks(), 0);
        stop_counting();
        EXPECT_EQ(said.text(), "");
    }
}

TEST_F(handle, kept_failed_init_leaves_the_released_pointer)
{
    fakes::set_absent(ENOENT);
    const auto untouched = reinterpret_cast<ovra_hdl_t>(&hdl);
    hdl = untouched;
    EXPECT_EQ(ovra_init(&hdl), -1);
    EXPECT_NE(hdl, untouched);
    EXPECT_NE(hdl, nullptr);
}

TEST_F(handle, init_without_memory_fails_before_the_driver_is_opened)
{
    const messages said;
    refuse_from(0, false);
    EXPECT_EQ(ovra_init(&hdl), -1);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(hdl, nullptr);
    EXPECT_TRUE(fakes::openings().empty());
    EXPECT_EQ(said.text(), "");
}

TEST_F(handle, init_stores_the_handle_before_it_opens_the_driver)
{
    // Seen from outside only when opening fails: what was stored stays.
    fakes::set_absent(EIO);
    EXPECT_EQ(ovra_init(&hdl), -1);
    EXPECT_NE(hdl, nullptr);
    EXPECT_EQ(fakes::openings().size(), 1U);
}

TEST_F(handle, init_survives_every_refusal)
{
    for_each_refused_allocation([](ovra_hdl_t) {
        ovra_hdl_t second = nullptr;
        if (ovra_init(&second) != 0)
            return -1;
        ovra_fini(second);
        return 0;
    });
}

TEST_F(handle, fini_frees_every_block_that_is_left)
{
    count_blocks();
    ASSERT_EQ(ovra_init(&hdl), 0);
    void *blocks[50];
    for (void *&block : blocks)
        block = memlist_malloc(hdl, 10, "test");
    EXPECT_EQ(live_blocks(), 52);
    for (int i = 0; i < 50; i += 3)
        memlist_free(hdl, blocks[i]);
    ovra_fini(hdl);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(handle, fini_without_blocks_or_driver)
{
    test_file.set("1");
    count_blocks();
    ASSERT_EQ(ovra_init(&hdl), 0);
    ovra_fini(hdl);
    EXPECT_EQ(live_blocks(), 0);
    EXPECT_EQ(fakes::closings(), 0U);
    stop_counting();
}

TEST_F(handle, separate_ones_are_independent)
{
    ovra_hdl_t other = nullptr;
    ASSERT_EQ(ovra_init(&hdl), 0);
    ASSERT_EQ(ovra_init(&other), 0);
    EXPECT_NE(hdl, other);
    EXPECT_NE(hdl->ovra_fd, other->ovra_fd);
    void *block = memlist_malloc(hdl, 1, "test");
    EXPECT_EQ(other->memlist_end, 0U);
    memlist_remove(other, block);
    EXPECT_EQ(hdl->memlist_addr[0], block);
    ovra_fini(other);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
    ovra_fini(hdl);
}

} // namespace
