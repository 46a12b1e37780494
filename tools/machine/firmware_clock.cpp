// SPDX-License-Identifier: MIT
// Clock, alarm and reset.
#include "tools/machine/firmware.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tools/machine/files.h"

namespace tool {

EFI_TIME firmware::time(EFI_TIME_CAPABILITIES *capabilities)
{
    EFI_TIME now = {};
    const EFI_STATUS status = service("cannot read the clock", [&](EFI_STATUS *answer) {
        return ovra_get_time(handle, &now, capabilities, answer);
    });
    require_state("cannot read the clock", status, clock_state, "'ovra time --set' writes a new one.");
    return now;
}

firmware::alarm firmware::wakeup_time()
{
    require_clock("cannot read the wake-up alarm");
    alarm result;
    BOOLEAN enabled = B_FALSE;
    BOOLEAN pending = B_FALSE;
    const EFI_STATUS status = service("cannot read the wake-up alarm", [&](EFI_STATUS *answer) {
        return ovra_get_wakeup_time(handle, &enabled, &pending, &result.time, answer);
    });
    if (status == EFI_DEVICE_ERROR && !is_live()) {
        const auto why = std::pair(error, messages);
        time(nullptr); // which is read too, to tell whether the alarm went off
        std::tie(error, messages) = why;
    }
    require_state("cannot read the wake-up alarm", status, alarm_state,
                  "'ovra time --wakeup --set' or '--clear' writes a new one.");
    result.enabled = enabled == B_TRUE;
    result.pending = pending == B_TRUE;
    return result;
}

firmware::change_request firmware::request_of_state(const std::string &what, const std::string &state) const
{
    constexpr size_t usual_size = 64; // bytes; the file of a few numbers
    return {what, {}, boot_variable_attributes, usual_size, is_live() ? "" : state};
}

void firmware::check_state(const change_request &request) const
{
    require_clock(request.what);
    if (request.state.empty() || access(state_folder().c_str(), F_OK) != 0) // made like that of the lock
        return;
    if (auto known = obstacle(request))
        throw not_changed(*known);
    room_taken none;
    check_file_system(request, &none);
}

void firmware::set_time(EFI_TIME time)
{
    const change_request request = request_of_state("cannot set the clock", clock_state);
    const EFI_STATUS status =
        service(request.what, [&](EFI_STATUS *answer) { return ovra_set_time(handle, &time, answer); });
    if (status != EFI_SUCCESS)
        throw why_not(request, status);
}

void firmware::check_set_time() const
{
    check_state(request_of_state("cannot set the clock", clock_state));
}

void firmware::set_wakeup_time(std::optional<EFI_TIME> time)
{
    const change_request request = request_of_state("cannot set the wake-up alarm", alarm_state);
    const EFI_STATUS status = service(request.what, [&](EFI_STATUS *answer) {
        return ovra_set_wakeup_time(handle, time ? B_TRUE : B_FALSE, time ? &*time : nullptr, answer);
    });
    if (!time) // what stands is read, to be kept
        require_state(request.what, status, alarm_state, {});
    if (status != EFI_SUCCESS)
        throw why_not(request, status);
}

void firmware::check_set_wakeup_time() const
{
    check_state(request_of_state("cannot set the wake-up alarm", alarm_state));
}

void firmware::check_clear_wakeup_time() const
{
    const change_request request = request_of_state("cannot set the wake-up alarm", alarm_state);
    require_clock(request.what);
    const auto file = request.state.empty() ? std::nullopt : look_at(file_of(request));
    if (!file)
        return;
    if (S_ISREG(file->stx_mode) && !may(file_of(request), R_OK))
        throw no_permission(request);
    check_state(request);
}

void firmware::reset(EFI_RESET_TYPE type)
{
    if (call([&] { return ovra_reset_system(handle, type, EFI_SUCCESS, 0, nullptr); }) == 0)
        return;
    // In a folder the next start is played by writing variables.
    throw why_not({"cannot reset the machine",
                   is_live() || is_real() ? ""
                   : image.empty()        ? "BootCurrent"
                                          : "BootNext",
                   boot_variable_attributes,
                   sizeof(uint16_t),
                   {}},
                  EFI_SUCCESS);
}

void firmware::check_reset()
{
    change_request request = {"cannot reset the machine", "BootCurrent", boot_variable_attributes, 0, {}};
    if (is_live()) {
        if (geteuid() != 0)
            throw no_permission(request);
        return;
    }
    if (is_real())
        throw not_changed(request.what + ": it is not this machine",
                          "Its variables are those of this machine's firmware.");
    if (!may(variables_folder(), R_OK | X_OK))
        throw no_permission(request);
    room_taken none;
    for (const auto &[name, size] :
         {std::pair("BootCurrent", booted_next() ? sizeof(uint16_t) : 0), std::pair("BootNext", size_t{0})}) {
        request.name = name;
        request.size = size;
        if (!is_changed_by_reset(request))
            continue;
        if (auto known = obstacle(request))
            throw not_changed(*known);
        check_file_system(request, &none);
    }
}

bool firmware::is_live() const
{
    if (!image.empty())
        return false;
    struct stat here = {};
    struct stat live = {};
    const std::string root = root_folder();
    return root.empty() || (stat(root.c_str(), &here) == 0 && stat("/", &live) == 0 &&
                            here.st_dev == live.st_dev && here.st_ino == live.st_ino);
}

} // namespace tool
