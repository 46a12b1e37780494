/* SPDX-License-Identifier: MIT */
// Removing boot options.
#ifndef OVRA_TOOLS_REMOVAL_H
#define OVRA_TOOLS_REMOVAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/machine/changes.h"
#include "tools/machine/firmware.h"
#include "tools/machine/general.h"
#include "tools/text/failure.h"

namespace tool {

// One removal of several options. BootOrder and BootNext are changed first: while they name an option that is
// gone, a new one could come to stand in its place.
class removal {
public:
    // `repairs_order`: BootOrder also loses entries without an option, and those that repeat another.
    removal(firmware &changed, const std::vector<uint16_t> &named, const general_options &general,
            bool repairs_order = false);

    // Makes the changes. Throws a failure.
    void run();
    // What else is to be said, and saying it all.
    void remark(const std::string &text, const std::string &key, json value);
    void report() { result.report(); }

private:
    std::vector<uint16_t> order_without(const std::vector<uint16_t> &gone) const;
    void prepare();
    void take_out_of_order();
    void clear_next();
    void delete_options();
    void write_order_after_all();
    void tell_removed(failure *reason) const;
    [[noreturn]] void stop(not_changed reason);

    firmware &machine;
    changes result;
    std::vector<uint16_t> options;
    std::vector<uint16_t> removed;
    std::vector<uint16_t> order;
    std::vector<uint16_t> missing; // entries of the order without an option, when that is repaired
    bool repairs_order = false;
    std::optional<uint16_t> next; // one of them that BootNext names
    bool next_is_cleared = false;
    bool ordered = false; // BootOrder names some of them
    bool order_is_written = false;
};

} // namespace tool

#endif
