"""Alternating rounds, the figures computed from them, and the tables."""

import statistics
import sys


def say(text):
    print(text, flush=True)


def progress(text):
    """On a terminal, prints a line that the next one replaces; elsewhere, nothing."""
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def alternate(title, subjects, rounds):
    """Calls each of the named functions once per round, in alternating order."""
    results = {name: [] for name in subjects}
    for number in range(rounds):
        order = list(subjects) if number % 2 == 0 else list(reversed(subjects))
        for name in order:
            progress(f"{title}: round {number + 1} of {rounds}: {name}")
            results[name].append(subjects[name]())
    progress("")
    return results


def quartiles(values):
    """Lower quartile, median, upper quartile."""
    if len(values) < 2:
        return values[0], values[0], values[0]
    low, middle, high = statistics.quantiles(values, n=4, method="inclusive")
    return low, middle, high


def number(value):
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}" if value < 10 else f"{value:.1f}"


class Report:
    """The figures of one run of one benchmark."""

    def __init__(self, name):
        self.name = name
        self.rows = []
        self.notes = []
        self.reached = True

    def add(self, what, values, aim=None, least=True, unit="", measured="", judged=True):
        """values: one for each round. aim: lower (least) or upper bound for the median."""
        low, middle, high = quartiles(values)
        verdict = ""
        if aim is not None:
            verdict = f"{'≥' if least else '≤'} {number(aim)}{unit}"
            if judged:
                good = middle >= aim if least else middle <= aim
                verdict += " reached" if good else " MISSED"
                self.reached = self.reached and good
        spread = "" if len(values) < 2 else f"{number(low)} to {number(high)}"
        self.rows.append((what, measured, number(middle) + unit, spread, verdict))
        say("  " + ", ".join(part for part in (f"{what}: {number(middle)}{unit}",
                                               spread, measured, verdict) if part))

    def note(self, sentence):
        self.notes.append(sentence)
        say("  " + sentence)

    def compare(self, what, results, subject, baseline, aim=None, unit="/s", judged=True, least=True,
                inverse=False):
        """The ratios of two subjects per round. inverse: ratios of costs, computed from rates."""
        pairs = zip(results[subject], results[baseline])
        ratios = [b / a if inverse else a / b for a, b in pairs]
        measured = (f"{number(statistics.median(results[subject]))} : "
                    f"{number(statistics.median(results[baseline]))} {unit}")
        self.add(what, ratios, aim, least, "", measured, judged)

    def table(self):
        """The rows in Markdown."""
        lines = ["| what | measured | figure | quartiles | aim |", "| --- | --- | --- | --- | --- |"]
        lines += ["| " + " | ".join(row) + " |" for row in self.rows]
        return "\n".join(lines + ([""] + self.notes if self.notes else [])).rstrip("\n") + "\n"
