#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: install.py BUILD_FOLDER PLACE COMPILER install|<test class>

"install" puts an installation of BUILD_FOLDER into PLACE/prefix, by way of another folder that no longer exists
afterwards, since a prefix may be moved. Each test class then uses that installation as people do who have nothing
else.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import elf
import machine

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
BUILD, PLACE, COMPILER = sys.argv[1:4]
PREFIX = os.path.join(PLACE, "prefix")
STRICT = ["-std=c11", "-pedantic", "-Wall", "-Wextra", "-Werror"]
PATH = bytes.fromhex("04040c005c007800790000007fff0400")


def cache(name):
    with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as file:
        for line in file:
            if line.startswith(f"{name}:"):
                return line.rstrip("\n").split("=", 1)[1]
    raise AssertionError(f"no {name} in CMakeCache.txt")


LIB = cache("CMAKE_INSTALL_LIBDIR")
PROJECT_VERSION = cache("CMAKE_PROJECT_VERSION")


def environment(**more):
    """Nothing of this shell that could find libovra, or put it elsewhere."""
    kept = {name: value for name, value in os.environ.items()
            if not name.startswith(("OVRA_", "HWPLAT_", "LD_", "PKG_CONFIG", "CMAKE_", "DESTDIR", "CPATH", "LIBRARY_PATH"))}
    return {**kept, "LC_ALL": "C", **more}


def run(*command, env=None, status=0):
    done = subprocess.run(command, env=env or environment(), capture_output=True, text=True, check=False)
    if done.returncode != status:
        raise AssertionError(f"{' '.join(command)}: exit status {done.returncode}, not {status}\n"
                             f"{done.stdout}{done.stderr}")
    return done.stdout


def install():
    shutil.rmtree(PLACE, ignore_errors=True)
    os.makedirs(PLACE)
    with tempfile.TemporaryDirectory(dir=PLACE) as first:
        run("cmake", "--install", BUILD, "--prefix", f"{first}/a prefix")
        os.rename(f"{first}/a prefix", PREFIX)


def pkg_config(*arguments):
    folder = os.path.join(PREFIX, LIB, "pkgconfig")
    return run("pkg-config", *arguments, "ovra", env=environment(PKG_CONFIG_LIBDIR=folder)).split()


class Installation(unittest.TestCase):
    def path(self, *parts):
        return os.path.join(PREFIX, *parts)


class Files(Installation):
    def test_headers_are_those_of_the_project(self):
        for installed, source in (("ovra", "include/ovra"), ("hwplat", "platform/include")):
            names = sorted(os.listdir(os.path.join(ROOT, source)))
            self.assertGreater(len(names), 0)
            self.assertEqual(sorted(os.listdir(self.path("include", installed))), names)

    def test_the_link_for_scripts_leads_to_the_command(self):
        link = self.path(cache("CMAKE_INSTALL_LIBEXECDIR"), "ovra", "efibootmgr")
        self.assertEqual(os.path.realpath(link), os.path.realpath(self.path("bin", "ovra")))
        self.assertFalse(os.path.lexists(self.path("bin", "efibootmgr")))
        self.assertEqual(run(link, "-V"), "version 17\n")

    def test_libraries_have_versions_and_links(self):
        self.assertTrue(os.path.isfile(self.path(LIB, "libovra.a")))
        libraries = sorted(elf.listed())
        self.assertIn("libdevns.so.1", libraries)
        for soname in libraries:
            full = self.path(LIB, f"{soname.removesuffix('.1')}.{PROJECT_VERSION}")
            self.assertTrue(os.path.isfile(full) and not os.path.islink(full), full)
            for link in (soname, soname.removesuffix(".1")):
                self.assertEqual(os.path.realpath(self.path(LIB, link)), os.path.realpath(full))
            run_paths = [entry for entry in elf.dynamic_entries(full) if entry[0] in ("RPATH", "RUNPATH")]
            self.assertEqual(run_paths, [("RUNPATH", "$ORIGIN")], full)

    def test_nothing_names_the_build_or_the_first_prefix(self):
        # Not what is compiled: a debugger may be told there where the sources were.
        places = (BUILD, ROOT, "a prefix")
        texts = [os.path.join(base, name) for base, _, files in os.walk(PREFIX) for name in files
                 if name.endswith((".h", ".cmake", ".pc"))]
        self.assertGreaterEqual(len(texts), 7)
        for text in texts:
            with open(text, encoding="utf-8") as file:
                content = file.read()
            self.assertEqual([place for place in places if place in content], [], text)


class BootOptions(Installation):
    """What the independent program does to a machine, seen from the machine's files."""

    def setUp(self):
        self.work = tempfile.TemporaryDirectory()
        self.addCleanup(self.work.cleanup)
        self.machine = machine.Machine(os.path.join(self.work.name, "machine"))
        self.machine.write("Boot0000", machine.load_option("Disk", machine.file_path("\\a.efi")))
        self.machine.write("Boot0002", machine.load_option("Netz über Kabel", machine.file_path("\\b.efi")))
        self.machine.write("BootOrder", bytes.fromhex("02000000"))
        self.machine.write("BootCurrent", bytes.fromhex("0000"), attributes=6)

    def options(self, program, *arguments, status=0, **variables):
        return run(program, *arguments, env=self.machine.environment(**variables), status=status)

    def use(self, program, **variables):
        before = {name: self.machine.read(name) for name in self.machine.names()}
        self.assertEqual(sorted(self.options(program, "list", **variables).splitlines()),
                         ["Boot0000 1 Disk", "Boot0002 0 Netz über Kabel"])
        self.assertEqual(self.options(program, "current", **variables), "Boot0000\n")
        self.assertEqual({name: self.machine.read(name) for name in self.machine.names()}, before)

        self.assertEqual(self.options(program, "create", "Neu", **variables), "Boot0001\n")
        self.assertEqual(self.machine.read("Boot0001"), (7, machine.load_option("Neu", PATH)))
        self.assertEqual(self.machine.order(), ["Boot0002", "Boot0000", "Boot0001"])

        self.options(program, "first", "Boot0001", **variables)
        self.assertEqual(self.machine.order(), ["Boot0001", "Boot0002", "Boot0000"])

        self.options(program, "next", "Boot0002", **variables)
        self.assertEqual(self.machine.read("BootNext"), (7, b"\2\0"))

        self.options(program, "remove", "Boot0000", **variables)
        self.options(program, "remove", "Boot0000", status=1, **variables)
        self.assertEqual(self.machine.order(), ["Boot0001", "Boot0002"])
        self.assertEqual(self.machine.names(), ["Boot0001", "Boot0002", "BootCurrent", "BootNext", "BootOrder"])
        self.assertEqual(self.machine.read("Boot0002"), before["Boot0002"])


class PkgConfig(BootOptions):
    def compile(self, *more, flags=("--cflags", "--libs")):
        program = os.path.join(self.work.name, "bootoptions")
        run(COMPILER, *STRICT, os.path.join(HERE, "bootoptions.c"), "-o", program, *pkg_config(*flags), *more)
        return program

    def test_flags_name_the_prefix_and_libovra_alone(self):
        flags = pkg_config("--cflags", "--libs")
        folders = [os.path.realpath(flag[2:]) for flag in flags if flag[:2] in ("-I", "-L")]
        self.assertEqual(folders, [os.path.realpath(self.path("include")), os.path.realpath(self.path(LIB))])
        self.assertEqual([flag for flag in flags if flag[:2] not in ("-I", "-L")], ["-lovra"])
        self.assertEqual(os.path.realpath(pkg_config("--variable=prefix")[0]), os.path.realpath(PREFIX))
        self.assertEqual(pkg_config("--modversion"), [PROJECT_VERSION])

    def test_a_program_lists_and_changes_boot_options(self):
        program = self.compile()
        self.assertEqual([name for name in elf.needed(program) if not name.startswith("libc.")], ["libovra.so.1"])
        self.use(program, LD_LIBRARY_PATH=self.path(LIB))

    def test_libovra_finds_its_platform_libraries_beside_it(self):
        # The program's run path serves libovra.so.1 alone: what that needs, it must find itself.
        self.use(self.compile("-Wl,--enable-new-dtags", f"-Wl,-rpath,{self.path(LIB)}"))

    def test_a_program_holding_the_archive(self):
        # -Bstatic for libovra alone; the platform libraries have no archives.
        flags = [flag if flag != "-lovra" else "-l:libovra.a" for flag in pkg_config("--static", "--cflags", "--libs")]
        self.assertIn("-ldevns", flags)
        program = os.path.join(self.work.name, "bootoptions")
        run(COMPILER, *STRICT, os.path.join(HERE, "bootoptions.c"), "-o", program, *flags)
        self.assertNotIn("libovra.so.1", elf.needed(program))
        self.use(program, LD_LIBRARY_PATH=self.path(LIB))

    def test_the_archive_shows_the_interface_alone(self):
        shown = elf.output("nm", "-g", "--defined-only", "-j", self.path(LIB, "libovra.a")).split()
        self.assertEqual(sorted(name for name in shown if not name.endswith(":")),
                         sorted(symbol.name for symbol in elf.listed()["libovra.so.1"]))

    def test_a_platform_library_of_ones_own_takes_the_place_of_the_installed_one(self):
        own = os.path.join(self.work.name, "own")
        os.mkdir(own)
        # Without the version node that libovra asks for, the dynamic linker would take it too, but complain.
        symbols = elf.listed()["libdevns.so.1"]
        node, = {symbol.node for symbol in symbols}
        script = []
        if node != "-":
            with open(f"{own}/own.map", "w", encoding="utf-8") as file:
                file.write(f"{node} {{ global: devns_*; local: *; }};\n")
            script = [f"-Wl,--version-script={own}/own.map"]
        run(COMPILER, *STRICT, "-shared", "-fPIC", os.path.join(HERE, "replacement.c"), *pkg_config("--cflags"),
            "-Wl,-soname,libdevns.so.1", *script, "-o", f"{own}/libdevns.so.1")
        program = self.compile("-Wl,--enable-new-dtags", f"-Wl,-rpath,{self.path(LIB)}")
        done = subprocess.run([program, "current"], env=self.machine.environment(LD_LIBRARY_PATH=own),
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "Boot002A\n", ""))


class FindPackage(BootOptions):
    def configure(self, version, status=0):
        folder = os.path.join(self.work.name, "build")
        return folder, run("cmake", "-S", os.path.join(HERE, "package"), "-B", folder, "-G", "Ninja",
                           f"-DCMAKE_PREFIX_PATH={PREFIX}", f"-DCMAKE_C_COMPILER={COMPILER}",
                           f"-DWANTED_VERSION={version}", status=status)

    def test_a_project_lists_and_changes_boot_options(self):
        folder, _ = self.configure("1.0")
        run("cmake", "--build", folder)
        self.use(os.path.join(folder, "bootoptions"))

    def test_another_major_version_is_not_found(self):
        self.configure("2.0", status=1)


class Command(BootOptions):
    def test_runs_from_the_prefix(self):
        program = self.path("bin", "ovra")
        run_paths = [value for tag, value in elf.dynamic_entries(program) if tag in ("RPATH", "RUNPATH")]
        self.assertEqual(run_paths, [f"$ORIGIN/{os.path.relpath(self.path(LIB), self.path('bin'))}"])
        shown = self.options(program, "list")
        self.assertIn("Netz über Kabel", shown)
        self.assertIn("Boot0002", shown)


class ManPages(Installation):
    def test_every_page_is_installed(self):
        pages = os.listdir(os.path.join(ROOT, "docs/man"))
        self.assertGreater(len(pages), 0)
        for page in pages:
            section = page.rsplit(".", 1)[1]
            installed = self.path("share", "man", f"man{section}", page)
            self.assertTrue(os.path.isfile(installed), installed)


if __name__ == "__main__":
    if sys.argv[4] == "install":
        install()
    else:
        unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
