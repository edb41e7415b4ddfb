"""Throughput on the socket, compared with servers that only make the system calls."""

import contextlib

from programs import Client, Ideal, Katd
from report import alternate


def rate(client, server, questions, connections=1, window=1):
    return lambda: client.ask(server, questions, connections, window)["rate"]


def plural(connections):
    return f"{connections} connection{'s' if connections > 1 else ''}"


def run_wire(bench, report):
    small, large = bench.sizes["small"], bench.sizes["large"]
    for bits in bench.bits:
        compare_servers(bench, report, bits, small, large)
    if not bench.quick:
        plot(bench)


def compare_servers(bench, report, bits, small, large):
    client = Client(bench.builds, bench.seconds, bench.warm_up)
    few, many = bench.builds.questions(small), bench.builds.questions(large)
    with contextlib.ExitStack() as stack:
        servers = [Katd(bench.builds, small, bits), Katd(bench.builds, large, bits),
                   Ideal(bench.builds, 1, 1, bits=bits), Ideal(bench.builds, 2, 2, bits=bits)]
        for server in servers:
            stack.enter_context(server)
        katd_few, katd_many, ideal_1, ideal_2 = servers
        for connections, aim_many in ((1, 1.0), (8, 1.0), (64, 0.9)):
            results = alternate(f"wire, {bits} bits, {connections} connections", {
                "katd few": rate(client, katd_few, few, connections),
                "ideal 1": rate(client, ideal_1, few, connections),
                "katd many": rate(client, katd_many, many, connections),
                "ideal 2": rate(client, ideal_2, many, connections),
            }, bench.rounds)
            what = f"{bits} bits, {plural(connections)}"
            report.compare(f"{what}, {small:,} items, katd : ideal with 1 read, 1 write", results, "katd few",
                           "ideal 1", 0.9, judged=bench.judges)
            report.compare(f"{what}, {large:,} items, katd : ideal with 2 reads, 2 writes", results,
                           "katd many", "ideal 2", aim_many, judged=bench.judges)
        results = alternate(f"wire, {bits} bits, window", {
            "16": rate(client, katd_few, few, 1, 16),
            "1": rate(client, katd_few, few, 1, 1),
            "ideal 16": rate(client, ideal_1, few, 1, 16),
        }, bench.rounds)
        report.compare(f"{bits} bits, 1 connection, {small:,} items, 16 under way : 1 under way", results, "16",
                       "1", 4.0, judged=bench.judges)
        report.compare(f"{bits} bits, 16 under way, {small:,} items, katd : ideal with 1 read, 1 write", results,
                       "16", "ideal 16")


def plot(bench):
    """Rates over connections and over list size, as data for gnuplot."""
    rounds = max(3, bench.rounds // 2)
    client = Client(bench.builds, bench.seconds / 2, bench.warm_up)
    small, large = bench.sizes["small"], bench.sizes["large"]
    with Ideal(bench.builds, 1, 1) as ideal_1, Ideal(bench.builds, 2, 2) as ideal_2:
        with Katd(bench.builds, small) as few, Katd(bench.builds, large) as many:
            lines = []
            for connections in (1, 2, 4, 8, 16, 32, 64):
                lines.append((connections, alternate(f"wire, plot, {connections} connections", {
                    f"katd, {small:,} items": rate(client, few, bench.builds.questions(small), connections),
                    f"katd, {large:,} items": rate(client, many, bench.builds.questions(large), connections),
                    "ideal, 1 read, 1 write": rate(client, ideal_1, bench.builds.questions(small), connections),
                    "ideal, 2 reads, 2 writes": rate(client, ideal_2, bench.builds.questions(small), connections),
                }, rounds)))
            bench.plot("connections", "connections", lines, powers=2)
        lines = []
        for items in (1000, 10000, 100000, 1000000, 10000000):
            questions = bench.builds.questions(items)
            with Katd(bench.builds, items) as katd:
                lines.append((items, alternate(f"wire, plot, {items} items", {
                    "katd": rate(client, katd, questions),
                    "ideal, 1 read, 1 write": rate(client, ideal_1, questions),
                    "ideal, 2 reads, 2 writes": rate(client, ideal_2, questions),
                }, rounds)))
        bench.plot("items", "items of each list", lines, powers=10)
