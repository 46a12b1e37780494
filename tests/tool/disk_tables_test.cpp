// SPDX-License-Identifier: MIT
// Partitions that firmware passes over, or knows by another number, as their tables stand.
#include <array>

#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;

class disk_tables : public disks_verb {
protected:
    disk_tables() { put_disk("sdx", "sys/devices/pci0000:00/0000:00:1f.2/ata6/host5/target5:0:0/5:0:0:0"); }

    // Entries of start and size, of type 0x83 unless unused; then the signature.
    void put_mbr(const std::vector<std::array<uint32_t, 2>> &entries, uint32_t signature) const
    {
        std::string record(512, '\0');
        ovra::test::put_number(&record, 440, signature, 4);
        for (size_t at = 0; at < entries.size(); ++at) {
            ovra::test::put_number(&record, 446 + 16 * at + 4, entries[at][1] != 0 ? 0x83 : 0, 1);
            ovra::test::put_number(&record, 446 + 16 * at + 8, entries[at][0], 4);
            ovra::test::put_number(&record, 446 + 16 * at + 12, entries[at][1], 4);
        }
        record.replace(510, 2, "\x55\xaa");
        std::ofstream(root / "dev/sdx", std::ios::binary) << record;
        std::filesystem::resize_file(root / "dev/sdx", 65536UL * 512);
    }

    // A GPT whose first entry has attributes.
    void put_gpt(const std::vector<ovra::test::gpt_entry> &entries, uint64_t attributes) const
    {
        ovra::test::gpt_bytes table = ovra::test::make_gpt(65536, entries);
        ovra::test::put_number(&table.head, 1024 + 48, attributes, 8);
        ovra::test::put_number(&table.head, 512 + 88, ovra::test::crc32(table.head.substr(1024, 16384)), 4);
        ovra::test::put_number(&table.head, 512 + 16, 0, 4);
        ovra::test::put_number(&table.head, 512 + 16, ovra::test::crc32(table.head.substr(512, 92)), 4);
        ovra::test::write_gpt(root / "dev/sdx", 65536, table);
    }

    // What a verb warns of, a line each.
    std::string warnings(const words &arguments) const
    {
        std::string said;
        const json document = json::parse(run(arguments).out);
        for (const json &each : document["warnings"])
            said += each["text"].get<std::string>() + '\n';
        return said;
    }

    // What the creation of an option for one of its partitions warns of.
    std::string warnings_of(const std::string &partition) const
    {
        return warnings(
            {"create", "--desc", "x", "--disk", partition, "--file", "\\a", "--dry-run", "--json"});
    }
};

TEST_F(disk_tables, slices_that_firmware_ignores)
{
    put_gpt({{1, 2048, 4095}, {2, 4096, 8191}, {3, 8191, 10000}}, 2);
    EXPECT_EQ(warnings_of("sdx1"), "the GPT's entry of c5t5d0s0 (sdx1) tells firmware to ignore it\n");
    EXPECT_EQ(warnings_of("sdx2"), "c5t5d0s1 (sdx2) overlaps c5t5d0s2 (sdx3)\n");
    put("Boot0000", load_option(1, "x", from_hex(sample_path_hex)));
    EXPECT_EQ(warnings({"set", "0000", "--replace-disk", "sdx2", "--dry-run", "--json"}),
              "c5t5d0s1 (sdx2) overlaps c5t5d0s2 (sdx3)\n");
    put_gpt({{1, 2048, 4095}, {2, 4096, 8191}}, 5);
    EXPECT_EQ(warnings_of("sdx1") + warnings_of("sdx2"), "");
}

// Firmware drops such a table as a whole.
TEST_F(disk_tables, of_an_mbr_that_firmware_drops)
{
    put_mbr({{2048, 2048}, {4095, 2048}}, 1);
    EXPECT_EQ(warnings_of("sdx1"), "c5t5d0p1 (sdx1) overlaps c5t5d0p2 (sdx2)\n");
    put_mbr({{2048, 2048}, {8192, 65536}}, 1);
    EXPECT_EQ(warnings_of("sdx1"), "c5t5d0p2 (sdx2) reaches beyond the end of its disk\n");
    put_text("sys/block/sdx/sdx2/start", "8192");
    put_text("sys/block/sdx/sdx2/size", "57344"); // as the kernel cuts it
    EXPECT_EQ(warnings_of("sdx2"), "c5t5d0p2 (sdx2) reaches beyond the end of its disk\n");
}

TEST_F(disk_tables, of_an_mbr_with_another_number_or_none)
{
    put_mbr({{2048, 2048}, {0, 0}, {8192, 2048}}, 1);
    EXPECT_EQ(warnings_of("sdx1"), "");
    EXPECT_EQ(warnings_of("sdx3"),
              "the path has the number 3 for c5t5d0p3 (sdx3), before which the MBR has unused entries\n");
    put_mbr({{2048, 2048}}, 0);
    EXPECT_THAT(warnings_of("sdx1"), HasSubstr("the MBR of c5t5d0 (sdx) has the signature 0\n"));
}

} // namespace tool_test
