#!/usr/bin/env python3
"""Turn a public header, or a guide, into what Doxygen reads (its INPUT_FILTER).

    doxygen_input.py FILE     writes the result to the standard output

Headers keep their plain comments in one fixed form, which is all that this program knows:

- The comment at the head of a file describes the file's family, one page of the reference. PAGES has their titles.
- /* ---- Title ---- */, with or without text, begins a section of the page; or a page, if PAGES has one for it.
- A comment in a line of its own belongs to the declarations below it, up to the next empty line. A comment behind
  a declaration belongs to that one.
- In a comment an empty line separates paragraphs and "- " begins an item. Lines that are indented further are a
  table, or code when one of them ends in ";". The sentence that begins with "Returns" tells the result.

Guides are Markdown; links between them become Doxygen's, and names of the library in `...` become links.
"""
import functools
import pathlib
import re
import sys

# The pages, by the file and, behind "#", the section whose comment they begin with: identifier and title.
PAGES = {
    "types.h": ("types", "Types and status values"),
    "memory.h": ("memory", "Memory"),
    "array.h": ("arrays", "Arrays"),
    "os.h": ("os", "Operating system"),
    "os.h#Threads": ("threads", "Threads"),
    "date.h": ("dates", "Dates and time"),
    "util.h": ("utilities", "Utilities"),
    "foundation.h": ("version", "All in one, and the version"),
    "foundation.hpp": ("cpp", "C++"),
}
GUIDES_FOLDER = pathlib.Path(__file__).resolve().parent.parent / "guides"
HEADERS_FOLDER = GUIDES_FOLDER.parent.parent / "include" / "foundation"

SECTION = re.compile(r"---- (.+?) ----\s*(.*)", re.DOTALL)
LABEL = re.compile(r"(Out of memory|[A-Z][a-z]+(?: [a-z]+)?)([.:]) ")
SENTENCE_END = re.compile(r"(?<=[a-z0-9`)\"A-Z])[.][)]? +(?=[A-Z0-9`*])")


# ---- The text of comments

def text_lines(comment):
    """The lines of a comment without its frame, indentation behind the frame kept."""
    body = re.sub(r"^\s*/\*|\s*\*/\s*$", "", comment)
    return [re.sub(r"^\s*\* ?", "", line) if i else line.strip() for i, line in enumerate(body.split("\n"))]


def blocks_of(lines):
    """Split lines at empty lines and where the indentation begins or ends: lists of lines."""
    blocks, previous = [], ""
    for line in lines:
        is_new = not blocks or not previous
        if line and not is_new:
            first = blocks[-1][0]
            if is_item(first):
                is_new = indentation_of(line) <= indentation_of(first) and not is_item(line)
            else:
                is_new = is_indented(line) != is_indented(previous) or is_item(line)
        if is_new and line:
            blocks.append([])
        if line:
            blocks[-1].append(line)
        previous = line
    return blocks


def indentation_of(line):
    return len(line) - len(line.lstrip())


def is_indented(line):
    return indentation_of(line) > 0


def is_item(line):
    return line.lstrip().startswith("- ")


def is_code(block):
    return is_indented(block[0]) and not is_item(block[0]) and any(line.rstrip().endswith(";") for line in block)


def is_table(block):
    return is_indented(block[0]) and not is_item(block[0]) and not is_code(block)


def starts_of_columns(lines):
    """Where a text begins in some line behind two spaces, and no line has a text that reaches across."""
    width = max(map(len, lines))
    padded = [line.ljust(width) for line in lines]
    gap = [all(line[i] == " " for line in padded) for i in range(width)]
    starts = [0]
    for i in range(2, width):
        if gap[i - 1] and gap[i - 2] and not gap[i]:
            starts.append(i)
    return [i for i in starts if any(line[i:].strip() for line in lines)]


def rows_of(block):
    """The rows of a table, lists of cells. A line without a first cell continues the row above it."""
    starts = starts_of_columns(block)
    if not any(line[:starts[1]].strip() for line in block):  # the indentation
        del starts[0]
    rows = []
    for line in block:
        ends = starts[1:] + [len(line)]
        cells = [line[start:end].strip() for start, end in zip([0] + starts[1:], ends)]
        if cells[0] or not rows:
            rows.append(cells)
        else:
            rows[-1] = [(old + " " + new).strip() for old, new in zip(rows[-1], cells)]
    return rows


def has_header(rows):
    return all(re.fullmatch(r"[a-z]+", cell) for cell in rows[0])


def escaped(text):
    """Text whose signs mean nothing to Doxygen but `...`, with links to public names and to the pages of headers."""
    parts = re.split(r"(`[^`]*`)", text)
    for i in range(0, len(parts), 2):
        parts[i] = re.sub(r"([<>@\\#&])", r"\\\1", parts[i])
        parts[i] = re.sub(r"(?<!\w)_(th|emu)\b", r"`_\1`", parts[i])
        parts[i] = re.sub(r"\w+(\.h(pp)?\b)?", linked, parts[i])
    return "".join(parts)


def linked(match):
    word = match.group(0)
    if word in PAGES:
        return f'@ref {PAGES[word][0]} "{word}"'
    return f'@ref {word} "{word}"' if word in public_names() else word


def table_markup(block):
    rows = rows_of(block)
    lines = ['<table class="markdownTable">']
    for i, row in enumerate(rows):
        cell = "th" if i == 0 and has_header(rows) else "td"
        lines.append("<tr>" + "".join(f"<{cell}>{escaped(text)}</{cell}>" for text in row) + "</tr>")
    return "\n".join(lines + ["</table>"])


def items_markup(block):
    items = []
    for line in block:
        if is_item(line) and indentation_of(line) == indentation_of(block[0]):
            items.append(line.strip())
        else:
            items[-1] += " " + line.strip()
    return "\n".join(escaped(item) for item in items)


def code_markup(block):
    indentation = min(map(indentation_of, block))
    return "\n".join(["@code{.cpp}"] + [line[indentation:] for line in block] + ["@endcode"])


def paragraph_markup(block, has_label):
    text = escaped(" ".join(line.strip() for line in block))
    return re.sub("^" + LABEL.pattern, r"<b>\1\2</b> ", text) if has_label else text


def capitalised(text):
    """With a capital letter, where the first word is no name."""
    return text[0].upper() + text[1:] if re.match(r"[a-z]+\b(?!_)", text) else text


def with_result_apart(text):
    """The sentence that begins with Returns becomes a paragraph of its own, at the end."""
    sentences = SENTENCE_END.split(text)
    ends = SENTENCE_END.findall(text) + [""]
    sentences = [sentence + end.rstrip() for sentence, end in zip(sentences, ends)]
    for i, sentence in enumerate(sentences):
        result = re.fullmatch(r"(Always )?[Rr]eturns? (.*)", sentence)
        if result and i > 0:
            told = (result.group(1) or "") + result.group(2)
            return " ".join(sentences[:i] + sentences[i + 1:]), capitalised(told)
    return text, None


def markup(lines, apart=False):
    """Doxygen's text for the lines of a comment; with `apart`, the result is told as such."""
    parts, result = [], None
    for block in blocks_of(lines):
        if is_code(block):
            parts.append(code_markup(block))
        elif is_table(block):
            parts.append(table_markup(block))
        elif is_item(block[0]):
            parts.append(items_markup(block))
        else:
            text = paragraph_markup(block, not apart)
            if apart and result is None:
                text, result = with_result_apart(text)
            if text:
                parts.append(text)
    if result:
        parts.append("@return " + result)
    return "\n\n".join(parts)


# ---- Headers

def declared_name(statement):
    """What a declaration or macro declares."""
    define = re.match(r"#define (\w+)", statement)
    if define:
        return define.group(1)
    statement = re.sub(r"/\*.*?\*/", "", statement, flags=re.DOTALL)
    statement = re.sub(r"\bFOUNDATION_\w+(\([^()]*\))?", "", statement)
    pointer = re.search(r"\(\*(\w+)\)", statement)
    if pointer:
        return pointer.group(1)
    struct = re.match(r"typedef struct (\w+) *\{", statement)
    if struct:
        return struct.group(1)
    function = re.search(r"(\w+)\(", statement)
    if function:
        return function.group(1)
    return re.search(r"(\w+)(\[\w*\])?\s*;", statement).group(1)


class Declaration:
    """A declaration of a header: its text, its name, and its comment, or the name that the comment stands at."""

    def __init__(self, text, comment, first_name):
        self.text = text
        self.name = declared_name(text)
        self.comment = comment
        self.first_name = first_name  # of those that share the comment


def tokens_of(header):
    """The parts of a C header in its order: ("comment", text), ("empty", ""), ("declaration", text)."""
    lines = header.split("\n")
    i = 0
    while i < len(lines):
        start = i
        line = lines[i]
        if line.startswith("/*"):
            while "*/" not in lines[i]:
                i += 1
            yield "comment", "\n".join(lines[start:i + 1])
        elif not line.strip():
            yield "empty", ""
        elif re.match(r"#ifdef __cplusplus", line):
            while lines[i] != "#endif":
                i += 1
        elif line.startswith("#define") and not re.fullmatch(r"#define \w+_H", line):
            while lines[i].endswith("\\"):
                i += 1
            yield "declaration", "\n".join(lines[start:i + 1])
        elif not line.startswith("#"):
            while not is_complete("\n".join(lines[start:i + 1])):
                i += 1
            yield "declaration", "\n".join(lines[start:i + 1])
        i += 1


def is_complete(text):
    code = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL).strip()
    return code.endswith(";") and code.count("{") == code.count("}") and text.count("/*") == text.count("*/")


def group_markup(file_name, page, brief, lines):
    identifier, title = page
    return (f"/** @defgroup {identifier} {title}\n@brief {escaped(brief)}\n\n"
            f"@code{{.c}}\n#include <foundation/{file_name}>\n@endcode\n\n{markup(lines)}\n*/\n/** @{{ */")


def head_markup(file_name, comment):
    """A page, from the comment at the head of a file, which begins with a paragraph for all of it."""
    lines = text_lines(comment)
    end = lines.index("") if "" in lines else len(lines)
    return group_markup(file_name, PAGES[file_name], " ".join(line.strip() for line in lines[:end]), lines[end:])


class HeaderFilter:
    def __init__(self, file_name):
        self.file_name = file_name
        self.own_page = PAGES[file_name]
        self.page = self.own_page
        self.output = []
        self.in_section = False
        self.comment = None
        self.first_name = None

    def begin_section(self, title, text):
        if self.in_section:
            self.output.append("/** @} */")
        self.in_section = False
        wanted = PAGES.get(f"{self.file_name}#{title.split(':')[0]}", self.own_page)
        if wanted != self.page:
            self.output.append("/** @} */")
            lines = text.split("\n")
            subjects = title.split(": ")[-1]
            brief = subjects[0].upper() + subjects[1:] + "."
            self.output.append(group_markup(self.file_name, wanted, brief, lines) if wanted != self.own_page
                               else f"/** @addtogroup {wanted[0]}\n@{{ */")
            self.page = wanted
        if wanted == self.own_page:
            self.in_section = True
            body = markup(text.split("\n")) if text else ""
            self.output.append(f"/** @name {escaped(title)}\n{body}\n*/\n/** @{{ */")

    def take_comment(self, text, is_first):
        if is_first:
            self.output.append(head_markup(self.file_name, text))
            return
        lines = text_lines(text)
        section = SECTION.match("\n".join(lines))
        if section:
            self.begin_section(*section.groups())
        else:
            self.comment, self.first_name = text, None

    def take_declaration(self, text):
        name = declared_name(text)
        if self.comment is not None:
            if self.first_name is None:
                self.first_name = name
                description = markup(text_lines(self.comment), apart=True)
            else:
                description = f"Described with @ref {self.first_name} \"{self.first_name}\"."
            self.output.append(f"/** {description}\n*/")
        self.output.append(re.sub(r"(?<=\S)( +)/\* ?(.*?) *\*/", comment_behind, text, flags=re.DOTALL))

    def run(self, header):
        is_first = True
        for kind, text in tokens_of(header):
            if kind == "comment":
                self.take_comment(text, is_first)
                is_first = False
            elif kind == "declaration":
                self.take_declaration(text)
            else:
                self.comment = None
                self.output.append("")
        if self.in_section:
            self.output.append("/** @} */")
        self.output.append("/** @} */")
        return "\n".join(self.output) + "\n"


def comment_behind(match):
    """A comment behind a declaration, in which nothing is laid out."""
    return match.group(1) + "/**< " + escaped(re.sub(r"\s*\n\s*", " ", match.group(2))) + " */"


def declarations_of(header):
    """The declarations of a C header with their comments."""
    declarations, comment, first_name = [], None, None
    for kind, text in tokens_of(header):
        if kind == "comment":
            comment, first_name = text, None
        elif kind == "empty":
            comment, first_name = None, None
        else:
            declaration = Declaration(text, comment, first_name)
            first_name = declaration.name if first_name is None and comment else first_name
            declarations.append(declaration)
    return declarations


def examples_of(header):
    """The code in the comments of a header, lists of lines."""
    comments = re.findall(r"^ *(/\*.*?\*/)", header, flags=re.DOTALL | re.MULTILINE)
    return [block for comment in comments for block in blocks_of(text_lines(comment)) if is_code(block)]


# ---- The C++ header: comments in front of declarations, at any depth

def cpp_markup(file_name, text):
    head = re.match(r"/\*.*?\*/", text, flags=re.DOTALL).group(0)

    def comment_markup(match):
        indentation, comment = match.groups()
        lines = text_lines(comment)
        if SECTION.match("\n".join(lines)):
            return ""
        group = "" if indentation else f"@ingroup {PAGES[file_name][0]}\n"
        return f"{indentation}/** {group}{markup(lines, apart=True)}\n*/"

    rest = with_calls_told(text[len(head):].split("\n"), PAGES[file_name][0])
    rest = re.sub(r"^( *)(/\*(?!\*).*?\*/)", comment_markup, rest, flags=re.DOTALL | re.MULTILINE)
    return head_markup(file_name, head).replace("/** @{ */", "") + rest


def with_calls_told(lines, group):
    """The comments of members, made where there is none, end with the plain calls that the member makes."""
    output = []
    for i, line in enumerate(lines):
        alias = re.match(r"using \w+ = (basic_\w+)<>;", line)
        if alias:
            output.append(f"/** @ingroup {group}\n@ref qv::{alias.group(1)} with the default guard. */")
        elif re.match(r"    (?!public |private |protected )[\w~\[]", line):
            calls = [name for name in re.findall(r"\w+(?=\()", body_of(lines[i:])) if name in public_names()]
            told = f"Calls {' and '.join(calls)}. */"
            if calls and output and output[-1].endswith("*/"):
                output[-1] = output[-1][:-2] + told
            elif calls:
                output.append("    /* " + told)
        output.append(line)
    return "\n".join(output)


def body_of(lines):
    """What follows the name and the parameters of the function that begins the lines; "" where none does."""
    text, depth = "", 0
    for line in lines:
        if not depth and text and not line.strip():
            break
        text += line + "\n"
        depth += line.count("{") - line.count("}")
        if not depth and (line.rstrip().endswith((";", "}"))):
            break
    begin = re.search(r"\)[^;{]*?(?=[:{])", text)
    return text[begin.end():] if begin else ""


# ---- Guides

@functools.lru_cache(maxsize=None)
def public_names():
    """What the C headers declare, without macros of their own use."""
    names = set()
    for header in HEADERS_FOLDER.glob("*.h"):
        if header.name in PAGES:
            names |= {declaration.name for declaration in declarations_of(header.read_text())}
    return names


def anchor_of(heading):
    """As the Markdown of the places where guides are read makes it."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def guide_markup(path):
    guide = path.stem

    def link(match):
        text, target = match.groups()
        file_name, _, anchor = target.partition("#")
        page = file_name[:-3] if file_name else guide
        if target.startswith("http"):
            return match.group(0)
        if "/" in file_name:
            return text
        if file_name == "README.md":
            return f"[{text}](pages.html)"
        return f"[{text}](@ref guide-{page}{'-' + anchor if anchor else ''})"

    def name_link(match):
        name = match.group(1)
        return f"@ref {name} \"{name}\"" if name in public_names() else match.group(0)

    output, in_code = [], False
    text = path.read_text()
    # A link's text may be broken over two lines.
    text = re.sub(r"\[([^\]\n]*)\n *([^\]\n]*)\]\(", r"[\1 \2](", text)
    for line in text.split("\n"):
        fence = re.match(r" *```(\w*)", line)
        if fence:
            in_code = not in_code
            line = line.replace("```console", "```{.unparsed}").replace("```sh", "```{.unparsed}")
            line = line.replace("```c++", "```{.cpp}").replace("```cmake", "```{.unparsed}")
        elif line.startswith("<!-- ") and not in_code:
            file_name = re.match(r"<!-- file: (\S+) -->", line)
            line = f"`{file_name.group(1)}`\n" if file_name else ""
        elif not in_code:
            heading = re.match(r"(#+) (.*)", line)
            if heading:
                anchor = "" if len(heading.group(1)) == 1 else "-" + anchor_of(heading.group(2))
                line = f"{line} {{#guide-{guide}{anchor}}}"
            else:
                line = re.sub(r"\[([^\]]*)\]\(([^)]*)\)", link, line)
                line = re.sub(r"`(\w+)`", name_link, line)
        output.append(line)
    return "\n".join(output)


def front_page(text):
    """With the list of the guides' index, and without the pages of headers that are not there."""
    guides = guide_markup(GUIDES_FOLDER / "README.md")
    for file_name, (identifier, _) in PAGES.items():
        if not (HEADERS_FOLDER / file_name.split("#")[0]).exists():
            text = re.sub(rf"\| @ref {identifier} .*\n", "", text)
    return text.replace("<!-- guides -->", guides[guides.index("\n- ") + 1:])


def main():
    path = pathlib.Path(sys.argv[1])
    if path.suffix == ".md":
        is_guide = path.resolve().parent == GUIDES_FOLDER
        result = guide_markup(path) if is_guide else front_page(path.read_text())
    elif path.suffix == ".hpp":
        result = cpp_markup(path.name, path.read_text())
    else:
        result = HeaderFilter(path.name).run(path.read_text())
    sys.stdout.write(result)


if __name__ == "__main__":
    main()
