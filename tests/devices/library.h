/* SPDX-License-Identifier: MIT */
/* libovra on the machine under test, as outcomes. */
#ifndef TESTS_DEVICES_LIBRARY_H
#define TESTS_DEVICES_LIBRARY_H

#include <cstdio>
#include <stdexcept>
#include <string>

#include <ovra/ovra.h>

#include "tests/devices/failing_calls.h"
#include "tests/devices/sample.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"

namespace devices_test {

/* A handle with its messages switched off: they would add system calls. Throws what tests cannot go on
 * without. */
class library {
public:
    library() : silent(0, 0)
    {
        if (ovra_init(&handle) != 0)
            throw std::runtime_error("ovra_init");
    }
    library(const library &) = delete;
    library &operator=(const library &) = delete;
    ~library() { ovra_fini(handle); }

    [[nodiscard]] ovra_hdl_t get() const { return handle; }

    /* The packed path of a disk's name, in hexadecimal. */
    [[nodiscard]] outcome encode(const char *disk, int flags) const
    {
        char name[64];
        std::snprintf(name, sizeof name, "%s", disk);
        ovra_path_t instance = {name, nullptr};
        ovra_path_t *paths[] = {&instance, nullptr};
        ovra_epath_t packed = nullptr;
        int size = 0;
        if (ovra_epath_encode(handle, paths, flags, &packed, &size) != 0)
            return {-1, ""};
        outcome found = {0, ovra::test::to_digits(packed, static_cast<size_t>(size))};
        memlist_free(handle, packed);
        return found;
    }

    /* The same as bytes, which it must have. */
    [[nodiscard]] std::string packed(const char *disk, int flags) const
    {
        const outcome found = encode(disk, flags);
        if (found.error != 0)
            throw std::runtime_error("ovra_epath_encode");
        const ovra::test::bytes data = ovra::test::from_hex(found.text);
        return {data.begin(), data.end()};
    }

    /* The path of an option. */
    [[nodiscard]] std::string option_path(const char *option) const
    {
        char name[16];
        std::snprintf(name, sizeof name, "%s", option);
        ovra_epath_t path = nullptr;
        int size = 0;
        if (ovra_bootopt_get(handle, name, &path, &size, nullptr, nullptr, nullptr, nullptr) != 0)
            throw std::runtime_error("ovra_bootopt_get");
        const std::string bytes(reinterpret_cast<const char *>(path), static_cast<size_t>(size));
        memlist_free(handle, path);
        return bytes;
    }

    /* The devices that a packed path leads to, a line for each. */
    [[nodiscard]] outcome decode(std::string packed) const
    {
        ovra_path_t **paths = nullptr;
        outcome found;
        if (ovra_epath_decode_to_devices(handle, reinterpret_cast<ovra_epath_t>(packed.data()),
                                         static_cast<int>(packed.size()), &paths) != 0)
            found.error = -1;
        for (ovra_path_t **path = paths; found.error == 0 && path != nullptr && *path != nullptr; ++path)
            found.text += std::string((*path)->device_path) + '\n';
        free_dpath(handle, paths);
        return found;
    }

    [[nodiscard]] outcome names(int (*call)(ovra_hdl_t, char *, char ***), const char *argument) const
    {
        char name[64];
        std::snprintf(name, sizeof name, "%s", argument);
        char **array = nullptr;
        outcome found;
        if (call(handle, name, &array) != 0)
            return {-1, ""};
        for (char **each = array; each != nullptr && *each != nullptr; ++each)
            found.text += std::string(*each) + '\n';
        free_str_array(handle, array);
        return found;
    }

    void put_option(const char *option, const char *disk) const
    {
        std::string path = packed(disk, 0);
        char name[16];
        std::snprintf(name, sizeof name, "%s", option);
        char description[] = "a disk";
        if (ovra_bootopt_set(handle, name, reinterpret_cast<ovra_epath_t>(path.data()),
                             static_cast<int>(path.size()), description, 1, nullptr, 0) != 0)
            throw std::runtime_error("ovra_bootopt_set");
    }

private:
    ovra::test::messages silent;
    ovra_hdl_t handle = nullptr;
};

} // namespace devices_test

#endif
