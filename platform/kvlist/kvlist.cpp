// SPDX-License-Identifier: MIT
#include "platform/include/kvlist.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/machine/failure.h"

namespace {

// A thread's first exception takes the run-time library's variables of that thread, and a process that has no
// memory for them is ended. With one of this model in the library they are all in the block that every thread
// is born with, as they are in the libraries with a thread's picture.
[[gnu::tls_model("initial-exec")]] constinit thread_local volatile bool in_every_thread = false;

[[gnu::constructor]] void place_variables_of_threads()
{
    in_every_thread = true;
}

} // namespace

using byte_array = std::vector<uint8_t>;
using value = std::variant<uint32_t, uint64_t, byte_array>;

struct kvlist {
    std::vector<std::pair<std::string, value>> pairs;
};

namespace {

template <typename type>
type *find(kvlist_t *list, const char *name)
{
    if (list == nullptr)
        return nullptr;
    for (auto &[key, held] : list->pairs) {
        if (key == name && std::holds_alternative<type>(held))
            return std::get_if<type>(&held);
    }
    return nullptr;
}

template <typename type>
int look_up(kvlist_t *list, const char *name, type *out)
{
    const type *held = find<type>(list, name);
    if (held == nullptr)
        return ENOENT;
    *out = *held;
    return 0;
}

template <typename type>
int add(kvlist_t *list, const char *name, type added) noexcept
{
    return machine::outcome_of([&] { list->pairs.emplace_back(name, std::move(added)); });
}

} // namespace

#pragma GCC visibility push(default)

kvlist_t *kvlist_alloc(void)
{
    auto *list = new (std::nothrow) kvlist;
    if (list == nullptr)
        errno = ENOMEM;
    return list;
}

void kvlist_free(kvlist_t *list)
{
    delete list;
}

int kvlist_add_uint32(kvlist_t *list, const char *name, uint32_t added)
{
    return add(list, name, added);
}

int kvlist_add_uint64(kvlist_t *list, const char *name, uint64_t added)
{
    return add(list, name, added);
}

int kvlist_add_uint8_array(kvlist_t *list, const char *name, const uint8_t *array, unsigned int count)
{
    return machine::outcome_of([=] { list->pairs.emplace_back(name, byte_array(array, array + count)); });
}

int kvlist_lookup_uint32(kvlist_t *list, const char *name, uint32_t *out)
{
    return look_up(list, name, out);
}

int kvlist_lookup_uint64(kvlist_t *list, const char *name, uint64_t *out)
{
    return look_up(list, name, out);
}

int kvlist_lookup_uint8_array(kvlist_t *list, const char *name, uint8_t **array, unsigned int *count)
{
    auto *held = find<byte_array>(list, name);
    if (held == nullptr)
        return ENOENT;
    *array = held->data();
    *count = static_cast<unsigned int>(held->size());
    return 0;
}

#pragma GCC visibility pop
