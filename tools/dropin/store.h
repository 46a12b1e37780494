/* SPDX-License-Identifier: MIT */
// The variables of one kind of load options, as scripts name them: Boot, Driver or SysPrep.
#ifndef OVRA_TOOLS_DROPIN_STORE_H
#define OVRA_TOOLS_DROPIN_STORE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/machine/changes.h"
#include "tools/machine/firmware.h"

namespace tool::dropin {

class store {
public:
    // With the lock held, when something is to be changed.
    store(firmware &machine, std::string kind, const general_options &general);

    const std::string &kind() const { return kind_; }
    // The options by the names of their variables, of which some have letters in lower case.
    const std::map<std::string, bytes> &options() const { return found; }
    const std::string &made() const { return newest; } // the one that was made; empty before
    // Of an option with this number; nothing without one.
    std::optional<std::string> name_of(uint16_t number) const;
    std::string new_name(uint16_t number) const;
    bool is_taken(uint16_t number) const; // also by what cannot be read
    uint16_t free_number() const;

    // Nothing without the variable. Throws a failure when it cannot be read.
    std::optional<bytes> data_of(const std::string &variable) const;
    std::optional<uint16_t> number_in(const std::string &variable) const; // nothing also with another size
    std::optional<std::vector<uint16_t>> order() const;

    // Throw a not_changed.
    void write(const std::string &variable, const bytes &data);
    void remove(const std::string &variable);
    void write_order(const std::vector<uint16_t> &order); // an empty one removes it
    // An option, and an order with it if one is given: both or neither.
    void make(const std::string &variable, const bytes &data,
              const std::optional<std::vector<uint16_t>> &order);

    firmware &machine() const { return machine_; }

private:
    change order_change(const std::vector<uint16_t> &order) const;
    std::string take_back(const std::string &variable); // says what became of it
    void apply(const std::vector<change> &all);
    void read(bool tells = false); // tells of what cannot be read

    firmware &machine_;
    std::string kind_;
    general_options general;
    std::map<std::string, bytes> found;
    std::string newest;
};

// The number at the end of such a name; nothing for another name.
std::optional<uint16_t> number_of(const std::string &kind, const std::string &name);

// Whether an option is active, of whatever there is of it.
bool is_active(const bytes &option);

} // namespace tool::dropin

#endif
