"""gdb reads this file when it loads the library of this name; see `help memm`.

Where it does not, `source` this file. What it needs lies in the folder beside it.
"""
import os
import sys

import gdb


def _load(folder):
    unwanted = sys.dont_write_bytecode
    sys.dont_write_bytecode = True  # a debugger run by root leaves nothing in a system folder
    sys.path.insert(0, folder)
    try:
        import qvfoundation17_gdb

        qvfoundation17_gdb.register(gdb.current_objfile())
    finally:
        sys.path.remove(folder)
        sys.dont_write_bytecode = unwanted


_load(os.path.dirname(os.path.realpath(__file__)))
