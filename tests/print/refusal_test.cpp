// SPDX-License-Identifier: MIT
// Memory that is refused: a text may be shorter, nothing else may differ.
#include <gtest/gtest.h>

#include "src/rt/rt.h"
#include "tests/print/golden.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

struct expected_instance {
    std::vector<std::string> device; /* as pieces behind another piece */
    std::vector<std::string> file;
};

// How many of the pieces are not in `text`, which is made of the others in their order and of nothing else.
long pieces_lost(std::string_view text, const std::vector<std::string> &pieces)
{
    const std::string_view all = text;
    long lost = 0;
    bool first = true;
    for (const std::string &whole : pieces) {
        std::string_view piece = whole;
        // A media node that came to stand first.
        if (first && !text.starts_with(piece) && piece.starts_with("/HD("))
            piece.remove_prefix(1);
        if (text.starts_with(piece)) {
            text.remove_prefix(piece.size());
            first = false;
        } else {
            ++lost;
        }
    }
    EXPECT_EQ(text, "") << all;
    return lost;
}

const char packed[] = "02 01 0c00 d041030a 00000000  01 01 0600 02 1f  03 0c 0600 abcd  04 01 2a00 00000000"
                      "0000000000000000 0000000000000000 cdab3412 000000000000000000000000 01 01"
                      "04 04 0800 6100 0000  04 04 0800 6200 0000  7f 01 0400"
                      "01 03 0600 0102  7f 01 0400  04 04 0800 6300 0000  7f ff 0400";
const std::vector<expected_instance> expected = {
    {{"/PciRoot(0x0)", "/Pci(0x1f,0x2)", "/MessagingPath(12,0600abcd)", "/HD(0,MBR,0x1234ABCD)"}, {"a", "b"}},
    {{"/HardwarePath(0x3,06000102)"}, {}},
    {{}, {"c"}},
};

} // namespace

TEST(refusal, decoding_fails_or_gives_shorter_texts)
{
    // The handle's list, of 20 slots at first, grows in front of the result, in the middle of it, or not at
    // all.
    for (const unsigned before : {0U, 13U, 15U, 17U, 18U, 19U, 20U}) {
        const realloc_guard as_told(before % 2 == 0 ? realloc_policy::natural : realloc_policy::moves);
        bytes path = from_hex(packed);
        size_t shorter = 0;
        size_t whole = 0;
        long lost = 0; // pieces, in the last call
        for_each_refused_allocation_any_result(
            [&](ovra_hdl_t hdl) {
                ovra_path_t **paths = nullptr;
                const int result =
                    ovra_epath_decode_to_uefi(hdl, path.data(), static_cast<int>(path.size()), &paths);
                if (result != 0)
                    return result;
                lost = 0;
                for (size_t i = 0; i < expected.size(); ++i) {
                    const ovra_path_t &one = *paths[i];
                    lost += pieces_lost(one.device_path, expected[i].device);
                    lost += pieces_lost(one.file_path ? one.file_path : "", expected[i].file);
                }
                EXPECT_EQ(paths[expected.size()], nullptr);
                (lost == 0 ? whole : shorter) += 1;
                return 0;
            },
            [&](const attempt &one) {
                // One block that is refused is one node's text that is missing, or the file's that was
                // gathered so far.
                EXPECT_LE(lost, one.refused == 0 ? 0 : 2);
                EXPECT_TRUE(one.result == 0 || (one.result == -1 && one.refused > 0)) << one.result;
                if (one.persistent && one.refused > 0) {
                    EXPECT_EQ(one.result, -1);
                }
            },
            before);
        EXPECT_EQ(whole, 3U); // the free call, and the last of both rounds
        EXPECT_GT(shorter, 3U);
    }
}

TEST(refusal, failed_decoding_releases_what_it_built)
{
    bytes path = from_hex(packed);
    for_each_refused_allocation_any_result(
        [&](ovra_hdl_t hdl) {
            const long before = live_blocks();
            ovra_path_t **paths = nullptr;
            const int result =
                ovra_epath_decode_to_uefi(hdl, path.data(), static_cast<int>(path.size()), &paths);
            if (result == 0)
                free_dpath(hdl, paths);
            // The handle's own list is all that may have come.
            EXPECT_LE(live_blocks(), before + 1);
            for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
                EXPECT_EQ(hdl->memlist_addr[slot], nullptr);
            return result;
        },
        [](const attempt &one) { EXPECT_TRUE(one.result == 0 || one.refused > 0); });
}

TEST(refusal, node_is_printed_whole_or_not_at_all)
{
    for (const golden_case &one : golden_cases()) {
        for (const bytes &node : split_nodes(one.nodes)) {
            const std::string whole = "before" + printed(node, "before").value();
            const exact_node exact(node);
            for (long n = 0;; ++n) {
                char *text = strdup("before");
                refuse_from(n, false);
                print_device_path(exact.get(), &text);
                const long refused = stop_refusing();
                EXPECT_EQ(text, refused == 0 ? whole : "before") << one.name;
                free(text);
                if (refused == 0)
                    break;
                ASSERT_LT(n, 2); // the hex text and the accumulator
            }
        }
    }
}

TEST(refusal, first_node_is_printed_whole_or_leaves_no_text)
{
    for (const char *node : {"01 01 0600 021f", "01 03 0600 abcd", "04 01 0400", "09 01 0400"}) {
        const exact_node exact(from_hex(node));
        for (long n = 0; n < 2; ++n) {
            char *text = nullptr;
            refuse_from(n, true);
            print_device_path(exact.get(), &text);
            if (stop_refusing() > 0) {
                EXPECT_EQ(text, nullptr);
            } else {
                EXPECT_EQ(text, printed(from_hex(node)));
            }
            free(text);
        }
    }
}
