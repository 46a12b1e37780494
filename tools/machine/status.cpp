// SPDX-License-Identifier: MIT
#include "tools/machine/status.h"

#include <cerrno>
#include <iterator>

#include "tools/text/text.h"

namespace tool {

bool is_permission(int error)
{
    return error == EACCES || error == EPERM;
}

bool is_refusal(EFI_STATUS status)
{
    return status == EFI_ACCESS_DENIED || status == EFI_WRITE_PROTECTED || status == EFI_SECURITY_VIOLATION;
}

std::string status_name(EFI_STATUS status)
{
    static constexpr const char *errors[] = {nullptr,
                                             "EFI_LOAD_ERROR",
                                             "EFI_INVALID_PARAMETER",
                                             "EFI_UNSUPPORTED",
                                             "EFI_BAD_BUFFER_SIZE",
                                             "EFI_BUFFER_TOO_SMALL",
                                             "EFI_NOT_READY",
                                             "EFI_DEVICE_ERROR",
                                             "EFI_WRITE_PROTECTED",
                                             "EFI_OUT_OF_RESOURCES",
                                             "EFI_VOLUME_CORRUPTED",
                                             "EFI_VOLUME_FULL",
                                             "EFI_NO_MEDIA",
                                             "EFI_MEDIA_CHANGED",
                                             "EFI_NOT_FOUND",
                                             "EFI_ACCESS_DENIED",
                                             "EFI_NO_RESPONSE",
                                             "EFI_NO_MAPPING",
                                             "EFI_TIMEOUT",
                                             "EFI_NOT_STARTED",
                                             "EFI_ALREADY_STARTED",
                                             "EFI_ABORTED",
                                             "EFI_ICMP_ERROR",
                                             "EFI_TFTP_ERROR",
                                             "EFI_PROTOCOL_ERROR",
                                             "EFI_INCOMPATIBLE_VERSION",
                                             "EFI_SECURITY_VIOLATION",
                                             "EFI_CRC_ERROR",
                                             "EFI_END_OF_MEDIA",
                                             nullptr,
                                             nullptr,
                                             "EFI_END_OF_FILE",
                                             "EFI_INVALID_LANGUAGE",
                                             "EFI_COMPROMISED_DATA",
                                             "EFI_IP_ADDRESS_CONFLICT",
                                             "EFI_HTTP_ERROR"};
    static constexpr const char *warnings[] = {"EFI_SUCCESS",
                                               "EFI_WARN_UNKNOWN_GLYPH",
                                               "EFI_WARN_DELETE_FAILURE",
                                               "EFI_WARN_WRITE_FAILURE",
                                               "EFI_WARN_BUFFER_TOO_SMALL",
                                               "EFI_WARN_STALE_DATA",
                                               "EFI_WARN_FILE_SYSTEM",
                                               "EFI_WARN_RESET_REQUIRED"};
    const auto code = static_cast<uint64_t>(status);
    constexpr uint64_t error_bit = UINT64_C(1) << 63;
    const uint64_t number = code & ~error_bit;
    if ((code & error_bit) == 0)
        return number < std::size(warnings) ? warnings[number] : "a warning that UEFI does not name";
    if (number < std::size(errors) && errors[number])
        return errors[number];
    return "an error that UEFI does not name";
}

namespace {

struct attribute {
    uint32_t bit;
    const char *word;
    const char *letters;
};

std::vector<std::string> in_words(uint32_t attributes, const char *attribute::*name)
{
    static constexpr attribute all[] = {{EFI_VARIABLE_NON_VOLATILE, "non-volatile", "NV"},
                                        {EFI_VARIABLE_BOOTSERVICE_ACCESS, "boot-service", "BS"},
                                        {EFI_VARIABLE_RUNTIME_ACCESS, "run-time", "RT"},
                                        {ovra::hardware_error_record, "hardware-error", "HR"},
                                        {ovra::authenticated_write, "authenticated", "AW"},
                                        {ovra::time_based_authenticated_write, "time-authenticated", "AT"},
                                        {ovra::enhanced_authenticated, "enhanced-authenticated", "EA"}};
    std::vector<std::string> set;
    for (const attribute &each : all) {
        if ((attributes & each.bit) != 0)
            set.emplace_back(each.*name);
        attributes &= ~each.bit;
    }
    if (attributes != 0)
        set.push_back(format("0x%x", attributes));
    return set;
}

} // namespace

std::vector<std::string> attribute_words(uint32_t attributes)
{
    return in_words(attributes, &attribute::word);
}

std::vector<std::string> attribute_letters(uint32_t attributes)
{
    return in_words(attributes, &attribute::letters);
}

} // namespace tool
