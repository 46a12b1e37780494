/* SPDX-License-Identifier: MIT */
// What a verb changes: made one by one and reported, or with --dry-run only looked at and reported.
#ifndef OVRA_TOOLS_CHANGES_H
#define OVRA_TOOLS_CHANGES_H

#include <functional>
#include <string>
#include <vector>

#include "tools/machine/firmware.h"
#include "tools/machine/general.h"
#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace tool {

struct change {
    std::string action;   // "write": what would be done
    std::string past;     // "wrote": what was done
    std::string what;     // "Boot0003: \"Debian\""
    json fields;          // the same for programs
    std::string variable; // written, or deleted when there are no contents;
                          // empty when the change is not one of a variable
    bytes contents;
    bool makes = false;                     // it is told what was made, by its name first
    std::function<json()> long_fields = {}; // the rest of the fields, made when somebody asks for them
};

// What failures tell of it.
told_change told(const change &change);

// A variable that is written or, without data, deleted; `meaning` is what its data says, for people.
change writes(const std::string &variable, bytes data, const std::string &meaning,
              const std::function<json()> &long_fields = {});
change deletes(const std::string &variable);
change writes_order(const option_kind &kind, const std::vector<uint16_t> &order);
change writes_option(const std::string &name, const load_option &option);
change makes_option(const std::string &name, const load_option &option);

class changes {
public:
    changes(firmware &changed, const general_options &general)
        : machine(changed), dry_run(general.dry_run), as_json(general.json)
    {}

    // Changes a variable, and keeps that for the report. When it fails, the failure also says which changes
    // were made before.
    void make(change change);
    // The same for what is no variable.
    void make(change change, const std::function<void()> &apply, const std::function<void()> &check);

    // The parts of changing variables, for a verb that tells of failures itself and reports in another order:
    // looks, also without --dry-run, whether all the changes of a verb can be made; makes one; keeps it for
    // the report.
    void prepare(const std::vector<change> &all);
    void attempt(const change &change);
    void record(change change);

    // Something else to say: a line for people, which may be empty, for programs a member of the document.
    // A line alone takes the place of the one that nothing is to change.
    void remark(const std::string &text, const std::string &key, json value);

    // A warning, on standard error and for programs.
    void warn(const std::string &what);

    // Prints what was done, or would be.
    void report();

private:
    json document() const;
    std::string line_of(const change &change) const;
    std::string text() const;

    firmware &machine;
    bool dry_run;
    bool as_json;
    std::vector<change> made;
    std::string remarks;
    json members = json::object();
};

} // namespace tool

#endif
