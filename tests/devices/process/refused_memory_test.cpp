// SPDX-License-Identifier: MIT
// Every allocation of every call is refused once, and once together with all that follow it. The call must
// fail as its header says, and keep no memory and no file descriptor.
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/refused_new.h"

namespace {

using namespace devices_test;

class refused_memory : public testing::Test {
protected:
    // `body` makes a call, releases its result, and returns 0 or the errno value of the failure.
    static void sweep(const std::function<int()> &body)
    {
        int error = -1;
        ovra::test::for_each_refused_new(
            [] {}, [&] { error = body(); },
            [&](long n, bool refused) { EXPECT_EQ(error, refused ? ENOMEM : 0) << n; });
    }

    sample machine{"pc"};
};

TEST_F(refused_memory, snapshot_of_the_tree)
{
    sweep([] {
        ht_node_t root = ht_init("/", HT_SUBTREE | HT_PROPS);
        const int error = root != nullptr ? 0 : errno;
        ht_fini(root);
        return error;
    });
}

TEST_F(refused_memory, path_of_a_node)
{
    const snapshot root(ht_init("/", HT_SUBTREE));
    ht_node_t node = ht_child_node(ht_child_node(root.get()));
    sweep([node] {
        char *path = ht_devfs_path(node);
        const int error = path != nullptr ? 0 : errno;
        ht_devfs_path_free(path);
        return error;
    });
}

TEST_F(refused_memory, all_descriptors)
{
    for (const vs_kind_t kind : {VS_DRIVE, VS_MEDIA, VS_PARTITION, VS_SLICE}) {
        sweep([kind] {
            int err = -1;
            vs_free_descriptors(vs_get_descriptors(kind, nullptr, &err));
            return err;
        });
    }
}

TEST_F(refused_memory, descriptor_by_name)
{
    sweep([] {
        int err = -1;
        vs_free_descriptor(vs_get_descriptor_by_name(VS_SLICE, "/dev/dsk/c1t3d0s0", &err));
        return err;
    });
}

TEST_F(refused_memory, what_a_descriptor_gives)
{
    for (const vs_kind_t kind : {VS_DRIVE, VS_MEDIA, VS_SLICE}) {
        const descriptors all = all_of(kind);
        sweep([&] {
            int err = -1;
            kvlist_free(vs_get_attributes(all[0], &err));
            return err;
        });
    }
    const descriptors drives = all_of(VS_DRIVE);
    sweep([&] {
        int err = -1;
        kvlist_free(vs_get_attachment(drives[0], &err));
        return err;
    });
    const descriptors slices = all_of(VS_SLICE);
    sweep([&] {
        int err = -1;
        free(vs_get_name(slices[0], &err));
        return err;
    });
    sweep([&] {
        int err = -1;
        vs_free_descriptors(vs_get_associated_descriptors(slices[0], VS_MEDIA, &err));
        return err;
    });
}

TEST_F(refused_memory, link_of_a_disk)
{
    sweep([] {
        char buffer[1024];
        return devns_readlink("/dev/dsk/c1t3d0s0", buffer, sizeof buffer) > 0 ? 0 : errno;
    });
}

TEST_F(refused_memory, list_stays_as_it_was)
{
    const std::string name = "a name that does not fit into a string object";
    const uint8_t bytes[64] = {};
    sweep([&] {
        kvlist_t *list = kvlist_alloc();
        if (list == nullptr)
            return errno;
        int error = kvlist_add_uint32(list, name.c_str(), 1);
        uint32_t value = 0;
        if ((kvlist_lookup_uint32(list, name.c_str(), &value) == 0) != (error == 0))
            error = -1;
        if (error == 0)
            error = kvlist_add_uint64(list, name.c_str(), 2);
        if (error == 0)
            error = kvlist_add_uint8_array(list, name.c_str(), bytes, sizeof bytes);
        kvlist_free(list);
        return error;
    });
}

} // namespace
