/* SPDX-License-Identifier: MIT */
/*
 * A machine: a folder laid out like a Linux root, and what its firmware's runtime services do there. "/" is
 * the live machine; any other folder is a captured or simulated one.
 *
 * Two things decide how a service is carried out:
 *   - variables by the file system of the machine's efivars folder: an efivarfs is written as the kernel
 * wants it, any other as plain files in the same format;
 *   - time, alarm, count and reset by the root: "/" has the host's clock chip and is really restarted.
 *
 * Statuses are the firmware's. What serves the firmware throws std::bad_alloc only, and then nothing has been
 * changed.
 */
#ifndef HWPLAT_MACHINE_MACHINE_H
#define HWPLAT_MACHINE_MACHINE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <ovra/uefi.h>

#include "platform/machine/files.h"
#include "platform/machine/names.h"

namespace machine {

/* root.cpp */

struct machine_root {
    descriptor folder; /* O_PATH */
    bool live = false; /* it is "/" itself */
};

/*
 * The folder that HWPLAT_ROOT names (not looked at in a set-user-ID program), else "/"; settled at each call,
 * but for where a relative one begins: a value is taken from the working folder in which the process first
 * looked at it. No folder, with errno, when it cannot be opened; an empty HWPLAT_ROOT names no folder.
 */
machine_root open_root();

/*
 * Says on standard error, while HWPLAT_DEBUG exists, why something was passed over. Bytes that are not
 * printable ASCII are written as "\xNN": names come from folders that anybody may have filled. Leaves errno
 * alone.
 */
[[gnu::format(printf, 1, 2)]] void debug(const char *format, ...);

/* firmware.cpp */

enum class store_kind {
    none,    /* sysfs: the place where efivarfs would be mounted */
    folder,  /* plain files */
    efivarfs /* the kernel's view of the firmware's own store */
};
store_kind kind_of_filesystem(std::uint64_t type);

/* Where a walk through the variables stands. The list is shared by walks that go along the same one. */
struct variable_walk {
    static constexpr std::size_t none = SIZE_MAX;

    std::shared_ptr<const std::vector<std::string>> file_names; /* sorted */
    std::size_t last = none;                                    /* the one that was given out last */
};

/* The walks of one descriptor, the latest last. Under lock_process_state(). */
using variable_walks = std::vector<variable_walk>;

struct firmware {
    machine_root root;
    descriptor variables; /* O_PATH of <root>/sys/firmware/efi/efivars */
    store_kind kind = store_kind::none;
    mutable variable_walks walks;
};

/* The machine's firmware. Null with errno when there is none: ENOENT when it has no firmware variables. */
std::unique_ptr<firmware> open_firmware();

/* store.cpp: variables as files */

/* No variable of any machine is larger, attributes included. */
inline constexpr std::size_t largest_variable_file = 16u << 20;

struct stored_variable {
    UINT32 attributes = 0;
    bytes contents; /* as the file has them: 4 bytes of attributes, then the data */

    [[nodiscard]] byte_view data() const { return byte_view(contents).subspan(sizeof attributes); }
};

/*
 * EFI_NOT_FOUND when there is no such file or it has no data (a variable without data cannot exist), and on
 * an efivarfs when it is empty (the kernel shows a variable so that was never written); EFI_DEVICE_ERROR when
 * it is damaged: no regular file, or of fewer than 4 bytes or more than the largest.
 */
EFI_STATUS read_variable(const firmware &machine, const std::string &file_name, stored_variable *found);

/* The same as an errno value: ENOENT, EBADMSG for a damaged one, or why it could not be read. */
int load_variable(const firmware &machine, const std::string &file_name, stored_variable *found);

/*
 * Whether read_variable would find one, as far as the file's size and kind tell. A status when not even these
 * can be learnt.
 */
EFI_STATUS find_variable(const firmware &machine, const std::string &file_name, bool *found);

/*
 * Writes a variable as it shall be from now on, without the rules of set_variable; under the machine's lock.
 * The folder is that of the variables, open for reading.
 */
EFI_STATUS write_variable(const firmware &machine, int folder, const std::string &file_name,
                          UINT32 attributes, std::initializer_list<byte_view> data);

/* EFI_NOT_FOUND when there is no such file. `attributes` are those that the variable has. */
EFI_STATUS remove_variable(const firmware &machine, int folder, const std::string &file_name,
                           UINT32 attributes);

/*
 * How much a folder holds. A variable takes from the store its 4 bytes of attributes, its name in UCS-2 with
 * the terminator, and its data; the limit for one variable counts its data alone.
 */
struct capacity {
    UINT64 store = 256u << 10;
    UINT64 variable = 32u << 10;
};
EFI_STATUS capacity_of(const firmware &machine, capacity *limits);
UINT64 space_taken(std::size_t name_units, std::size_t data_size);

enum class stopped_writers { leave, clean_up }; /* clean_up: under the machine's lock only */

/* What the variables of a folder take together. Also removes what stopped writers have left there. */
EFI_STATUS space_used(const firmware &machine, stopped_writers temporaries, UINT64 *used);

/* efivarfs.cpp: the same on an efivarfs, where the firmware itself keeps the value whole */

/* One write of `contents`, with the immutable flag lifted for it and put back. */
EFI_STATUS write_efivarfs(int folder, const char *file_name, byte_view contents);
EFI_STATUS remove_efivarfs(int folder, const char *file_name, UINT32 attributes);

struct variable_space {
    UINT64 store = 0;     /* bytes in all */
    UINT64 remaining = 0; /* bytes */
    UINT64 variable = 0;  /* bytes, the largest that one may have */
};
/* EFI_UNSUPPORTED on a kernel that does not report it. */
EFI_STATUS efivarfs_space(int folder, variable_space *space);

/* variables.cpp: the services, with the firmware's rules */

/*
 * `*size` is the buffer's size in, the data's size out. *size and *attributes (which may be null) are written
 * with EFI_SUCCESS and with EFI_BUFFER_TOO_SMALL, data with EFI_SUCCESS. Null data is allowed where the
 * buffer is too small.
 */
EFI_STATUS get_variable(const firmware &machine, name_view name, const EFI_GUID &guid, UINT32 *attributes,
                        UINTN *size, void *data);

/* Nothing is changed unless the answer is EFI_SUCCESS, or EFI_DEVICE_ERROR from a disk that failed at the
 * end. */
EFI_STATUS set_variable(const firmware &machine, name_view name, const EFI_GUID &guid, UINT32 attributes,
                        UINTN size, const void *data);

EFI_STATUS query_variable_info(const firmware &machine, UINT32 attributes, variable_space *space);

/* enumerate.cpp */

/*
 * The variable behind `name` and `guid` (an empty name: the first) in the order of the file names' bytes. A
 * walk goes along one list, made when it begins: it visits each variable of the list that is still there
 * once, and costs O(n log n). It belongs to the machine that is open here, which has several where several
 * are under way; one that is left may go on through a machine opened later. `*size` is the buffer's size in
 * bytes in, the name's out; EFI_BUFFER_TOO_SMALL changes nothing but `*size`. A name that neither is a
 * variable nor stands in a list of a walk is EFI_INVALID_PARAMETER.
 */
EFI_STATUS next_variable(const firmware &machine, UINTN *size, CHAR16 *name, EFI_GUID *guid);

/* Lets the walks of a machine that is about to be closed go on through one that is opened later. */
void leave_walks(const firmware &machine) noexcept;

/* eficlock.cpp: EFI_TIME as a number */

/* Seconds from 1970 to what the fields say, read as UTC. Nothing when a field is outside what UEFI allows. */
std::optional<std::int64_t> seconds_of(const EFI_TIME &time);

/* The inverse; time zone and daylight are left 0. Nothing outside the years 1900 to 9999. */
std::optional<EFI_TIME> time_of(std::int64_t seconds, std::uint32_t nanosecond);

/* Whether `alarm` is at or before `now`; as UTC where both name a time zone, else by their fields. */
bool is_reached(const EFI_TIME &alarm, const EFI_TIME &now);

/* clock.cpp: the services of a folder machine, or rtc.cpp's where the machine is live */

struct wakeup {
    bool enabled = false;
    bool pending = false; /* the alarm has gone off */
    EFI_TIME time = {};   /* all zero when no alarm was ever set */
};

EFI_STATUS get_time(const firmware &machine, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities);
EFI_STATUS set_time(const firmware &machine, const EFI_TIME &time);
EFI_STATUS get_wakeup_time(const firmware &machine, wakeup *alarm);
/* `time` may be null when the alarm is not enabled; the alarm's time is then kept. */
EFI_STATUS set_wakeup_time(const firmware &machine, bool enable, const EFI_TIME *time);
EFI_STATUS next_high_monotonic_count(const firmware &machine, UINT32 *count);

/* rtc.cpp: the host's clock chip, <root>/dev/rtc0. EFI_UNSUPPORTED where there is none. */

/*
 * The chip keeps no time zone: one that is set, other than UTC, is EFI_UNSUPPORTED. An alarm that is not
 * ahead, or that the chip does not take, is EFI_INVALID_PARAMETER, and the one that stood before stands
 * again; EFI_DEVICE_ERROR when that failed too.
 */
EFI_STATUS rtc_get_time(const machine_root &root, EFI_TIME *time);
EFI_STATUS rtc_set_time(const machine_root &root, const EFI_TIME &time);
EFI_STATUS rtc_get_wakeup_time(const machine_root &root, wakeup *alarm);
EFI_STATUS rtc_set_wakeup_time(const machine_root &root, bool enable, const EFI_TIME *time);

/* state.cpp: what a folder machine remembers besides variables, in <root>/var/lib/hwplat */

/*
 * Reads a file of decimal numbers, parted by single blanks and ended by a line end. EFI_SUCCESS with *found
 * false when there is none. A file that cannot be read is not absent, nor is one that says anything else:
 * that is EFI_DEVICE_ERROR, or what status_of makes of the failure.
 */
EFI_STATUS read_state(const firmware &machine, const char *file_name, std::span<std::int64_t> numbers,
                      bool *found);

/* What is to be answered where the numbers make no sense. */
EFI_STATUS refuse_state(const char *file_name);

/* Under the machine's lock. Makes the folder where it is missing. */
EFI_STATUS write_state(const firmware &machine, const char *file_name, std::span<const std::int64_t> numbers);

/* reset.cpp */

/*
 * On "/" writes everything back and restarts or stops the machine: it does not return when that succeeds. On
 * a folder machine plays what the firmware does at the next start, and returns 0. -1 with errno: EINVAL for a
 * type that UEFI does not name, EOPNOTSUPP for an efivarfs below another root than "/"; after any other error
 * BootNext is still there, so that the reset can be tried again.
 */
int reset_system(const firmware &machine, UINT32 type);

} // namespace machine

#endif
