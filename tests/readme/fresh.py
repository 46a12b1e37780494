#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: fresh.py

README.md's lines on a system of its own: debootstrap makes the smallest Debian in a temporary folder, from where this
machine's apt takes its packages, with sudo and one user. That user installs, builds and uses the library by the lines
as they stand there, and once more without root by make, in a folder with blanks in its name. Root only.
"""
import os
import shutil
import subprocess
import sys
import tempfile

from blocks import ROOT, build_lines, commands, write_examples

sys.path.insert(0, os.path.join(ROOT, "tests", "abi"))
import machine  # noqa: E402

USER = "person"
KEYS = "/usr/share/keyrings/debian-archive-keyring.gpg"


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def codename():
    with open("/etc/os-release", encoding="utf-8") as file:
        return next(line.strip().split("=")[1].strip('"') for line in file if line.startswith("VERSION_CODENAME="))


def mirror(release):
    """Where apt of this machine gets Debian from."""
    listed = output("apt-get", "indextargets", "--format", "$(RELEASE) $(COMPONENT) $(REPO_URI)", "Created-By: Packages")
    for line in listed.splitlines():
        found, component, place = line.split(" ", 2)
        if (found, component) == (release, "main"):
            return place
    raise SystemExit(f"apt knows no place for the packages of {release}")


class System:
    def __init__(self, root):
        self.root = root
        self.home = os.path.join(root, "home", USER)
        release = codename()
        subprocess.run(["debootstrap", "--variant=minbase", "--include=sudo", f"--keyring={KEYS}", release, root,
                        mirror(release)], stdout=subprocess.DEVNULL, check=True)
        # How apt reaches its places from here, and whether an old state of them will do.
        for name in ("Acquire::http::Proxy", "Acquire::Check-Valid-Until", "Acquire::Check-Date"):
            value = output("apt-config", "shell", "value", name).strip()
            if value:
                with open(os.path.join(root, "etc/apt/apt.conf.d/10reach"), "a", encoding="utf-8") as file:
                    file.write(f'{name} "{value.split("=", 1)[1].strip(chr(39))}";\n')
        with open(os.path.join(root, "etc/sudoers.d/person"), "w", encoding="utf-8") as file:
            file.write(f"{USER} ALL=(ALL) NOPASSWD: ALL\n")
        self.run(f"useradd --create-home --shell /bin/bash {USER}", "root")

    def run(self, script, user=USER):
        """Types a script as a user that has just logged in; nothing that it starts outlives it."""
        done = subprocess.run(["unshare", "--mount", "--pid", "--fork", "--kill-child", f"--mount-proc={self.root}/proc",
                               "chroot", self.root, "su", "--login", user, "--command", script],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={"PATH": os.environ["PATH"], "TERM": "dumb"}, check=False)
        if done.returncode != 0:
            raise SystemExit(f"{script}\nexit status {done.returncode}:\n{done.stdout}")
        return done.stdout

    def copy_project(self, folder):
        """The files that git knows."""
        for name in output("git", "-c", f"safe.directory={ROOT}", "-C", ROOT, "ls-files", "-z").split("\0")[:-1]:
            place = os.path.join(self.home, folder, name)
            os.makedirs(os.path.dirname(place), exist_ok=True)
            shutil.copy2(os.path.join(ROOT, name), place, follow_symlinks=False)


def expect(text, *words):
    missing = [word for word in words if word not in text]
    if missing:
        raise SystemExit(f"{missing} is not in\n{text}")


def main():
    with tempfile.TemporaryDirectory(prefix="ovra-fresh-") as place:
        os.chmod(place, 0o755)
        print("a new system", flush=True)
        system = System(os.path.join(place, "root"))
        system.copy_project("libovra")
        system.copy_project("another folder/libovra")
        write_examples(system.home)
        folder = machine.Machine(os.path.join(system.home, "machine"))
        for name, description in (("Boot0000", "Disk"), ("Boot0002", "Network")):
            folder.write(name, machine.load_option(description, machine.file_path("\\a.efi")))
        system.run(f"chown -R {USER}: /home/{USER}", "root")
        on_machine = "export HWPLAT_ROOT=$HOME/machine\n"

        print("building and installing", flush=True)
        build, install = build_lines()
        expect(system.run(f"cd libovra\n{build}"), "Tests are not built: GoogleTest")
        system.run(f"cd libovra\n{install}")
        expect(system.run(f"{on_machine}ovra list"), "Boot0000", "Disk", "Boot0002", "Network")
        system.run("test -f /usr/local/share/man/man1/ovra.1")

        print("the examples", flush=True)
        expect(system.run(f"{on_machine}cd c\n{commands('From C')}"), "Boot0000 Disk\n", "Boot0002 Network\n")
        expect(system.run(f"{on_machine}cd c++\n{commands('From C++ with CMake')}"), "Boot0000\n", "Boot0002\n")

        print("building with make, and installing without root", flush=True)
        system.run("rm -r c/list c++/build; sudo cmake -E rm -r /usr/local/include /usr/local/lib; sudo ldconfig")
        system.run("cd 'another folder/libovra' && cmake -S . -B build && cmake --build build -j$(nproc)")
        script = commands("Building and installing", 1).replace("cc list.c", "cd ~/c && cc list.c")
        expect(system.run(f"{on_machine}cd 'another folder/libovra'\n{script}./list\n"), "Boot0000 Disk\n")
        expect(system.run(f"{on_machine}export CMAKE_PREFIX_PATH=$HOME/.local\ncd c++\n{commands('From C++ with CMake')}"),
               "Boot0000\n", "Boot0002\n")
        expect(system.run(f"{on_machine}.local/bin/ovra list"), "Boot0000", "Boot0002")
        print("every line of README.md that builds, installs or uses the library works on a fresh system")


if __name__ == "__main__":
    main()
