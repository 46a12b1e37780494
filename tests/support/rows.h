/* SPDX-License-Identifier: MIT */
/* Tests from the rows of a table. */
#ifndef TESTS_SUPPORT_ROWS_H
#define TESTS_SUPPORT_ROWS_H

#include <string>

#include <gtest/gtest.h>

namespace ovra::test {

/*
 * Makes a test of each row of a table, named like the row. `run` is given the fixture, whose members it may
 * use as the fixture makes them public, and the row.
 */
template <typename fixture, typename row_t>
class row_test : public fixture {
public:
    using runner = void (*)(fixture &, const row_t &);
    row_test(const row_t &the_row, runner the_runner) : row(the_row), run(the_runner) {}
    void TestBody() override { run(*this, row); }

private:
    const row_t &row;
    runner run;
};

/* The rows, in an array or a container, are read when a test runs: they live as long as the program. */
template <typename rows_t, typename fixture, typename row_t>
bool register_rows(const std::string &suite, const rows_t &rows, void (*run)(fixture &, const row_t &),
                   const char *file, int line)
{
    for (const row_t &row : rows) {
        const std::string name = row.name;
        ::testing::RegisterTest(
            suite.c_str(), name.c_str(), nullptr, nullptr, file, line,
            [&row, run]() -> fixture * { return new row_test<fixture, row_t>(row, run); });
    }
    return true;
}

template <typename rows_t, typename fixture, typename row_t>
bool register_rows(const std::string &suite, const rows_t &&rows, void (*run)(fixture &, const row_t &),
                   const char *file, int line) = delete;

} // namespace ovra::test

#endif
