/* SPDX-License-Identifier: MIT */
/*
 * A runtime-services driver in memory, in place of libdevns: a store of variables with the firmware's rules,
 * a clock, an alarm and a counter. It can be absent, fail any call, answer anything, and it keeps every
 * request as it saw it. Call reset() at the start of a test; the state is one for the process.
 */
#ifndef TESTS_FAKES_DRIVER_H
#define TESTS_FAKES_DRIVER_H

#include <climits>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ovra/uefi.h>

namespace fakes {

using bytes = std::vector<uint8_t>;

/* A variable's name in UCS-2 without its terminator; narrow text is taken byte by byte. */
struct var_name : std::u16string {
    var_name() = default;
    var_name(const char16_t *text) : std::u16string(text) {}
    var_name(std::u16string text) : std::u16string(std::move(text)) {}
    var_name(const char *text) : var_name(std::string(text)) {}
    var_name(const std::string &text);

    std::string narrow() const; /* units above 0x7f as '?' */
};

inline constexpr EFI_GUID global_guid = {
    0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
inline constexpr EFI_GUID other_guid = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
inline constexpr uint32_t usual_attributes = 7;

inline constexpr unsigned forever = UINT_MAX;
inline constexpr int any_command = 0;

/* Everything as at the start: present, empty, no rules, no requests kept, no descriptor open. */
void reset();

/* The store. put_variable goes past every rule of the firmware; data may be empty. New ones come last. */
void put_variable(const var_name &name, const bytes &data, uint32_t attributes = usual_attributes,
                  const EFI_GUID &guid = global_guid);
void remove_variable(const var_name &name, const EFI_GUID &guid = global_guid);
std::optional<bytes> variable(const var_name &name, const EFI_GUID &guid = global_guid);
std::optional<uint32_t> variable_attributes(const var_name &name, const EFI_GUID &guid = global_guid);
size_t variable_count();

/* Enumeration gives these first, in this order, the others behind them in the order in which they came. */
void enumerate_first(const std::vector<var_name> &names);

/* Capacity: a SetVariable that would go beyond either number of bytes of data is EFI_OUT_OF_RESOURCES. */
void set_capacity(uint64_t store, uint64_t single_variable);

/* What opening answers from now on: 0 a descriptor, else -1 with this errno. */
void set_absent(int error);
void set_present();

/* What a close leaves in errno (it succeeds all the same). 0: errno is as it was. */
void set_errno_of_close(int error);

/*
 * A rule for ioctl calls to come. It counts those of `command` (any_command: all) and, when `name` is given,
 * of that variable; lets `skip` of them pass, then holds for `times`. The latest rule that holds decides.
 * With `error` the call is -1 with that errno; else the firmware answers `status` and neither reads nor
 * writes anything else.
 */
struct rule {
    int command = any_command;
    std::optional<var_name> name = {};
    unsigned skip = 0;
    unsigned times = 1;
    int error = 0;
    EFI_STATUS status = EFI_SUCCESS;
};
void add_rule(const rule &rule);

/* Shorthands. n counts from 0, from now on. */
void fail_call(unsigned n, int error);
void fail_command(int command, int error, unsigned skip = 0, unsigned times = forever);
void fail_variable(int command, const var_name &name, int error, unsigned skip = 0, unsigned times = forever);
void answer_call(unsigned n, EFI_STATUS status);
void answer_command(int command, EFI_STATUS status, unsigned skip = 0, unsigned times = forever);
void answer_variable(int command, const var_name &name, EFI_STATUS status, unsigned skip = 0,
                     unsigned times = forever);

/*
 * GetNextVariableName answers these steps one after the other, whatever the previous name, and EFI_NOT_FOUND
 * behind them (or the last step for ever). A step with EFI_SUCCESS writes name, GUID and size, unless the
 * buffer is too small: then the answer is EFI_BUFFER_TOO_SMALL with the size, and the step comes again. Other
 * statuses write only themselves, and `size` where given. `error`: the call is -1 with this errno.
 */
struct enumeration_step {
    var_name name = {};
    EFI_STATUS status = EFI_SUCCESS;
    EFI_GUID guid = global_guid;
    std::optional<UINTN> size = {};
    int error = 0;
};
void script_enumeration(const std::vector<enumeration_step> &steps, bool repeat_last = false);

/* Clock, alarm, counter, and the sizes that QueryVariableInfo answers. */
struct alarm {
    BOOLEAN enabled = B_FALSE;
    BOOLEAN pending = B_FALSE;
    EFI_TIME time = {};
};
struct storage_info {
    UINT64 max_storage = 65536;
    UINT64 remaining_storage = 32768;
    UINT64 max_size = 16384;
};
void set_clock(const EFI_TIME &time, const EFI_TIME_CAPABILITIES &capabilities = {});
EFI_TIME clock();
void set_alarm(const alarm &alarm);
alarm current_alarm();
void set_monotonic_count(UINT32 high); /* the next answer */
void set_storage_info(const storage_info &info);

/* One ioctl as it arrived. Fields that a command does not have stay empty. */
struct request {
    int command = 0;
    int fd = -1;
    bytes record = {};                     /* the record itself */
    const void *ret = nullptr;             /* where it asks for the status */
    std::optional<EFI_STATUS> answer = {}; /* the status given; empty: the call was -1 */

    /* Variable services. Get and Set: variable_name_size bytes at the name; GetNext: the previous name. */
    bytes name_bytes = {};
    var_name name = {};
    UINTN variable_name_size = 0; /* GetNext: the size of the buffer */
    std::optional<EFI_GUID> guid = {};
    std::optional<UINT32> attributes = {}; /* empty: the pointer was null. Get: what it pointed at */
    std::optional<UINTN> data_size = {};
    const void *data_address = nullptr;
    bytes data = {}; /* Set and ResetSystem: the bytes */

    /* Clock services. */
    std::optional<EFI_TIME> time = {};
    BOOLEAN enable = B_FALSE;
    EFI_RESET_TYPE reset_type = EFI_RESET_COLD;
    EFI_STATUS reset_status = EFI_SUCCESS;
};
const std::vector<request> &requests();
void forget_requests();
size_t requests_of(int command);

/* Called before each request is served, so that the store can change between two calls. */
void before_each(std::function<void(const request &)> hook);

/* Opens and closes. */
struct opening {
    std::string path;
    int flags = 0;
    int fd = -1; /* -1: failed */
};
const std::vector<opening> &openings();
unsigned closings();
unsigned open_descriptors();
unsigned wrong_descriptors(); /* ioctls and closes of a descriptor that was not open */

/* devns_readlink: targets by name, ENOENT for others. */
void put_link(const std::string &path, const std::string &target);

} // namespace fakes

#endif
