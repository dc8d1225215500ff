"""Walks a table at rest and prints its entries, from docs/slot-file.md and docs/bucket-file.md alone.

    walk_table.py TABLE                one line for each entry, in list order
    walk_table.py TABLE EXPECTED       compares the entries' values, as a set, with a file of hex lines
    walk_table.py --hex TABLE          the parts of the two files that the notes' examples show

It uses none of the project's code, so that it fails if a file or a note is wrong.
"""
import ipaddress
import mmap
import struct
import sys

HEADER, OCCUPIED, LOOKASIDE, BUCKET, END = 600, 1, 2, 0x80000000, 0xFFFFFFFF


def mapped(path):
    with open(path, "rb") as file:
        return mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)


def u32(data, offset):
    return struct.unpack_from("<I", data, offset)[0]


def link(data, offset):
    return struct.unpack_from("<II", data, offset)


def require(condition, text):
    if not condition:
        sys.exit(f"not a sound table: {text}")


def reversed_bits(number, bits):
    return int(format(number, f"0{bits}b")[::-1], 2)


class Table:
    def __init__(self, directory):
        self.slots = mapped(f"{directory}/slots")
        self.buckets = mapped(f"{directory}/buckets")
        self.slot_size, self.value_size = u32(self.slots, 20), u32(self.slots, 24)
        self.type_name = self.slots[32:544].split(b"\0")[0].decode()
        self.num_slots, self.num_buckets = u32(self.slots, 580), u32(self.buckets, 20)
        require(u32(self.slots, 8) == HEADER, "header size")
        require(u32(self.slots, 12) == 2, "format")
        require(u32(self.slots, 16) == u32(self.buckets, 8), "the files are of different generations")
        require(not u32(self.slots, 548) >> 16 & 1, "left in mid-update")
        require(u32(self.buckets, 12) == 8, "bucket entry size")
        require(self.num_buckets >= 2 and self.num_buckets & self.num_buckets - 1 == 0, "bucket count")
        require(len(self.slots) >= self.place(self.num_slots), "slot file too short")
        require(len(self.buckets) >= 24 + 8 * self.num_buckets, "bucket file too short")

    def place(self, index):
        return HEADER + self.slot_size + index * self.slot_size

    def value(self, index):
        at = self.place(index)
        version = u32(self.slots, at + 8)
        require(version & OCCUPIED, f"slot {index} is linked and holds no entry")
        at = HEADER if version & LOOKASIDE else at
        return self.slots[at + 16:at + 16 + self.value_size]

    def entries(self):
        """Yields (slot, rhash, value) in list order, and checks the order on the way."""
        bits = self.num_buckets.bit_length() - 1
        bucket, last_rhash, count = 0, -1, 0
        _, following = link(self.buckets, 24)
        while True:
            while following & BUCKET:
                if following == END:
                    require(bucket == self.num_buckets - 1, f"the table ends in bucket {bucket}")
                    require(count == u32(self.slots, 556), "occupiedSlots is not the number of entries")
                    return
                successor = reversed_bits(reversed_bits(bucket, bits) + 1, bits)
                require(following & ~BUCKET == successor, f"bucket {bucket} leads to {following:#x}")
                bucket = successor
                _, following = link(self.buckets, 24 + 8 * bucket)
            slot = following
            require(slot < self.num_slots, f"slot {slot} is beyond the table")
            rhash = u32(self.slots, self.place(slot) + 12)
            require(rhash >= last_rhash, f"slot {slot} is out of order")
            require(reversed_bits(rhash, 32) & self.num_buckets - 1 == bucket, f"slot {slot} is in bucket {bucket}")
            last_rhash, count = rhash, count + 1
            require(count <= self.num_slots, "the list has a cycle")
            yield slot, rhash, self.value(slot)
            _, following = link(self.slots, self.place(slot))

    def free_slots(self):
        index, count = u32(self.slots, 560), 0
        while index != END:
            require(index < self.num_slots and count < self.num_slots, "free list")
            require(not u32(self.slots, self.place(index) + 8) & OCCUPIED, f"free slot {index} is occupied")
            _, index = link(self.slots, self.place(index))
            count += 1
        return count


def prefix(data):
    family, address, length = struct.unpack("<I16si", data)
    if family == 0:
        return "-"
    return f"{ipaddress.ip_address(address[:4] if family == 1 else address)}/{length}"


def hex_lines(data, start, size):
    for at in range(start, start + size, 16):
        yield f"{at:08x}  {data[at:min(at + 16, start + size)].hex(' ', 4)}"


def main(arguments):
    if arguments[0] == "--hex":
        table = Table(arguments[1])
        print(*hex_lines(table.slots, 0, 80), "...", *hex_lines(table.slots, 544, 56), sep="\n")
        for slot, _, _ in table.entries():
            print(f"slot {slot}", *hex_lines(table.slots, table.place(slot), table.slot_size), sep="\n")
        print("buckets", *hex_lines(table.buckets, 0, 24 + 8 * table.num_buckets), sep="\n")
        return 0
    table = Table(arguments[0])
    entries = list(table.entries())
    require(len(entries) + table.free_slots() == table.num_slots, "slots are neither linked nor free")
    if len(arguments) > 1:
        found = sorted(value.hex() for _, _, value in entries)
        with open(arguments[1]) as file:
            expected = sorted(file.read().split())
        if found != expected:
            print(f"{len(found)} entries, {len(expected)} expected; "
                  f"{len(set(expected) - set(found))} missing, {len(set(found) - set(expected))} unexpected")
            return 1
        print(f"{table.type_name}: {len(found)} entries as expected")
        return 0
    for slot, rhash, value in entries:
        text = value.hex()
        if table.type_name.endswith(("Fib::Route", "Fib::Counter")):
            text = f"({prefix(value[:24])},{prefix(value[24:48])})"
        print(f"slot {slot} rhash {rhash:08x} {text}")
    return 0


sys.exit(main(sys.argv[1:]))
