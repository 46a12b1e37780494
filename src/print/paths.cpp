// SPDX-License-Identifier: MIT
#include "src/print/paths.h"

#include <cstring>

#include "src/rt/memlist.h"
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

tracked_path new_path(ovra_hdl_t hdl, const char *device, const char *file)
{
    auto *block = memlist_malloc(hdl, sizeof(ovra_path_t), "struct ovra_path_t");
    tracked_path path(static_cast<ovra_path_t *>(block), {hdl});
    if (!path)
        return path;
    *path = {ovra::copy_string(hdl, device ? device : "").release(),
             file ? ovra::copy_string(hdl, file).release() : nullptr};
    if (!path->device_path || (file && !path->file_path))
        path.reset();
    return path;
}

} // namespace

int add_path(ovra_hdl_t hdl, const char *device, const char *file, ovra_path_t ***list)
{
    tracked_path path = new_path(hdl, device, file);
    if (!path || ovra::append_entry(list, path.get(), ovra::path_list_memory(hdl)) != 0)
        return -1;
    static_cast<void>(path.release());
    return 0;
}

int ovra::path_list_builder::append(const char *device, const char *file)
{
    return growing_list::append(new_path(handle, device, file));
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
