#!/usr/bin/env python3
"""Change Doxygen's default layout, whose form depends on its version: what holds for a whole page stands first.

    layout.py FILE     the file that `doxygen -l FILE` wrote
"""
import sys
import xml.etree.ElementTree as ElementTree

# In the navigation: guides, families, which Doxygen calls modules or, from 1.9.8 on, topics, and records, without
# which that version leaves their pages empty.
GUIDES = {"title": "Guides", "intro": "Each takes one sitting; the front page says what each is for."}
FAMILIES = {"title": "Families", "intro": "A page for each family, with the rules that hold for all of it."}
RECORDS = {"title": "Records", "intro": ""}
TITLES = {
    "group": {"detaileddescription": "What holds for all of it", "classes": "Records and classes",
              "defines": "Constants", "typedefs": "Types", "functions": "Functions", "variables": "Tables"},
    "class": {"detaileddescription": "What it is", "publicattributes": "Fields", "publicmethods": "Functions",
              "functions": "Functions"},
}


def set_tabs(navigation):
    types = [tab.get("type") for tab in navigation]
    shown = {"pages": GUIDES, "topics" if "topics" in types else "modules": FAMILIES, "classes": RECORDS}
    for tab in navigation:
        tab.set("visible", "yes" if tab.get("type") in shown else "no")
        tab.attrib.update(shown.get(tab.get("type"), {}))
        for part in list(tab):
            tab.remove(part)


def put_description_first(page):
    """Without the brief one, with which it begins."""
    page.remove(page.find("briefdescription"))
    description = page.find("detaileddescription")
    page.remove(description)
    page.insert(0, description)


def set_titles(page, titles):
    for part in page.iter():
        if part.tag in titles:
            part.set("title", titles[part.tag])


def main():
    layout = ElementTree.parse(sys.argv[1])
    root = layout.getroot()
    set_tabs(root.find("navindex"))
    for name in ("class", "group"):
        put_description_first(root.find(name))
        set_titles(root.find(name), TITLES[name])
    layout.write(sys.argv[1], encoding="UTF-8")


if __name__ == "__main__":
    main()
