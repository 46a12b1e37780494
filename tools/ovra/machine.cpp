// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/verb.h"
#include "tools/exchange/machinecopy.h"
#include "tools/exchange/start.h"
#include "tools/layout/layout.h"
#include "tools/machine/files.h"
#include "tools/machine/lock.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

namespace fs = std::filesystem;

// A folder of its own beside where a machine is to stand: nothing is there before all of it is.
class new_folder {
public:
    explicit new_folder(const std::string &wanted) : place(fs::path(wanted).lexically_normal())
    {
        if (!place.has_filename())
            place = place.parent_path();
        std::error_code error;
        const bool is_there = fs::exists(fs::symlink_status(place, error));
        if (is_there && !(fs::is_directory(place, error) && fs::is_empty(place, error)))
            throw failure(in_quotes(wanted) + " is there already",
                          "A machine is made in a new folder, or in an empty one.");
        std::string name = place.string() + ".XXXXXX";
        if (!mkdtemp(name.data()))
            throw failure("cannot make the folder " + in_quotes(wanted) + ": " + strerror(errno));
        made = name;
    }
    ~new_folder()
    {
        std::error_code ignored;
        if (!made.empty())
            fs::remove_all(made, ignored);
    }
    new_folder(const new_folder &) = delete;
    new_folder &operator=(const new_folder &) = delete;

    const fs::path &path() const { return made; }

    void put_in_place()
    {
        fs::permissions(made, fs::perms(0755));
        fs::rename(made, place);
        made.clear();
    }

private:
    fs::path place;
    fs::path made;
};

class machine_verb : public verb {
public:
    const char *summary() const override { return "machines in folders: made, started, copied"; }
    void declare(CLI::App &app) override
    {
        auto *create = app.add_subcommand("create", "make the machine that a text describes");
        declare_folder(*create)->required();
        add_value(*create, "layout", "LAYOUT", "the text; - reads it from standard input",
                  [this](const std::string &text) { layout_file = text; })
            ->required();
        add_example(*create, "ovra machine create /tmp/machine layout.txt");
        auto *boot = app.add_subcommand("boot", "play the choice of the firmware at the next start");
        declare_folder(*boot)->required();
        boot->callback([this] { wanted = action::boot; });
        add_example(*boot, "ovra machine boot /tmp/machine");
        auto *capture = app.add_subcommand("capture", "copy a machine for a report of a fault");
        declare_folder(*capture)->required();
        capture->callback([this] { wanted = action::capture; });
        add_example(*capture, "ovra machine capture /tmp/machine");
        app.require_subcommand(1);
    }

    void run(const general_options &general) override
    {
        if (wanted == action::capture)
            return capture(general);
        if (general.root || general.vars)
            throw usage_error("machine: the folder is named behind the verb, without --root and --vars");
        wanted == action::boot ? boot(general) : create(general);
    }

private:
    enum class action { create, boot, capture };

    CLI::Option *declare_folder(CLI::App &app)
    {
        return add_value(app, "folder", "DIR", "the folder of the machine",
                         [this](const std::string &text) { folder = text; });
    }
    void create(const general_options &general) const;
    void boot(const general_options &general) const;
    void capture(const general_options &general) const;

    std::string folder;
    std::string layout_file;
    action wanted = action::create;
};

std::string layout_in(const std::string &file)
{
    constexpr size_t limit = 1u << 24;
    if (file == "-")
        return standard_input(limit, "longer than any layout");
    const bytes text = contents(file, limit, "it is longer than any layout");
    return {text.begin(), text.end()};
}

void machine_verb::create(const general_options &general) const
{
    // What follows the entries in a test's machine is what must be shown of it.
    std::string text = '\n' + layout_in(layout_file);
    text = text.substr(1, std::min(text.find("\n== "), text.size() - 1));
    new_folder made(folder);
    try {
        layout::lay_out(text, made.path());
        fs::create_directories(made.path() / "sys/firmware/efi/efivars");
        fs::create_directories(made.path() / "var/lib/hwplat");
        if (!general.dry_run)
            made.put_in_place();
    } catch (const layout::line_in_error &error) {
        throw failure((layout_file == "-" ? "standard input" : printable(layout_file)) +
                          format(", line %zu: ", error.line) + printable(error.what()),
                      "No machine was made.");
    } catch (const fs::filesystem_error &error) {
        throw failure("cannot make the machine: " + error.code().message(), "No machine was made.");
    }
    if (general.json)
        print_json({{"dry_run", general.dry_run}, {"folder", folder}});
    else
        print((general.dry_run ? "would make " : "made ") + printable(folder) + '\n');
}

void machine_verb::boot(const general_options &general) const
{
    char *absolute = realpath(folder.c_str(), nullptr);
    if (!absolute)
        throw failure("cannot enter " + in_quotes(folder) + ": " + strerror(errno));
    general_options there = general;
    there.root = absolute;
    free(absolute);
    if (there.root == "/")
        throw failure("this machine is no folder", "'ovra reset' starts it anew.");
    setenv("HWPLAT_ROOT", there.root->c_str(), 1);
    unsetenv("HWPLAT_VARS");
    firmware machine(there.folder());
    const machine_lock lock(machine, there);
    play_start(machine, there);
}

void machine_verb::capture(const general_options &general) const
{
    if (general.vars)
        throw usage_error("machine capture: a file of variables is small enough to be sent as it is");
    std::unique_ptr<firmware> machine;
    try {
        machine = std::make_unique<firmware>(general.folder());
    } catch (const failure &reason) { // which may be the fault that is looked for
        warn(printable(reason.what()), "They are not in the copy.");
    }
    new_folder made(folder);
    copied_machine copied;
    try {
        copied = copy_machine(machine.get(), named_root().value_or(""), made.path());
        if (!general.dry_run)
            made.put_in_place();
    } catch (const fs::filesystem_error &error) {
        throw failure("cannot copy the machine: " + error.code().message(), "No copy was made.");
    }
    for (const std::string &what : copied.left_out)
        warn("not in the copy: " + printable(what));
    if (general.json)
        print_json({{"dry_run", general.dry_run},
                    {"folder", folder},
                    {"variables", copied.variables},
                    {"disks", copied.disks},
                    {"left_out", copied.left_out}});
    else
        print((general.dry_run ? "would copy to " : "copied to ") + printable(folder) +
              format(": %zu variables of UEFI, the partition tables of %zu disk%s,\n"
                     "and what the kernel says of the hardware, some serial numbers among it.\n"
                     "Nothing else that is on the disks is in the copy.\n",
                     copied.variables, copied.disks, copied.disks == 1 ? "" : "s"));
}

} // namespace

std::unique_ptr<verb> make_machine()
{
    return std::make_unique<machine_verb>();
}

} // namespace tool
