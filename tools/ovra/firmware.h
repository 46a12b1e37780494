// The machine's firmware through libovra. What fails throws a failure with the library's messages in it.
#ifndef OVRA_TOOLS_FIRMWARE_H
#define OVRA_TOOLS_FIRMWARE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "tools/ovra/loadoption.h"
#include "tools/ovra/text.h"

namespace tool {

struct variable_id {
    std::vector<CHAR16> name; // null-terminated
    EFI_GUID guid = {};
};

struct variable {
    EFI_STATUS status = EFI_SUCCESS; // with any other the rest is empty
    uint32_t attributes = 0;
    bytes data;
};

// What variables of boot options are written with: non-volatile, boot-service and run-time access.
constexpr uint32_t boot_variable_attributes =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

// "EFI_NOT_FOUND"
std::string status_name(EFI_STATUS status);

class firmware {
public:
    // `root` names the machine's folder in messages; empty for the machine that runs the command.
    explicit firmware(std::string root);
    ~firmware();
    firmware(const firmware &) = delete;
    firmware &operator=(const firmware &) = delete;

    // All variables, and one of them.
    std::vector<variable_id> variables();
    variable read(const variable_id &id);
    variable read_global(const std::string &name);
    bool exists_global(const std::string &name);            // also one that cannot be read
    void write_global(const std::string &name, bytes data); // no data deletes it

    // Load options.
    std::vector<uint16_t> options(); // ascending
    bool option_exists(uint16_t number);
    void require_option(uint16_t number);
    uint16_t unused_option();
    load_option read_option(uint16_t number);
    void write_option(uint16_t number, load_option option);
    // Replaces the packed path of an option alone.
    void write_path(uint16_t number, const load_option &option);
    void remove_option(uint16_t number);
    // The disks that an option boots from, and the options that boot from a disk.
    std::vector<std::string> disks_of(uint16_t number);
    std::vector<uint16_t> options_on(const std::string &disk);

    // BootOrder, BootCurrent, BootNext.
    std::vector<uint16_t> order(); // empty also when there is none; throws `damaged`
    void insert_into_order(uint16_t number, int position);
    void remove_from_order(uint16_t number);
    std::optional<uint16_t> current(); // throws `damaged`, as next() does
    std::optional<uint16_t> next();
    void set_next(uint16_t number);

    // Clock and reset.
    struct alarm {
        bool enabled = false;
        bool pending = false;
        EFI_TIME time = {};
    };
    EFI_TIME time(EFI_TIME_CAPABILITIES *capabilities);
    void set_time(EFI_TIME time);
    alarm wakeup_time();
    void set_wakeup_time(std::optional<EFI_TIME> time);
    void reset(EFI_RESET_TYPE type);

private:
    // Calls the library; 0 or -1, and `messages` and `error` say what else came of it.
    int call(const std::function<int()> &function);
    // Calls a runtime service: throws unless it gave a status.
    EFI_STATUS service(const std::string &what, const std::function<int(EFI_STATUS *)> &function);
    // Throws unless a request to read something succeeded.
    void check(const std::string &what, EFI_STATUS status);
    // The failure of a request to change something; `size` bytes were to be stored.
    [[noreturn]] void cannot_change(const std::string &what, EFI_STATUS status, size_t size);
    std::optional<uint16_t> named_option(const char *variable, int (*get)(ovra_hdl_t, char **));
    std::string permission_advice() const;

    std::string folder;
    ovra_hdl_t handle = nullptr;
    std::string messages;
    int error = 0;
};

} // namespace tool

#endif
