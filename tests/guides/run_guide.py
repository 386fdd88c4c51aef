#!/usr/bin/env python3
"""Do what a guide in docs/guides tells its reader to do, in its order, and compare what comes out.

A block of code stands between two lines of ```; what is done with it is told by the line in front of it:

    <!-- file: NAME -->              the block is written to the file NAME, or added to it
    (nothing, and the block is       its lines that begin with "$ " are run by sh; the lines below each are
     ```console)                     what it is to print, and "..." stands for any number of lines
    <!-- run if glibc < 2.34 -->     the same, on such systems alone (or >=)
    <!-- table: NAME -->             no block: the table below is checked by tables_test.cpp
    <!-- not run: REASON -->         nothing; for commands that change the machine

Code that is not to be compiled says so to the reader: its first line is a comment that begins with "Fragment".
Everything happens in an empty folder, with the library installed elsewhere as a package would install it
under /usr. The commands cc and c++ are the compilers of the build, with warnings taken as errors.
"""
import argparse
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile

DIRECTIVE = re.compile(r"<!-- (file|run if|table|not run)[: ] *(.+) -->")
TIMEOUT_SECONDS = 120


class GuideError(Exception):
    """The guide, or what it shows, is not as it should be."""


def fail(line_number, message):
    raise GuideError(f"line {line_number}: {message}")


class Block:
    """What stands between two fences, and what the line in front of them says."""

    def __init__(self, line_number, language, directive):
        self.line_number = line_number  # of the opening fence, from 1
        self.language = language
        self.kind, self.argument = directive
        self.lines = []

    def text(self):
        return "".join(line + "\n" for line in self.lines)


def directive_of(line):
    match = DIRECTIVE.fullmatch(line)
    if line.startswith("<!--") and not match:
        raise GuideError(f"not understood: {line}")
    return match.groups() if match else (None, None)


def blocks_of(guide_text):
    """All blocks of a guide, in its order."""
    blocks, block, previous = [], None, ""
    for number, line in enumerate(guide_text.splitlines(), 1):
        if line.startswith("```") and block is None:
            block = Block(number, line[3:], directive_of(previous))
        elif line == "```":
            blocks.append(block)
            block = None
        elif block is not None:
            block.lines.append(line)
        previous = line
    if block is not None:
        fail(block.line_number, "the block does not end")
    return blocks


def commands_of(block):
    """Pairs of a command and the lines that it is to print. A command goes on behind a backslash."""
    commands, goes_on = [], False
    for line in block.lines:
        if goes_on:
            commands[-1][0] += "\n" + line
        elif line.startswith("$ "):
            commands.append([line[2:], []])
        elif commands:
            commands[-1][1].append(line)
        else:
            fail(block.line_number, "the block does not begin with a command")
        goes_on = line.endswith("\\") and not commands[-1][1]
    return commands


def matches(expected, printed):
    """Whether the printed lines are the expected ones, of which "..." stands for any number."""
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line) + "\n" for line in expected)
    return re.fullmatch(pattern, "".join(line + "\n" for line in printed)) is not None


def is_for_this_system(condition):
    match = re.fullmatch(r"glibc (<|>=) (\d+)\.(\d+)", condition)
    if not match:
        raise GuideError(f"not understood: {condition}")
    version = tuple(int(part) for part in platform.libc_ver()[1].split(".")[:2])
    is_below = version < (int(match.group(2)), int(match.group(3)))
    return is_below if match.group(1) == "<" else not is_below


def run_commands(block, folder, environment):
    for command, expected in commands_of(block):
        result = subprocess.run(["sh", "-c", command], cwd=folder, env=environment, timeout=TIMEOUT_SECONDS,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                encoding="utf-8", check=False)
        printed = result.stdout.splitlines()
        if result.returncode != 0:
            fail(block.line_number, f"status {result.returncode}: {command}\n{result.stdout}")
        if not matches(expected, printed):
            fail(block.line_number, "\n".join([f"$ {command}", "--- the guide shows", *expected,
                                               "--- but there comes", *printed]))


def check_fragment(block):
    if not block.lines or not re.match(r"(/\*|//|#) Fragment\b", block.lines[0]):
        fail(block.line_number, "neither put into a file nor marked as a fragment")


def follow(guide_text, folder, environment):
    """Do what the guide says in a folder. Raises GuideError at the first difference."""
    for block in blocks_of(guide_text):
        if block.kind == "file":
            with open(os.path.join(folder, block.argument), "a", encoding="utf-8") as file:
                file.write(block.text())
        elif block.kind == "not run":
            pass
        elif block.language == "console":
            if block.kind is None or is_for_this_system(block.argument):
                run_commands(block, folder, environment)
        else:
            check_fragment(block)


def check_links(guide_text, guide_folder):
    """Every link to a file of the project leads to one."""
    for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", guide_text):
        if "://" not in target and not os.path.exists(os.path.join(guide_folder, target)):
            raise GuideError(f"there is no {target}")


def write_program(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write("#!/bin/sh\n" + text)
    os.chmod(path, 0o755)


def write_compilers(folder, options):
    """cc and c++ as the guides call them. An instrumented library wants the C++ compiler to link C as well,
    which then must be told the language of each source."""
    cc, cxx = shutil.which(options.cc), shutil.which(options.cxx)  # not the ones that are being written
    flags = f"-Wall -Wextra -Wpedantic -Wshadow -Werror {options.flags}"
    write_program(os.path.join(folder, "c++"), f'exec "{cxx}" {flags} "$@"\n')
    if options.instrumented:
        write_program(os.path.join(folder, "cc"),
                      'for argument; do\n'
                      '    case $argument in *.c) set -- "$@" -x c "$argument" -x none ;;\n'
                      '    *) set -- "$@" "$argument" ;; esac\n'
                      '    shift\n'
                      'done\n'
                      f'exec "{cxx}" {flags} "$@"\n')
    else:
        write_program(os.path.join(folder, "cc"), f'exec "{cc}" {flags} "$@"\n')


def install_library(prefix, options, environment):
    """Install what the top folder of the build installs. Returns the folder of the library."""
    command = [options.cmake, "-DCMAKE_INSTALL_LOCAL_ONLY=ON", f"-DCMAKE_INSTALL_PREFIX={prefix}",
               "-P", os.path.join(options.build, "cmake_install.cmake")]
    result = subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            encoding="utf-8", check=False)
    folders = [folder for folder, _, files in os.walk(prefix) if "libQVfoundation17.so" in files]
    if result.returncode != 0 or not folders:
        raise GuideError(f"the library cannot be installed: {result.stdout}")
    return folders[0]


def plain_environment():
    """The caller's, without what would steer compilers and builds."""
    unwanted = {"CC", "CXX", "CFLAGS", "CXXFLAGS", "CPPFLAGS", "LDFLAGS", "DESTDIR", "MAKEFLAGS",
                "CMAKE_BUILD_TYPE", "CMAKE_GENERATOR"}
    kept = {name: value for name, value in os.environ.items() if name not in unwanted}
    return {**kept, "LC_ALL": "C.UTF-8", "TZ": "UTC"}


def environment_of_reader(scratch, options):
    """What a reader has who installed the packages; a library that the caller wants comes first."""
    environment = plain_environment()
    prefix, compilers = os.path.join(scratch, "usr"), os.path.join(scratch, "compilers")
    library = install_library(prefix, options, environment)
    os.mkdir(compilers)
    write_compilers(compilers, options)
    environment["PATH"] = compilers + ":" + environment["PATH"]
    environment["PKG_CONFIG_PATH"] = os.path.join(library, "pkgconfig")
    environment["CMAKE_PREFIX_PATH"] = prefix
    if options.generator:
        environment["CMAKE_GENERATOR"] = options.generator
    environment["LD_LIBRARY_PATH"] = ":".join(filter(None, [environment.get("LD_LIBRARY_PATH"), library]))
    return environment


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("guide")
    parser.add_argument("--build", required=True, help="build folder of the library")
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--generator", help="what cmake generates where a guide does not say")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--flags", default="", help="further flags for both compilers")
    parser.add_argument("--instrumented", action="store_true", help="the library has sanitizers built in")
    options = parser.parse_args()

    with open(options.guide, encoding="utf-8") as file:
        guide_text = file.read()
    try:
        check_links(guide_text, os.path.dirname(options.guide))
        with tempfile.TemporaryDirectory(prefix="qv_guide_") as scratch:
            folder = os.path.join(scratch, "folder")
            os.mkdir(folder)
            follow(guide_text, folder, environment_of_reader(scratch, options))
    except (GuideError, subprocess.TimeoutExpired) as error:
        sys.exit(f"{os.path.basename(options.guide)}: {error}")


if __name__ == "__main__":
    main()
