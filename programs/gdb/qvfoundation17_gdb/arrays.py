"""Pointer arrays: the record behind a handle, as array.h and foundation/memory/dt_types.h describe it."""
import struct

import gdb

from . import library
from .table import Unreadable

RECORD = struct.Struct("<QQQQQQQi4xQ")
_MAGIC = 0x64776172
_SLOT_BYTES = 8


class NoArray(Exception):
    """Says in words why there is no array."""


class Array:
    def __init__(self, address):
        self.address = address
        try:
            content = library.read(address, RECORD.size)
        except Unreadable:
            raise NoArray("no array: %#x cannot be read" % address) from None
        (size, magic, self.tag, self.capacity, self.count, self.increment, self.slots, self.sorted, self.compare) = (
            RECORD.unpack(content)
        )
        if magic != _MAGIC or size != RECORD.size:
            raise NoArray("no array: the record at %#x lacks the size and the magic word of one" % address)

    def damage(self):
        """What does not hold of the record, in words, or None."""
        if self.count > self.capacity:
            return "%d elements are more than its %d slots" % (self.count, self.capacity)
        if (self.slots == 0) != (self.capacity == 0):
            return "it has %d slots at %#x" % (self.capacity, self.slots)
        if self.capacity != 0 and (self.increment == 0 or self.capacity % self.increment != 0):
            return "%d slots are no multiple of its increment, %d" % (self.capacity, self.increment)
        try:
            for edge in {self.slots, self.slots + _SLOT_BYTES * (self.count - 1)} if self.count != 0 else ():
                library.read(edge, _SLOT_BYTES)
        except Unreadable:
            return "its %d slots at %#x cannot be read" % (self.capacity, self.slots)
        return None

    def describe(self):
        words = "array of %d element%s in %d slots, %s, tag %#x" % (
            self.count,
            "" if self.count == 1 else "s",
            self.capacity,
            self._order(),
            self.tag,
        )
        damage = self.damage()
        return words if damage is None else "%s; DAMAGED: %s" % (words, damage)

    def _order(self):
        if self.sorted == 0:
            return "in insertion order"
        if self.compare == 0:
            return "sorted flag without a comparator"
        return "sorted by %s" % library.name_at(self.compare)

    def elements(self):
        """The elements as gdb values, read as they are asked for; none of a damaged record."""
        if self.damage() is not None:
            return
        slot = gdb.Value(self.slots).cast(gdb.lookup_type("void").pointer().pointer())
        for index in range(self.count):
            yield slot[index]
