#!/usr/bin/env python3
"""Measures `katcatalog sync` against `katcatalog import` of the same lists, and against LMDB alone.

catalog_sync.py KATCATALOG [ENTRIES [ROUNDS [FOLDER]]]

Lists of 60 categories, one entry in five in two of them. 1 % of the entries change, half of them new and half
gone: in three lists, as daily updates of public lists do, or in all. In turn, in each round: an import, a sync
without changes, a sync of each kind of change, and for each one LMDB transaction with the same keys.
"""

import ctypes
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

CATEGORIES = 60
SOME = 3  # lists that change together
TOPS = ["com", "net", "org", "de", "info", "example"]


def host(number):
    """A host of 13 to 25 characters; different numbers have different ones."""
    mixed = (number * 0x9E3779B97F4A7C15 + 0x1234567) & 0xFFFFFFFFFFFFFFFF
    mixed ^= mixed >> 29
    text, left = "", number * 2654435761 % (1 << 32)
    while left:
        left, digit = divmod(left, 20)
        text += "bcdfghklmnprstvwaeiouy"[digit]
    return text + "aeiou"[mixed % 5] * (mixed >> 8 & 3) + (".cdn" if mixed >> 16 & 7 == 0 else "-site") \
        + "." + TOPS[(mixed >> 24) % len(TOPS)]


class Lists:
    """The folder of lists; lines[c] are the hosts of category c."""

    def __init__(self, folder, entries):
        self.folder = folder
        self.entries = entries
        self.next = entries  # number of the next new host
        self.random = random.Random(1)
        self.lines = [[] for _ in range(CATEGORIES)]
        for number in range(entries):
            name = host(number)
            self.lines[number % CATEGORIES].append(name)
            if number % 5 == 0:
                self.lines[(number // 5 + 7) % CATEGORIES].append(name)
        for category in range(CATEGORIES):
            os.makedirs(os.path.join(folder, f"c{category}"))
            self.random.shuffle(self.lines[category])
            self.write(category)
        with open(os.path.join(folder, "map"), "w") as file:
            file.writelines(f"c{category} = {category}\n" for category in range(CATEGORIES))

    def write(self, category):
        """Replaces a list; its time lies a minute back, as if it had come earlier than the sync."""
        path = os.path.join(self.folder, f"c{category}", "domains")
        with open(path + ".new", "w") as file:
            file.write("\n".join(self.lines[category]) + "\n")
        os.rename(path + ".new", path)

    def change(self, categories):
        """Changes 1 % of the entries. Returns the hosts that are new and those that are gone."""
        count = self.entries // 200 // len(categories)
        new, gone = [], []
        for category in categories:
            lines = self.lines[category]
            for place in self.random.sample(range(len(lines)), count):
                gone.append(lines[place])
                name = host(self.next)
                self.next += 1
                new.append(name)
                lines[place] = name
            self.write(category)
        return new, gone


def timed(command):
    """Elapsed and processor time of a command that must succeed, and what it printed."""
    begin = time.monotonic()
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    output = child.stdout.read()
    _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.monotonic() - begin
    if status != 0:
        sys.exit(f"{' '.join(command)}: {output}")
    return elapsed, usage.ru_utime + usage.ru_stime, output


class Value(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("data", ctypes.c_char_p)]


def lmdb_alone(path, new, gone):
    """The time of one transaction of LMDB that puts and deletes these hosts' records, fsync included."""
    lmdb = ctypes.CDLL("liblmdb.so.0")

    def check(error):
        if error != 0:
            sys.exit(f"LMDB: error {error}")

    def value(data):
        return Value(len(data), data)

    def key(name):
        return value(b"h" + b"\0".join(reversed(name.encode().split(b"."))))

    environment, transaction = ctypes.c_void_p(), ctypes.c_void_p()
    puts, deletes = [key(name) for name in new], [key(name) for name in gone]
    data = value(b"\1\0\0\0\0")
    check(lmdb.mdb_env_create(ctypes.byref(environment)))
    check(lmdb.mdb_env_set_mapsize(environment, ctypes.c_size_t(8 << 30)))
    no_subdir, no_lock = 0x4000, 0x400000
    check(lmdb.mdb_env_open(environment, path.encode(), no_subdir | no_lock, 0o644))
    begin, busy = time.monotonic(), time.process_time()
    check(lmdb.mdb_txn_begin(environment, None, 0, ctypes.byref(transaction)))
    database = ctypes.c_uint()
    check(lmdb.mdb_dbi_open(transaction, None, 0, ctypes.byref(database)))
    for one in deletes:
        lmdb.mdb_del(transaction, database, ctypes.byref(one), None)
    for one in puts:
        check(lmdb.mdb_put(transaction, database, ctypes.byref(one), ctypes.byref(data), 0))
    check(lmdb.mdb_txn_commit(transaction))
    result = time.monotonic() - begin, time.process_time() - busy
    lmdb.mdb_env_close(environment)
    return result


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    katcatalog = os.path.abspath(sys.argv[1])
    entries = int(sys.argv[2]) if len(sys.argv) > 2 else 5000000
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    with tempfile.TemporaryDirectory(dir=sys.argv[4] if len(sys.argv) > 4 else None) as folder:
        lists = Lists(os.path.join(folder, "lists"), entries)
        catalog, copy = os.path.join(folder, "c.mdb"), os.path.join(folder, "copy.mdb")
        options = ["--map", os.path.join(lists.folder, "map")]
        time.sleep(3)  # files that are just being written are read again
        results = {}

        def note(name, result):
            results.setdefault(name, []).append(result)

        def sync(name, new, gone):
            shutil.copyfile(catalog, copy)
            os.sync()
            elapsed, busy, output = timed([katcatalog, "sync", *options, catalog, lists.folder])
            if f"{len(new)} entries added" not in " ".join(output.split()):
                sys.exit(f"{name}: not {len(new)} new entries: {output}")
            note(name, (elapsed, busy))
            os.sync()
            if new:
                note(f"{name}, LMDB alone", lmdb_alone(copy, new, gone))
            os.unlink(copy)

        for _ in range(rounds):
            os.sync()
            note("import", timed([katcatalog, "import", *options, "-o", catalog, lists.folder])[:2])
            time.sleep(3)
            sync("nothing changed", [], [])
            some = lists.random.sample(range(CATEGORIES), SOME)
            for name, categories in (f"1 % in {SOME} lists", some), ("1 % in all lists", range(CATEGORIES)):
                new, gone = lists.change(categories)
                time.sleep(3)
                sync(name, new, gone)
        print(f"{entries} entries, medians of {rounds} rounds")
        for name, times in results.items():
            def middle(part):
                return (statistics.median(one[part] for one in times),
                        statistics.median(one[part] / full[part] for one, full in zip(times, results["import"])))
            print("  {}: {:.2f} s, {:.3f} of an import; processor {:.2f} s, {:.3f} of an import".format(
                name, *middle(0), *middle(1)))


if __name__ == "__main__":
    main()
