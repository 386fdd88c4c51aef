"""The table of the memory manager, walked in the memory of a process that may have damaged it.

Its layout and its equations are those of foundation/memory/dt_types.h, and stay under the number 17. Walks
end in any memory whatever: no element is visited twice, and one that is neither linked back nor looks like
one of its kind ends its chain.
"""
import struct
from typing import Callable, List, NamedTuple, Tuple

BUCKET_COUNT = 32
NODE_SLOTS = 13
FLAG_RECORDED = 2

_NODE = struct.Struct("<Q" + "QQQ" * NODE_SLOTS + "QQ")
_RECORD = struct.Struct("<Q%dsQQ" % _NODE.size)
_COUNTER = struct.Struct("<Q")
TABLE_BYTES = _COUNTER.size + BUCKET_COUNT * _RECORD.size
_FIRST_NODE_OFFSET = 8


class Unreadable(Exception):
    """Memory that the process does not have, or the core does not hold."""


class Slot(NamedTuple):
    flags: int
    size: int
    block: int


class Node(NamedTuple):
    address: int
    count: int
    slots: Tuple[Slot, ...]
    previous: int
    next: int

    @property
    def occupied(self):
        return sum(slot.block != 0 for slot in self.slots)


class Record(NamedTuple):
    address: int
    tag: int
    first_node: Node
    previous: int
    next: int


class Block(NamedTuple):
    tag: int
    address: int
    size: int

    @property
    def end(self):
        return self.address + max(self.size, 1)  # a block of no bytes still has its address


class Bookkeeping(NamedTuple):
    """Memory of the manager's own."""

    what: str
    address: int
    size: int


def _node_from(content, address):
    count, *words = _NODE.unpack(content)
    slots = tuple(Slot(*words[i : i + 3]) for i in range(0, 3 * NODE_SLOTS, 3))
    return Node(address, count, slots, words[-2], words[-1])


def _record_from(content, address):
    tag, node, previous, following = _RECORD.unpack(content)
    return Record(address, tag, _node_from(node, address + _FIRST_NODE_OFFSET), previous, following)


def _looks_like_a_node(node):
    return node.count <= NODE_SLOTS and all(slot.flags in (0, FLAG_RECORDED) for slot in node.slots)


class Table:
    """All that can be read of the table at `address` with `read(address, size)`, which gives bytes or raises
    Unreadable. `faults` has a sentence for each equation that does not hold."""

    def __init__(self, read: Callable[[int, int], bytes], address: int):
        self.blocks_of = {}  # tag: its blocks; a tag may have a record without blocks
        self.faults: List[str] = []
        self.bookkeeping = [Bookkeeping("the table itself", address, TABLE_BYTES)]
        self._read = read
        content = read(address, TABLE_BYTES)
        self.unique_tags_drawn = _COUNTER.unpack_from(content)[0]
        heads = [
            _record_from(content[offset : offset + _RECORD.size], address + offset)
            for offset in range(_COUNTER.size, TABLE_BYTES, _RECORD.size)
        ]
        self._visited = set()
        for head in heads:
            self._visited |= {head.address, head.first_node.address}
        for bucket, head in enumerate(heads):
            self._take_bucket(bucket, head)

    @property
    def blocks(self):
        return [block for blocks in self.blocks_of.values() for block in blocks]

    def find(self, address):
        """The blocks that contain `address`: none or one, more when a caller recorded a block twice."""
        return [block for block in self.blocks if block.address <= address < block.end]

    def block_in_front_of(self, address, reach):
        """The block that ends `reach` bytes or fewer in front of `address`, or None."""
        near = [block for block in self.blocks if 0 <= address - block.end < reach]
        return max(near, key=lambda block: block.end, default=None)

    def bookkeeping_at(self, address):
        inside = [own for own in self.bookkeeping if own.address <= address < own.address + own.size]
        return min(inside, key=lambda own: own.size, default=None)

    def double_records(self):
        """A sentence for each block that shares bytes with another one. The table allows it; but one of the two
        was released behind the manager's back, given to it twice, or given with too great a size."""
        sentences = []
        widest = None  # of the blocks so far, the one that ends last
        has_been_named = False
        for block in sorted(self.blocks, key=lambda block: (block.address, block.size, block.tag)):
            if widest is not None and block.address == widest.address:
                sentences.append(_words_for_two_records(widest, block))
            elif widest is not None and block.address < widest.end and not has_been_named:
                sentences.append(_words_for_overlap(widest, block))
                has_been_named = True
            if widest is None or block.end > widest.end:
                widest, has_been_named = block, False
        return sentences

    # ---- Chains

    def _chain(self, name, first, load, looks_right):
        """The elements from `first` on, as far as the chain can be followed. `name` is the chain's."""
        element, previous = first, 0
        while True:
            is_linked_back = element.previous == previous
            if not is_linked_back:
                self.faults.append(
                    "%s: the link back of the element at %#x is %#x, where %#x belongs"
                    % (name, element.address, element.previous, previous)
                )
            if not is_linked_back and not looks_right(element):
                self.faults.append(
                    "%s: what lies at %#x is no such element; whatever follows is left out" % (name, element.address)
                )
                return
            yield element
            if element.next == 0:
                return
            if element.next in self._visited:
                self.faults.append(
                    "%s: the element at %#x leads to %#x, which is in a chain already; whatever would follow is "
                    "left out" % (name, element.address, element.next)
                )
                return
            self._visited.add(element.next)
            previous, following = element.address, element.next
            try:
                element = load(following)
            except Unreadable:
                self.faults.append(
                    "%s: the element at %#x leads to %#x, which cannot be read; whatever follows is lost"
                    % (name, previous, following)
                )
                return

    def _load_node(self, address):
        return _node_from(self._read(address, _NODE.size), address)

    def _load_record(self, address):
        return _record_from(self._read(address, _RECORD.size), address)

    # ---- Records and nodes

    def _take_bucket(self, bucket, head):
        name = "records of bucket %d" % bucket
        looks_right = lambda record: record.tag % BUCKET_COUNT == bucket and _looks_like_a_node(record.first_node)
        tags = set()
        for record in self._chain(name, head, self._load_record, looks_right):
            is_vacant = record is head and record.tag == 0
            if record is not head:
                words = "the record of tag %#x" % record.tag
                self.bookkeeping.append(Bookkeeping(words, record.address, _RECORD.size))
            if not is_vacant and record.tag % BUCKET_COUNT != bucket:
                self.faults.append(
                    "%s: the record at %#x has tag %#x, whose bucket is %d"
                    % (name, record.address, record.tag, record.tag % BUCKET_COUNT)
                )
            if record.tag in tags and record.tag != 0:
                self.faults.append("%s: tag %#x has a second record at %#x" % (name, record.tag, record.address))
            tags.add(record.tag)
            self._take_nodes(record, bucket, is_vacant)

    def _take_nodes(self, record, bucket, is_vacant):
        name = "vacant record of bucket %d" % bucket if is_vacant else "nodes of tag %#x" % record.tag
        blocks = []
        for node in self._chain(name, record.first_node, self._load_node, _looks_like_a_node):
            if node is not record.first_node:
                words = "a node of tag %#x" % record.tag
                self.bookkeeping.append(Bookkeeping(words, node.address, _NODE.size))
            self._check_node(name, node, is_first=node is record.first_node)
            blocks += [Block(record.tag, slot.block, slot.size) for slot in node.slots if slot.block != 0]
        # Tag 0 is recorded in the vacant record of its bucket; in another one there is nothing.
        if is_vacant and bucket != 0 and blocks:
            self.faults.append("%s: it has %d blocks, which no tag can reach" % (name, len(blocks)))
        elif blocks or not is_vacant:
            self.blocks_of.setdefault(record.tag, []).extend(blocks)

    def _check_node(self, name, node, is_first):
        if node.count != node.occupied:
            reason = "; null was given to ZR_memm_disassociate, or" if node.count < node.occupied else ":"
            self.faults.append(
                "%s: the node at %#x counts %d blocks and has %d%s it is overwritten"
                % (name, node.address, node.count, node.occupied, reason)
            )
        elif node.count == 0 and not is_first:
            self.faults.append("%s: the node at %#x is empty and should be gone" % (name, node.address))
        for number, slot in enumerate(node.slots):
            expected = FLAG_RECORDED if slot.block != 0 else 0
            if slot.flags != expected:
                self.faults.append(
                    "%s: slot %d of the node at %#x has flags %#x, where %d belongs"
                    % (name, number, node.address, slot.flags, expected)
                )
            if slot.block == 0 and slot.size != 0:
                self.faults.append(
                    "%s: slot %d of the node at %#x is vacant and has a size, %d"
                    % (name, number, node.address, slot.size)
                )


def _words_for_two_records(first, second):
    return "block %#x is recorded twice: under tag %#x (%d bytes) and under tag %#x (%d bytes)" % (
        first.address,
        first.tag,
        first.size,
        second.tag,
        second.size,
    )


def _words_for_overlap(block, next_block):
    return "block %#x of tag %#x is recorded as %d bytes, and so reaches into block %#x of tag %#x" % (
        block.address,
        block.tag,
        block.size,
        next_block.address,
        next_block.tag,
    )
