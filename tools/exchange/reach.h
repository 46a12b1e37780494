/* SPDX-License-Identifier: MIT */
// What the firmware can start by an order of options, while options and order change.
#ifndef OVRA_TOOLS_EXCHANGE_REACH_H
#define OVRA_TOOLS_EXCHANGE_REACH_H

#include <map>
#include <set>
#include <string>

#include "tools/exchange/store.h"

namespace tool {

// What the active options of an order start: their paths with their optional data. Descriptions start
// nothing.
std::set<std::string> started_by(const option_kind &family, const variable_values &values);

// Follows one variable after the other, each at the cost of that variable.
class reach {
public:
    reach(const option_kind &of, const variable_values &first, const variable_values &last);

    // Whether all is still there that the first state starts, or all that the last one does.
    bool is_safe() const { return missing_of_first == 0 || missing_of_last == 0; }
    // An option is written over.
    void replace(const std::string &name, const bytes &before, const bytes &after);
    // The order becomes another one, with the options as they are now.
    void set_order(const variable_values &now);

private:
    void count(const bytes &option, int by);

    struct place {
        int options = 0;
        bool in_first = false;
        bool in_last = false;
    };
    const option_kind &family;
    std::map<std::string, place> places; // by what is started
    std::set<std::string> ordered;
    size_t missing_of_first = 0;
    size_t missing_of_last = 0;
};

} // namespace tool

#endif
