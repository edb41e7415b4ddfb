"""Many clients, reloads, the engine, a proxy's helper."""

import os
import resource

from programs import CORES, Client, Ideal, IdleConnections, Katd
from report import alternate
from wire import plural, rate


def run_reload(bench, report):
    items = bench.sizes["largest"]
    questions = bench.builds.questions(items)
    client = Client(bench.builds, 2 * bench.seconds, bench.warm_up, CORES)
    kib = {}
    with Katd(bench.builds, 0, cores=CORES) as katd:
        kib["no list"] = katd.memory("VmRSS")

    with Katd(bench.builds, items, cores=CORES, url_items=bench.sizes["small"]) as katd:
        kib["one list"] = katd.memory("VmRSS")

        def during_reload():
            busy, _ = client.start(katd, questions, 8)
            katd.reload()
            return Client.finish(busy)["p99_us"]

        results = alternate(f"reload, {items:,} items", {
            "reload": during_reload,
            "quiet": lambda: client.ask(katd, questions, 8)["p99_us"],
        }, bench.rounds)
        kib["peak"] = katd.memory("VmHWM")
    report.compare(f"{items:,} items, 8 connections, two cores, p99 during a reload : quiet", results, "reload",
                   "quiet", 2.0, "us", bench.judges, least=False)
    lists = kib["one list"] - kib["no list"]
    report.add("peak memory of the reloads : two lists", [(kib["peak"] - kib["no list"]) / (2 * lists)], 1.02,
               least=False, measured=f"{kib['peak'] - kib['no list']:,} : 2 * {lists:,} KiB", judged=bench.judges)


def run_clients(bench, report):
    small = bench.sizes["small"]
    questions = bench.builds.questions(small)
    client = Client(bench.builds, bench.seconds, bench.warm_up)
    few = 50 if bench.quick else 1000
    many = 200 if bench.quick else 5000
    busy = 8 if bench.quick else 64
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    if hard < many + 100:
        report.note(f"The limit of open files, {hard}, allows only {hard - 100} connections.")
        many = hard - 100

    for bits in bench.bits:
        with Katd(bench.builds, small, bits) as katd:
            before = katd.memory("VmRSS")
            with IdleConnections(client, katd, questions, few) as idle:
                each = (katd.memory("VmRSS") - before) / idle.held
        report.add(f"{bits} bits, resident memory for each of {few:,} idle connections", [each], 24.0, least=False,
                   unit=" KiB", judged=bench.judges)

    for bits in bench.bits:
        with Katd(bench.builds, small, bits) as katd, Ideal(bench.builds, 2, 2, bits=bits) as ideal:
            results = alternate(f"clients, {bits} bits, reconnecting", {
                name: lambda server=server: client.ask(server, questions, options=["--reconnect"])["rate"]
                for name, server in (("katd", katd), ("ideal", ideal))}, bench.rounds)
        report.compare(f"{bits} bits, accepted, asked once and closed, katd : ideal", results, "katd", "ideal")

    for bits in bench.bits:
        with Katd(bench.builds, small, bits) as alone, Katd(bench.builds, small, bits) as crowded:
            with IdleConnections(client, crowded, questions, many) as idle:
                held = idle.held
                results = alternate(f"clients, {bits} bits, {held} idle", {
                    "crowded": rate(client, crowded, questions, busy),
                    "alone": rate(client, alone, questions, busy),
                }, bench.rounds)
        report.compare(f"{bits} bits, {busy} busy connections, beside {held:,} idle ones : alone", results, "crowded",
                       "alone", 0.9, judged=bench.judges)

    wanted = many if bench.quick else min(8000, hard - 100)
    for bits in bench.bits:
        with Katd(bench.builds, small, bits) as katd:
            with IdleConnections(client, katd, questions, wanted) as idle:
                report.add(f"{bits} bits, connections held, of {wanted:,} tried", [idle.held],
                           4000 if bits == 32 else None, judged=bench.judges)


def run_engine(bench, report):
    questions = bench.builds.questions(bench.sizes["small"])
    client = Client(bench.builds, bench.seconds, bench.warm_up)
    misses = os.path.join(bench.data, "misses")
    categories = os.path.join(bench.data, "categories")
    rules = os.path.join(bench.data, "rules")
    with open(questions, encoding="ascii") as file:
        urls = [line.rstrip("\n").split("\t")[1] for line in file][:5000]
    with open(misses, "w", encoding="ascii") as file:
        file.writelines(f"-\t{url}\n" for url in urls)
    with open(categories, "w", encoding="ascii") as file:
        file.writelines(f"12\t{url}\n" for url in urls)
    with open(rules, "w", encoding="ascii") as file:
        file.writelines(f"url {url} 12\n" for url in urls)
    rules = os.path.abspath(rules)
    for what, asked, engine_rules in (("Unknown", misses, ""), ("a category", categories, rules)):
        with Katd(bench.builds, 0, engine_rules=engine_rules) as katd, \
                Ideal(bench.builds, engine_rules=engine_rules) as ideal:
            for connections in (1, 8):
                results = alternate(f"engine, {what}, {connections} connections", {
                    "katd": rate(client, katd, asked, connections),
                    "ideal": rate(client, ideal, asked, connections),
                }, bench.rounds)
                report.compare(f"{plural(connections)}, the engine answers {what}, cost at katd : at a server that "
                               "calls the engine", results, "katd", "ideal", 1.05, judged=bench.judges,
                               least=False, inverse=True)


def run_helper(bench, report):
    client = Client(bench.builds, bench.seconds, bench.warm_up)
    katc = bench.builds.program("client/katc")
    ideal_helper = bench.builds.program("bench/ideal_helper")
    aims = {bench.sizes["small"]: 1.9, bench.sizes["large"]: 1.5}
    with Ideal(bench.builds, 2, 2) as ideal:
        for items, aim in aims.items():
            questions = bench.builds.questions(items)
            lists = [ideal_helper, "--list", bench.builds.list_file("urls", items), "--list",
                     bench.builds.list_file("domains", items)]
            with Katd(bench.builds, items) as katd:
                helper = [katc, "helper", "acl", "--concurrency", "-s", katd.socket]

                def asked(command, window, server=None, questions=questions):
                    return lambda: client.ask_helper(command, questions, window, server)["rate"]

                results = alternate(f"helper, {items:,} items", {
                    "katc helper, 16": asked(helper, 16, katd),
                    "katc helper, 1": asked(helper, 1, katd),
                    "own lists, 16": asked(lists, 16),
                    "own lists, gathering, 16": asked(lists + ["--gather"], 16),
                    "own lists, 1": asked(lists, 1),
                    "ideal": rate(client, ideal, questions),
                }, bench.rounds)
            for name in results:
                if name == "ideal":
                    continue
                program, window = name.rsplit(", ", 1)
                report.compare(f"{items:,} items, {window} under way, {program} : ideal server", results, name,
                               "ideal", aim if name == "katc helper, 16" else None, judged=bench.judges)
    report.note("The ideal server has one connection and makes 2 reads and 2 writes for each request. Helpers with "
                "their own lists write each answer separately or, gathering, all answers to a read at once.")
