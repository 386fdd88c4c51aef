#!/usr/bin/env python3
"""The comments of the public headers describe every public name, and are read as they are meant."""
import pathlib
import sys
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "docs" / "reference"))
import doxygen_input  # noqa: E402

HEADERS = [path for path in sorted((PROJECT / "include" / "foundation").glob("*.h"))
           if not path.name.startswith("attributes_")]


def markup(*lines, apart=False):
    return doxygen_input.markup(list(lines), apart)


class PublicHeaders(unittest.TestCase):
    def declarations(self):
        return [(path.name, declaration) for path in HEADERS
                for declaration in doxygen_input.declarations_of(path.read_text())]

    def test_each_has_a_page(self):
        self.assertEqual([path.name for path in HEADERS if path.name not in doxygen_input.PAGES], [])

    def test_describe_everything_they_declare(self):
        self.assertEqual([f"{header}: {declaration.name}" for header, declaration in self.declarations()
                          if not declaration.comment and "/*" not in declaration.text], [])

    def test_declare_every_exported_name_once(self):
        exports = (PROJECT / "foundation" / "exports.txt").read_text().split()
        declared = [declaration.name for _, declaration in self.declarations()
                    if not declaration.text.startswith(("#define", "typedef"))]
        self.assertEqual(sorted(declared), sorted(exports))

    def test_describe_every_field_of_their_records(self):
        self.assertEqual([f"{header}: {line.strip()}" for header, declaration in self.declarations()
                          if "{" in declaration.text for line in declaration.text.split("\n")[1:-1]
                          if line.endswith(";")], [])

    def test_begin_descriptions_with_what_a_function_does(self):
        self.assertEqual([declaration.name for _, declaration in self.declarations()
                          if (declaration.comment or "").startswith("/* Returns ")], [])


class Declarations(unittest.TestCase):
    def names(self, header):
        return [(one.name, one.first_name) for one in doxygen_input.declarations_of(header)]

    def test_share_the_comment_above_them_up_to_an_empty_line(self):
        header = "/* Both. */\nvoid a(void);\nint (*b)(\n    int);\n\nvoid c(void);\n"
        self.assertEqual(self.names(header), [("a", None), ("b", "a"), ("c", None)])
        self.assertIsNone(doxygen_input.declarations_of(header)[2].comment)

    def test_are_records_tables_types_and_macros_too(self):
        header = ("typedef struct R {\n    int x; /* a;\n              b */\n} R;\nextern const char *const T[12];\n"
                  "typedef int (*F)(int);\ntypedef unsigned U; /* one */\n#define M \\\n    1\n#define X_H\n")
        self.assertEqual([name for name, _ in self.names(header)], ["R", "T", "F", "U", "M"])

    def test_have_names_whatever_their_attributes_promise(self):
        self.assertEqual(self.names("int f(int a,\n      int b) FOUNDATION_NONNULL(1, 2) FOUNDATION_USE_RESULT;\n"),
                         [("f", None)])


class Comments(unittest.TestCase):
    def test_have_paragraphs_items_and_tables(self):
        text = markup("All calls of", "  - one, which", "    goes on;", "  - two.", "Behind.", "",
                      "   0  NAME  told on", "               two lines", "  -1        other")
        self.assertEqual(text, "All calls of\n\n- one, which goes on;\n- two.\n\nBehind.\n\n"
                         '<table class="markdownTable">\n'
                         "<tr><td>0</td><td>NAME</td><td>told on two lines</td></tr>\n"
                         "<tr><td>-1</td><td></td><td>other</td></tr>\n</table>")

    def test_have_code_where_an_indented_line_ends_in_a_semicolon(self):
        self.assertEqual(markup("To call:", "", "  int a;", "    f(a);"),
                         "To call:\n\n@code{.cpp}\nint a;\n  f(a);\n@endcode")

    def test_tell_the_result_apart_from_the_rest(self):
        self.assertEqual(markup("Do it. Returns 0; or -1", "when it fails. Never waits.", apart=True),
                         "Do it. Never waits.\n\n@return 0; or -1 when it fails.")

    def test_tell_a_result_that_never_changes(self):
        self.assertEqual(markup("Do it. Always returns 1.", apart=True), "Do it.\n\n@return Always 1.")

    def test_keep_signs_that_mean_something_to_doxygen(self):
        self.assertEqual(markup("If a<b, `a<b` and #x or @y."), "If a\\<b, `a<b` and \\#x or \\@y.")

    def test_link_public_names_and_headers(self):
        self.assertEqual(markup("See OS_free (os.h), not OS_unknown."),
                         'See @ref OS_free "OS_free" (@ref os "os.h"), not OS_unknown.')

    def test_begin_with_a_label_in_descriptions_of_families(self):
        self.assertEqual(markup("Threads: none."), "<b>Threads:</b> none.")
        self.assertEqual(markup("Threads: none.", apart=True), "Threads: none.")


if __name__ == "__main__":
    unittest.main()
