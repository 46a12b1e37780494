/* SPDX-License-Identifier: MIT */
/* A fixture with an open handle over the in-memory driver. */
#ifndef TESTS_RT_OPEN_HANDLE_H
#define TESTS_RT_OPEN_HANDLE_H

#include <gtest/gtest.h>

#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"

namespace ovra::test {

class open_handle : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        ASSERT_EQ(ovra_init(&hdl), 0);
    }

    void TearDown() override
    {
        if (hdl)
            ovra_fini(hdl);
        EXPECT_EQ(fakes::open_descriptors(), 0U);
        EXPECT_EQ(fakes::wrong_descriptors(), 0U);
    }

    ovra_hdl_t hdl = nullptr;

private:
    const environment no_test_file{"OVRA_TEST_FILE", nullptr};
};

} // namespace ovra::test

#endif
