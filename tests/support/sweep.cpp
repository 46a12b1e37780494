// SPDX-License-Identifier: MIT
#include "tests/support/sweep.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include <gtest/gtest.h>

#include "src/rt/rt.h"
#include "tests/fakes/driver.h"
#include "tests/support/messages.h"

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);
char *__wrap_strdup(const char *text);
char *__wrap_strndup(const char *text, size_t size);
}

namespace {

using ovra::test::realloc_policy;

bool counting = false;
bool spoiling = false;
long asked = 0;
// Blocks by address (not by pointer: a freed one is looked up by what it was), with the size they have room
// for.
std::unordered_map<uintptr_t, size_t> *live = nullptr;

bool refusing = false;
bool refusing_all = false;
long until_refusal = 0;
long refused = 0;

realloc_policy policy = realloc_policy::natural;

bool refuse()
{
    if (counting)
        ++asked;
    if (!refusing)
        return false;
    if (until_refusal > 0) {
        --until_refusal;
        return false;
    }
    if (refused > 0 && !refusing_all)
        return false;
    ++refused;
    errno = ENOMEM;
    return true;
}

uintptr_t address_of(const void *block)
{
    return reinterpret_cast<uintptr_t>(block);
}

void *made(void *block, size_t size)
{
    if (counting && block)
        live->insert_or_assign(address_of(block), size);
    return block;
}

void *resize(void *block, size_t size)
{
    if (!counting || !block || policy == realloc_policy::natural)
        return __real_realloc(block, size);
    const auto known = live->find(address_of(block));
    if (known == live->end())
        return __real_realloc(block, size);
    if (policy == realloc_policy::stays && size <= known->second)
        return block;
    void *moved = __real_malloc(size);
    if (moved) {
        memcpy(moved, block, std::min(size, known->second));
        __real_free(block);
    }
    return moved;
}

} // namespace

void *__wrap_malloc(size_t size)
{
    return refuse() ? nullptr : made(__real_malloc(size), size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return refuse() ? nullptr : made(__real_calloc(count, size), count * size);
}

void *__wrap_realloc(void *block, size_t size)
{
    if (refuse())
        return nullptr;
    const uintptr_t before = address_of(block);
    void *after = resize(block, size);
    if (counting && after) {
        size_t room = size;
        if (const auto known = live->find(before); known != live->end()) {
            if (address_of(after) == before)
                room = std::max(room, known->second);
            live->erase(known);
        }
        made(after, policy == realloc_policy::stays ? room : size);
    }
    return after;
}

void __wrap_free(void *block)
{
    if (counting && block)
        live->erase(address_of(block));
    __real_free(block);
    if (spoiling)
        errno = EDOM;
}

char *__wrap_strdup(const char *text)
{
    const size_t size = strlen(text) + 1;
    auto *copy = static_cast<char *>(__wrap_malloc(size));
    if (copy)
        memcpy(copy, text, size);
    return copy;
}

char *__wrap_strndup(const char *text, size_t size)
{
    const size_t length = strnlen(text, size);
    auto *copy = static_cast<char *>(__wrap_malloc(length + 1));
    if (copy) {
        memcpy(copy, text, length);
        copy[length] = 0;
    }
    return copy;
}

namespace ovra::test {

errno_spoiled_by_free::errno_spoiled_by_free()
{
    spoiling = true;
}

errno_spoiled_by_free::~errno_spoiled_by_free()
{
    spoiling = false;
}

void count_blocks()
{
    if (!live)
        live = new std::unordered_map<uintptr_t, size_t>;
    live->clear();
    asked = 0;
    counting = true;
}

long live_blocks()
{
    return live ? static_cast<long>(live->size()) : 0;
}

long allocations()
{
    return asked;
}

void stop_counting()
{
    counting = false;
    delete live;
    live = nullptr;
}

void refuse_from(long n, bool persistent)
{
    until_refusal = n;
    refusing_all = persistent;
    refused = 0;
    refusing = true;
}

long stop_refusing()
{
    refusing = false;
    return refused;
}

realloc_guard::realloc_guard(realloc_policy chosen)
{
    policy = chosen;
}

realloc_guard::~realloc_guard()
{
    policy = realloc_policy::natural;
}

namespace {

// More allocations than any routine makes: a body that never comes to an end is one that does not stop
// asking.
constexpr long most_allocations = 100000;

// Whether the handle still records, resizes and gives back.
void expect_usable(ovra_hdl_t hdl)
{
    void *block = memlist_malloc(hdl, 8, "sweep");
    ASSERT_NE(block, nullptr);
    memset(block, 1, 8);
    block = memlist_realloc(hdl, block, 64, "sweep");
    ASSERT_NE(block, nullptr);
    memset(block, 2, 64);
    memlist_free(hdl, block);
    char **array = nullptr;
    ASSERT_EQ(add_str_array(hdl, "sweep", &array), 0);
    ASSERT_STREQ(array[0], "sweep");
    free_str_array(hdl, array);
}

attempt try_once(const sweep_body &body, long n, bool persistent, unsigned blocks_before)
{
    attempt one = {.n = n, .persistent = persistent, .refused = 0, .result = 0, .messages = {}};
    const unsigned descriptors = fakes::open_descriptors();
    ovra_hdl_t hdl = nullptr;
    count_blocks();
    if (ovra_init(&hdl) != 0) {
        stop_counting();
        ADD_FAILURE() << "ovra_init";
        return one;
    }
    for (unsigned i = 0; i < blocks_before; ++i)
        EXPECT_NE(memlist_malloc(hdl, 1, "sweep"), nullptr);
    {
        const messages said(1, 1);
        refuse_from(n, persistent);
        one.result = body(hdl);
        one.refused = stop_refusing();
        one.messages = said.text();
    }
    expect_usable(hdl);
    ovra_fini(hdl);
    EXPECT_EQ(live_blocks(), 0) << "blocks left";
    EXPECT_EQ(fakes::open_descriptors(), descriptors) << "descriptors left";
    EXPECT_EQ(fakes::wrong_descriptors(), 0U) << "closed descriptors used";
    stop_counting();
    return one;
}

void sweep(const sweep_body &body, const sweep_check &check, bool any_result, unsigned blocks_before)
{
    // Freely first: what is made once for the process must not count.
    static_cast<void>(try_once(body, LONG_MAX, false, blocks_before));
    for (const bool persistent : {false, true})
        for (long n = 0;; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n) + (persistent ? " and all later ones" : "") +
                         " refused");
            ASSERT_LT(n, most_allocations);
            const attempt one = try_once(body, n, persistent, blocks_before);
            if (!any_result) {
                EXPECT_EQ(one.result, one.refused == 0 ? 0 : -1) << one.messages;
            }
            if (check)
                check(one);
            if (one.refused == 0)
                break;
        }
}

} // namespace

void for_each_refused_allocation(const sweep_body &body, const sweep_check &check)
{
    sweep(body, check, false, 0);
}

void for_each_refused_allocation_any_result(const sweep_body &body, const sweep_check &check,
                                            unsigned blocks_before)
{
    sweep(body, check, true, blocks_before);
}

} // namespace ovra::test
