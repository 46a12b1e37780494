// SPDX-License-Identifier: MIT
// A node's text to bytes and back: usage both_ways TEXT. Prints the bytes and the text.
#include <cstdio>
#include <cstdlib>

#include "src/dpath/dpath.h"
#include "src/encode/encode.h"

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    ovra_path_t path = {argv[1], nullptr};
    ovra_path_t *paths[] = {&path, nullptr};
    uefi_device_path_t **nodes = nullptr;
    ovra_epath_t packed = nullptr;
    int length = 0;
    if (encode_uefipath(paths, &nodes) != 0 || device_path_pack(nodes, &packed, &length) != 0)
        return 1;
    for (int i = 0; i < length; ++i)
        printf("%02x%s", packed[i], i + 1 < length ? " " : "\n");
    ovra_path_t **decoded = nullptr;
    if (ovra_epath_decode_to_uefi(nullptr, packed, length, &decoded) != 0)
        return 1;
    puts(decoded[0]->device_path);
    free_dpath(nullptr, decoded);
    free(packed);
    free_device_path(nodes);
    return 0;
}
