// SPDX-License-Identifier: MIT
#include "tools/dropin/dropin.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string_view>

#include "tools/dropin/listing.h"
#include "tools/dropin/mirror.h"
#include "tools/dropin/newentry.h"
#include "tools/dropin/settings.h"
#include "tools/dropin/store.h"
#include "tools/machine/bootorder.h"
#include "tools/machine/lock.h"
#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace tool::dropin {

namespace {

bytes stored_number(uint16_t number)
{
    return stored(std::array{number});
}

// Does a step; why it fails is what the command ends with, behind `what`.
void attempt(int status, const std::string &what, const std::function<void()> &step)
{
    try {
        step();
    } catch (const failure &reason) {
        throw ended{status, what + ": " + printable(reason.what()) + '\n' + reason.advice +
                                (reason.advice.empty() ? "" : "\n")};
    }
}

class session {
public:
    session(store &all, const settings &wanted) : options(all), given(wanted) {}

    void change_all();

private:
    std::string missing(const std::string &what) const
    {
        return format("%s: No such file or directory\n", what.c_str());
    }
    void remove_option();
    void set_active();
    void create();
    void set_order();
    void remove_variable(const std::string &variable, int status);
    std::vector<uint16_t> order_given() const;

    store &options;
    const settings &given;
};

void session::remove_option()
{
    if (!given.number)
        throw ended{needs_number_to_delete, "You must specify an entry to delete (see the -b option).\n"};
    const auto name = options.name_of(*given.number);
    if (!name)
        throw ended{is_not_deleted, missing("Could not delete variable")};
    attempt(is_not_deleted, "Could not delete variable", [&] {
        const auto order = options.order(); // one that cannot be read would name the option afterwards
        options.remove(*name);
        if (order && std::find(order->begin(), order->end(), *given.number) != order->end())
            options.write_order(without(*order, *given.number));
    });
    // One whose letters are in the other case.
    if (const auto left = options.name_of(*given.number))
        fprintf(stderr, "** Warning ** : %s has the same number and is still there\n", left->c_str());
}

void session::set_active()
{
    if (!given.number)
        throw ended{needs_number_to_activate, "You must specify a entry to activate (see the -b option\n"};
    const auto name = options.name_of(*given.number);
    if (!name)
        throw ended{is_not_activated,
                    given.program + ": " +
                        format("%s entry %X not found\n", given.kind.c_str(), *given.number) +
                        missing("Could not set active state for " + options.new_name(*given.number))};
    bytes data = options.options().at(*name);
    if (data.size() < sizeof(uint32_t))
        throw ended{is_not_activated, "Could not set active state for " + *name + ": it is damaged\n"};
    if (is_active(data) == *given.active)
        return;
    data[0] ^= LOAD_OPTION_ACTIVE;
    attempt(is_not_activated, "Could not set active state for " + *name, [&] { options.write(*name, data); });
}

void session::create()
{
    if (given.number && options.is_taken(*given.number))
        throw ended{is_there_already, given.program + ": Cannot create " + options.new_name(*given.number) +
                                          ": already exists.\n"};
    const std::string what = "Could not prepare " + given.kind + " variable";
    attempt(is_not_made, what, [&] {
        const bytes entry = new_entry(given);
        const uint16_t number = given.number ? *given.number : options.free_number();
        std::optional<std::vector<uint16_t>> order;
        if (given.in_order)
            order = with_inserted(boot_options, options.order().value_or(std::vector<uint16_t>()), number, 0);
        options.make(options.new_name(number), entry, order);
    });
}

// The numbers of -o, all of which are options.
std::vector<uint16_t> session::order_given() const
{
    const std::string variable = given.kind + "Order";
    const std::string &text = given.order.value();
    std::vector<uint16_t> order;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        if (begin == end)
            throw ended{has_wrong_order, marked("Malformed " + variable + " order", text, begin)};
        char *behind = nullptr;
        const unsigned long number = strtoul(text.c_str() + begin, &behind, 16);
        const auto read = static_cast<size_t>(behind - text.c_str());
        if (read != end)
            throw ended{has_wrong_order, marked("Invalid " + variable + " order", text, read)};
        const bool is_negative = text.substr(begin, end - begin).find('-') != std::string::npos;
        if (number > UINT16_MAX || is_negative)
            throw ended{has_wrong_order, given.program + ": Invalid " + variable +
                                             format(" order entry value: %lX\n", number) +
                                             marked("Invalid " + variable + " order", text, begin)};
        if (!options.name_of(static_cast<uint16_t>(number)))
            throw ended{has_wrong_order, marked("Invalid " + variable + " order entry value", text, begin) +
                                             given.program +
                                             format(": entry %04lX does not exist\n", number)};
        order.push_back(static_cast<uint16_t>(number));
        begin = end + 1;
    }
    return order;
}

void session::set_order()
{
    const std::string variable = given.kind + "Order";
    if (given.deletes_order && !given.order)
        remove_variable(variable, is_misused);
    if (given.order) {
        const std::vector<uint16_t> order = order_given();
        attempt(has_wrong_order, "Could not set " + variable, [&] { options.write_order(order); });
    }
    if (!given.removes_duplicates)
        return;
    attempt(keeps_order, "Could not set " + variable, [&] {
        const auto order = options.order();
        if (order && distinct(*order) != *order)
            options.write_order(distinct(*order));
    });
}

void session::remove_variable(const std::string &variable, int status)
{
    const std::string what = "Could not delete " + variable;
    attempt(status, what, [&] {
        if (!options.data_of(variable))
            throw ended{status, missing(what)};
        options.remove(variable);
    });
}

void session::change_all()
{
    if (given.deletes)
        remove_option();
    if (given.active)
        set_active();
    if (given.creates)
        create();
    set_order();
    if (given.deletes_next)
        remove_variable("BootNext", keeps_next);
    if (given.deletes_timeout)
        remove_variable("Timeout", keeps_timeout);
    if (given.next) {
        if (!options.name_of(*given.next))
            throw ended{has_wrong_next, format("Boot entry %X does not exist\n", *given.next)};
        attempt(has_wrong_next, "Could not set BootNext",
                [&] { options.write("BootNext", stored_number(*given.next)); });
    }
    if (given.timeout)
        attempt(has_wrong_timeout, "Could not set Timeout",
                [&] { options.write("Timeout", stored_number(*given.timeout)); });
    if (given.mirror_below || given.mirror_above)
        attempt(is_misused, "Could not set MirrorRequest", [&] {
            if (!ask_for_mirror(options.machine(), given.mirror_below, given.mirror_above))
                throw ended{is_misused};
        });
}

bool changes_something(const settings &given)
{
    return given.deletes || given.active || given.creates || given.order || given.deletes_order ||
           given.removes_duplicates || given.next || given.deletes_next || given.timeout ||
           given.deletes_timeout || given.mirror_below || given.mirror_above;
}

// A list that fails must not read as if nothing was changed.
void list(const store &options, const settings &given)
{
    const std::string advice = changes_something(given) ? "The changes were made." : "";
    std::string unread;
    try {
        unread = print_listing(options, given);
    } catch (const failure &reason) {
        if (!advice.empty())
            throw failure(reason.what(), advice);
        throw;
    }
    if (!unread.empty())
        throw ended{is_not_listed, "Could not list " + given.kind + "Order: " + printable(unread) + '\n' +
                                       advice + (advice.empty() ? "" : "\n")};
}

// EFIVARFS_PATH names the folder of the variables, as for other programs. The rest of its machine, its lock
// and its disks, is found from there.
std::optional<std::string> root_of_variables()
{
    const char *named = secure_getenv("EFIVARFS_PATH");
    if (!named || *named == '\0')
        return std::nullopt;
    constexpr std::string_view place = "/sys/firmware/efi/efivars";
    char *resolved = realpath(named, nullptr);
    const std::string folder = resolved ? resolved : "";
    free(resolved);
    if (!folder.ends_with(place))
        throw ended{has_no_firmware,
                    "EFI variables are not supported on this system.\n"
                    "EFIVARFS_PATH names no folder sys/firmware/efi/efivars of a machine.\n"};
    const std::string root = folder.substr(0, folder.size() - place.size());
    return root.empty() ? "/" : root;
}

void run_on_machine(const settings &given)
{
    general_options general;
    if (const auto root = root_of_variables()) {
        unsetenv("HWPLAT_VARS");
        setenv("HWPLAT_ROOT", root->c_str(), 1);
    }
    std::optional<firmware> machine;
    attempt(has_no_firmware, "EFI variables are not supported on this system.\nThe reason",
            [&] { machine.emplace(general.folder()); });
    std::optional<machine_lock> lock;
    if (changes_something(given))
        lock.emplace(*machine, general);
    store options(*machine, given.kind, general);
    session(options, given).change_all();
    if (!given.quiet)
        list(options, given);
}

} // namespace

bool is_meant(const char *program)
{
    const std::string_view name = program ? program : "";
    return name.substr(name.rfind('/') + 1) == "efibootmgr";
}

int run(int argc, char **argv)
{
    try {
        if (const auto given = read_settings(argc, argv))
            run_on_machine(*given);
        return is_done;
    } catch (const ended &end) {
        fputs(end.said.c_str(), stderr);
        return end.status;
    }
}

} // namespace tool::dropin
