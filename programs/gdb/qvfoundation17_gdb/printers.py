"""What `print`, `info locals` and the like show of the library's types, and $qv_array."""
import datetime

import gdb
import gdb.printing

from . import arrays, library, locks


class _Date:
    """ZT_DATE and, with the time of day, ZT_DATETIME."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        fields = [int(self._value[field]) for field in ("year", "month", "day")]
        text = "%04d-%02d-%02d" % tuple(fields)
        if len(self._value.type.fields()) > 3:
            time_of_day = [int(self._value[field]) for field in ("hour", "minute", "second")]
            fields += time_of_day
            text += " %02d:%02d:%02d" % tuple(time_of_day)
        return text if self._exists(fields) else text + " (no such date)"

    @staticmethod
    def _exists(fields):
        year, *rest = fields
        try:  # the module ends at 9999, and the calendar repeats every 400 years
            datetime.datetime((year - 1) % 400 + 2001 if year != 0 else 2000, *rest)
        except ValueError:
            return False
        return True


class _ArrayRecord:
    """ZT_ARRAY_PTR, the record itself."""

    def __init__(self, value):
        self._value = value

    def _array(self):
        return arrays.Array(int(self._value.address))

    def to_string(self):
        try:
            return self._array().describe()
        except arrays.NoArray as reason:
            return str(reason)

    def children(self):
        try:
            elements = self._array().elements()
        except arrays.NoArray:
            return
        for index, element in enumerate(elements):
            yield "[%d]" % index, element

    @staticmethod
    def display_hint():
        return "array"


class _ArrayHandle:
    """ZT_DT_ANY *, whose record is private: the program's own debug symbols do not show it."""

    def __init__(self, value):
        self._address = int(value)

    def to_string(self):
        try:
            words = arrays.Array(self._address).describe()
        except arrays.NoArray as reason:
            words = str(reason)
        return "%#x (%s)" % (self._address, words)


class _Guid:
    """BYTE[16], as OS_guid_to_string writes it; digests have this type and this text as well."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        return "".join("%02x" % int(self._value[i]) for i in range(16))


class _Event:
    """The record of an event in threaded mode."""

    def __init__(self, value):
        self._address = int(value.address)

    def to_string(self):
        return locks.event_summary(self._address)


def _is_of_library(type_):
    """For names that are private to the library, and that a host may use for types of its own."""
    objfile = type_.objfile
    return objfile is not None and library.NAME in (objfile.owner or objfile).filename


def _printer_name(value):
    """The name of the printer for a value, or None."""
    type_ = value.type.strip_typedefs().unqualified()
    if type_.code == gdb.TYPE_CODE_STRUCT:
        name = type_.name
        if name in ("ZT_DATE", "ZT_DATETIME"):
            return name
        is_private = name in ("ZT_ARRAY_PTR", "(anonymous namespace)::event_record") and _is_of_library(type_)
        return name if is_private and value.address is not None else None
    if type_.code == gdb.TYPE_CODE_PTR:
        target = type_.target().strip_typedefs().unqualified()
        return "ZT_DT_ANY *" if target.name == "ZT_DT_ANY" and int(value) != 0 else None
    if type_.code == gdb.TYPE_CODE_ARRAY and type_.range() == (0, 15):
        return "BYTE[16]" if type_.target().unqualified().name == "BYTE" else None
    return None


class _Printers(gdb.printing.PrettyPrinter):
    _classes = {
        "ZT_DATE": _Date,
        "ZT_DATETIME": _Date,
        "ZT_ARRAY_PTR": _ArrayRecord,
        "ZT_DT_ANY *": _ArrayHandle,
        "BYTE[16]": _Guid,
        "(anonymous namespace)::event_record": _Event,
    }

    def __init__(self):
        super().__init__("QVfoundation17", [gdb.printing.SubPrettyPrinter(name) for name in self._classes])

    def __call__(self, value):
        name = _printer_name(value)
        if name is None or not next(printer for printer in self.subprinters if printer.name == name).enabled:
            return None
        return self._classes[name](value)


class _QvArray(gdb.Function):
    """The record of a pointer array, for expressions: $qv_array(HANDLE).count, $qv_array(HANDLE).slots[3]."""

    def __init__(self):
        super().__init__("qv_array")

    def invoke(self, handle):
        try:
            arrays.Array(int(handle))
        except arrays.NoArray as reason:
            raise gdb.GdbError(str(reason)) from None
        return handle.cast(library.record_type("ZT_ARRAY_PTR").pointer()).dereference()


def register(objfile):
    gdb.printing.register_pretty_printer(objfile, _Printers(), replace=True)
    _QvArray()
