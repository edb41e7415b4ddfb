"""The catalogue: the file, the engine that answers from it, and the program that changes it."""

import contextlib
import itertools
import os
import re
import shutil
import sys

from programs import CORES, BenchError, Client, Ideal, Katd, run
from report import alternate
from wire import plural

CATEGORIES = 60


def numbers_of(category):
    """The categories of a host: one, and for a fifth of the hosts a second one."""
    first = category % CATEGORIES + 1
    return sorted({first, (first + 7) % CATEGORIES + 1} if category % 5 == 0 else {first})


class CatalogData:
    """Lists of this many hosts, a catalogue of them, and questions. Half of the questions are hosts below an entry, the
    other half are not covered. Made if necessary."""

    def __init__(self, builds, hosts):
        self.builds = builds
        self.base = os.path.join(builds.data, "lists", f"catalog-{hosts}")
        self.lists = self.base + ".lists"
        self.map = self.base + ".map"
        self.file = self.base + ".mdb"
        self.questions = self.base + ".questions"
        self.ideal_questions = self.base + ".ideal"  # the same URLs, with the answers of the ideal server
        if builds.is_older(self.file, "bench/generate_list") or builds.is_older(self.file, "katcatalog/katcatalog"):
            self.make(hosts)

    def make(self, hosts):
        os.makedirs(os.path.dirname(self.base), exist_ok=True)
        made = self.base + ".hosts"
        asked = self.base + ".asked"
        run([self.builds.program("bench/generate_list"), "--domains", "--items", str(hosts), "--seed", "3", "--hits",
             "50", "-o", made, "--questions", asked])
        shutil.rmtree(self.lists, ignore_errors=True)
        self.write_lists(made)
        self.write_questions(asked)
        os.remove(made)
        os.remove(asked)
        run([self.builds.program("katcatalog/katcatalog"), "import", "--quiet", "--map", self.map, "-o", self.file,
             self.lists])

    def sync(self, path):
        """Makes the catalogue equal to the lists."""
        run([self.builds.program("katcatalog/katcatalog"), "sync", "--quiet", "--map", self.map, path, self.lists])

    def change(self, hosts, number):
        """Replaces a list of its own, that of 0.5 per cent of the hosts, by another: 1 per cent has changed."""
        folder = os.path.join(self.lists, "more")
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, "domains"), "w", encoding="ascii") as file:
            file.writelines(f"host{i * 7919 % 1000003}.{number}.example\n" for i in range(hosts // 200))

    def write_lists(self, made):
        with contextlib.ExitStack() as stack:
            files = {}
            for number in range(1, CATEGORIES + 1):
                folder = os.path.join(self.lists, f"c{number:02}")
                os.makedirs(folder)
                files[number] = stack.enter_context(open(os.path.join(folder, "domains"), "w", encoding="ascii"))
            lines = stack.enter_context(open(made, encoding="ascii"))
            next(lines)
            for line in lines:
                for number in numbers_of(int(line[:3])):
                    files[number].write(line[4:])
        with open(self.map, "w", encoding="ascii") as file:
            file.writelines(f"c{number:02} = {number}\n" for number in range(1, CATEGORIES + 1))
            file.write("more = 99\n")

    def write_questions(self, asked):
        with open(asked, encoding="ascii") as lines, open(self.questions, "w", encoding="ascii") as real, \
                open(self.ideal_questions, "w", encoding="ascii") as ideal:
            for line in lines:
                category, url = line.rstrip("\n").split("\t")
                url = url.replace("http://", "http://www.", 1)
                answer = "-!" if category == "-" else ",".join(map(str, numbers_of(int(category))))
                real.write(f"{answer}\t{url}\n")
                ideal.write(f"{category_of(url)}\t{url}\n")


def category_of(url):
    """What the ideal server answers: Category.h."""
    head = int.from_bytes(url[len("http://"):][:8].encode("ascii"), "little")
    return head * 0x9E3779B97F4A7C15 % 2**64 >> 56


def run_catalog(bench, report):
    hosts = 20000 if bench.quick else 5000000
    data = CatalogData(bench.builds, hosts)
    compare_with_lmdb(bench, report, hosts)
    compare_with_import(bench, report, hosts)
    compare_servers(bench, report, data)
    sync_under_load(bench, report, data, hosts)


def compare_with_lmdb(bench, report, hosts):
    """The library alone; each figure is the best of some rounds, by processor time.

    Not so the import, which uses two cores.
    """
    text = run([bench.builds.program("bench/catalog_bench"), str(hosts), bench.data])

    def add(what, pattern, aim, unit=""):
        found = re.search(pattern, text)
        if not found:
            raise BenchError(f"catalog_bench has not printed: {pattern}")
        report.add(what, [float(found.group("figure"))], aim, False, unit, found.groupdict().get("measured", ""),
                   bench.judges)

    add(f"{hosts:,} hosts, katcatalog import : the same records appended by LMDB alone",
        r"import: ratio [0-9.]+ of processor time, (?P<figure>[0-9.]+) in all", 4.0)
    add("the file : its names", r"file (?P<measured>.*): ratio (?P<figure>[0-9.]+)", 2.5)
    add("opening the file", r"opened in (?P<figure>[0-9.]+) ms", 20.0, " ms")
    add("look-up of a URL : mdb_get of a host", r"(?P<measured>mdb_get .*) \(.*: ratio (?P<figure>[0-9.]+)", 2.5)


def compare_with_import(bench, report, hosts):
    """katcatalog sync, by processor time."""
    text = run([sys.executable, os.path.join(os.path.dirname(__file__), "catalog_sync.py"),
                bench.builds.program("katcatalog/katcatalog"), str(hosts), "1" if bench.quick else "3", bench.data])
    for name, aim in (("1 % in 3 lists", 0.1), ("1 % in all lists", None), ("nothing changed", None)):
        found = re.search(re.escape(name) + r": .*processor ([0-9.]+) s, ([0-9.]+) of an import", text)
        if not found:
            raise BenchError(f"catalog_sync.py has not printed: {name}")
        report.add(f"{hosts:,} hosts, sync, {name} : import", [float(found.group(2))], aim, False, "",
                   f"{found.group(1)} s", bench.judges)


def compare_servers(bench, report, data):
    client = Client(bench.builds, bench.seconds, bench.warm_up)

    def rate(server, connections=1, window=1):
        questions = data.ideal_questions if isinstance(server, Ideal) else data.questions
        return lambda: client.ask(server, questions, connections, window)["rate"]

    helper = [bench.builds.program("client/katc"), "helper", "acl", "--concurrency", "-s"]
    with Katd(bench.builds, 0, catalog=data.file) as katd, Ideal(bench.builds, 1, 1) as ideal_1, \
            Ideal(bench.builds, 2, 2) as ideal_2:
        for connections in (1, 8, 64):
            results = alternate(f"catalog, {connections} connections", {
                "katd": rate(katd, connections),
                "ideal": rate(ideal_1, connections),
            }, bench.rounds)
            report.compare(f"{plural(connections)}, katd : ideal with 1 read, 1 write", results, "katd", "ideal", 0.75,
                           judged=bench.judges)
        results = alternate("catalog, 16 under way", {
            "16": rate(katd, 1, 16),
            "1": rate(katd),
            "helper": lambda: client.ask_helper(helper + [katd.socket], data.questions, 16, katd)["rate"],
            "ideal 2": rate(ideal_2),
        }, bench.rounds)
        report.compare("1 connection, 16 under way : 1 under way", results, "16", "1", 3.0, judged=bench.judges)
        report.compare("katc helper, 16 under way : ideal with 2 reads, 2 writes", results, "helper", "ideal 2", 3.3,
                       judged=bench.judges)
    with Katd(bench.builds, 0, catalog=data.file) as katd, Katd(bench.builds, 0) as standin:
        for server, questions in ((katd, data.questions), (standin, unanswered(bench, data))):
            client.ask(server, questions, 8, 16)
        extra = katd.private_memory() - standin.private_memory()
        report.add("private memory of katd, above that with the stand-in", [extra], 4096.0, False, " KiB",
                   f"{katd.private_memory():,} : {standin.private_memory():,} KiB", bench.judges)


def unanswered(bench, data):
    """The questions as the stand-in answers them without rules: Unknown."""
    path = os.path.join(bench.data, "unanswered")
    with open(data.questions, encoding="ascii") as lines, open(path, "w", encoding="ascii") as file:
        file.writelines("-\t" + line.split("\t")[1] for line in lines)
    return path


def sync_under_load(bench, report, data, hosts):
    client = Client(bench.builds, 2 * bench.seconds, bench.warm_up, CORES)
    path = data.base + ".synced.mdb"
    data.change(hosts, 0)
    shutil.copyfile(data.file, path)
    data.sync(path)
    numbers = itertools.count(1)
    with Katd(bench.builds, 0, cores=CORES, catalog=path) as katd:
        def during_sync():
            data.change(hosts, next(numbers))
            busy, _ = client.start(katd, data.questions, 8)
            data.sync(path)
            return Client.finish(busy)["p99_us"]

        results = alternate("catalog, sync", {
            "sync": during_sync,
            "quiet": lambda: client.ask(katd, data.questions, 8)["p99_us"],
        }, bench.rounds)
    report.compare("8 connections, two cores, p99 during a sync of 1 % : quiet", results, "sync", "quiet", 2.0, "us",
                   bench.judges, least=False)
    os.remove(path)
    shutil.rmtree(os.path.join(data.lists, "more"))
