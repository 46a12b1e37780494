// SPDX-License-Identifier: MIT
#include "tools/completion/suggestions.h"

#include <algorithm>
#include <span>

#include <CLI/CLI.hpp>

#include "src/base/ascii.h"
#include "tools/command/words.h"
#include "tools/machine/drives.h"
#include "tools/machine/optionnames.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

bool begins(const std::string &word, const std::string &begun)
{
    return ovra::alike(std::string_view(word).substr(0, begun.size()), begun);
}

class line {
public:
    line(const CLI::App &app, const std::vector<suggestion> &verbs) : level(&app), all_verbs(verbs) {}

    completion read(std::span<const std::string> words)
    {
        for (const std::string &word : words.first(words.size() - 1))
            pass(word);
        complete(words.back());
        return std::move(result);
    }

private:
    void pass(const std::string &word)
    {
        if (awaiting) {
            take_value(*awaiting, word);
            awaiting = nullptr;
            return;
        }
        const CLI::Option *option = only_plain ? nullptr : option_of(level, word);
        if (word == "--") {
            only_plain = true;
        } else if (option) {
            used.push_back(option);
            const size_t equals = word.find('=');
            if (equals != std::string::npos)
                take_value(*option, word.substr(equals + 1));
            else if (takes_value(*option))
                awaiting = option;
        } else if (const CLI::App *verb = verb_of(word)) {
            level = verb;
            passed = 0;
        } else {
            ++passed;
        }
    }

    void take_value(const CLI::Option &option, const std::string &value)
    {
        if (option.check_lname("root"))
            result.root = value;
        if (option.check_lname("vars"))
            result.vars = value;
        for (const option_kind &kind : option_kinds) {
            if (option.check_lname("kind") && value == kind.word)
                result.kind = &kind;
        }
    }

    const CLI::App *verb_of(const std::string &word) const
    {
        const auto found =
            level->get_subcommands([&](const CLI::App *verb) { return verb->check_name(word); });
        return only_plain || passed != 0 || found.empty() ? nullptr : found.front();
    }

    void complete(const std::string &word)
    {
        const size_t equals = word.find('=');
        const CLI::Option *option = only_plain ? nullptr : option_of(level, word);
        if (awaiting) {
            complete_value(*awaiting, word);
        } else if (option && equals != std::string::npos) {
            result.before = word.substr(0, equals + 1);
            complete_value(*option, word.substr(equals + 1));
        } else if (word.starts_with('-') && !only_plain) {
            add_options(word);
        } else {
            if (passed == 0)
                add_verbs(word);
            if (const CLI::Option *positional = next_positional())
                complete_value(*positional, word);
        }
    }

    const CLI::Option *next_positional() const
    {
        size_t at = passed;
        for (const CLI::Option *each :
             level->get_options([](const CLI::Option *option) { return option->get_positional(); })) {
            if (at == 0 || each->get_items_expected_max() > 1)
                return each;
            --at;
        }
        return nullptr;
    }

    void add_verbs(const std::string &begun)
    {
        if (!level->get_parent()) {
            for (const suggestion &verb : all_verbs)
                add(verb, begun);
            return;
        }
        for (const CLI::App *verb : level->get_subcommands([](const CLI::App *) { return true; }))
            add({verb->get_name(), verb->get_description()}, begun);
    }

    void add_options(const std::string &begun)
    {
        for (const CLI::App *above = level; above; above = above->get_parent()) {
            for (const CLI::Option *option : above->get_options()) {
                const bool again = option->get_items_expected_max() > 1;
                if (option->get_lnames().empty() ||
                    (!again && std::find(used.begin(), used.end(), option) != used.end()))
                    continue;
                add({"--" + option->get_lnames().front(), option->get_description()}, begun);
            }
        }
    }

    void complete_value(const CLI::Option &option, const std::string &begun)
    {
        const std::string shown = option.get_type_name();
        result.begun = begun;
        for (const option_kind &kind : option_kinds) {
            if (shown == "KIND")
                add({result.before + kind.word, std::string(kind.prefix) + "0000, ..."},
                    result.before + begun);
        }
        if (shown == "DIR")
            result.more = "folders";
        // That one is on a device, as firmware sees it.
        if ((shown == "FILE" && !option.check_lname("file")) || shown == "LAYOUT" || shown == "DISK")
            result.more = "files";
        if (shown == "OPTION" || shown == "DISK" || shown == "OPTION,...")
            result.value = shown;
    }

    void add(const suggestion &each, const std::string &begun)
    {
        if (begins(each.word, begun))
            result.suggestions.push_back(each);
    }

    const CLI::App *level;
    const std::vector<suggestion> &all_verbs;
    completion result;
    const CLI::Option *awaiting = nullptr; // its value comes next
    std::vector<const CLI::Option *> used;
    size_t passed = 0; // arguments that are no options, of this level
    bool only_plain = false;
};

void add_to(completion *of, const std::string &word, const std::string &about)
{
    if (begins(word, of->begun))
        of->suggestions.push_back({of->before + word, about});
}

// A description is a name where no other option has it, and where it is not read as another name.
void add_boot_options(const std::string &folder, completion *of, bool with_descriptions)
{
    firmware machine(folder, *of->kind);
    const std::vector<std::pair<uint16_t, std::string>> options = option_lookup(machine).descriptions();
    for (const auto &[number, description] : options)
        add_to(of, machine.name_of(number), description);
    if (!with_descriptions)
        return;
    std::vector<std::string> all;
    all.reserve(options.size());
    for (const auto &[number, description] : options)
        all.push_back(description);
    std::sort(all.begin(), all.end());
    for (const auto &[number, description] : options) {
        const auto same = std::equal_range(all.begin(), all.end(), description);
        if (!description.empty() && same.second - same.first == 1 &&
            !machine.kind().typed_number(description) && description[0] != '@' && description[0] != '-')
            add_to(of, description, machine.name_of(number));
    }
    if (!machine.order().empty())
        add_to(of, "@first", "the first of the order");
    if (machine.current())
        add_to(of, "@current", "the option that was booted");
    if (machine.next())
        add_to(of, "@next", "the option that is booted once");
}

void add_disks(completion *of)
{
    // Other ways to name a disk are many: they come once they are begun.
    const bool by_path = of->begun.starts_with('/');
    const bool by_guid = begins("PARTUUID=", of->begun.substr(0, 9)) && !of->begun.empty();
    const auto add = [&](const std::string &name, const std::string &kernel_name, const std::string &about) {
        add_to(of, name, kernel_name + ", " + about);
        add_to(of, kernel_name, name + ", " + about);
        if (by_path)
            add_to(of, "/dev/" + kernel_name, name + ", " + about);
    };
    for (const drive &drive : read_drives({.media = of_every_drive})) {
        add(drive.name, drive.kernel_name, "disk of " + size_text(drive.blocks * drive.block_size));
        for (const volume &volume : drive.volumes) {
            const std::string size = size_text(volume.size * drive.block_size);
            if (volume.kernel_name != drive.kernel_name)
                add(volume.name, volume.kernel_name, size);
            if (by_guid && volume.is_slice)
                add_to(of, "PARTUUID=" + guid_text(volume.guid), volume.kernel_name + ", " + size);
        }
    }
}

} // namespace

completion read_words(const CLI::App &app, const std::vector<suggestion> &verbs,
                      const std::vector<std::string> &words)
{
    return line(app, verbs).read(words);
}

void add_live_names(const std::string &folder, completion *of)
{
    try {
        if (of->value == "DISK") {
            add_disks(of);
        } else if (of->value == "OPTION") {
            add_boot_options(folder, of, true);
        } else if (of->value == "OPTION,...") {
            const size_t comma = of->begun.rfind(',');
            const size_t begin = comma == std::string::npos ? 0 : comma + 1;
            of->before += of->begun.substr(0, begin);
            of->begun.erase(0, begin);
            add_boot_options(folder, of, false);
        }
    } catch (const failure &) { // who completes a word is told nothing else
    }
}

} // namespace tool
