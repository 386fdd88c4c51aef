#!/usr/bin/env python3
"""Write the manual pages, section 3, from what Doxygen read in the public headers.

    man_pages.py XML OUTPUT VERSION DATE

XML is the folder of Doxygen's XML, OUTPUT the folder for the pages, man3. There is a page for

- each function, table and record; functions that share a comment share a page, under the name of each of them;
- each family, libQVfoundation17-FAMILY, with what holds for all of it, its constants and its functions;
- the library, libQVfoundation17.
"""
import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

LIBRARY = "libQVfoundation17"
SYNOPSIS_WIDTH = 73  # of 80 columns, less the indentation
SENTENCE_END = re.compile(r"(?<=[a-z0-9)P\"][.:]) (?=[A-Z\\*])")


def family_page(group_id):
    return f"{LIBRARY}-{group_id}"


# ---- Roff

def literal(text):
    """Text in which no sign means anything to roff."""
    for sign, escape in (("\\", "\\e"), ("'", "\\(aq"), ("`", "\\(ga"), ("^", "\\(ha"), ("~", "\\(ti")):
        text = text.replace(sign, escape)
    return text


def prose(text):
    return re.sub(r"(?<![\w)])-(?=[\d`.])", r"\\-", literal(text).replace("\\(aq", "'"))


def code(text):
    return literal(text).replace("-", "\\-")


def bold(text):
    return f"\\fB{code(text)}\\fP"


def italic(text):
    return f"\\fI{code(text)}\\fP"


def request_free(line):
    return "\\&" + line if line[:1] in (".", "'") else line


def filled(text):
    """Lines of running text, a new one for each sentence."""
    text = " ".join(text.split())
    lines = []
    for sentence in SENTENCE_END.split(text):
        lines += textwrap.wrap(sentence, 78, break_long_words=False, break_on_hyphens=False)
    return [request_free(line) for line in lines]


def in_example(lines):
    return [".PP", ".RS 4", ".EX"] + [request_free(code(line)) for line in lines] + [".EE", ".RE"]


# ---- Doxygen's descriptions

class Describer:
    """Turns elements of descriptions into roff. Knows which names have pages."""

    def __init__(self, page_of_reference, parameters=()):
        self.page_of_reference = page_of_reference
        self.parameters = set(parameters)
        self.mentioned = set()

    def inline(self, element):
        text = prose(element.text or "")
        for child in element:
            text += self.inline_child(child) + prose(child.tail or "")
        return text

    def inline_child(self, child):
        whole = "".join(child.itertext())
        if child.tag == "computeroutput":
            names = re.findall(r"\w+", whole)
            return italic(whole) if names and set(names) <= self.parameters else bold(whole)
        if child.tag == "ref":
            page = self.page_of_reference.get(child.get("refid"))
            if page and page == whole:
                self.mentioned.add(page)
                return bold(whole) + "(3)"
            return italic(whole) if whole.endswith(".h") else bold(whole)
        if child.tag == "bold":
            return bold(whole)
        if child.tag in ("emphasis", "ulink"):
            return italic(whole)
        if child.tag == "nonbreakablespace":
            return ""
        return self.inline(child)

    def blocks(self, description):
        """The lines of a description, without the result."""
        lines = []
        for para in description.findall("para"):
            lines += self.paragraph(para)
        return lines

    def description(self, member):
        """The brief description is the first sentence of the comment's first paragraph."""
        lines, details = self.blocks(member.brief), self.blocks(member.details)
        return lines + (details[1:] if details[1:2] and details[1][:1] != "." else details)

    def paragraph(self, para):
        lines, text = [], prose(para.text or "")

        def end_text():
            nonlocal text
            if text.strip():
                lines.extend([".PP"] + filled(text))
            text = ""

        for child in para:
            block = {"itemizedlist": self.items, "table": self.table, "programlisting": self.listing,
                     "simplesect": self.nothing}.get(child.tag)
            if block:
                end_text()
                lines += block(child)
            else:
                text += self.inline_child(child)
            text += prose(child.tail or "")
        end_text()
        return lines

    def nothing(self, _):
        """For results, which stand in a section of their own."""
        return []

    def items(self, element):
        lines = []
        for item in element.findall("listitem"):
            lines += [".IP \\(bu 2"] + filled(" ".join(self.inline(para) for para in item.findall("para")))
        return lines

    def table(self, element):
        rows = [[" ".join(self.inline(para) for para in entry.findall("para")).strip()
                 for entry in row.findall("entry")] for row in element.findall("row")]
        rows = [row for row in rows if any(row)]
        if len(rows[0]) == 2:
            return [line for row in rows for line in [".TP", row[0]] + filled(row[1])]
        width = max(len(row[0]) for row in rows)
        columns = "l l lx" if width < 10 else "lw(25n) lx lx"
        lines = [".PP", ".TS"] + ([columns.replace("l", "lb"), columns + "."]
                                  if re.fullmatch("[a-z]+", rows[0][0]) else [columns + "."])
        for row in rows:
            lines.append("\t".join(f"T{{\n{cell}\nT}}" if cell else "" for cell in row))
        return lines + [".TE"]

    def listing(self, element):
        lines = []
        for line in element.findall("codeline"):
            for space in line.iter("sp"):
                space.text = " "
            lines.append("".join(line.itertext()).rstrip())
        if any(line.startswith("#include <foundation/") for line in lines):
            return []  # stands in the synopsis
        return in_example(lines)

    def result(self, description):
        for section in description.iter("simplesect"):
            if section.get("kind") == "return":
                return filled(" ".join(self.inline(para) for para in section.findall("para")))
        return []


# ---- What is described

def text_of(element):
    return " ".join("".join(element.itertext()).split()) if element is not None else ""


class Member:
    """A function, table, type or constant, or a record, of one family."""

    def __init__(self, element, group):
        self.element = element
        self.group = group
        self.name = text_of(element.find("name")) or text_of(element.find("compoundname"))
        self.kind = element.get("kind")
        self.header = pathlib.Path(element.find("location").get("file")).name
        self.brief = element.find("briefdescription")
        self.details = element.find("detaileddescription")
        self.section, self.section_text = "", None
        self.others = []  # that are described with this one

    def described_with(self):
        """The name of the one whose description this one shares."""
        match = re.fullmatch(r"Described with (\w+)\.", text_of(self.brief))
        return match.group(1) if match else None

    def names(self):
        return [self.name] + [other.name for other in self.others]

    def parameters(self):
        return [text_of(parameter.find("declname")) for parameter in self.element.findall("param")]

    def mentions(self):
        """The identifiers of all that is mentioned, in types as well."""
        return {reference.get("refid") for reference in self.element.iter("ref")}

    def has_page(self):
        return self.kind in ("function", "variable", "struct") or \
            self.kind == "typedef" and (self.group.id != "types" or self.name == "ZT_DT_ANY")

    def purpose(self):
        """The first sentence, as NAME has it: up to the first sign that divides it."""
        text = re.split(r"[.;:](?: |$)", text_of(self.brief))[0]
        if text.count("(") > text.count(")"):
            text = text[:text.rindex("(")].rstrip()
        return uncapitalised(text)

    def declaration(self):
        """Lines, with roff's fonts."""
        if self.kind == "struct":
            fields = [f"    {joined(text_of(field.find('type')), text_of(field.find('name')))}"
                      f"{text_of(field.find('argsstring'))};" for field in self.fields()]
            return [bold(line) for line in [f"typedef struct {self.name} {{"] + fields + [f"}} {self.name};"]]
        if self.kind == "variable":
            return [bold(f"extern {joined(text_of(self.element.find('type')), self.name)}"
                         f"{text_of(self.element.find('argsstring'))};")]
        if self.kind == "typedef":
            definition = re.sub(r"\(\* (\w+)\) \(", r"(*\1)(", text_of(self.element.find("definition")))
            definition = re.sub(r"^(typedef \w+)\(", r"\1 (", definition)
            return [bold(re.sub(r"(\w)\* ", r"\1 *", definition) + ";")]
        return self.prototype()

    def fields(self):
        return self.element.findall("sectiondef/memberdef")

    def prototype(self):
        head = joined(text_of(self.element.find("type")), self.name) + "("
        arguments = []
        for parameter in self.element.findall("param"):
            kind, name = text_of(parameter.find("type")), text_of(parameter.find("declname"))
            arguments.append((joined(kind, ""), name) if name else (kind, ""))
        lines, width = [bold(head)], len(head)
        for i, (kind, name) in enumerate(arguments):
            end = ");" if i == len(arguments) - 1 else ","
            length = len(kind) + len(name) + len(end) + (i > 0)
            if i and width + length > SYNOPSIS_WIDTH:
                indentation = min(len(head), SYNOPSIS_WIDTH - max(len(a) + len(b) + 2 for a, b in arguments))
                lines.append(" " * indentation)
                width = indentation
            elif i:
                lines[-1] += " "
            lines[-1] += bold(kind) + (italic(name) if name else "") + bold(end)
            width += length
        return lines


def uncapitalised(text):
    """Without a capital letter, where the first word is no name."""
    return text[:1].lower() + text[1:] if re.match(r"[A-Z][a-z]*\b(?![_-]\d)", text) else text


def joined(kind, name):
    """A type and a name, as C writes them."""
    return kind + name if kind.endswith("*") else f"{kind} {name}"


class Group:
    def __init__(self, path):
        compound = ElementTree.parse(path).getroot().find("compounddef")
        self.id = compound.find("compoundname").text
        self.title = compound.find("title").text
        self.brief = text_of(compound.find("briefdescription"))
        self.details = compound.find("detaileddescription")
        self.members = []
        for section in compound.findall("sectiondef"):
            for element in section.findall("memberdef"):
                member = Member(element, self)
                member.section, member.section_text = text_of(section.find("header")), section.find("description")
                self.members.append(member)
        for inner in compound.findall("innerclass"):
            record = ElementTree.parse(path.parent / f"{inner.get('refid')}.xml").getroot().find("compounddef")
            self.members.append(Member(record, self))
        self.members.sort(key=lambda member: int(member.element.find("location").get("line")))
        self.file_name = self.members[0].header

    def entries(self, *kinds):
        """The members that have descriptions of their own."""
        return [member for member in self.members if member.kind in kinds and not member.described_with()]

    def purpose(self):
        return uncapitalised(self.brief.rstrip("."))


class Reference:
    def __init__(self, xml_folder):
        index = ElementTree.parse(xml_folder / "index.xml").getroot()
        self.groups = [Group(xml_folder / f"{compound.get('refid')}.xml")
                       for compound in index.findall("compound") if compound.get("kind") == "group"
                       and compound.find("name").text != "cpp"]
        self.members = [member for group in self.groups for member in group.members]
        by_name = {member.name: member for member in self.members}
        for member in self.members:
            if member.described_with():
                by_name[member.described_with()].others.append(member)
        self.page_of_reference = {member.element.get("id"): member.name
                                  for member in self.members if member.has_page()}

    def require_descriptions(self):
        """Doxygen warns of undescribed functions, and lets fields and names for types pass."""
        described = [(one.name, one.brief) for one in self.members]
        described += [(f"{one.name}.{text_of(field.find('name'))}", field.find("briefdescription"))
                      for one in self.members if one.kind == "struct" for field in one.fields()]
        missing = [name for name, brief in described if not text_of(brief)]
        if missing:
            sys.exit(f"without a comment in the headers: {', '.join(missing)}")

    def see_also(self, member, mentioned):
        """Names of pages: what is mentioned, what mentions it, and its neighbours."""
        own = {one.get("id") for one in [member.element] + [other.element for other in member.others]}
        names = set(mentioned)
        for other in self.members:
            is_neighbour = other.group is member.group and other.section == member.section and \
                other.kind == member.kind == "function"
            is_related = own & other.mentions() or other.element.get("id") in member.mentions()
            if other.has_page() and (is_neighbour or is_related):
                names.add(other.described_with() or other.name)
        return sorted(names - set(member.names()), key=str.lower)


# ---- Pages

def heading(name, version, date):
    """Names are neither hyphenated nor spread over the line."""
    return [f".TH {code(name)} 3 {date} \"QVfoundation {version}\" \"Foundation library\"", ".nh", ".ad l"]


def see_also_lines(names):
    lines = [".SH SEE ALSO"]
    for i, name in enumerate(names):
        lines.append(f".BR {code(name)} (3){',' if i < len(names) - 1 else ''}")
    return lines


def synopsis(header, declarations):
    lines = [".SH SYNOPSIS", ".nf", bold(f"#include <foundation/{header}>")]
    for declaration in declarations:
        lines += [".PP"] + declaration
    return lines + [".fi"]


def without_first_break(lines):
    return lines[1:] if lines[:1] == [".PP"] else lines


def member_page(reference, member, version, date):
    describer = Describer(reference.page_of_reference, member.parameters())
    description = describer.description(member)
    result = describer.result(member.details)
    lines = heading(member.name, version, date)
    lines += [".SH NAME", f"{', '.join(code(name) for name in member.names())} \\- {prose(member.purpose())}"]
    lines += [".SH LIBRARY", f"Foundation library (\\fI{LIBRARY}\\fP, \\fI\\-lQVfoundation17\\fP)"]
    lines += synopsis(member.header, [one.declaration() for one in [member] + member.others])
    lines += [".SH DESCRIPTION"] + without_first_break(description)
    for field in member.fields() if member.kind == "struct" else []:
        told = describer.blocks(field.find("briefdescription")) + describer.blocks(field.find("detaileddescription"))
        name = text_of(field.find("name")) + text_of(field.find("argsstring"))
        lines += [".TP", bold(name)] + [line for line in told if line != ".PP"]
    if result:
        lines += [".SH RETURN VALUE"] + result
    family = family_page(member.group.id)
    lines += [".SH NOTES", "What holds for the whole family (status values, ownership, threads) is told in",
              f".BR {code(family)} (3)."]
    return lines + see_also_lines(reference.see_also(member, describer.mentioned) + [family])


def listed(members):
    lines = []
    for member in members:
        lines += [".TP", ", ".join(f"{bold(name)}(3)" for name in member.names())] + filled(prose(member.purpose()))
    return lines


def group_page(reference, group, version, date):
    describer = Describer(reference.page_of_reference)
    lines = heading(family_page(group.id), version, date)
    lines += [".SH NAME", f"{code(family_page(group.id))} \\- {prose(group.purpose())}"]
    lines += synopsis(group.file_name, [])
    lines += [".SH DESCRIPTION"] + without_first_break(describer.blocks(group.details))
    types = [one for one in group.entries("typedef") if not one.has_page()]
    if types:
        lines += [".SH TYPES"]
        for one in types:
            lines += [".TP", one.declaration()[0]] + [line for line in describer.description(one) if line != ".PP"]
    records = [one for one in group.entries("struct", "typedef") if one.has_page()]
    for title, members in (("RECORDS AND TYPES", records), ("FUNCTIONS", group.entries("function", "variable"))):
        if members:
            lines += [f".SH {title}"]
        section = ""
        for member in members:
            if member.section != section:
                section = member.section
                lines += [f".SS {prose(section)}"]
                if member.section_text is not None:
                    lines += without_first_break(describer.blocks(member.section_text))
            lines += listed([member])
    constants = group.entries("define")
    if constants:
        lines += [".SH CONSTANTS"]
    for constant in constants:
        for one in [constant] + constant.others:
            value = re.sub(r"UINT64_C\((\w+)\)", r"\1", text_of(one.element.find("initializer")))
            lines += [".TP" if one is constant else ".TQ", f"{bold(one.name)} {code(value)}"]
        lines += [line for line in describer.description(constant) if line != ".PP"]
    families = [family_page(other.id) for other in reference.groups if other is not group]
    return lines + see_also_lines([LIBRARY] + sorted(families))


def library_page(reference, version, date):
    lines = heading(LIBRARY, version, date)
    lines += [".SH NAME", f"{LIBRARY} \\- foundation library, by families"]
    lines += synopsis("foundation.h", [])
    lines += [".PP", "\\fBcc\\fP ... \\fB$(pkg\\-config \\-\\-cflags \\-\\-libs QVfoundation17)\\fP"]
    lines += [".SH DESCRIPTION",
              "Each family has a page of what holds for all of it.",
              "Each function and each record has a page of its own."]
    for group in reference.groups:
        lines += [".TP", f"{bold(family_page(group.id))}(3), \\fI{group.file_name}\\fP"]
        lines += filled(prose(group.purpose()))
    return lines + see_also_lines(sorted(family_page(group.id) for group in reference.groups))


def write_page(folder, name, lines):
    text = "\n".join(lines) + "\n"
    if "\n.TS\n" in text:
        text = "'\\\" t\n" + text
    (folder / f"{name}.3").write_text(text)


def main():
    xml_folder, output, version, date = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), *sys.argv[3:5]
    reference = Reference(xml_folder)
    reference.require_descriptions()
    output.mkdir(parents=True, exist_ok=True)
    for member in reference.members:
        if not member.has_page():
            continue
        if member.described_with():
            (output / f"{member.name}.3").write_text(f".so man3/{member.described_with()}.3\n")
        else:
            write_page(output, member.name, member_page(reference, member, version, date))
    for group in reference.groups:
        write_page(output, family_page(group.id), group_page(reference, group, version, date))
    write_page(output, LIBRARY, library_page(reference, version, date))


if __name__ == "__main__":
    main()
