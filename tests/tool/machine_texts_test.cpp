// SPDX-License-Identifier: MIT
// The machines of tests/machines, as the command shows them.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/machine_text.h"
#include "tests/support/memory_folder.h"
#include "tests/support/rows.h"
#include "tests/tool/support.h"

namespace tool_test {

namespace {

namespace fs = std::filesystem;
using ovra::test::machine_text;

// The machine of a text, with firmware that has no variables yet.
class text_machine : ovra::test::folders_in_memory, public Machine {
public:
    void become(const machine_text &text) const
    {
        fs::remove_all(root);
        fs::create_directories(variables);
        fs::create_directories(root / "var/lib/hwplat");
        ovra::test::lay_out(text, root);
    }

    using Machine::output;
    using Machine::parsed;
    using Machine::run;
};

// The short form of each volume, a line for each.
std::string short_forms(const text_machine &machine)
{
    std::string lines;
    const json disks = machine.parsed({"disks"});
    for (const json &disk : disks["disks"]) {
        for (const json &volume : disk["volumes"]) {
            const std::string name = volume["name"];
            const outcome given = machine.run({"path", "encode", "/dev/dsk/" + name});
            EXPECT_EQ(given.status, 0) << name << ": " << given.err;
            lines += name + ' ' + given.out;
        }
    }
    return lines;
}

// What leads to each volume in the full form, as firmware writes it, or why there is none; a line for each.
std::string hardware_of_volumes(const text_machine &machine)
{
    std::string lines;
    const json disks = machine.parsed({"disks"});
    for (const json &disk : disks["disks"]) {
        for (const json &volume : disk["volumes"]) {
            const std::string name = volume["name"];
            const outcome made = machine.run(
                {"create", "--desc", "x", "--disk", name, "--file", "\\a", "--full", "--dry-run", "--json"});
            if (made.status != 0) {
                const std::string said = whole(made.err);
                lines += name + " refused: " + said.substr(0, said.find('\n')) + '\n';
                continue;
            }
            const std::string path = json::parse(made.out)["changes"][0]["path"];
            const json shown = machine.parsed({"path", "decode", path})["instances"][0];
            const std::string text = shown.value("uefi_text", shown["device_path"].get<std::string>());
            // The node of a whole disk, with the number 0, has no text of its own.
            const size_t partition = std::min(text.find("/HD("), text.find("/MediaPath(0x1,"));
            lines += name + ' ' + text.substr(0, partition) + '\n';
        }
    }
    return lines;
}

// To add a machine: what is seen is written into the folder that the environment names.
void keep(const machine_text &text, const std::string &section, const std::string &seen)
{
    if (const char *folder = std::getenv("OVRA_SEEN_MACHINES"))
        std::ofstream(fs::path(folder) / (text.name + '.' + section)) << seen;
}

void is_shown_as_expected(text_machine &machine, const machine_text &text)
{
    machine.become(text);
    for (const auto &[section, seen] :
         {std::pair<const std::string, std::string>("disks", machine.output({"disks"})),
          {"tree", machine.output({"tree"})},
          {"short", short_forms(machine)},
          {"firmware", hardware_of_volumes(machine)}}) {
        keep(text, section, seen);
        const auto expected = text.expected.find(section);
        if (expected == text.expected.end())
            ADD_FAILURE() << text.file << " has no section " << section;
        else
            EXPECT_EQ(seen, expected->second) << text.file << ", section " << section;
    }
}

// Volumes that no option can be made for, with what is said.
std::map<std::string, std::string> refusals(const machine_text &text)
{
    std::map<std::string, std::string> found;
    const auto section = text.expected.find("refused");
    std::istringstream lines(section != text.expected.end() ? section->second : "");
    for (std::string name, said; lines >> name && std::getline(lines >> std::ws, said);)
        found[name] = said;
    return found;
}

// An option is made for each volume, by Linux's name too, and found again by it.
void has_an_option_for_each_volume(text_machine &machine, const machine_text &text)
{
    machine.become(text);
    const std::map<std::string, std::string> refused = refusals(text);
    const json disks = machine.parsed({"disks"});
    for (const json &disk : disks["disks"]) {
        for (const json &volume : disk["volumes"]) {
            const std::string name = volume["name"];
            const outcome made = machine.run({"create", "--desc", "x", "--disk", name, "--file", "\\a"});
            const auto refusal = refused.find(name);
            if (refusal != refused.end()) {
                EXPECT_EQ(made.status, 1) << name;
                EXPECT_THAT(whole(made.err), ::testing::HasSubstr(refusal->second)) << name;
                continue;
            }
            EXPECT_EQ(made.status, 0) << name << ": " << made.err;
            const json found = machine.parsed({"find", name});
            EXPECT_GE(found["options"].size(), 1U) << name; // copies have those of each other
            const std::string linux_name = volume["kernel_name"];
            if (linux_name.empty() || linux_name == disk["kernel_name"]) // without a name; the whole disk
                continue;
            EXPECT_EQ(machine.parsed({"find", "/dev/" + linux_name})["disk"], name);
        }
    }
}

// Options for the disks of the emulator's machines are made in tests/firmware, and started.
const std::vector<machine_text> &machines_to_boot_from()
{
    static const std::vector<machine_text> all = [] {
        std::vector<machine_text> found = ovra::test::machine_texts();
        std::erase_if(found, [](const machine_text &text) { return text.name.starts_with("qemu_"); });
        return found;
    }();
    return all;
}

const bool shown_registered = ovra::test::register_rows("machine_texts", ovra::test::machine_texts(),
                                                        is_shown_as_expected, __FILE__, __LINE__);
const bool options_registered = ovra::test::register_rows("machine_options", machines_to_boot_from(),
                                                          has_an_option_for_each_volume, __FILE__, __LINE__);

} // namespace

} // namespace tool_test
