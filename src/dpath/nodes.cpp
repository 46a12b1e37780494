#include <cstring>

#include "src/dpath/build.h"
#include "src/rt/diag.h"

using ovra::fail;
using ovra::owned;

int add_file_path(const char *path, uefi_device_path_t **out)
{
    const owned<uint16_t> name(convert_utf8_to_leunicode(path));
    if (!name)
        return -1;
    const size_t size = unicode_strlen(name.get());
    auto node = ovra::new_node<uefi_file_path_t>(size);
    if (!node)
        return fail("unable to allocate device path\n");
    memcpy(node->path_name, name.get(), size);
    return ovra::hand_over(std::move(node), out);
}

int add_device_end(uint8_t subtype, uefi_device_path_t **out)
{
    auto node = ovra::new_raw_node(UEFI_END, subtype, sizeof(uefi_device_path_t));
    if (!node)
        return -1;
    return ovra::hand_over(std::move(node), out);
}
