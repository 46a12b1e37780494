// What a verb changes: made one by one and reported, or with --dry-run only reported.
#ifndef OVRA_TOOLS_CHANGES_H
#define OVRA_TOOLS_CHANGES_H

#include <functional>
#include <string>
#include <vector>

#include "tools/ovra/options.h"
#include "tools/ovra/output.h"

namespace tool {

struct change {
    std::string action; // "write": what would be done
    std::string past;   // "wrote": what was done
    std::string what;   // "Boot0003: \"Debian\""
    json fields;        // the same for programs
    std::string data;   // the bytes that would be written, as digits; may be empty
};

// A variable that is written or, without data, deleted; `meaning` is what its data says, for people.
change writes(const std::string &variable, byte_view data, const std::string &meaning,
              const json &fields = {});
change deletes(const std::string &variable);
change writes_order(const std::vector<uint16_t> &order);
change writes_option(uint16_t number, const load_option &option);

class changes {
public:
    explicit changes(const arguments &args) : dry_run(args.dry_run), as_json(args.json) {}

    // Makes a change. When that fails, the failure also says which changes were made before it.
    void make(change change, const std::function<void()> &apply);

    // Something else to say: a line for people, which may be empty, for programs a member of the document.
    void remark(const std::string &text, const std::string &key, json value);

    // Prints what was done, or would be.
    void report() const;

private:
    bool dry_run;
    bool as_json;
    std::vector<change> made;
    std::string remarks;
    json members = json::object();
};

} // namespace tool

#endif
