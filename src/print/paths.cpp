// SPDX-License-Identifier: MIT
#include "src/print/paths.h"

#include <cstring>

#include "src/rt/owned.h"
#include "src/rt/strarray.h"

namespace {

// In the order in which they were tracked, looked for from *start on: in a long list each is then the next.
void free_path(ovra_hdl_t hdl, ovra_path_t *path, size_t *start)
{
    const auto [device, file] = *path;
    ovra::memlist_free_next(hdl, path, start);
    for (char *text : {device, file}) {
        if (text)
            ovra::memlist_free_next(hdl, text, start);
    }
}

struct path_freeing {
    ovra_hdl_t hdl;
    void operator()(ovra_path_t *path) const
    {
        size_t start = 0;
        free_path(hdl, path, &start);
    }
};

// An instance and its texts, all tracked.
using tracked_path = std::unique_ptr<ovra_path_t, path_freeing>;

// A tracked copy, or null.
char *copy_of(ovra_hdl_t hdl, const char *text)
{
    ovra::owned<char> copy(strdup(text));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return nullptr;
    return copy.release();
}

tracked_path new_path(ovra_hdl_t hdl, const char *device, const char *file)
{
    auto *block = memlist_malloc(hdl, sizeof(ovra_path_t), "struct ovra_path_t");
    tracked_path path(static_cast<ovra_path_t *>(block), {hdl});
    if (!path)
        return path;
    *path = {copy_of(hdl, device ? device : ""), file ? copy_of(hdl, file) : nullptr};
    if (!path->device_path || (file && !path->file_path))
        path.reset();
    return path;
}

ovra_path_t **resize(ovra_hdl_t hdl, ovra_path_t **list, size_t pointers)
{
    return static_cast<ovra_path_t **>(
        memlist_realloc(hdl, list, pointers * sizeof(ovra_path_t *), "decoded_path"));
}

} // namespace

int add_path(ovra_hdl_t hdl, const char *device, const char *file, ovra_path_t ***list)
{
    tracked_path path = new_path(hdl, device, file);
    if (!path)
        return -1;
    size_t count = 0;
    while (*list && (*list)[count])
        ++count;
    ovra_path_t **grown = resize(hdl, *list, count + 2);
    if (!grown)
        return -1;
    grown[count] = path.release();
    grown[count + 1] = nullptr;
    *list = grown;
    return 0;
}

int ovra::path_list_builder::append(const char *device, const char *file)
{
    tracked_path path = new_path(hdl, device, file);
    if (!path)
        return -1;
    if (count + 2 > capacity) {
        const size_t doubled = capacity == 0 ? 2 : 2 * capacity;
        ovra_path_t **grown = resize(hdl, list, doubled);
        if (!grown)
            return -1;
        list = grown;
        capacity = doubled;
    }
    list[count] = path.release();
    list[++count] = nullptr;
    return 0;
}

void free_dpath(ovra_hdl_t hdl, ovra_path_t **list)
{
    if (!list)
        return;
    size_t start = 0;
    for (ovra_path_t **path = list; *path; ++path)
        free_path(hdl, *path, &start);
    memlist_free(hdl, list);
}
