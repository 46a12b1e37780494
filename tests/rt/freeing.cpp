// SPDX-License-Identifier: MIT
// usage: freeing BLOCKS keep|first_to_last|last_to_first|random|turns
//
// Makes so many tracked blocks and gives them back: with the handle, one after the other in an order, or each
// while others are made.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "src/rt/rt.h"

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    const std::string way = argv[2];
    setenv("OVRA_TEST_FILE", "", 1);
    ovra_hdl_t hdl = nullptr;
    if (ovra_init(&hdl) != 0)
        return 1;
    std::vector<void *> blocks(static_cast<size_t>(std::atol(argv[1])));
    for (void *&block : blocks)
        block = memlist_malloc(hdl, 16, "freeing");
    if (way == "last_to_first")
        std::reverse(blocks.begin(), blocks.end());
    if (way == "random")
        std::shuffle(blocks.begin(), blocks.end(), std::mt19937(7));
    for (void *block : blocks) {
        if (way == "keep")
            break;
        memlist_free(hdl, block);
        if (way == "turns") {
            memlist_malloc(hdl, 16, "freeing");
            memlist_free(hdl, memlist_malloc(hdl, 16, "freeing"));
            memlist_malloc(hdl, 16, "freeing");
        }
    }
    ovra_fini(hdl);
    return 0;
}
