// SPDX-License-Identifier: MIT
#include "tests/fakes/disks.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "platform/include/volset.h"
#include "tests/fakes/platform.h"

using fakes::failing;

struct kvlist {
    fakes::attribute_map values;
};

namespace fakes {

namespace {

// What a descriptor stands for: one of a drive, a medium, or a partition or slice with its medium.
struct object {
    const drive *of_drive = nullptr;
    const medium *of_medium = nullptr;
    const unit *of_unit = nullptr;
    bool is_in_array = false;
};

struct descriptor_table {
    std::mutex lock;
    std::unordered_map<vs_descriptor_t, object> objects;
    vs_descriptor_t next = 0x1000;
};

descriptor_table &table()
{
    static descriptor_table descriptors;
    return descriptors;
}

// Descriptors are watched by their number.
const void *watched(vs_descriptor_t desc)
{
    return reinterpret_cast<const void *>(desc);
}

vs_descriptor_t new_descriptor(const object &stands_for)
{
    const std::lock_guard guard(table().lock);
    const vs_descriptor_t desc = table().next++;
    table().objects[desc] = stands_for;
    handed_out(watched(desc));
    return desc;
}

object object_of(vs_descriptor_t desc)
{
    must_be_out(watched(desc));
    const std::lock_guard guard(table().lock);
    return table().objects.at(desc);
}

void release(vs_descriptor_t desc, bool from_array)
{
    if (object_of(desc).is_in_array != from_array)
        misused("released by the wrong call");
    taken_back(watched(desc));
    const std::lock_guard guard(table().lock);
    table().objects.erase(desc);
}

vs_descriptor_t *new_array(std::vector<object> objects)
{
    auto *array = new vs_descriptor_t[objects.size() + 1];
    std::transform(objects.begin(), objects.end(), array, [](object &one) {
        one.is_in_array = true;
        return new_descriptor(one);
    });
    array[objects.size()] = 0;
    handed_out(array);
    return array;
}

// The outcome of a call for an array that may be told to fail.
vs_descriptor_t *array_or_failure(const std::vector<object> &objects, std::optional<failing> failure,
                                  int *err)
{
    *err = failure == failing::error || failure == failing::error_and_result ? EIO : 0;
    if (failure == failing::error || failure == failing::nothing)
        return nullptr;
    return new_array(failure == failing::empty ? std::vector<object>() : objects);
}

const attribute_map &attributes_of(const object &one)
{
    static const attribute_map none;
    if (one.of_unit)
        return one.of_unit->attributes;
    return one.of_medium ? one.of_medium->attributes : none;
}

kvlist_t *new_list(const attribute_map &values)
{
    auto *list = new kvlist{values};
    handed_out(list);
    return list;
}

// The value of a name in a list. 0, ENOENT or EINVAL.
template <typename T>
int find_value(kvlist_t *list, const char *name, T **found)
{
    if (!list)
        misused("null list");
    must_be_out(list);
    const auto entry = list->values.find(name);
    if (entry == list->values.end())
        return ENOENT;
    *found = std::get_if<T>(&entry->second);
    return *found ? 0 : EINVAL;
}

template <typename T>
int lookup(kvlist_t *list, const char *name, T *value)
{
    const auto failure = next_call();
    T *found = nullptr;
    if (const int error = find_value(list, name, &found))
        return error;
    if (failure)
        return ENOENT;
    *value = *found;
    return 0;
}

} // namespace

void medium::add_partition(const std::string &name, uint32_t start, uint32_t size)
{
    partitions.push_back({name, {{"relsect", start}, {"nsectors", size}}});
}

void medium::add_slice(const std::string &name, uint64_t start, uint64_t size,
                       const std::vector<uint8_t> &guid)
{
    slices.push_back({name, {{"start", start}, {"size", size}, {"uguid", guid}}});
}

std::deque<drive> &drives()
{
    static std::deque<drive> all;
    return all;
}

medium &add_mbr_drive(const std::string &name, uint32_t signature)
{
    return drives().emplace_back(drive{name, {medium{.attributes = {{"volserno", signature}}}}}).media[0];
}

medium &add_gpt_drive(const std::string &name)
{
    return drives().emplace_back(drive{name, {medium{}}}).media[0];
}

} // namespace fakes

vs_descriptor_t *vs_get_descriptors(vs_kind_t kind, const int *filter, int *err)
{
    const auto failure = fakes::next_call();
    if (kind != VS_DRIVE || filter)
        fakes::misused("not all drives");
    std::vector<fakes::object> objects;
    for (const fakes::drive &one : fakes::drives())
        objects.push_back({.of_drive = &one});
    return fakes::array_or_failure(objects, failure, err);
}

vs_descriptor_t vs_get_descriptor_by_name(vs_kind_t kind, const char *name, int *err)
{
    const auto failure = fakes::next_call();
    *err = failure == failing::error || failure == failing::error_and_result ? EIO : 0;
    if (failure && failure != failing::error_and_result)
        return 0;
    for (const fakes::drive &one : fakes::drives())
        for (const fakes::medium &medium : one.media)
            for (const fakes::unit &unit : kind == VS_SLICE ? medium.slices : medium.partitions)
                if (unit.name == name)
                    return fakes::new_descriptor({.of_medium = &medium, .of_unit = &unit});
    *err = ENOENT;
    return 0;
}

vs_descriptor_t *vs_get_associated_descriptors(vs_descriptor_t desc, vs_kind_t kind, int *err)
{
    const auto failure = fakes::next_call();
    const fakes::object one = fakes::object_of(desc);
    std::vector<fakes::object> objects;
    if (kind == VS_MEDIA && one.of_drive) {
        for (const fakes::medium &medium : one.of_drive->media)
            objects.push_back({.of_medium = &medium});
    } else if (kind == VS_MEDIA && one.of_unit) {
        objects.push_back({.of_medium = one.of_medium});
    } else if ((kind == VS_PARTITION || kind == VS_SLICE) && one.of_medium && !one.of_unit) {
        for (const fakes::unit &unit : kind == VS_SLICE ? one.of_medium->slices : one.of_medium->partitions)
            objects.push_back({.of_medium = one.of_medium, .of_unit = &unit});
    } else {
        fakes::misused("nothing of this kind is associated");
    }
    return fakes::array_or_failure(objects, failure, err);
}

kvlist_t *vs_get_attributes(vs_descriptor_t desc, int *err)
{
    const auto failure = fakes::next_call();
    const fakes::object one = fakes::object_of(desc);
    *err = failure == failing::error || failure == failing::error_and_result ? EIO : 0;
    if (failure == failing::error || failure == failing::nothing)
        return nullptr;
    return fakes::new_list(failure == failing::empty ? fakes::attribute_map() : fakes::attributes_of(one));
}

char *vs_get_name(vs_descriptor_t desc, int *err)
{
    const auto failure = fakes::next_call();
    const fakes::object one = fakes::object_of(desc);
    *err = failure == failing::error || failure == failing::error_and_result ? EIO : 0;
    if (failure == failing::error || failure == failing::nothing)
        return nullptr;
    const std::string &name = one.of_unit ? one.of_unit->name : one.of_drive->name;
    if (name.empty()) {
        *err = ENOENT;
        return nullptr;
    }
    char *copy = strdup(failure == failing::empty ? "" : name.c_str());
    if (!copy)
        *err = ENOMEM;
    return copy;
}

void vs_free_descriptor(vs_descriptor_t desc)
{
    if (desc != 0)
        fakes::release(desc, false);
}

void vs_free_descriptors(vs_descriptor_t *descs)
{
    if (!descs)
        return;
    fakes::taken_back(descs);
    for (const vs_descriptor_t *desc = descs; *desc != 0; ++desc)
        fakes::release(*desc, true);
    delete[] descs;
}

int kvlist_lookup_uint32(kvlist_t *list, const char *name, uint32_t *value)
{
    return fakes::lookup(list, name, value);
}

int kvlist_lookup_uint64(kvlist_t *list, const char *name, uint64_t *value)
{
    return fakes::lookup(list, name, value);
}

int kvlist_lookup_uint8_array(kvlist_t *list, const char *name, uint8_t **array, unsigned int *count)
{
    const auto failure = fakes::next_call();
    std::vector<uint8_t> *bytes = nullptr;
    if (const int error = fakes::find_value(list, name, &bytes))
        return error;
    if (failure == failing::error)
        return ENOENT;
    *array = failure == failing::nothing ? nullptr : bytes->data();
    *count = failure == failing::empty ? 0 : static_cast<unsigned int>(bytes->size());
    return failure == failing::error_and_result ? EIO : 0;
}

void kvlist_free(kvlist_t *list)
{
    if (!list)
        return;
    fakes::taken_back(list);
    delete list;
}
