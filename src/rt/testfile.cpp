// SPDX-License-Identifier: MIT
#include "src/rt/testfile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "src/base/cancel.h"
#include "src/rt/diag.h"
#include "src/rt/rt.h"

using ovra::say;

namespace {

struct closing {
    void operator()(FILE *file) const { fclose(file); }
};
using open_file = std::unique_ptr<FILE, closing>;

} // namespace

bool ovra::test_file_mode()
{
    return secure_getenv("OVRA_TEST_FILE") != nullptr;
}

EFI_STATUS set_variable_to_file(const char *path, UINTN size, const void *data)
{
    const ovra::uncancelled writing;
    const open_file file(fopen(path, "we"));
    if (!file) {
        say("can't open file %s: %s\n", path, strerror(errno));
        return EFI_DEVICE_ERROR;
    }
    // Kept: an error of writing is not looked at, and a size of 0 leaves an empty file.
    // [kept_errors_of_writing_are_not_looked_at, kept_set_of_size_0_leaves_an_empty_file]
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (UINTN i = 0; i < size; ++i)
        fputc(bytes[i], file.get());
    return EFI_SUCCESS;
}

EFI_STATUS get_variable_from_file(const char *path, UINTN *size, void *data)
{
    const ovra::uncancelled reading;
    const open_file file(fopen(path, "re"));
    if (!file)
        return EFI_NOT_FOUND;
    if (fseek(file.get(), 0, SEEK_END) != 0)
        return EFI_DEVICE_ERROR;
    const long end = ftell(file.get());
    if (end < 0)
        return EFI_DEVICE_ERROR;
    const auto length = static_cast<UINTN>(end);
    // Kept: an empty file asked for with size 0 is "too small" too.
    // [kept_empty_file_with_size_0_is_too_small_too]
    if (*size == 0 || *size < length) {
        *size = length;
        return EFI_BUFFER_TOO_SMALL;
    }
    rewind(file.get());
    // Never more than was measured: the file may have grown meanwhile.
    *size = fread(data, 1, length, file.get());
    return ferror(file.get()) ? EFI_DEVICE_ERROR : EFI_SUCCESS;
}
