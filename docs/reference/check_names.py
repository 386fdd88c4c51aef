#!/usr/bin/env python3
"""Hold the library and every form of its reference to one set of names.

    check_names.py LIBRARY VERSION_SCRIPT REFERENCE

LIBRARY is the built library, VERSION_SCRIPT what it was linked with, REFERENCE the folder with html, xml and man.
Also follows every link within the site and every cross-reference of the manual pages.
"""
import html.parser
import pathlib
import re
import subprocess
import sys
import urllib.parse
import xml.etree.ElementTree as ElementTree

import doxygen_input
from man_pages import LIBRARY

PROJECT = doxygen_input.HEADERS_FOLDER.parent.parent


def exported(library):
    lines = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in lines.splitlines()}


def listed():
    return set((PROJECT / "foundation" / "exports.txt").read_text().split())


def in_version_script(path):
    return set(re.search(r"global:(.*)local:", path.read_text(), re.DOTALL).group(1).replace(";", " ").split())


def header_declarations():
    """Functions, tables and records that the C headers declare; not macros, nor names for base types."""
    names, records = set(), set()
    for header in doxygen_input.HEADERS_FOLDER.glob("*.h"):
        if header.name not in doxygen_input.PAGES:
            continue
        for declaration in doxygen_input.declarations_of(header.read_text()):
            if re.match(r"typedef (struct|INT \()", declaration.text):
                records.add(declaration.name)
            elif not re.match(r"typedef|#define", declaration.text):
                names.add(declaration.name)
    return names, records


def in_site(folder):
    """Functions, tables and records that have a place in the site, by Doxygen's identifiers."""
    places = set()
    for compound in ElementTree.parse(folder / "xml" / "index.xml").getroot():
        if compound.get("kind") == "group" and compound.find("name").text != "cpp":
            for member in compound.findall("member"):
                if member.get("kind") in ("function", "variable", "typedef"):
                    places.add((member.find("name").text, *member.get("refid").rsplit("_1", 1)))
        elif compound.get("kind") == "struct" and "::" not in compound.find("name").text:
            places.add((compound.find("name").text, compound.get("refid"), ""))
    pages = {path.stem: path.read_text() for path in (folder / "html").glob("*.html")}
    whole = "".join(pages.values())
    return {name for name, page, anchor in places
            if (anchor and f'id="{anchor}"' in pages.get(page, "")) or (not anchor and f">{name}<" in whole)}


def in_manual(folder):
    return {path.stem for path in (folder / "man" / "man3").glob("*.3") if not path.stem.startswith(LIBRARY)}


class Links(html.parser.HTMLParser):
    """The places of a page and what it refers to."""

    def __init__(self):
        super().__init__()
        self.targets, self.places = set(), set()

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.targets.add(value)
            elif name in ("id", "name") and value:
                self.places.add(value)


def broken_links(folder):
    pages = {}
    for path in (folder / "html").glob("*.html"):
        pages[path.name] = Links()
        pages[path.name].feed(path.read_text())
    for name, page in sorted(pages.items()):
        for target in sorted(page.targets):
            url = urllib.parse.urlsplit(target)
            if url.scheme or url.path.startswith("$"):
                continue
            file_name = urllib.parse.unquote(url.path) or name
            if not (folder / "html" / file_name).exists():
                yield f"{name}: refers to {target}, and there is no such file"
            elif url.fragment and file_name in pages and url.fragment not in pages[file_name].places:
                yield f"{name}: refers to {target}, and there is no such place"


def broken_references(folder):
    pages = {path.stem: path.read_text() for path in (folder / "man" / "man3").glob("*.3")}
    for name, text in sorted(pages.items()):
        plain = re.sub(r"\\f.|\\%|\\&", "", text).replace("\\-", "-")
        mentioned = re.findall(r"([\w-]+) ?\(3\)", plain) + re.findall(r"^\.so man3/(.*)\.3$", plain, re.MULTILINE)
        for other in sorted(set(mentioned) - set(pages)):
            yield f"{name}(3): refers to {other}(3), and there is no such page"


def differences(title, names, expected):
    for name in sorted(expected - names):
        yield f"{name} is missing {title}"
    for name in sorted(names - expected):
        yield f"{name} is {title}, and is not exported"


def main():
    library, version_script, folder = map(pathlib.Path, sys.argv[1:4])
    names = listed()
    declared, records = header_declarations()
    base_types = doxygen_input.public_names() - declared
    problems = [
        *differences("among the exports of the library", exported(library), names),
        *differences("in the version script", in_version_script(version_script), names),
        *differences("in the headers", declared, names),
        *differences("in the site", in_site(folder) - (base_types - records), names | records),
        *differences("among the manual pages", in_manual(folder), names | records),
        *broken_links(folder),
        *broken_references(folder),
    ]
    for problem in problems:
        print(problem)
    if not problems:
        print(f"{len(names)} exports and {len(records)} records: the same names everywhere")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
