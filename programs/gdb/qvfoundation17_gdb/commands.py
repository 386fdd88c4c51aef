"""The command memm and what stands behind it."""
import gdb

from . import arrays, library, locks
from .table import Unreadable

_FAULTS_SHOWN = 50
_NEAR_BYTES = 64


def _write(line=""):
    gdb.write(line + "\n")


def _plural(number, word):
    return "%s %s%s" % (format(number, ","), word, "" if number == 1 else "s")


def _in_columns(numbers, head, rows):
    """Rows of texts beneath their head, each column as wide as its widest; the first `numbers` of them to the
    right."""
    widths = [max(map(len, column)) for column in zip(head, *rows)]
    for row in [head] + rows:
        cells = [cell.rjust(width) for cell, width in zip(row[:numbers], widths)]
        cells += [cell.ljust(width) for cell, width in zip(row[numbers:], widths[numbers:])]
        _write("  ".join(cells).rstrip())


def _total(blocks):
    return "%s of %s" % (_plural(len(blocks), "block"), _plural(sum(block.size for block in blocks), "byte"))


def _warn_of_damage(table):
    if table.faults:
        _write("The table is damaged, so this may be wrong or not all: see `memm check`.")


def _address_of(argument, example):
    if not argument.strip():
        raise gdb.GdbError("Which one? Give an expression: %s." % example)
    return library.number_of(argument)


class _Command(gdb.Command):
    """A command that says in a sentence why it cannot be done."""

    def invoke(self, argument, from_tty):
        try:
            self.run(argument)
        except gdb.error as error:  # gdb would show where in this file it came from
            raise gdb.GdbError(str(error)) from None


class _Memm(_Command):
    """Look at libQVfoundation17.so: the memory manager's table, arrays, sections, events.

memm         every tag with its blocks and bytes, most bytes first
memm TAG     the blocks of one tag, largest first

TAG, ADDRESS and HANDLE are expressions of the program, such as 5, window->tag or &buffer[3]. A variable
whose name begins like one of the subcommands below goes in brackets: memm (check).

It works on a process and on a core, and needs the library's debug symbols, or its symbol table. Nothing is
called in the process. One that was stopped amid a function of memory.h may show a half-made change.

`print` knows dates, array handles (ZT_DT_ANY *) and GUIDs (BYTE[16]); $qv_array(HANDLE) is an array's record."""

    def __init__(self):
        super().__init__("memm", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION, True)

    def run(self, argument):
        if argument.strip():
            self._list_blocks(library.table(), library.number_of(argument))
        else:
            self._list_tags(library.table())

    @staticmethod
    def _list_tags(table):
        rows = [(tag, len(blocks), sum(block.size for block in blocks)) for tag, blocks in table.blocks_of.items()]
        rows.sort(key=lambda row: (-row[2], -row[1], row[0]))
        if rows:
            _in_columns(
                2,
                ("blocks", "bytes", "tag"),
                [(format(blocks, ","), format(size, ","), "%#x" % tag) for tag, blocks, size in rows],
            )
        _write("%s, %s; %s drawn so far" % (
            _plural(len(rows), "tag"),
            _total(table.blocks),
            _plural(table.unique_tags_drawn, "unique tag"),
        ))
        _warn_of_damage(table)

    @staticmethod
    def _list_blocks(table, tag):
        blocks = table.blocks_of.get(tag)
        if blocks is None:
            _write("tag %#x has no record" % tag)
        else:
            uses = _uses_by_arrays(blocks)
            rows = [
                (format(block.size, ","), "%#x" % block.address, uses.get(block.address, ""))
                for block in sorted(blocks, key=lambda block: (-block.size, block.address))
            ]
            if rows:
                _in_columns(1, ("bytes", "block", ""), rows)
            _write("tag %#x: %s" % (tag, _total(blocks)))
        _warn_of_damage(table)


def _uses_by_arrays(blocks):
    """What is said of blocks that are an array's record or its elements, by their addresses."""
    uses = {}
    for block in blocks:
        if block.size != arrays.RECORD.size:
            continue
        try:
            array = arrays.Array(block.address)
        except arrays.NoArray:
            continue
        uses[array.address] = "record of an " + array.describe()
        if array.slots != 0:
            uses[array.slots] = "slots of the array at %#x" % array.address
    return uses


class _MemmFind(_Command):
    """Which tag owns an address: memm find ADDRESS.

ADDRESS may lie anywhere inside a block. Where no block contains it, a block that ends a few bytes in front of it
is named, and whether it lies in the memory manager's own bookkeeping."""

    def __init__(self):
        super().__init__("memm find", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def run(self, argument):
        address = _address_of(argument, "memm find ADDRESS")
        table = library.table()
        blocks = table.find(address)
        for block in blocks:
            _write(_words_for_place(address, block))
        if not blocks:
            _write("%#x: no tag owns it%s" % (address, self._surroundings(table, address)))
        _warn_of_damage(table)

    @staticmethod
    def _surroundings(table, address):
        own = table.bookkeeping_at(address)
        if own is not None:
            return "; bookkeeping of the memory manager: %s" % own.what
        block = table.block_in_front_of(address, _NEAR_BYTES)
        if block is None:
            return ""
        return "; %s behind the end of block %#x of %s, tag %#x" % (
            _plural(address - block.address - block.size, "byte"),
            block.address,
            _plural(block.size, "byte"),
            block.tag,
        )


def _words_for_place(address, block):
    place = "" if address == block.address else "byte %s of " % format(address - block.address, ",")
    return "%#x: %sblock %#x of %s, tag %#x" % (
        address,
        place,
        block.address,
        _plural(block.size, "byte"),
        block.tag,
    )


class _MemmCheck(_Command):
    """Check the memory manager's table: memm check.

Names what does not hold: chains linked both ways, records in their bucket and one a tag, counts equal to the
occupied slots, their flags, nothing left in vacant ones. Also named is each block that is recorded twice or reaches
into another one: it was given to free() behind the manager's back, or associated twice or with too great a size."""

    def __init__(self):
        super().__init__("memm check", gdb.COMMAND_DATA, gdb.COMPLETE_NONE)

    def run(self, argument):
        table = library.table()
        findings = table.faults + table.double_records()
        for finding in findings[:_FAULTS_SHOWN]:
            _write(finding)
        if len(findings) > _FAULTS_SHOWN:
            _write("... and %s more" % format(len(findings) - _FAULTS_SHOWN, ","))
        verdict = "nothing amiss" if not findings else _plural(len(findings), "finding")
        _write("%s, %s: %s" % (_plural(len(table.blocks_of), "tag"), _total(table.blocks), verdict))


class _OfObject(_Command):
    """A subcommand that describes the object behind a handle."""

    def __init__(self, name):
        self._name = "memm " + name
        super().__init__(self._name, gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def run(self, argument):
        address = _address_of(argument, self._name + " HANDLE")
        try:
            self.show(address)
        except Unreadable:
            _write("%#x cannot be read" % address)


class _MemmArray(_OfObject):
    """A pointer array and its elements: memm array HANDLE.

As many elements are shown as `set print elements` allows."""

    def __init__(self):
        super().__init__("array")

    def show(self, address):
        try:
            array = arrays.Array(address)
        except arrays.NoArray as reason:
            _write(str(reason))
            return
        _write("%#x: %s" % (address, array.describe()))
        limit = gdb.parameter("print elements")  # None: no limit
        for index, element in enumerate(array.elements()):
            if limit is not None and index == limit:
                _write("  ...")
                break
            _write("  [%d] %s" % (index, element.format_string()))


class _MemmSection(_OfObject):
    """A critical section or a mutex identifier, its owner and who waits for it: memm section HANDLE."""

    def __init__(self):
        super().__init__("section")

    def show(self, address):
        _show_lines("section or mutex identifier", address, locks.section_lines(address))


class _MemmEvent(_OfObject):
    """An event, its state and who waits for it: memm event HANDLE."""

    def __init__(self):
        super().__init__("event")

    def show(self, address):
        _show_lines("event", address, locks.event_lines(address))


def _show_lines(what, address, lines):
    _write("%#x: %s, %s" % (address, what, locks.mode_words()))
    width = max(len(label) for label, _ in lines)
    for label, text in lines:
        _write("  %s  %s" % (label.ljust(width), text))


class _MemmGuid(_OfObject):
    """The 16 bytes of a GUID as text: memm guid ADDRESS."""

    def __init__(self):
        super().__init__("guid")

    def show(self, address):
        _write(library.read(address, 16).hex())


def register():
    for command in (_Memm, _MemmFind, _MemmCheck, _MemmArray, _MemmSection, _MemmEvent, _MemmGuid):
        command()
