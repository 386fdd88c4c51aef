#!/usr/bin/env python3
"""Examples in the comments of the public headers compile, and do what they are for.

    header_examples_test.py LIBRARY COMPILER [FLAG...]

Each needs surroundings, which stand here; an example without any is a failure.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "docs" / "reference"))
import doxygen_input  # noqa: E402

CALLED_BY_NAME = """
#include "foundation/os.h"
#ifdef __cplusplus
extern "C"
#endif
int name(void);
int name(void) { return 17; }
typedef int function_type(void);
int main(void)
{
    LPVOID module = OS_sys_module_load(NULL);
    EXAMPLE
    return function() == 17 ? 0 : 1;
}
"""

GUARDED = """
#include "foundation/foundation.hpp"
#include <mutex>
EXAMPLE
int main()
{
    owner tagged;
    if (tagged.alloc(100) == nullptr || tagged.free_all() != 1)
        return 1;
    std::lock_guard<qv::mem_section> guard(manager_section);
}
"""

# By header and language, in the order of the header: the program around each example.
SURROUNDINGS = {("os.h", "C++"): [CALLED_BY_NAME], ("os.h", "C"): [CALLED_BY_NAME],
                ("foundation.hpp", "C++"): [GUARDED]}


def examples_by_language(lines):
    """A first word C or C++ says in which language the lines from there on are; without any it is C++."""
    if not re.match(r" *C(\+\+)?  ", lines[0]):
        return {"C++": "\n".join(lines)}
    examples, language = {}, None
    for line in lines:
        begin = re.match(r" *(C(?:\+\+)?)  (.*)", line)
        if begin:
            language, line = begin.groups()
        examples[language] = examples.get(language, "") + line + "\n"
    return examples


class HeaderExamples(unittest.TestCase):
    def build_and_run(self, language, source):
        library = pathlib.Path(arguments[0])
        options = {"C": ["-x", "c", "-std=c99"], "C++": ["-x", "c++", "-std=c++17"]}[language]
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "example.txt")
            path.write_text(source)
            command = [arguments[1], *options, "-Wall", "-Wextra", "-Werror", f"-I{PROJECT}/include", str(path),
                       "-x", "none", "-rdynamic", str(library), f"-Wl,-rpath,{library.parent}",
                       "-o", f"{folder}/example", *" ".join(arguments[2:]).split()]
            built = subprocess.run(command, capture_output=True, text=True)
            self.assertEqual(built.returncode, 0, f"{source}\n{built.stderr}")
            run = subprocess.run([f"{folder}/example"], capture_output=True, text=True)
            self.assertEqual(run.returncode, 0, f"{source}\n{run.stdout}{run.stderr}")

    def test_compile_and_do_what_they_are_for(self):
        found = {}
        for header in sorted((PROJECT / "include" / "foundation").glob("*.h*")):
            for lines in doxygen_input.examples_of(header.read_text()):
                for language, example in examples_by_language(lines).items():
                    found.setdefault((header.name, language), []).append(example)
        self.assertEqual({key: len(examples) for key, examples in found.items()},
                         {key: len(programs) for key, programs in SURROUNDINGS.items()
                          if (PROJECT / "include" / "foundation" / key[0]).exists()})
        for (header, language), examples in found.items():
            for example, program in zip(examples, SURROUNDINGS[header, language]):
                with self.subTest(header=header, language=language):
                    self.build_and_run(language, program.replace("EXAMPLE", example))


if __name__ == "__main__":
    arguments = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
