// SPDX-License-Identifier: MIT
// The disks of the captured machines, against a table written by hand.
#include <sstream>

#include "tests/support/rows.h"
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace {

// What the disks of the captured machine are known to be.
struct known_volume {
    std::string name;
    std::string path;
    uint64_t start = 0;
    uint64_t size = 0;
    std::string short_form;
    std::string full_form; // as firmware writes it
};

std::vector<known_volume> known_volumes(const std::string &of)
{
    std::ifstream table(OVRA_TEST_DATA "/devices.tsv");
    std::vector<known_volume> all;
    for (std::string line; std::getline(table, line);) {
        std::istringstream cells(line);
        std::string machine;
        std::string link;
        std::string full_form_of_library;
        known_volume next;
        if (!(cells >> machine >> next.name >> link >> next.path >> next.start >> next.size >>
              next.short_form >> full_form_of_library >> next.full_form) ||
            machine != of)
            continue;
        all.push_back(next);
    }
    return all;
}

bool is_hex(const std::string &text)
{
    return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

struct captured_machine {
    const char *name;
};
constexpr captured_machine captured_machines[] = {{"q35"}, {"pc"}};

class known_disks : public disks_verb {
public:
    using disks_verb::bytes_of_guid;
    using disks_verb::disk_of;
    using disks_verb::parsed;
    using disks_verb::run;
    using disks_verb::unpack;
    using disks_verb::volume;
};

void agree_with_what_is_known_of_them(known_disks &machine, const captured_machine &tested)
{
    const std::vector<known_volume> known = known_volumes(tested.name);
    machine.unpack(tested.name);
    const json disks = machine.parsed({"disks"});
    ASSERT_GE(known.size(), 2u);
    std::vector<std::string> names;
    for (const json &disk : disks["disks"]) {
        for (const json &volume : disk["volumes"])
            names.push_back(volume["name"]);
        const std::string path = disk["path"];
        EXPECT_EQ(disk["controller"], path.substr(0, path.rfind('/')));
    }
    std::vector<std::string> known_names;
    for (const known_volume &expected : known) {
        known_names.push_back(expected.name);
        const json found = known_disks::volume(disks, expected.name);
        ASSERT_FALSE(found.is_null()) << expected.name;
        EXPECT_EQ(found["start"], expected.start) << expected.name;
        EXPECT_EQ(found["size"], expected.size) << expected.name;
        const bool slice = expected.name.find('s') != std::string::npos;
        EXPECT_EQ(found["kind"], slice ? "slice" : "partition") << expected.name;
        const json disk = known_disks::disk_of(disks, expected.name);
        EXPECT_EQ(disk["path"], expected.path) << expected.name;
        EXPECT_EQ(disk["medium"], slice ? "GPT" : "MBR") << expected.name;
        EXPECT_EQ(disk["error"], nullptr);
        // The signature stands in the known path behind 24 bytes: of a slice its GUID, else that of the MBR.
        const std::string stored = from_hex(expected.short_form).substr(24, 16);
        if (slice) {
            EXPECT_EQ(known_disks::bytes_of_guid(found["guid"]), stored) << expected.name;
            EXPECT_EQ(disk["signature"], nullptr);
        } else {
            EXPECT_EQ(found["guid"], nullptr) << expected.name;
            std::string signature = from_hex(disk["signature"].get<std::string>());
            std::ranges::reverse(signature);
            EXPECT_EQ(signature + std::string(12, '\0'), stored) << expected.name;
        }
    }
    std::ranges::sort(names);
    std::ranges::sort(known_names);
    EXPECT_EQ(names, known_names);
}

// Options of each, in both forms: the bytes are the known ones, and each shows and is found by its disk.
void become_the_known_paths_and_are_found_by_them(known_disks &machine, const captured_machine &tested)
{
    const std::vector<known_volume> known = known_volumes(tested.name);
    machine.unpack(tested.name);
    size_t in_full = 0;
    const json before = machine.parsed({"disks"});
    std::map<std::string, std::vector<std::string>> of_disks;
    for (const known_volume &expected : known) {
        ASSERT_TRUE(is_hex(expected.short_form)) << expected.name;
        std::vector<std::string> &options = of_disks[expected.name];
        for (const bool full : {false, true}) {
            words create = {"create", "--desc", "x", "--disk", expected.name};
            if (full)
                create.emplace_back("--full");
            const std::string &path = full ? expected.full_form : expected.short_form;
            ASSERT_TRUE(is_hex(path)) << expected.name;
            const json created = json::parse(machine.run(create + words{"--json"}).out);
            EXPECT_EQ(created["changes"][0]["path"], path) << expected.name;
            options.push_back(created["changes"][0]["variable"]);
            const json shown = machine.parsed({"show", options.back()});
            EXPECT_EQ(shown["disks"], json({expected.name}));
            EXPECT_EQ(shown["kernel_names"][0], known_disks::volume(before, expected.name)["kernel_name"]);
            EXPECT_EQ(shown["path"], path) << expected.name;
            in_full += full;
        }
        EXPECT_EQ(machine.parsed({"find", expected.name})["options"], json(options)) << expected.name;
    }
    const json disks = machine.parsed({"disks"});
    for (const auto &[name, options] : of_disks)
        EXPECT_EQ(known_disks::volume(disks, name)["options"], json(options)) << name;
    EXPECT_GE(in_full, 2u);
}

const bool known_disks_registered[] = {
    ovra::test::register_rows("known_disks_agree_with_what_is_known_of_them", captured_machines,
                              agree_with_what_is_known_of_them, __FILE__, __LINE__),
    ovra::test::register_rows("known_disks_become_the_known_paths_and_are_found_by_them", captured_machines,
                              become_the_known_paths_and_are_found_by_them, __FILE__, __LINE__),
};

} // namespace

} // namespace tool_test
