"""The library within the process or core that gdb looks at: its memory, variables and types."""
import os
import re

import gdb

from .table import TABLE_BYTES, Table, Unreadable

NAME = "libQVfoundation17.so"
WITHOUT_SYMBOLS = (
    "%s has no debug symbols here. Install the package libqvfoundation17-dbgsym of the same version, or build the "
    "library with -DCMAKE_BUILD_TYPE=RelWithDebInfo."
)
_ADDRESS_MASK = (1 << 64) - 1


def read(address, size):
    try:
        return bytes(gdb.selected_inferior().read_memory(address & _ADDRESS_MASK, size))
    except (gdb.error, OverflowError, ValueError):
        raise Unreadable("%#x" % address) from None


def number_of(expression):
    """The value of an expression as 64 bits: a number, a pointer, or where an array stands."""
    value = gdb.parse_and_eval(expression)
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_ARRAY, gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        if value.address is None:
            raise gdb.GdbError("%s has no address." % expression)
        value = value.address
    return int(value) & _ADDRESS_MASK


def name_at(address):
    """The symbol at an address, or the address as text."""
    words = gdb.execute("info symbol %#x" % address, to_string=True)
    match = re.match(r"(.+?) in section ", words)
    return match.group(1) if match else "%#x" % address


def _objfile():
    if not gdb.selected_inferior().threads():
        raise gdb.GdbError("There is no process and no core to look at.")
    for objfile in gdb.objfiles():
        if objfile.owner is None and os.path.basename(objfile.filename or "").startswith(NAME):
            return objfile
    raise gdb.GdbError("%s is not loaded (yet)." % NAME)


def _address_in_debug_symbols(objfile, name, type_name):
    """Only the library's own variable will do: hosts may have one of the same name, and use it as they like."""
    for lookup in (objfile.lookup_static_symbol, objfile.lookup_global_symbol):
        symbol = lookup(name)
        if symbol is not None and symbol.type.strip_typedefs().name == type_name:
            return int(symbol.value().address)
    return None


def _address_in_symbol_table(objfile, name):
    """A library that is not stripped has its private names there, without types."""
    listed = gdb.execute("info variables ^%s$" % name, to_string=True)
    for digits in re.findall(r"^(0x[0-9a-f]+) +%s$" % name, listed, re.MULTILINE):
        address = int(digits, 16)
        if gdb.solib_name(address) == objfile.filename:
            return address
    return None


def _variable(name, type_name):
    objfile = _objfile()
    address = _address_in_debug_symbols(objfile, name, type_name) or _address_in_symbol_table(objfile, name)
    if address is None:
        raise gdb.GdbError(WITHOUT_SYMBOLS % objfile.filename)
    return address


def table():
    address = _variable("heap", "ZT_MEMM_TABLE")
    try:
        return Table(read, address)
    except Unreadable:
        raise gdb.GdbError("The table at %#x, %d bytes, cannot be read." % (address, TABLE_BYTES)) from None


def is_threaded():
    """The mode of the process; None before it is settled."""
    content = read(_variable("g_UXpthreads_funs", "pthread_binding"), 8)
    supported, probed = content[:4], content[4:]
    return any(supported) if any(probed) else None


def record_type(name):
    """A private record type of the library, whatever types of that name the program has."""
    objfile = _objfile()
    symbol = objfile.lookup_static_symbol("heap")
    if symbol is None:
        raise gdb.GdbError(WITHOUT_SYMBOLS % objfile.filename)
    return gdb.lookup_type(name, symbol.symtab.static_block())
