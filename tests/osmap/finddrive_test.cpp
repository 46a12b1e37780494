// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

#include <cstring>

#include "src/osmap/harddrive.h"
#include "tests/support/sweep.h"

using namespace ovra::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

using searcher = int(ovra_hdl_t, const uefi_hard_drive_path_t *, char ***);

uefi_hard_drive_path_t drive_of(const char *node)
{
    uefi_hard_drive_path_t drive;
    const bytes from = from_hex(node);
    EXPECT_EQ(from.size(), sizeof drive);
    memcpy(&drive, from.data(), sizeof drive);
    return drive;
}

class finddrive : public mapping {
protected:
    // The names found; one that is "-1" when there were none.
    std::vector<std::string> names(searcher *search, const uefi_hard_drive_path_t &drive)
    {
        char **found = nullptr;
        if (search(hdl, &drive, &found) != 0) {
            EXPECT_EQ(found, nullptr);
            return {"-1"};
        }
        auto result = strings_of(found);
        EXPECT_TRUE(memlist_holds(hdl, found));
        for (char **name = found; *name; ++name)
            EXPECT_TRUE(memlist_holds(hdl, *name));
        free_str_array(hdl, found);
        return result;
    }
    std::string errors(searcher *search, const uefi_hard_drive_path_t &drive)
    {
        return errors_of([&] { names(search, drive); });
    }
    std::string traces(searcher *search, const uefi_hard_drive_path_t &drive)
    {
        return traces_of([&] { names(search, drive); });
    }
    // The same with call n of the platform failing.
    std::string errors_failing(unsigned n, fakes::failing how, searcher *search,
                               const uefi_hard_drive_path_t &drive)
    {
        fakes::fail_platform_call(n, how);
        const std::string said = errors(search, drive);
        EXPECT_TRUE(fakes::stop_failing());
        return said;
    }

    fakes::medium &gpt() { return fakes::drives()[0].media[0]; }
    fakes::medium &mbr() { return fakes::drives()[1].media[0]; }

    uefi_hard_drive_path_t slice = drive_of(slice_node);
    uefi_hard_drive_path_t partition = drive_of(partition_node);
};

TEST_F(finddrive, by_signature)
{
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("c0t1d0p1"));
    fakes::drives().pop_front();
    EXPECT_EQ(errors(find_drive_mbrsig, partition), "");
    EXPECT_EQ(traces(find_drive_mbrsig, partition), "name[0]=c0t1d0\n"
                                                    "\n\npartition: 0\n"
                                                    "VS_NSECTORS (number of sectors): 1000000\n"
                                                    "VS_RELSECT (start sector): 0\n"
                                                    "\n\npartition: 1\n"
                                                    "VS_NSECTORS (number of sectors): 409600\n"
                                                    "VS_RELSECT (start sector): 2048\n"
                                                    "partition name = c0t1d0p1\n"
                                                    "num_matches after increment: 1\n");
}

TEST_F(finddrive, by_guid)
{
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("c0t0d0s0"));
    fakes::drives().pop_back();
    EXPECT_EQ(errors(find_drive_guid, slice), "");
    EXPECT_EQ(traces(find_drive_guid, slice), "\n\npartition: 0\n"
                                              "match found: /dev/dsk/c0t0d0s0\n"
                                              "partition name = c0t0d0s0\n"
                                              "num_matches after increment: 1\n");
}

TEST_F(finddrive, start_and_size_must_both_match)
{
    for (const auto &[start, size] : {std::pair<uint64_t, uint64_t>{2049, 409600}, {2048, 409601}}) {
        partition.part_start = start;
        partition.part_size = size;
        EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("-1"));
    }
    EXPECT_THAT(traces(find_drive_mbrsig, partition), ::testing::EndsWith("no partition matches\n"));
    for (const uint64_t beyond : {uint64_t{1} << 32, uint64_t{0}}) {
        partition = drive_of(partition_node);
        partition.part_start += beyond; // the medium's values are widened, the node's not cut
        EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre(beyond != 0 ? "-1" : "c0t1d0p1"));
    }
    slice.part_start += 1;
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    slice = drive_of(slice_node);
    slice.part_size += 1;
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    EXPECT_THAT(traces(find_drive_guid, slice), ::testing::EndsWith("no partition matches\n"));
}

TEST_F(finddrive, another_signature)
{
    partition.part_sig[0] = 0x79;
    fakes::drives().pop_front();
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("-1"));
    EXPECT_EQ(errors(find_drive_mbrsig, partition),
              "mbrsig doesn't match: mbrsig: 12345678 hdp_mbrsig: 12345679\n");
    EXPECT_EQ(traces(find_drive_mbrsig, partition), "name[0]=c0t1d0\n");
    // Of the signature 32 bits count.
    partition = drive_of(partition_node);
    memset(partition.part_sig + 4, 0xff, 12);
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("c0t1d0p1"));
}

TEST_F(finddrive, another_guid)
{
    slice.part_sig[15] ^= 1;
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    fakes::drives().pop_back();
    EXPECT_EQ(errors(find_drive_guid, slice), "UEFI UGUID doesn't match\nUEFI UGUID doesn't match\n");
}

TEST_F(finddrive, alike_disks_are_all_found_in_their_order)
{
    for (const char *name : {"c2t0d0", "c1t0d0"}) {
        fakes::medium &mbr_medium = fakes::add_mbr_drive(name, 0x12345678);
        mbr_medium.add_partition(std::string("/dev/rdsk/") + name + "p2", 2048, 409600);
        // Of a drive only the first match counts.
        mbr_medium.add_partition(std::string("/dev/rdsk/") + name + "p3", 2048, 409600);
        fakes::add_gpt_drive(name).add_slice(std::string("/dev/dsk/") + name + "s7", 0x800, 0x100000,
                                             from_hex(guid_of_slice));
    }
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("c0t1d0p1", "c2t0d0p2", "c1t0d0p2"));
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("c0t0d0s0", "c2t0d0s7", "c1t0d0s7"));
    EXPECT_THAT(traces(find_drive_guid, slice), HasSubstr("num_matches after increment: 3\n"));
}

TEST_F(finddrive, no_drives)
{
    fakes::drives().clear();
    EXPECT_EQ(errors(find_drive_mbrsig, partition), "vs_get_descriptors VS_DRIVE list is NULL\n");
    EXPECT_EQ(errors(find_drive_guid, slice), "vs_get_descriptors VS_DRIVE list is NULL\n");
    make_drives();
    for (searcher *search : {find_drive_mbrsig, find_drive_guid}) {
        using enum fakes::failing;
        EXPECT_EQ(errors_failing(0, error, search, slice), "vs_get_descriptors VS_DRIVE failed. err is 5\n");
        EXPECT_EQ(errors_failing(0, error_and_result, search, slice),
                  "vs_get_descriptors VS_DRIVE failed. err is 5\n");
        EXPECT_EQ(errors_failing(0, nothing, search, slice), "vs_get_descriptors VS_DRIVE list is NULL\n");
        EXPECT_EQ(errors_failing(0, empty, search, slice), "vs_get_descriptors VS_DRIVE list is NULL\n");
    }
}

TEST_F(finddrive, a_drive_without_a_name_is_passed_over)
{
    fakes::drives()[0].name = "";
    fakes::drives()[1].name = "";
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("-1"));
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    EXPECT_EQ(errors(find_drive_mbrsig, partition) + traces(find_drive_guid, slice), "");
}

TEST_F(finddrive, messages_of_the_search_by_signature)
{
    using enum fakes::failing;
    fakes::drives().pop_front();
    // Calls: drives, name, media, attributes, volserno, partitions, then of each attributes, size, start.
    EXPECT_EQ(errors_failing(2, error, find_drive_mbrsig, partition),
              "unexpected NULL media descriptor: 5\n");
    EXPECT_EQ(errors_failing(2, error_and_result, find_drive_mbrsig, partition),
              "unexpected NULL media descriptor: 5\n");
    EXPECT_EQ(errors_failing(2, empty, find_drive_mbrsig, partition),
              "unexpected NULL media descriptor: 0\n");
    EXPECT_EQ(errors_failing(3, error, find_drive_mbrsig, partition),
              "vs_get_attributes media[0] err == 5 kvl = (nil)\n");
    EXPECT_THAT(errors_failing(3, error_and_result, find_drive_mbrsig, partition),
                MatchesRegex("vs_get_attributes media\\[0\\] err == 5 kvl = 0x[0-9a-f]+\n"));
    EXPECT_EQ(errors_failing(4, error, find_drive_mbrsig, partition), "unable to extract VOLSERNO\n");
    EXPECT_THAT(errors_failing(5, error, find_drive_mbrsig, partition),
                MatchesRegex("matching mbrsig unexpected problem getting partition descr partition=\\(nil\\) "
                             "err=5 drive\\[0\\]=[0-9a-f]+\n"));
    EXPECT_THAT(errors_failing(5, error_and_result, find_drive_mbrsig, partition),
                MatchesRegex("matching mbrsig unexpected problem getting partition descr "
                             "partition=0x[0-9a-f]+ err=5 drive\\[0\\]=[0-9a-f]+\n"));
    EXPECT_EQ(errors_failing(5, nothing, find_drive_mbrsig, partition),
              "matching mbrsig unexpected NULL partition descriptor: partition = (nil)\n");
    EXPECT_THAT(
        errors_failing(5, empty, find_drive_mbrsig, partition),
        MatchesRegex("matching mbrsig unexpected NULL partition descriptor: partition = 0x[0-9a-f]+\n"));
    EXPECT_EQ(errors_failing(6, error, find_drive_mbrsig, partition),
              "vs_get_attributes partition[0] err == 5 kvl = (nil)\n");
    EXPECT_EQ(errors_failing(7, error, find_drive_mbrsig, partition), "unable to find VS_NSECTORS for\n");
}

TEST_F(finddrive, kept_no_line_end_behind_a_missing_start)
{
    fakes::drives().pop_front();
    EXPECT_EQ(errors_failing(8, fakes::failing::error, find_drive_mbrsig, partition),
              "unable to find VS_RELSECT (start sector)");
}

TEST_F(finddrive, messages_of_the_search_by_guid)
{
    using enum fakes::failing;
    fakes::drives().pop_back();
    // Calls: drives, name, media, slices, then of each attributes, guid, size, start.
    EXPECT_EQ(errors_failing(2, error, find_drive_guid, slice), "unexpected NULL media descriptor\n");
    EXPECT_EQ(errors_failing(2, empty, find_drive_guid, slice), "unexpected NULL media descriptor\n");
    EXPECT_THAT(errors_failing(3, error, find_drive_guid, slice),
                MatchesRegex("unexpected problem getting partition descr partition=\\(nil\\) err=5 "
                             "drive\\[0\\]=[0-9a-f]+\n"));
    EXPECT_EQ(errors_failing(3, nothing, find_drive_guid, slice), "no VS_SLICE descriptors for (nil)\n");
    EXPECT_EQ(errors_failing(5, error, find_drive_guid, slice),
              "unable to extract UEFI UGUID p0\nUEFI UGUID doesn't match\n");
    EXPECT_EQ(errors_failing(6, error, find_drive_guid, slice),
              "unable to extract VS_SIZE (number of sectors)\nUEFI UGUID doesn't match\n");
    EXPECT_EQ(errors_failing(7, error, find_drive_guid, slice),
              "unable to extract VS_START (start sector)\nUEFI UGUID doesn't match\n");
}

TEST_F(finddrive, kept_no_blank_in_the_attribute_message_of_the_search_by_guid)
{
    fakes::drives().pop_back();
    EXPECT_EQ(errors_failing(4, fakes::failing::error, find_drive_guid, slice),
              "vs_get_attributespartition[0] err == 5 kvl = (nil)\nUEFI UGUID doesn't match\n");
}

TEST_F(finddrive, a_match_without_a_usable_name)
{
    for (const std::string name : {"", "/dev/dsk", "x"}) {
        mbr().partitions[1].name = name;
        EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre("-1"));
        EXPECT_THAT(traces(find_drive_mbrsig, partition), ::testing::EndsWith("no partition matches\n"));
        gpt().slices[0].name = name;
        EXPECT_THAT(traces(find_drive_guid, slice), HasSubstr("no partition matches\n"));
    }
    mbr().partitions[1].name = "/dev/rdsk/";
    EXPECT_THAT(names(find_drive_mbrsig, partition), ElementsAre(""));
}

TEST_F(finddrive, guids_of_other_lengths)
{
    auto &guid = gpt().slices[0].attributes["uguid"];
    bytes longer = from_hex(guid_of_slice);
    longer.insert(longer.end(), {2, 2, 0, 0});
    guid = longer; // as the bytes behind the signature in the node
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    guid = bytes();
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("-1"));
    guid = bytes{0x37, 0x0a, 0x9f}; // as many as there are, compared
    EXPECT_THAT(names(find_drive_guid, slice), ElementsAre("c0t0d0s0"));
}

TEST_F(finddrive, by_the_signature_type_of_a_node)
{
    const auto found = [&](const char *node) {
        const bytes stored = from_hex(node); // of exactly its length
        char **list = nullptr;
        const int result =
            ovra::find_drives(hdl, reinterpret_cast<const uefi_device_path_t *>(stored.data()), &list);
        auto text = strings_of(list);
        free_str_array(hdl, list);
        return result == 0 ? text : std::vector<std::string>{"-1"};
    };
    EXPECT_THAT(found(slice_node), ElementsAre("c0t0d0s0"));
    EXPECT_THAT(found(partition_node), ElementsAre("c0t1d0p1"));
    for (const char *type : {"00", "03", "ff"})
        EXPECT_THAT(found((std::string(slice_node).substr(0, 41 * 3) + type).c_str()), ElementsAre("-1"));
    EXPECT_THAT(found("04 01 04 00"), ElementsAre("-1"));
    std::string shorter = std::string(slice_node).substr(0, 41 * 3);
    shorter.replace(6, 2, "29");
    EXPECT_THAT(found(shorter.c_str()), ElementsAre("-1"));
}

TEST_F(finddrive, many_drives_cost_as_much_each_as_few)
{
    struct cost {
        long calls, allocations;
    };
    const auto cost_of = [&](int count, searcher *search, const uefi_hard_drive_path_t &drive) {
        fakes::reset_platform();
        for (int i = 0; i < count; ++i) {
            const std::string name = "c" + std::to_string(i) + "t0d0";
            fakes::medium &medium = fakes::add_mbr_drive(name, 0x12345678);
            medium.add_partition("/dev/rdsk/" + name + "p0", 0, 1000000);
            medium.add_partition("/dev/rdsk/" + name + "p1", 2048, 409600);
            medium.add_slice("/dev/dsk/" + name + "s0", 0x800, 0x100000, from_hex(guid_of_slice));
        }
        char **found = nullptr;
        count_blocks();
        EXPECT_EQ(search(hdl, &drive, &found), 0);
        const cost result = {fakes::platform_calls(), allocations()};
        stop_counting();
        EXPECT_EQ(strings_of(found).size(), static_cast<size_t>(count));
        free_str_array(hdl, found);
        return result;
    };
    for (searcher *search : {find_drive_mbrsig, find_drive_guid}) {
        const auto &drive = search == find_drive_guid ? slice : partition;
        const cost few = cost_of(100, search, drive);
        const cost many = cost_of(1000, search, drive);
        EXPECT_EQ((many.calls - few.calls) * 100, (few.calls - 1) * 900); // one call asks for all drives
        EXPECT_LE(many.allocations, few.allocations * 10 + 10);
    }
}

} // namespace
