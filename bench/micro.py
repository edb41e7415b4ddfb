"""The micro-benchmarks, run by Google Benchmark in one process on one core, repetitions in random order."""

import json
import os

from programs import ONE_CORE, run
from report import progress


def run_micro(bench, title, arguments):
    """Returns, for each benchmark, the nanoseconds of every repetition, and the counters of the last one."""
    progress(f"{title}: {bench.rounds} repetitions")
    output = run(ONE_CORE + [bench.builds.program("bench/micro_bench"), "--benchmark_format=json",
                             f"--benchmark_repetitions={bench.rounds}",
                             "--benchmark_enable_random_interleaving=true",
                             f"--benchmark_min_time={bench.seconds / 5}"] + arguments)
    progress("")
    times, counters = {}, {}
    for entry in json.loads(output)["benchmarks"]:
        if entry["run_type"] == "iteration":
            name = entry["name"].split("/")[0]
            times.setdefault(name, []).append(entry["cpu_time"])
            counters[name] = entry
    return times, counters


def run_lookup(bench, report):
    aims = {bench.sizes["large"]: 0.75, bench.sizes["largest"]: 0.62}
    for items in bench.sizes.values():
        lists = [bench.builds.list_file("urls", items), bench.builds.list_file("domains", items)]
        times, counters = run_micro(bench, f"lookup, {items:,} items", ["search"] + lists)
        report.compare(f"{items:,} items, find : plain search", times, "find", "find_plain", aims.get(items), "ns",
                       bench.judges, least=False)
        report.compare(f"{items:,} items, find_sw : plain search", times, "find_sw", "find_sw_plain", unit="ns")
        extra = max(counters[name]["extra_bytes_an_item"] for name in ("find", "find_sw"))
        report.add(f"{items:,} items, memory in addition to strings and entries", [extra],
                   2.0 if items == bench.sizes["large"] else None, least=False, unit=" bytes an item",
                   judged=bench.judges)
    small = bench.sizes["small"]
    times, _ = run_micro(bench, "lookup, URLs", ["url", bench.builds.list_file("urls", small),
                                                 bench.builds.list_file("domains", small)])
    for name, values in times.items():
        report.add(f"normalised and looked up, {name.replace('_', ' ')}", values, unit=" ns")


def run_load(bench, report):
    for items in (bench.sizes["large"], bench.sizes["largest"]):
        path = bench.builds.list_file("domains", items)
        times, _ = run_micro(bench, f"load, {items:,} items", ["load", path])
        megabytes = os.path.getsize(path) / 1e6
        milliseconds = {name: [value / 1e6 for value in values] for name, values in times.items()}
        report.compare(f"{items:,} items ({megabytes:.0f} MB), load : read in blocks and copy each once",
                       milliseconds, "load", "load_plain", 1.3 if items == bench.sizes["largest"] else None, "ms",
                       bench.judges, least=False)


def run_log(bench, report):
    times, _ = run_micro(bench, "log", ["log", bench.data])
    report.compare("a message at level debug : the system calls of its three records", times, "message",
                   "bare_calls", 1.15, "ns", bench.judges, least=False)
    report.compare("a filtered message : its position, a call and two comparisons", times, "filtered",
                   "two_comparisons", unit="ns")
