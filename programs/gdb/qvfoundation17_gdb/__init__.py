"""gdb commands and printers for libQVfoundation17.so: the tags and their blocks, arrays, sections, events.

Everything is read as the library's fixed record layouts, so of debug symbols no more is needed than the
addresses of two variables. Written for gdb 10 (Python 3.9) and newer.

  table.py     the memory manager's table; knows nothing of gdb
  library.py   the library in the process: its memory, variables and types
  arrays.py    pointer arrays
  locks.py     critical sections, mutex identifiers and events
  commands.py  memm
  printers.py  what `print` shows, and $qv_array
"""
from . import commands, printers


def register(objfile):
    """Offer everything; printers as long as the library stays loaded, or always when `objfile` is None."""
    commands.register()
    printers.register(objfile)
