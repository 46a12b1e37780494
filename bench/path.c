// SPDX-License-Identifier: MIT
/*
 * usage: path encode|decode|format NAME COUNT
 *
 * What does a device path cost between text and packed form? Does one of them COUNT times and prints how many
 * allocations each took. `format` is another library's decode, where that is installed.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ovra/ovra.h>

#ifdef COMPARE_WITH_EFIVAR
#include <efivar/efivar.h>
#endif

#include "bench/allocations.h"

#define PCI_4 "/Pci(0x1,0x1)/Pci(0x1,0x1)/Pci(0x1,0x1)/Pci(0x1,0x1)"
#define HARD_DRIVE "HD(1,GPT,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01,0x800,0x100000)"
#define LOADER "\\EFI\\BOOT\\BOOTX64.EFI"

static char p1[] = "PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)/" HARD_DRIVE;
static char p2[] = HARD_DRIVE;
static char p3[] = "PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Scsi(0x1,0x0)";
static char p4[] = "PciRoot(0x0)/Pci(0x3,0x0)/MAC(525400123456,1)/IPv4(192.168.0.1)";
static char p5[] = "PciRoot(0x0)" PCI_4 PCI_4 PCI_4 PCI_4 "/Pci(0x1,0x1)/Pci(0x1,0x1)/Pci(0x1,0x1)";
static char loader[] = LOADER;

static const struct named_path {
    const char *name;
    ovra_path_t path;
} named_paths[] = {
    {"P1", {p1, loader}}, {"P2", {p2, loader}}, {"P3", {p3, NULL}}, {"P4", {p4, NULL}}, {"P5", {p5, NULL}}};

struct packed_path {
    ovra_epath_t bytes;
    int size;
};

static struct packed_path encode(const ovra_path_t *path)
{
    ovra_path_t instance = *path;
    ovra_path_t *paths[] = {&instance, NULL};
    struct packed_path packed;
    if (ovra_epath_encode(NULL, paths, 0, &packed.bytes, &packed.size) != 0)
        abort();
    return packed;
}

static void encode_and_free(ovra_hdl_t hdl, const ovra_path_t *path, struct packed_path packed)
{
    (void)hdl;
    (void)packed;
    free(encode(path).bytes);
}

static void decode_and_free(ovra_hdl_t hdl, const ovra_path_t *path, struct packed_path packed)
{
    (void)path;
    ovra_path_t **paths;
    if (ovra_epath_decode_to_uefi(hdl, packed.bytes, packed.size, &paths) != 0)
        abort();
    free_dpath(hdl, paths);
}

#ifdef COMPARE_WITH_EFIVAR
/* In one pass, into a buffer that is there already. */
static void format(ovra_hdl_t hdl, const ovra_path_t *path, struct packed_path packed)
{
    (void)hdl;
    (void)path;
    static char text[1024];
    if (efidp_format_device_path(text, sizeof text, (const_efidp)packed.bytes, packed.size) < 0)
        abort();
}
#endif

static const struct named_work {
    const char *name;
    void (*once)(ovra_hdl_t hdl, const ovra_path_t *path, struct packed_path packed);
} named_works[] = {
    {"encode", encode_and_free},
    {"decode", decode_and_free},
#ifdef COMPARE_WITH_EFIVAR
    {"format", format},
#endif
};

int main(int argc, char **argv)
{
    const struct named_work *work = NULL;
    const struct named_path *path = NULL;
    for (size_t at = 0; argc == 4 && at < sizeof named_works / sizeof *named_works; ++at)
        work = strcmp(argv[1], named_works[at].name) == 0 ? &named_works[at] : work;
    for (size_t at = 0; argc == 4 && at < sizeof named_paths / sizeof *named_paths; ++at)
        path = strcmp(argv[2], named_paths[at].name) == 0 ? &named_paths[at] : path;
    const long count = argc == 4 ? strtol(argv[3], NULL, 10) : 0;
    if (!work || !path || count <= 0) {
        fputs("usage: path encode|decode|format P1..P5 COUNT\n", stderr);
        return 2;
    }
    setenv("OVRA_TEST_FILE", "", 1);
    ovra_hdl_t hdl;
    if (ovra_init(&hdl) != 0)
        return 1;
    const struct packed_path packed = encode(&path->path);
    work->once(hdl, &path->path, packed); /* what the first call alone does */
    const size_t before = allocations();
    for (long at = 0; at < count; ++at)
        work->once(hdl, &path->path, packed);
    printf("%zu\n", (allocations() - before) / (size_t)count);
    free(packed.bytes);
    ovra_fini(hdl);
    return 0;
}
