"""What the program "compare" has measured, and how it is put into words and tables.

Ratios are taken within each round, where both sides met the same moments of the machine.
"""

import statistics

ROUND_TRIPS = ("control round trip", "command to notification round trip")
PLACES = [("ipc", "one core"), ("ipc", "free"), ("tcp", "one core"), ("tcp", "free")]
ROUND_TRIP_PLACES = [(transport, cores) for transport in ("ipc", "tcp") for cores in ("one core", "a core each", "free")]


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0], values[0]
    low, middle, high = statistics.quantiles(values, n=4, method="inclusive")
    return low, middle, high


def number(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


class Run:
    def __init__(self, entry):
        self.__dict__.update(entry["case"])
        self.results = entry["results"]

    def values(self, what):
        return [result[what] for result in self.results]

    def median(self, what):
        return statistics.median(self.values(what))

    @property
    def is_round_trip(self):
        return self.measure in ROUND_TRIPS

    @property
    def work(self):
        """The work, whatever the library and the place."""
        text = self.measure
        if not self.is_round_trip:
            text += f", lists of {self.perList}"
        if self.measure != "control round trip":
            text += ", 5 parameters" if self.withParameters else ", no parameters"
        return text


class Ratio:
    """The ratio of durations of round trips, or of messages per second, of two runs of the same work."""

    def __init__(self, one, other):
        what = "p50" if one.is_round_trip else "perSecond"
        pairs = list(zip(one.values(what), other.values(what)))
        self.rounds = len(pairs)
        self.less_is_better = one.is_round_trip
        self.low, self.middle, self.high = quartiles([a / b for a, b in pairs])

    @property
    def is_behind(self):
        """Whether both quartiles show the first one behind."""
        return self.low > 1 if self.less_is_better else self.high < 1

    def __str__(self):
        return f"**{self.middle:.2f}** ({self.low:.2f}–{self.high:.2f})"


class Runs:
    def __init__(self, entries):
        self.all = [Run(entry) for entry in entries if entry["results"]]
        self.planned = {(run.work, run.transport, run.cores, run.library): run for run in self.all if run.engines == 1}

    def works(self):
        """The works of all libraries, except those that only measure growth."""
        return list(dict.fromkeys(run.work for run in self.all if run.engines == 1 and any(
            self.of(run.work, place, "gRPC") for place in PLACES)))

    def of(self, work, place, library):
        return self.planned.get((work, *place, library))

    def ratio(self, work, place, library, other):
        """None if it was not measured."""
        one, two = self.of(work, place, library), self.of(work, place, other)
        return Ratio(one, two) if one and two else None

    def growth(self):
        """Runs of ours and bare libzmq that differ in the number of engines only, by that number and by library.

        From two engines on: a run of one takes turns with other carriers, and finds the caches as those have left them.
        """
        engines = {}
        for run in self.all:
            if run.engines > 1 and (run.measure, run.perList, run.withParameters, run.transport, run.cores) == (
                    "commands", 10, False, "ipc", "one core") and run.library in ("ours", "bare libzmq"):
                engines.setdefault(run.engines, {})[run.library] = run
        return dict(sorted(engines.items()))


def table(head, rows, rounds):
    """`rounds` has the number of rounds of each figure; the table states them."""
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    few, many = min(rounds), max(rounds)
    return "\n".join(lines) + f"\n\nRounds: {few}{f' to {many}' if many > few else ''}."
