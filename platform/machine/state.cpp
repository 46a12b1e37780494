// SPDX-License-Identifier: MIT
#include "platform/machine/state.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/machine/debug.h"

namespace machine {

namespace {

// Bytes. The longest file has ten numbers of up to 20 digits.
constexpr std::size_t longest_text = 256;

owned_fd open_state(const runtime_services &services, missing_folders missing)
{
    return open_below(services.root.folder.get(), {"var", "lib", "hwplat"}, missing);
}

bool parse(std::string_view text, std::span<std::int64_t> numbers)
{
    const char *at = text.data();
    const char *end = at + text.size();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        auto [stop, error] = std::from_chars(at, end, numbers[i]);
        const char follows = i + 1 == numbers.size() ? '\n' : ' ';
        if (error != std::errc() || stop == end || *stop != follows)
            return false;
        at = stop + 1;
    }
    return at == end;
}

void say_why(const char *file_name, int error)
{
    debug("cannot go by var/lib/hwplat/%s: %s", file_name,
          error == EBADMSG ? "it does not say what it should" : std::strerror(error));
}

} // namespace

EFI_STATUS read_state(const runtime_services &services, const char *file_name,
                      std::span<std::int64_t> numbers, bool *found)
{
    bytes contents;
    const owned_fd folder = open_state(services, missing_folders::fail);
    int error = folder ? read_file(folder.get(), file_name, longest_text, &contents) : errno;
    if (error == ENOENT || error == ENOTDIR) {
        *found = false;
        return EFI_SUCCESS;
    }
    if (error == 0 && !parse({reinterpret_cast<const char *>(contents.data()), contents.size()}, numbers))
        error = EBADMSG;
    if (error != 0) {
        say_why(file_name, error);
        return status_of(error);
    }
    *found = true;
    return EFI_SUCCESS;
}

EFI_STATUS refuse_state(const char *file_name)
{
    say_why(file_name, EBADMSG);
    return status_of(EBADMSG);
}

EFI_STATUS write_state(const runtime_services &services, const char *file_name,
                       std::span<const std::int64_t> numbers)
{
    const owned_fd above = open_state(services, missing_folders::create);
    const owned_fd folder = above ? open_for_reading(above.get()) : owned_fd();
    if (!folder) {
        debug("cannot write var/lib/hwplat/%s: %s", file_name, std::strerror(errno));
        return status_of_folder(errno);
    }
    std::vector<std::string> names;
    if (const int error = list_folder(folder.get(), &names); error != 0)
        return status_of_folder(error);
    for (const std::string &name : names) {
        if (is_temporary(name)) // of a killed writer, as this one has the lock
            unlinkat(folder.get(), name.c_str(), 0);
    }
    std::string text;
    for (std::int64_t number : numbers) {
        if (!text.empty())
            text.push_back(' ');
        text += std::to_string(number);
    }
    text.push_back('\n');
    return status_of_folder(replace_file(folder.get(), file_name, std::as_bytes(std::span(text))));
}

} // namespace machine
