"""Critical sections, mutex identifiers and events: who owns them and who waits.

The platform's mutex names its owner, not who waits for it. Those are the threads that the kernel holds in a
futex call on a word of the object, whatever the C library keeps in it.
"""
import struct
from typing import NamedTuple

import gdb

from . import library
from .table import Unreadable

_MUTEX = struct.Struct("<iIiIi")  # lock, entries, owner, users, kind
_OWNER_END = 12  # lock, entries and owner: all zero while it is free
MUTEX_BYTES = 40
CONDITION_BYTES = 48
EVENT_BYTES = 96
_RECURSIVE = 1
_FUTEX_CALL = 202


class Waiting(NamedTuple):
    thread: gdb.InferiorThread
    address: int  # of the word it waits on


def _name_of(thread):
    name = ' "%s"' % thread.name if thread.name else ""
    return "%d%s (LWP %d)" % (thread.num, name, thread.ptid[1])


def _name_of_owner(lwp):
    for thread in gdb.selected_inferior().threads():
        if thread.ptid[1] == lwp:
            return "thread " + _name_of(thread)
    return "LWP %d, which is no thread here" % lwp


class Waiters:
    """Every thread that waits on a futex, and how many threads could not be asked because they run."""

    def __init__(self):
        self.waiting = []
        self.running = 0
        selected_thread, selected_frame = gdb.selected_thread(), gdb.selected_frame()
        try:
            for thread in sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num):
                self._ask(thread)
        finally:
            selected_thread.switch()
            selected_frame.select()

    def _ask(self, thread):
        if thread.is_running():
            self.running += 1
            return
        thread.switch()
        frame = gdb.newest_frame()
        if int(frame.read_register("orig_rax")) == _FUTEX_CALL:
            self.waiting.append(Waiting(thread, int(frame.read_register("rdi")) & ((1 << 64) - 1)))

    def within(self, address, size):
        """Who waits on a word of these bytes, in words."""
        names = [_name_of(wait.thread) for wait in self.waiting if address <= wait.address < address + size]
        words = "none"
        if names:
            count = "thread" if len(names) == 1 else "%d threads:" % len(names)
            words = "%s %s" % (count, ", ".join(names))
        return words if self.running == 0 else "%s (%d threads run and cannot be asked)" % (words, self.running)


def _mutex_lines(content, address, waiters):
    """Owner and waiters, or None for what is no mutex of the library's."""
    lock, entries, owner, _users, kind = _MUTEX.unpack_from(content)
    if kind != _RECURSIVE or lock not in (0, 1, 2):
        return None
    state = "none, it is free"
    if owner != 0:
        state = "%s, entered %d time%s" % (_name_of_owner(owner), entries, "" if entries == 1 else "s")
    elif lock != 0:
        state = "changing: a thread is just entering or leaving"
    return [("owner", state), ("waiters", waiters.within(address, MUTEX_BYTES))]


def _flag_of(content):
    return struct.unpack("<I", content[:4])[0]


def section_lines(address):
    """Label and text for each line about a critical section or a mutex identifier."""
    if library.is_threaded():
        lines = _mutex_lines(library.read(address, MUTEX_BYTES), address, Waiters())
        return lines or [("state", "no section or mutex identifier: freed, never made, or overwritten")]
    return [("state", {0: "free", 1: "taken"}.get(_flag_of(library.read(address, 4)), "neither free nor taken"))]


def event_lines(address):
    """Label and text for each line about an event."""
    if not library.is_threaded():
        return [_state_line(_flag_of(library.read(address, 4)))]
    content = library.read(address, EVENT_BYTES)
    waiters = Waiters()
    guard = _mutex_lines(content, address, waiters)
    if guard is None:
        return [("state", "no event: closed, never made, or overwritten")]
    lines = [
        _state_line(_flag_of(content[MUTEX_BYTES + CONDITION_BYTES :])),
        ("waiters", waiters.within(address + MUTEX_BYTES, CONDITION_BYTES)),
    ]
    if any(content[:_OWNER_END]):  # held for a moment by whoever sets, resets or begins to wait
        lines += [("guard's " + label, text) for label, text in guard]
    return lines


def _state_line(state):
    return ("state", "not signalled" if state == 0 else "signalled" if state == 1 else "signalled (%d)" % state)


def mode_words():
    """The mode of the process; an object made before it is settled was made by a _th or _emu name."""
    return {True: "threaded mode", False: "emulated mode", None: "mode not settled yet"}[library.is_threaded()]


def event_summary(address):
    """State and mode of an event in a line, for printers. They run while gdb walks through frames, and must not
    make it look at other threads, so who waits is left to the command."""
    try:
        state = _state_line(_flag_of(library.read(address, EVENT_BYTES)[MUTEX_BYTES + CONDITION_BYTES :]))[1]
        return "event, %s, %s; `memm event %#x` shows who waits" % (state, mode_words(), address)
    except Unreadable:
        return "no event: %#x cannot be read" % address
    except gdb.GdbError as error:
        return str(error)
