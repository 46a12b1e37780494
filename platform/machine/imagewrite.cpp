// SPDX-License-Identifier: MIT
// Exchanging the file of a stopped machine's variables for a changed one.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/imagefile.h"
#include "platform/machine/lock.h"
#include "platform/machine/size_signal.h"

namespace machine {

namespace {

constexpr std::string_view new_file_suffix = ".tmp";

// How the names of an image's new files begin. They are short, as the image's own name may be as long as a
// name can be, and not those of another image, which somebody else may be writing.
std::string new_file_prefix(const std::string &image)
{
    std::uint64_t hash = 0xcbf29ce484222325; // FNV-1a
    for (const char each : image)
        hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3;
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), ".hwplat-%016llx-", static_cast<unsigned long long>(hash));
    return text.data();
}

// A new file beside the image. It is removed again unless it takes the image's name.
class new_file {
public:
    new_file(int in_folder, const std::string &image) : folder(in_folder)
    {
        // A name that nobody can guess: others may be allowed to make files here, and to keep them.
        std::uint64_t number = 0;
        if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number))
            return;
        std::array<char, 32> text = {};
        std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
        name = new_file_prefix(image).append(text.data()).append(new_file_suffix);
        constexpr mode_t mode = 0600; // until it has its owner
        file.reset(openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    }
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;
    ~new_file()
    {
        const int saved = errno;
        if (file && !kept)
            unlinkat(folder, name.c_str(), 0);
        errno = saved;
    }

    explicit operator bool() const { return static_cast<bool>(file); }
    [[nodiscard]] int get() const { return file.get(); }
    [[nodiscard]] const char *path() const { return name.c_str(); }
    void keep() { kept = true; }

private:
    int folder;
    std::string name;
    owned_fd file;
    bool kept = false;
};

// Only who has the image's lock makes such files: those that are there were left by killed writers. Once for
// a lock will do. What cannot be removed is in nobody's way.
void remove_leftovers(const machine_root &root, int folder)
{
    locked_knowledge *known = knowledge_of(root);
    if (known == nullptr || known->is_tidy)
        return;
    known->is_tidy = true;
    std::vector<std::string> names;
    if (const int error = list_folder(folder, &names); error != 0)
        debug("files of killed writers are not looked for: %s", std::strerror(error));
    const std::string prefix = new_file_prefix(root.image);
    for (const std::string &name : names) {
        if (name.starts_with(prefix) && name.ends_with(new_file_suffix) &&
            unlinkat(folder, name.c_str(), 0) != 0)
            debug("'%s' cannot be removed: %s", name.c_str(), std::strerror(errno));
    }
}

// Marks of the security system and access lists. Some only root may set, and some file systems have none: the
// emulator's own tools set them again.
void copy_extended_attributes(int from, int to)
{
    constexpr std::size_t longest = 64u << 10;
    std::vector<char> names(longest);
    std::vector<char> value(longest);
    const ssize_t size = flistxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < size;) {
        const char *name = names.data() + at;
        const ssize_t length = fgetxattr(from, name, value.data(), value.size());
        if (length >= 0 && fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0) != 0)
            debug("the new file does not get the attribute '%s': %s", name, std::strerror(errno));
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
    }
}

// Owner and mode: an emulator that may not open the new file would not start. 0 or an errno value.
int take_over_owner(int from, int to)
{
    struct stat old = {};
    struct stat made = {};
    if (fstat(from, &old) != 0 || fstat(to, &made) != 0)
        return errno;
    // A file system without owners and modes gives both files the same.
    if ((old.st_uid != made.st_uid || old.st_gid != made.st_gid) && fchown(to, old.st_uid, old.st_gid) != 0) {
        debug("the new file cannot have the owner of the old one: %s", std::strerror(errno));
        return errno;
    }
    copy_extended_attributes(from, to);
    if (fstat(to, &made) != 0)
        return errno;
    return made.st_mode == old.st_mode || fchmod(to, old.st_mode & ALLPERMS) == 0 ? 0 : errno;
}

int copy_range(int from, int to, std::uint64_t begin, std::uint64_t end)
{
    constexpr std::uint64_t at_once = 1u << 20;
    bytes buffer;
    for (int interruptions = 0; begin < end;) {
        buffer.resize(std::min(at_once, end - begin));
        const ssize_t got = pread(from, buffer.data(), buffer.size(), static_cast<off_t>(begin));
        if (got < 0 && errno == EINTR && ++interruptions < most_interruptions)
            continue;
        if (got <= 0)
            return got < 0 ? errno : ESTALE; // it was longer
        if (lseek(to, static_cast<off_t>(begin), SEEK_SET) < 0)
            return errno;
        const auto size = static_cast<std::size_t>(got);
        if (const int error = write_all(to, byte_view(buffer).first(size)); error != 0)
            return error;
        begin += size;
    }
    return 0;
}

// Copies a file into an empty one. Holes stay holes: most of the files for ARM are.
int copy_file(int from, off_t end, int to)
{
    {
        const no_size_signal quiet;
        if (ftruncate(to, end) != 0)
            return errno;
    }
    for (off_t at = 0; at < end;) {
        off_t data = lseek(from, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            return 0; // a hole to the end
        off_t hole = data < 0 ? end : lseek(from, data, SEEK_HOLE);
        data = std::max(data, at);
        hole = hole <= data ? end : std::min(hole, end);
        if (const int error =
                copy_range(from, to, static_cast<std::uint64_t>(data), static_cast<std::uint64_t>(hole));
            error != 0)
            return error;
        at = hole;
    }
    return 0;
}

int fill(int to, int from, off_t size, const image_contents &image)
{
    if (!image.is_whole) {
        if (const int error = copy_file(from, size, to); error != 0)
            return error;
    }
    if (lseek(to, static_cast<off_t>(image.offset), SEEK_SET) < 0)
        return errno;
    if (const int error = write_all(to, image.store->contents()); error != 0)
        return error;
    return synchronise(to) == 0 ? 0 : errno;
}

} // namespace

int write_image(const machine_root &root, int folder, const image_contents &read,
                std::unique_ptr<const variable_image> changed)
{
    remove_leftovers(root, folder);
    const owned_fd old = open_image(root);
    struct stat info = {};
    if (!old || fstat(old.get(), &info) != 0)
        return errno;
    if (version_of(info) != read.version)
        return ESTALE;
    // Made before the change, after which nothing may fail for want of memory.
    const auto written = std::make_shared<image_contents>();
    written->offset = read.offset;
    written->is_whole = read.is_whole;
    written->store = std::move(changed);
    new_file file(folder, root.image);
    if (!file)
        return errno;
    if (const int error = take_over_owner(old.get(), file.get()); error != 0)
        return error;
    if (const int error = fill(file.get(), old.get(), read.version.size, *written); error != 0)
        return error;
    const auto made = file_identity_of(file.get());
    if (!made)
        return errno;
    locked_knowledge *known = knowledge_of(root);
    if (const int error = rename_locked(root, file.path(), *made, read.version.file); error != 0)
        return error;
    file.keep();
    // Its new name has changed one of its times.
    if (known != nullptr && fstat(file.get(), &info) == 0) {
        written->version = version_of(info);
        known->image = written;
    }
    return write_back(folder);
}

} // namespace machine
