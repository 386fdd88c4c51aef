"""The walk over the memory manager's table, in memory made here: what it finds when all is well, and that it ends,
and names the damage, whichever word of the bookkeeping has whatever value."""
import struct
import sys
import unittest

sys.path.insert(0, sys.argv.pop())  # the folder of table.py
from table import FLAG_RECORDED, Table, Unreadable  # noqa: E402

TABLE, NODE_SIZE, RECORD_SIZE = 0x1000, 336, 360
RECORD, NODE, LATER_NODE, JUNK = 0x100000, 0x200000, 0x300000, 0x400000
BUCKET = 5
HEAD = TABLE + 8 + BUCKET * RECORD_SIZE
FIRST_NODE, PREVIOUS_RECORD, NEXT_RECORD = 8, 344, 352  # offsets in a record
SLOTS, PREVIOUS_NODE, NEXT_NODE = 8, 320, 328  # offsets in a node


class Memory:
    """Words by their addresses. Bucket 5 has tag 5 with three nodes in the table, and tag 37 behind it."""

    def __init__(self):
        self.words = {}
        for start, size in ((TABLE, 8 + 32 * RECORD_SIZE), (RECORD, RECORD_SIZE), (JUNK, RECORD_SIZE)):
            self.words.update((start + offset, 0) for offset in range(0, size, 8))
        for start in (NODE, LATER_NODE):
            self.words.update((start + offset, 0) for offset in range(0, NODE_SIZE, 8))
        for offset in range(0, RECORD_SIZE, 8):
            self.words[JUNK + offset] = 0x6A6A6A6A6A6A6A6A
        self.words[HEAD] = 5
        self.words[RECORD] = 37
        self._link(HEAD, RECORD, PREVIOUS_RECORD, NEXT_RECORD)
        self._link(HEAD + FIRST_NODE, NODE, PREVIOUS_NODE, NEXT_NODE)
        self._link(NODE, LATER_NODE, PREVIOUS_NODE, NEXT_NODE)
        self._occupy(HEAD + FIRST_NODE, 13, 0x500000)
        self._occupy(NODE, 2, 0x600000)
        self._occupy(LATER_NODE, 1, 0x700000)
        self._occupy(RECORD + FIRST_NODE, 1, 0x800000)
        self.reads = 0

    def _link(self, first, second, previous, following):
        self.words[first + following], self.words[second + previous] = second, first

    def _occupy(self, node, count, first_block):
        self.words[node] = count
        for slot in range(count):
            at = node + SLOTS + 24 * slot
            self.words[at], self.words[at + 8], self.words[at + 16] = FLAG_RECORDED, 16, first_block + 16 * slot

    def read(self, address, size):
        self.reads += 1
        try:
            return struct.pack("<%dQ" % (size // 8), *(self.words[address + i] for i in range(0, size, 8)))
        except KeyError:
            raise Unreadable from None


RECORDS = (HEAD, RECORD)
NODES = (HEAD + FIRST_NODE, NODE, LATER_NODE, RECORD + FIRST_NODE)
LINKS_FORTH = [record + NEXT_RECORD for record in RECORDS] + [node + NEXT_NODE for node in NODES]
LINKS_BACK = [record + PREVIOUS_RECORD for record in RECORDS] + [node + PREVIOUS_NODE for node in NODES]
BOOKKEEPING = [record + offset for record in RECORDS for offset in range(0, RECORD_SIZE, 8)]
BOOKKEEPING += [node + offset for node in (NODE, LATER_NODE) for offset in range(0, NODE_SIZE, 8)]
ODD_VALUES = (0, 14, HEAD, HEAD + FIRST_NODE, RECORD, RECORD + FIRST_NODE, NODE, LATER_NODE, JUNK, (1 << 64) - 1)


class TableTest(unittest.TestCase):
    def test_finds_every_block_of_a_sound_table(self):
        table = Table(Memory().read, TABLE)
        self.assertEqual({tag: len(blocks) for tag, blocks in table.blocks_of.items()}, {5: 16, 37: 1})
        self.assertEqual(table.faults + table.double_records(), [])
        self.assertEqual([block.tag for block in table.find(0x60001F)], [5])
        self.assertEqual(table.find(0x600020), [])
        self.assertEqual(table.bookkeeping_at(NODE + 335).what, "a node of tag 0x5")
        self.assertEqual(table.bookkeeping_at(HEAD).what, "the table itself")

    def test_ends_whatever_a_word_holds(self):
        for address in BOOKKEEPING:
            for value in ODD_VALUES:
                memory = Memory()
                memory.words[address] = value
                table = Table(memory.read, TABLE)
                table.double_records()
                self.assertLessEqual(memory.reads, 6, "%#x = %#x" % (address, value))

    def test_names_every_wrong_link_and_count(self):
        for address in LINKS_FORTH + LINKS_BACK + list(NODES):  # a node begins with its count
            for value in ODD_VALUES:
                memory = Memory()
                was, memory.words[address] = memory.words[address], value
                is_shorter = value == 0 and address in LINKS_FORTH  # a chain that ends early is a chain
                if value != was and not is_shorter:
                    self.assertNotEqual(Table(memory.read, TABLE).faults, [], "%#x = %#x" % (address, value))

    def test_has_no_owner_for_what_a_vacant_record_still_holds(self):
        memory = Memory()
        memory.words[HEAD] = 0
        table = Table(memory.read, TABLE)
        self.assertEqual(list(table.blocks_of), [37])
        self.assertEqual(table.faults, ["vacant record of bucket 5: it has 16 blocks, which no tag can reach"])

    def test_records_blocks_of_tag_0_in_the_vacant_record_of_its_bucket(self):
        memory = Memory()
        memory._occupy(TABLE + 8 + FIRST_NODE, 2, 0x900000)
        table = Table(memory.read, TABLE)
        self.assertEqual(len(table.blocks_of[0]), 2)
        self.assertEqual(table.faults, [])


if __name__ == "__main__":
    unittest.main()
