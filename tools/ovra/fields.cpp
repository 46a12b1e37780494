#include "tools/ovra/fields.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "tools/ovra/failure.h"

namespace tool {

namespace {

constexpr size_t file_limit = 1 << 20; // far above what firmware stores; an endless file ends here

bytes contents(const std::string &file)
{
    const std::string cannot = "cannot read " + printable(file) + ": ";
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1)
        throw failure(cannot + strerror(errno));
    bytes data(file_limit + 1);
    size_t size = 0;
    ssize_t part = 0;
    while (size < data.size() &&
           ((part = read(fd, data.data() + size, data.size() - size)) > 0 || (part == -1 && errno == EINTR)))
        size += part > 0 ? static_cast<size_t>(part) : 0;
    const int error = errno;
    close(fd);
    if (part == -1)
        throw failure(cannot + strerror(error));
    if (size > file_limit)
        throw failure(cannot + "it is larger than any firmware variable");
    data.resize(size);
    return data;
}

} // namespace

std::optional<bytes> given_optional_data(const arguments &args)
{
    if (args.optional_data_file)
        return contents(*args.optional_data_file);
    if (args.optional_data_text)
        return stored(to_ucs2(*args.optional_data_text).value());
    return std::nullopt;
}

} // namespace tool
