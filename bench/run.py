#!/usr/bin/env -S python3 -B
"""Runs the benchmarks and prints their figures; ./bench.sh builds the programs and starts it."""

import argparse
import json
import os
import shutil
import signal
import statistics
import subprocess
import sys
import time

from catalog import run_catalog
from http_bench import run_http
from micro import run_load, run_log, run_lookup
from programs import BenchError, Builds, Client, Ideal
from report import Report, say
from service import run_clients, run_engine, run_helper, run_reload
from wire import run_wire

BENCHES = {"wire": run_wire, "lookup": run_lookup, "load": run_load, "reload": run_reload,
           "clients": run_clients, "engine": run_engine, "helper": run_helper, "log": run_log, "catalog": run_catalog, "http": run_http}


class Bench:
    """Parameters of the run for all benchmarks."""

    def __init__(self, options):
        Client.by_cpu = options.cpu
        self.builds = Builds(options.build, options.build32, options.data)
        self.data = options.data
        self.plots = os.path.join(options.data, "plots")
        self.quick = options.quick
        self.bits = [64] + ([32] if options.build32 else [])
        self.judges = not options.quick  # short runs on small lists cannot judge the targets
        self.rounds = options.rounds or (1 if self.quick else 7)
        self.seconds = 0.05 if self.quick else options.seconds
        self.warm_up = 0.01 if self.quick else 0.1
        self.sizes = {"small": 1000, "large": 10000, "largest": 30000} if self.quick else {
            "small": 10000, "large": 1000000, "largest": 10000000}

    def plot(self, name, axis, lines, powers):
        """Draws rates as SVG. lines: pairs of a position on the axis and the results of alternate() there."""
        os.makedirs(self.plots, exist_ok=True)
        names = list(lines[0][1])
        data = os.path.join(self.plots, name + ".dat")
        with open(data, "w", encoding="utf-8") as file:
            for place, results in lines:
                figures = [f"{statistics.median(results[subject]):.0f}" for subject in names]
                file.write(" ".join([str(place)] + figures) + "\n")
        svg = os.path.join(self.plots, f"performance-{name}.svg")
        plots = [f"'{data}' using 1:{column + 2} with linespoints pointtype 7 pointsize 0.5 title '{subject}'"
                 for column, subject in enumerate(names)]
        script = f"""set terminal svg size 720,400 background 'white'
set output '{svg}'
set logscale x {powers}
set yrange [0:*]
set format x {"'%.0f'" if powers == 2 else "'10^{%L}'"}
set format y "%'.0f"
set xlabel '{axis}'
set ylabel 'requests a second, on one core'
set key below
set grid
plot {', '.join(plots)}
"""
        subprocess.run(["gnuplot"], input=script, text=True, check=True)
        say(f"  plot: {svg}")


def check_client(bench):
    """Verifies that the client detects a wrong answer."""
    good = bench.builds.questions(bench.sizes["small"])
    wrong = os.path.join(bench.data, "wrong.questions")
    with open(good, encoding="ascii") as questions, open(wrong, "w", encoding="ascii") as file:
        lines = questions.readlines()
        category, url = lines[-1].split("\t")
        file.writelines(lines[:-1] + [f"{(int(category) + 1) % 256}\t{url}"])
    client = Client(bench.builds, 5, 0)
    with Ideal(bench.builds) as ideal:
        client.ask(ideal, good, options=["--count", "1000"])
        try:
            client.ask(ideal, wrong, 2, 16)
        except BenchError as error:
            if "wrong answer" not in str(error):
                raise
        else:
            raise BenchError("the load client accepted a wrong answer")


def document(path, reports, bench):
    """Replaces the tables between the marks of a document, and copies the plots to its folder."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    pieces = {report.name: report.table() for report in reports}
    pieces["machine"] = f"{machine()}, {time.strftime('%Y-%m-%d')}.\n"
    for name, piece in pieces.items():
        begin, end = f"<!-- bench {name} -->\n", f"<!-- end {name} -->"
        if begin not in text or end not in text:
            raise BenchError(f"{path} has no marks for {name}: add {begin.strip()} and {end}")
        before, rest = text.split(begin, 1)
        text = before + begin + piece + end + rest.split(end, 1)[1]
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    if os.path.isdir(bench.plots):
        for name in os.listdir(bench.plots):
            if name.endswith(".svg"):
                shutil.copy(os.path.join(bench.plots, name), os.path.dirname(path) or ".")


def machine():
    """A description of this machine."""
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return f"{model}, {os.cpu_count()} cores, Linux {os.uname().release}"


def parse_arguments():
    parser = argparse.ArgumentParser(prog="bench.sh", description="Measures katd against its targets.",
                                     epilog="Exit status: 0 all targets reached, 1 one was missed or a program "
                                            "failed, 2 bad usage.")
    parser.add_argument("names", nargs="*", metavar="NAME", help=f"{', '.join(BENCHES)}; all by default")
    parser.add_argument("--quick", action="store_true",
                        help="run each briefly, on small lists, without judging the figures")
    parser.add_argument("--rounds", type=int, help="rounds of each measurement, 7 by default")
    parser.add_argument("--seconds", type=float, default=1.0,
                        help="seconds of one measurement in a round, 1 by default")
    parser.add_argument("--cpu", action="store_true", help="rates by processor time instead of wall-clock time, for a "
                        "machine that is not idle")
    parser.add_argument("--document", metavar="FILE", help="put the tables and plots into this document")
    parser.add_argument("--build", default="build/release", help=argparse.SUPPRESS)
    parser.add_argument("--build32", help=argparse.SUPPRESS)
    parser.add_argument("--data", default="build/bench", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.document and (options.quick or options.cpu):
        parser.error("--document cannot be combined with --quick or --cpu")
    unknown = [name for name in options.names if name not in BENCHES]
    if unknown:
        parser.error(f"there is no benchmark {unknown[0]}: choose from {', '.join(BENCHES)}")
    return options


def main():
    options = parse_arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # so that the servers are stopped
    bench = Bench(options)
    os.makedirs(bench.data, exist_ok=True)
    check_client(bench)
    reports = []
    say(machine())
    for name in options.names or BENCHES:
        started = time.monotonic()
        say(f"{name}:")
        report = Report(name)
        BENCHES[name](bench, report)
        say(f"  ({time.monotonic() - started:.0f} s)")
        reports.append(report)
        with open(os.path.join(bench.data, name + ".json"), "w", encoding="utf-8") as file:
            json.dump(report.rows, file, indent=1, ensure_ascii=False)
    for report in reports:
        say(f"\n== {report.name}\n{report.table()}")
    if options.document:
        document(options.document, reports, bench)
    missed = [report.name for report in reports if not report.reached]
    if missed:
        say(f"Targets missed in: {', '.join(missed)}")
    return 1 if missed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BenchError as error:
        print(f"\nbench.sh: {error}", file=sys.stderr)
        sys.exit(1)
    except KeyboardInterrupt:
        sys.exit(130)
