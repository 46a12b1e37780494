/* SPDX-License-Identifier: MIT */
// A machine that stands in the way of what is done to it.
#ifndef TESTS_TOOL_HOSTILE_MACHINE_H
#define TESTS_TOOL_HOSTILE_MACHINE_H

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/tool/support.h"

namespace tool_test {

class hostile_machine;

// How a machine is made hostile, and where it stands: on a file system of its own where it says which.
struct hostility {
    const char *name;
    std::function<void(hostile_machine &)> prepare;
    bool as_nobody = false;
    const char *file_system = nullptr; // options of a tmpfs
};

class hostile_machine : public Machine {
public:
    using Machine::file;
    using Machine::put_state;
    using Machine::root;
    using Machine::run;
    using Machine::snapshot;
    using Machine::variables;

    void put_file(const std::string &variable, const std::string &contents) const
    {
        std::filesystem::remove_all(file(variable));
        std::ofstream(file(variable), std::ios::binary) << contents;
    }

    // With other attributes, for each that the verbs change.
    void put_attributes(uint32_t attributes) const
    {
        for (const char *variable : {"Boot0000", "BootOrder", "BootNext"})
            put(variable, get(variable), attributes);
    }

    void put_in_place(const std::string &variable,
                      const std::function<void(const std::filesystem::path &)> &make) const
    {
        std::filesystem::remove_all(file(variable));
        make(file(variable));
    }

    void mark(const std::filesystem::path &path, int marks)
    {
        const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        can_be_made = fd != -1 && ioctl(fd, FS_IOC_SETFLAGS, &marks) == 0;
        close(fd);
        marked.push_back(path);
    }

    // The machine's folder and all in it are the user's who runs the command.
    void give_away() const
    {
        std::error_code error;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
            if (lchown(entry.path().c_str(), ovra::test::nobody, ovra::test::nobody) != 0)
                ADD_FAILURE() << entry.path();
        }
        EXPECT_EQ(chown(root.c_str(), ovra::test::nobody, ovra::test::nobody), 0);
    }

    void make_unreadable(const std::filesystem::path &path) const
    {
        give_away();
        EXPECT_EQ(chown(path.c_str(), 0, 0), 0);
        std::filesystem::permissions(path, std::filesystem::perms(0600));
    }

    // Leaves `left` bytes of the file system that the machine stands on.
    void fill(off_t left) const
    {
        const std::filesystem::path filler = root / "filler";
        const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        off_t size = 0;
        while (write(fd, page.data(), page.size()) == static_cast<ssize_t>(page.size()))
            size += static_cast<off_t>(page.size());
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(ftruncate(fd, size - left), 0);
        close(fd);
    }

    void use_up_files() const
    {
        for (int at = 0;; ++at) {
            const int fd = open((root / ("filler" + std::to_string(at))).c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            if (fd == -1)
                break;
            close(fd);
        }
        EXPECT_EQ(errno, ENOSPC);
    }

    void mount_anew(unsigned long flags) const
    {
        EXPECT_EQ(mount(nullptr, root.c_str(), nullptr, MS_REMOUNT | flags, nullptr), 0);
    }

    void put_link_for(const std::string &folder_of_state) const
    {
        const std::filesystem::path link = root / folder_of_state;
        std::filesystem::rename(link, root / "elsewhere");
        std::filesystem::create_symlink(root / "elsewhere", link);
    }

    // A new machine, made hostile; false where the system does not allow it.
    bool make(const hostility &tested)
    {
        tear_down();
        std::filesystem::create_directory(root);
        if (const char *options = tested.file_system) {
            is_mounted = mount("none", root.c_str(), "tmpfs", 0, options) == 0;
            if (!is_mounted)
                return false;
        }
        std::filesystem::copy(pristine, root, std::filesystem::copy_options::recursive);
        std::filesystem::permissions(root, std::filesystem::perms(0755));
        can_be_made = true;
        tested.prepare(*this);
        return can_be_made;
    }

    std::filesystem::path lock() const { return root / "var/lib/hwplat/lock"; }

protected:
    hostile_machine()
    {
        // What every verb finds something to do on.
        put("BootNext", std::string("\x07\0", 2));
        output({"time", "--wakeup", "--set", "2098-02-03T04:05:06Z"});
        std::filesystem::remove(lock());
        std::filesystem::copy(root, pristine, std::filesystem::copy_options::recursive);
    }

    ~hostile_machine() override { tear_down(); }

    void tear_down()
    {
        for (const std::filesystem::path &path : marked) {
            const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
            int none = 0;
            ioctl(fd, FS_IOC_SETFLAGS, &none);
            close(fd);
        }
        marked.clear();
        if (is_mounted)
            umount2(root.c_str(), MNT_DETACH);
        is_mounted = false;
        std::error_code ignored;
        std::filesystem::permissions(variables, std::filesystem::perms(0755), ignored);
        std::filesystem::remove_all(root);
    }

    std::filesystem::path pristine = folder / "pristine";
    std::vector<std::filesystem::path> marked;
    bool is_mounted = false;
    bool can_be_made = true;
};

} // namespace tool_test

#endif
