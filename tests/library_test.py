#!/usr/bin/env python3
"""The runtime as a stranger's projects use it: installed, by CMake. What the examples print, in C++ and
in C, by pkg-config and by CMake, is shown by scripts/library.sh.

Given by the environment: BUILD_DIR, COMPILER, and FLAGS that the compilation of the library obliges to.
"""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCES = pathlib.Path(__file__).resolve().parent.parent
COMPILER = os.environ.get("COMPILER", "c++")
FLAGS = os.environ.get("FLAGS", "")


class Library(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.work = pathlib.Path(folder.name)
        cls.prefix = cls.work / "prefix"
        subprocess.run(["cmake", "--install", os.environ["BUILD_DIR"], "--prefix", cls.prefix,
                        "--component", "mox_development"], check=True, capture_output=True)
        shutil.copytree(SOURCES / "examples/runtime-demo", cls.work / "runtime-demo")

    def run_in(self, folder, *command, **environment):
        done = subprocess.run(list(map(str, command)), cwd=folder, capture_output=True, text=True,
                              env=os.environ | environment, stdin=subprocess.DEVNULL, check=False)
        self.assertEqual(done.returncode, 0, f"{command}:\n{done.stdout}{done.stderr}")
        return done.stdout

    def project(self, name, **sources):
        for source, text in sources.items():
            path = self.work / name / source.replace("__", "/").replace("_", ".")
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        return self.work / name

    def build(self, source, build, *settings, generator="Ninja", **environment):
        folder = self.work / build
        self.run_in(self.work, "cmake", "-S", source, "-B", folder, "-G", generator,
                    f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_COMPILER={COMPILER}",
                    f"-DCMAKE_CXX_FLAGS={FLAGS}", f"-DCMAKE_C_FLAGS={FLAGS}", *settings, **environment)
        self.run_in(self.work, "cmake", "--build", folder, **environment)
        return folder

    def test_what_a_program_tells_of_its_link(self):
        one, two = (self.build("runtime-demo", name, "-DCMAKE_BUILD_TYPE=Release",
                               SOURCE_DATE_EPOCH="1700000000") / "runtime_demo" for name in ("one", "two"))
        first = one.read_bytes()
        if not FLAGS:  # sanitizers write the path of every source into the program
            self.assertEqual(first, two.read_bytes(), "two builds with one SOURCE_DATE_EPOCH differ")
        version = self.run_in(self.work, one, "-V")
        self.assertRegex(version, r"link_time   : 2023-11-14 22:13:20 UTC\n"
                                  r"link_command: \S+ .*main\.cc\.o .*libmox_runtime\.a.*\n")
        # Without a change nothing is linked again; with one the link time is that of the link.
        self.run_in(self.work, "cmake", "--build", "one")
        self.assertEqual(one.read_bytes(), first)
        with open(self.work / "runtime-demo/main.cc", "a", encoding="utf-8") as source:
            source.write("// changed\n")
        self.run_in(self.work, "cmake", "--build", "one")
        self.assertNotIn("2023-11-14", self.run_in(self.work, one, "-V"))

    def test_first_lines_of_a_program_are_as_the_page_shows_them(self):
        text = (SOURCES / "man/mox_runtime.7").read_text()
        main, cmake = re.findall(r"^\.Bd -literal\n(.*?)^\.Ed$", text, re.M | re.S)[:2]
        source = self.project("page", main_cc=main, CMakeLists_txt=(
            "cmake_minimum_required(VERSION 3.25)\nproject(page LANGUAGES C CXX)\n"
            "find_package(Threads REQUIRED)\n" + cmake))
        program = self.build(source, "page-build") / "myprog"
        log = self.work / "page.log"
        self.run_in(self.work, program, "-D", f"logfile={log}", "-D", "historytime=0")
        self.assertRegex(log.read_text(), r"\AMYPROG p:\d+ started\n\Z")

    @unittest.skipUnless(shutil.which("logrotate", path="/usr/sbin:/usr/bin"),
                         "skipped: logrotate is not installed")
    def test_rotation_by_the_example_renames_and_leaves_the_new_file_to_the_program(self):
        logs = self.work / "logs"
        logs.mkdir(mode=0o755)
        (logs / "a.log").write_text("first\n")
        rules = self.work / "rules"
        rules.write_text((SOURCES / "examples/logrotate/mox").read_text()
                         .replace("/var/log/mox", str(logs)))
        rules.chmod(0o644)
        self.run_in(self.work, "logrotate", "--force", "--state", self.work / "state", rules,
                    PATH="/usr/sbin:" + os.environ["PATH"])
        self.assertEqual((logs / "a.log.1").read_text(), "first\n")
        self.assertFalse((logs / "a.log").exists())

    def test_headers_stand_alone_beside_folders_of_the_same_names(self):
        include = self.prefix / "include"
        headers = sorted(path.relative_to(include).as_posix() for path in include.rglob("*.h"))
        self.assertTrue(all(header.startswith("mox/") for header in headers))
        own = self.work / "own"
        for header in headers:
            trap = own / header.removeprefix("mox/")
            trap.parent.mkdir(parents=True, exist_ok=True)
            trap.write_text("#error this is the header of the project\n")
            (own / (header.replace("/", "_") + ".cc")).write_text(f'#include "{header}"\n')
        self.run_in(own, COMPILER, "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic",
                    "-Werror", "-I", own, "-I", include, *sorted(own.glob("*.cc")))

    def test_program_is_a_target_like_any_other(self):
        source = self.project(
            "ordinary", CMakeLists_txt="""
            cmake_minimum_required(VERSION 3.25)
            project(ordinary LANGUAGES C CXX)
            find_package(mox REQUIRED)
            add_library(part STATIC part.cc)
            mox_program(ordinary main.cc header.h LIBRARIES part m)
            target_include_directories(ordinary PRIVATE inner)""",
            main_cc='#include <cstdio>\n#include "header.h"\n#include "value.h"\nint part();\n'
                    'int main() { std::printf("%d %d\\n", value, part()); }\n',
            header_h="#pragma once\n", inner__value_h="constexpr int value = 7;\n",
            part_cc="int part() { return 1; }\n")
        build = self.build(source, "multi", "-DCMAKE_BUILD_TYPE=", generator="Ninja Multi-Config")
        self.assertEqual(self.run_in(self.work, build / "Debug/ordinary"), "7 1\n")
        # A change of a library that is linked is a new link.
        (source / "part.cc").write_text("int part() { return 2; }\n")
        self.run_in(self.work, "cmake", "--build", build)
        self.assertEqual(self.run_in(self.work, build / "Debug/ordinary"), "7 2\n")

    def test_any_name_of_a_builder_is_a_literal_of_c(self):
        (self.work / "tag.in").write_text('_Static_assert(sizeof "@BUILDER@" == 8, "");\n')
        self.run_in(self.work, "cmake", '-DBUILDER=C\\u "b"', "-DOUTPUT=tag.c", "-DTEMPLATE=tag.in",
                    "-P", SOURCES / "cmake/WriteBuildInfo.cmake")
        self.run_in(self.work, "cc", "-c", "tag.c")


if __name__ == "__main__":
    unittest.main(verbosity=2)
