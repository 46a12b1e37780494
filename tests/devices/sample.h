/* SPDX-License-Identifier: MIT */
/* Machines for tests: captured ones, and ones made piece by piece. */
#ifndef TESTS_DEVICES_SAMPLE_H
#define TESTS_DEVICES_SAMPLE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/include/devns.h"
#include "platform/include/hwtree.h"
#include "platform/include/kvlist.h"
#include "platform/include/volset.h"
#include "tests/platform/machine_folder.h"
#include "tests/support/memory_folder.h"

namespace devices_test {

using platform_test::environment;
namespace fs = std::filesystem;

/* A machine in a temporary folder, which HWPLAT_ROOT names for as long as this lives. */
class sample : ovra::test::folders_in_memory, public platform_test::machine_folder {
public:
    /* An empty machine. */
    sample() = default;

    /* A captured one: "q35" or "pc". */
    explicit sample(const std::string &captured);

    /* A text file, with a line end. `path` is relative to the machine. */
    void text(const std::string &path, const std::string &contents) const;

    /* A PCI function; returns its path. `place` is relative to sys/devices. */
    std::string function(const std::string &place, unsigned class_code, unsigned vendor = 0x8086,
                         unsigned device = 0x1234) const;

    /* A disk at `place`, relative to the machine, with "block/<name>" added. */
    void disk(const std::string &name, const std::string &place, std::uint64_t units = 65536,
              unsigned block_size = 512) const;

    /* An ATA port with its number in sysfs. Returns the place of its disk. */
    std::string ata(const std::string &function, unsigned host, unsigned port, const std::string &address,
                    unsigned links = 0) const;

    /* An image of `units` of 512 bytes below dev, without content. */
    [[nodiscard]] fs::path image(const std::string &name, std::uint64_t units = 65536) const;

    /* Writes a partition table into an image, as sfdisk's input describes it. */
    static void partition(const fs::path &image, const std::string &script);

    /* Overwrites bytes of an image. */
    static void patch(const fs::path &image, std::uint64_t offset, const std::string &bytes);
};

/* The answers of libvolset, a line of text for each: "c0t0d0s0 2048 40960". */
std::vector<std::string> drives();  /* name, tree path, Linux name, block size and number of blocks */
std::vector<std::string> volumes(); /* partitions and slices of all media: name, start, size */

/* The physical paths of all nodes, as a walk meets them. */
std::vector<std::string> tree_paths();

/* The target of a link below "/dev"; "errno N" on failure. */
std::string link_of(const std::string &path);

/* Results of libvolset and libhwtree. The calls expect that there is no error. */
struct list_freeing {
    void operator()(kvlist_t *list) const { kvlist_free(list); }
};
using attributes = std::unique_ptr<kvlist_t, list_freeing>;
struct array_freeing {
    void operator()(vs_descriptor_t *array) const { vs_free_descriptors(array); }
};
using descriptors = std::unique_ptr<vs_descriptor_t[], array_freeing>;
struct tree_freeing {
    void operator()(ht_node_t root) const { ht_fini(root); }
};
using snapshot = std::unique_ptr<struct ht_node, tree_freeing>;

attributes attributes_of(vs_descriptor_t desc);
descriptors all_of(vs_kind_t kind);
descriptors associated(vs_descriptor_t desc, vs_kind_t kind);
std::string name_of(vs_descriptor_t desc);
std::optional<std::uint64_t> attribute(kvlist_t *list, const char *name);

/* What HWPLAT_DEBUG makes the libraries say while `call` runs. */
template <typename body>
std::string said(body call)
{
    const environment wanted("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

} // namespace devices_test

#endif
