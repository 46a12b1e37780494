#include "src/print/paths.h"

#include <bit>
#include <cstring>

#include "src/rt/owned.h"

using ovra::owned;
using ovra::tracked;

// A copy that the handle tracks, or null.
static tracked<char> copy_of(ovra_hdl_t hdl, const char *text)
{
    owned<char> copy(strdup(text));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return {nullptr, {hdl}};
    return {copy.release(), {hdl}};
}

// Room for one more than `count` instances. The array doubles, so that a path of many instances is not copied
// for each of them; how many slots it has follows from the count.
static ovra_path_t **room_for_one(ovra_hdl_t hdl, ovra_path_t **list, size_t count)
{
    const size_t slots = std::bit_ceil(count + 1);
    if (list && count + 2 <= slots)
        return list;
    return static_cast<ovra_path_t **>(
        memlist_realloc(hdl, list, 2 * slots * sizeof(ovra_path_t *), "decoded_path"));
}

int ovra::append_path(ovra_hdl_t hdl, const char *device, const char *file, size_t count, ovra_path_t ***list)
{
    tracked<char> device_copy = copy_of(hdl, device ? device : "");
    if (!device_copy)
        return -1;
    tracked<char> file_copy(nullptr, {hdl});
    if (file) {
        file_copy = copy_of(hdl, file);
        if (!file_copy)
            return -1;
    }
    auto path = tracked_malloc<ovra_path_t>(hdl, sizeof(ovra_path_t), "struct ovra_path_t");
    if (!path)
        return -1;
    ovra_path_t **grown = room_for_one(hdl, *list, count);
    if (!grown)
        return -1;
    *path = {device_copy.release(), file_copy.release()};
    grown[count] = path.release();
    grown[count + 1] = nullptr;
    *list = grown;
    return 0;
}

int add_path(ovra_hdl_t hdl, const char *device, const char *file, ovra_path_t ***list)
{
    size_t count = 0;
    while (*list && (*list)[count])
        ++count;
    return ovra::append_path(hdl, device, file, count, list);
}

void free_dpath(ovra_hdl_t hdl, ovra_path_t **list)
{
    if (!list)
        return;
    for (ovra_path_t **path = list; *path; ++path) {
        memlist_free(hdl, (*path)->device_path);
        memlist_free(hdl, (*path)->file_path);
        memlist_free(hdl, *path);
    }
    memlist_free(hdl, list);
}
