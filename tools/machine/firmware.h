/* SPDX-License-Identifier: MIT */
// The machine's firmware through libovra. What fails throws a failure with the library's messages in it.
#ifndef OVRA_TOOLS_FIRMWARE_H
#define OVRA_TOOLS_FIRMWARE_H

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "tools/machine/status.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"
#include "tools/text/optionkind.h"
#include "tools/text/text.h"

namespace tool {

struct variable_id {
    std::vector<CHAR16> name; // null-terminated
    EFI_GUID guid = {};
};

struct variable {
    EFI_STATUS status = EFI_SUCCESS; // with any other the rest is empty
    int error = 0;                   // the errno of the status, where there is one
    uint32_t attributes = 0;
    bytes data;
};

variable_id global_id(const std::string &name);

// Whether a variable is there but holds nothing that could be one, as a folder or a file without attributes.
bool is_damaged(const variable &read);

// Capacity for boot variables, in bytes.
struct variable_store {
    uint64_t left = 0;
    uint64_t largest = 0; // single variable
};

// Files of what a folder's machine remembers besides variables.
constexpr const char *clock_state = "time-offset";
constexpr const char *alarm_state = "wakeup";
constexpr const char *capacity_state = "capacity";

// The file that HWPLAT_VARS names and that keeps the machine's variables; empty when nothing is named.
std::string file_of_variables();

class firmware {
public:
    // `root` names the machine's folder in messages; empty for the machine that runs the command. Its load
    // options are those of one kind.
    explicit firmware(std::string root, const option_kind &of = boot_options);
    ~firmware();
    firmware(const firmware &) = delete;
    firmware &operator=(const firmware &) = delete;

    // All variables, and one of them.
    std::vector<variable_id> variables();
    variable read(variable_id id);
    variable read_global(const std::string &name);
    bool exists_global(const std::string &name); // also one that cannot be read
    // What a variable of a known size holds, the second one as a 16-bit number; nothing without the variable.
    // Throws `damaged` when it has another size.
    std::optional<bytes> read_sized(const std::string &name, size_t size);
    std::optional<uint16_t> read_number(const std::string &name);

    // Writes a variable, with the attributes that it has if it exists; no data deletes it. Throws
    // not_changed.
    void change_global(const std::string &name, const bytes &data);
    void change(variable_id id, const bytes &data); // of any vendor
    // What the changes of one verb take; less than 0 when they give back more.
    struct room_taken {
        int64_t store = 0;  // bytes of the variable store
        int64_t blocks = 0; // of the file system that has the variables as files
        int64_t files = 0;
        bool at_once = false; // the changes follow: one that takes no room may itself tell that it cannot be
    };
    // Throws what change_global would, as far as can be told without writing. What the change takes is added
    // to what earlier ones of the same verb take.
    void check_change(const std::string &name, const bytes &data, room_taken *planned);
    std::optional<variable_store> store(); // nothing when the firmware does not say
    bool is_real() const;                  // the variables are the firmware's own, not a folder's
    // What check_change cannot tell; empty when it tells everything.
    std::string not_checked() const;

    // The folder in which their files are, or the file that holds them all.
    std::string variables_folder() const;

    // Load options of its kind. Those that have a name, ascending: whether one is there is told by reading
    // it.
    const option_kind &kind() const { return options_kind; }
    std::string name_of(uint16_t number) const { return options_kind.name(number); }
    std::vector<uint16_t> options();
    // Reads one; false without it. What `found` had is lost, but not its memory: who reads many gives the
    // same one. Throws `unreadable`.
    bool find_option(uint16_t number, load_option *found);
    bool option_exists(uint16_t number);
    void require_option(uint16_t number);
    void require_sound_option(uint16_t number); // one that is damaged is refused as well
    load_option read_option(uint16_t number);   // throws `unreadable`, and a failure without it

    // The order of its kind; BootCurrent and BootNext, which no other kind has.
    std::string order_name() const;    // "BootOrder"
    std::vector<uint16_t> order();     // empty also when there is none; throws `damaged`
    std::optional<uint16_t> current(); // throws `damaged`, as next() does
    std::optional<uint16_t> next();

    // The lock that a change takes: its file, and an errno value that says why it cannot be opened; 0 if all
    // is well, as far as can be told without making it.
    std::string lock_file() const;
    int lock_obstacle() const;
    // Says on standard error that a file of variables has further names, which keep what they have.
    void tell_of_other_names() const;
    std::string permission_advice() const;

    // Clock and reset.
    struct alarm {
        bool enabled = false;
        bool pending = false;
        EFI_TIME time = {};
    };
    EFI_TIME time(EFI_TIME_CAPABILITIES *capabilities); // throws `damaged`, as wakeup_time() does
    void set_time(EFI_TIME time);
    void check_set_time() const;
    alarm wakeup_time();
    void set_wakeup_time(std::optional<EFI_TIME> time);
    void check_set_wakeup_time() const;
    void check_clear_wakeup_time() const;
    bool is_live() const; // the clock is the host's chip, which keeps no time zone
    void reset(EFI_RESET_TYPE type);
    void check_reset();
    std::optional<uint16_t> booted_next(); // by a machine in a folder or a file

private:
    // Calls the library; 0 or -1, and `messages` and `error` say what else came of it.
    int call(const std::function<int()> &function);
    // Calls a runtime service: throws unless it gave a status. `what` begins the message; the second form
    // asks for it only then, for what is called often.
    using service_call = std::function<int(EFI_STATUS *)>;
    EFI_STATUS service(const std::string &what, const service_call &function);
    EFI_STATUS service(const std::function<std::string()> &what, const service_call &function);
    // Hands over each variable, in a walk for which `begin` is called; once more when one ended early.
    using taking = std::function<void(const variable_id &)>;
    void visit_variables(const std::function<void()> &begin, const taking &take);
    bool walk(bool may_end_early, const taking &take); // false when it ended early, else that is thrown
    // Reads a variable, whose name is terminated, into `buffer`. The data stays there until the next reading.
    struct buffered {
        EFI_STATUS status = EFI_SUCCESS; // with any other `error` has its errno, and the rest is empty
        uint32_t attributes = 0;
        byte_view data;
    };
    buffered read_to_buffer(std::span<CHAR16> name, EFI_GUID guid);
    // Throws unless a request to read something succeeded.
    void check(const std::string &what, EFI_STATUS status);
    void require_read(const std::string &name, const variable &read, const std::string &when_damaged = {});

    // Why a request to change something failed. `size` is what was to be stored, `attributes` with what.
    struct change_request {
        std::string what; // "cannot write Boot0003"
        std::string name; // of the variable; may be empty
        uint32_t attributes = boot_variable_attributes;
        size_t size = 0;
        std::string state; // instead of a variable: a file of what the machine remembers besides them
        EFI_GUID vendor = ovra::global_variable_guid;
    };
    not_changed why_not(const change_request &request, EFI_STATUS status);
    // What stands in the way of a change: permissions, mounts, marks of files. Nothing if all is well.
    std::optional<not_changed> obstacle(const change_request &request) const;
    std::optional<not_changed> obstacle_of_attributes(const change_request &request) const;
    static change_request request_of(const std::string &name, const bytes &data, const variable &before);
    std::optional<not_changed> obstacle_in_folder(const change_request &request) const;
    not_changed no_permission(const change_request &request) const;
    not_changed too_large(const change_request &request, const variable_store &store) const;
    not_changed no_room(const change_request &request, const std::optional<variable_store> &store) const;
    not_changed file_system_full(const change_request &request) const;
    static not_changed file_limit(const change_request &request);
    void check_room(const change_request &request, const variable &before, room_taken *planned);
    void check_file_system(const change_request &request, room_taken *planned) const;
    void check_limits(const change_request &request) const; // of this process
    size_t missing_for_lock(const std::string &beside) const;
    not_changed capacity_unknown(const change_request &request);
    // A request to write a file of the machine's state, and what stands in its way.
    change_request request_of_state(const std::string &what, const std::string &state) const;
    void check_state(const change_request &request) const;
    // Throws unless a request that reads a file of the machine's state succeeded.
    void require_state(const std::string &what, EFI_STATUS status, const std::string &state,
                       const std::string &repair);
    int64_t room_of(const std::string &name, size_t size) const; // in the variable store
    [[noreturn]] void refuse_file() const;
    bool is_changed_by_reset(const change_request &request);
    void require_clock(const std::string &what) const;
    bool may_replace_image() const;
    void check_copy(const change_request &request, room_taken *planned) const;

    failure no_such_option(uint16_t number) const;
    unreadable why_unreadable(const std::string &name, const variable &is);
    std::string damage_of(const std::string &name, const variable &is) const;
    std::string not_there() const;
    std::string root_folder() const;  // empty for "/"
    std::string state_folder() const; // of a machine that is not live
    std::string file_of(const std::string &name, const EFI_GUID &vendor = ovra::global_variable_guid) const;
    std::string folder_of(const change_request &request) const;
    std::string file_of(const change_request &request) const;

    std::string folder;
    const option_kind &options_kind;
    const std::string image = file_of_variables();
    ovra_hdl_t handle = nullptr;
    std::string messages;
    int error = 0;
    bytes buffer; // for what is read
};

} // namespace tool

#endif
