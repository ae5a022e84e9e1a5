#!/usr/bin/env python3
"""Makes tables and plots of what the program "compare" has measured.

Ratios are taken within each round, where both sides met the same moments of the machine; what stands first is their
median, and behind it their quartiles. Writes DOCUMENT between its two marks, and the plots into the folder beside it that
bears its name.
"""

import argparse
import collections
import json
import pathlib
import statistics

import matplotlib

matplotlib.use("svg")
# The same results give the same files.
matplotlib.rcParams.update({"svg.hashsalt": "compare", "font.size": 9, "axes.grid": True, "grid.alpha": 0.3,
                            "axes.spines.top": False, "axes.spines.right": False})
import matplotlib.pyplot as plt  # noqa: E402: the kind of file is chosen first

BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"
ROUND_TRIPS = ("control round trip", "command to notification round trip")
PLACES = [("ipc", "one core"), ("ipc", "free"), ("tcp", "one core"), ("tcp", "free")]
ROUND_TRIP_PLACES = [(transport, cores) for transport in ("ipc", "tcp") for cores in ("one core", "a core each", "free")]
COLOURS = {"ours": "#c0392b", "bare libzmq": "#2c3e50", "gRPC": "#2980b9", "gRPC, buffered": "#7fb3d5",
           "gRPC client stream": "#16a085", "gRPC client stream, buffered": "#76d7c4", "in-process": "#999999"}


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
        """What is done, whoever does it and wherever."""
        text = self.measure
        if not self.is_round_trip:
            text += f", lists of {self.perList}"
        if self.measure != "control round trip":
            text += ", 5 parameters" if self.withParameters else ", no parameters"
        return text


class Runs:
    def __init__(self, entries):
        self.all = [Run(entry) for entry in entries]
        self.planned = {(run.work, run.transport, run.cores, run.library): run for run in self.all if run.engines == 1}

    def works(self):
        """What everybody does, and not only to show growth."""
        return list(dict.fromkeys(run.work for run in self.all if run.engines == 1 and any(
            self.of(run.work, place, "gRPC") for place in PLACES)))

    def of(self, work, place, library):
        return self.planned.get((work, *place, library))

    def ratio(self, work, place, library, other):
        """How many times as long a round trip takes, or how many times as many messages pass."""
        one, two = self.of(work, place, library), self.of(work, place, other)
        if not one or not two:
            return "–"
        what = "p50" if one.is_round_trip else "perSecond"
        low, middle, high = quartiles([a / b for a, b in zip(one.values(what), two.values(what))])
        return f"**{middle:.2f}** ({low:.2f}–{high:.2f})"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def ratios(runs, other, chosen):
    places = [", ".join(place) for place in PLACES]
    return table(["ours beside " + other] + places, [
        [work] + [runs.ratio(work, place, "ours", other) for place in PLACES] for work in runs.works() if chosen(work, other)])


def figures(runs, place):
    rows = []
    for work in runs.works():
        for library in COLOURS:
            run = runs.of(work, place, library)
            if not run:
                continue
            speed = (f"{number(run.median('p50'))} µs, p99 {number(run.median('p99'))} µs" if run.is_round_trip
                     else f"{run.median('perSecond') / 1e6:.3f} M/s")
            rows.append([work, library, speed, number(run.median("hostMicroseconds")),
                         number(run.median("engineMicroseconds")) if library != "in-process" else "–"])
    return table(["work", "carried by", "median", "host, µs of a core each", "engine, µs of a core each"], rows)


def placements(runs, works):
    """What the cores are that the two processes have."""
    rows = []
    for work in works:
        ours = [runs.of(work, place, "ours") for place in ROUND_TRIP_PLACES]
        rows.append([work] + [f"{number(run.median('p50'))} µs" if run else "–" for run in ours])
    return table(["ours, median"] + [", ".join(place) for place in ROUND_TRIP_PLACES], rows)


def remote_engines(entries):
    rows = []
    for entry in entries:
        values = {what: statistics.median(result[what] for result in entry["results"]) for what in entry["results"][0]}
        rows.append([str(entry["engines"]), f"{values['wiredMilliseconds']:.0f} ms",
                     f"{values['residentKibibytes'] / 1024:.2f} MiB" if entry["engines"] > 1 else "–",
                     f"{values['idleCorePercent']:.2f} %", f"{values['idleSwitchesPerSecond']:.0f}"])
    return table(["remote engines in one host", "submitted to wired", "resident memory of the host for each",
                  "idle: of one core", "idle: wake-ups each second"], rows)


def save(figure, folder, name):
    figure.tight_layout()
    figure.savefig(folder / f"{name}.svg", metadata={"Date": None})
    plt.close(figure)


def plot_round_trips(runs, works, folder):
    figure, axes = plt.subplots(1, len(works), figsize=(4 * len(works), 3.2), squeeze=False)
    for axis, work in zip(axes[0], works):
        libraries = [library for library in ("ours", "bare libzmq", "gRPC") if runs.of(work, PLACES[0], library)]
        for index, library in enumerate(libraries):
            present = [(at, runs.of(work, place, library)) for at, place in enumerate(ROUND_TRIP_PLACES)]
            present = [(at, run) for at, run in present if run]
            axis.bar([at + 0.27 * index for at, _ in present], [run.median("p50") for _, run in present], 0.25,
                     color=COLOURS[library], label=library)
            axis.plot([at + 0.27 * index for at, _ in present], [run.median("p99") for _, run in present], "_k")
        axis.set_xticks([at + 0.27 for at in range(len(ROUND_TRIP_PLACES))], [f"{a}\n{b}" for a, b in ROUND_TRIP_PLACES],
                        fontsize=7)
        axis.set_title(work, fontsize=9)
        axis.set_yscale("log")
        axis.set_ylim(bottom=10)
        axis.set_ylabel("µs: median, and p99 (dash)")
    axes[0][0].legend(fontsize=7)
    save(figure, folder, "round-trips")


def plot_throughput(runs, folder):
    figure, axes = plt.subplots(2, 2, figsize=(9, 6.4), squeeze=False)
    for row, measure in enumerate(("commands", "notifications")):
        for column, with_parameters in enumerate((False, True)):
            axis = axes[row][column]
            for library, colour in COLOURS.items():
                chosen = sorted((run for run in runs.planned.values() if (
                    run.measure, run.withParameters, run.library, run.transport, run.cores)
                    == (measure, with_parameters, library, "ipc", "one core")), key=lambda run: run.perList)
                if chosen:
                    axis.plot([run.perList for run in chosen], [run.median("perSecond") / 1e6 for run in chosen], "o-",
                              markersize=3, linewidth=1, color=colour, label=library)
            axis.set_xscale("log")
            axis.set_yscale("log")
            axis.set_xlabel(f"{measure} in a list")
            axis.set_ylabel("million a second")
            axis.set_title(f"{measure}, {'5' if with_parameters else 'no'} parameters; ipc, one core", fontsize=9)
    axes[0][0].legend(fontsize=7)
    save(figure, folder, "throughput")


def plot_growth(runs, folder):
    by_engines = [run for run in runs.all if run.measure == "commands" and run.perList == 10 and not run.withParameters
                  and (run.transport, run.cores) == ("ipc", "one core")]
    by_size = [run for run in runs.all if run.measure == "commands" and run.engines == 1 and not run.withParameters
               and (run.transport, run.cores) == ("ipc", "one core")]
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.2))
    for axis, chosen, what, label in ((axes[0], by_engines, "engines", "engines in one host, lists of 10"),
                                      (axes[1], by_size, "perList", "commands in a list, one engine")):
        for library in ("ours", "bare libzmq"):
            line = sorted((run for run in chosen if run.library == library), key=lambda run: getattr(run, what))
            for side, style in (("hostMicroseconds", "o-"), ("engineMicroseconds", "s--")):
                axis.plot([getattr(run, what) for run in line], [run.median(side) for run in line], style, markersize=3,
                          linewidth=1, color=COLOURS[library], label=f"{library}, {side.removesuffix('Microseconds')}")
        axis.set_xscale("log")
        axis.set_ylim(bottom=0)
        axis.set_xlabel(label)
        axis.set_ylabel("µs of a core for each command")
    axes[0].legend(fontsize=7)
    save(figure, folder, "growth")


def growth(runs):
    engines = collections.defaultdict(dict)
    for run in runs.all:
        if run.measure == "commands" and run.perList == 10 and not run.withParameters and (
                run.transport, run.cores) == ("ipc", "one core") and run.library in ("ours", "bare libzmq"):
            engines[run.engines][run.library] = run
    rows = []
    for count, both in sorted(engines.items()):
        row = [str(count)]
        for library in ("ours", "bare libzmq"):
            run = both.get(library)
            row += [f"{run.median('perSecond') / 1e6:.3f} M/s", number(run.median("hostMicroseconds")),
                    number(run.median("engineMicroseconds"))] if run else ["–"] * 3
        rows.append(row)
    return table(["engines", "ours", "host, µs each", "engine, µs each", "bare libzmq", "host, µs each", "engine, µs each"],
                 rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("results", type=pathlib.Path, help="the JSON file that compare has written")
    parser.add_argument("document", type=pathlib.Path, help="the Markdown file with the two marks")
    arguments = parser.parse_args()
    report = json.loads(arguments.results.read_text())
    runs = Runs(report["runs"])
    folder = arguments.document.with_suffix("")
    folder.mkdir(exist_ok=True)

    machine = report["machine"]
    sections = [f"{machine['processor']}, {machine['cores']} cores, {machine['system']}; {machine['compiler']}, libzmq "
                f"{machine['libzmq']}, protobuf {machine['protobuf']}, gRPC {machine['gRPC']}; {report['rounds']} rounds."]

    def always(_work, _other):
        return True

    def has_variant(work, other):
        return any(runs.of(work, place, other) for place in PLACES)

    if runs.works():
        sections += ["## Ours beside bare libzmq and protobuf",
                     "Round trips: how many times as long, so that less is better. Lists: how many times as many messages a "
                     "second, so that more is better. Medians of the rounds' ratios, quartiles in brackets.",
                     ratios(runs, "bare libzmq", always),
                     "## Ours beside gRPC",
                     "As above. Without buffering each list is written at once; with it, a list may wait for the next.",
                     ratios(runs, "gRPC", always),
                     ratios(runs, "gRPC, buffered", has_variant),
                     ratios(runs, "gRPC client stream, buffered", has_variant)]
    # A part of the plan may have no work of a kind.
    round_trips = [work for work in runs.works() if work.startswith(ROUND_TRIPS)]
    if round_trips:
        sections += ["## Where the processes run", placements(runs, round_trips),
                     f"![Round trips]({folder.name}/round-trips.svg)"]
        plot_round_trips(runs, round_trips, folder)
    if len(round_trips) < len(runs.works()):
        sections.append(f"![Throughput]({folder.name}/throughput.svg)")
        plot_throughput(runs, folder)
    if report["remote engines"]:
        sections += ["## A host with many remote engines", remote_engines(report["remote engines"])]
    if any(run.engines > 1 for run in runs.all):
        sections += ["## Growth", growth(runs), f"![Growth]({folder.name}/growth.svg)"]
        plot_growth(runs, folder)
    if runs.works():
        sections += ["## All figures on one core, over ipc", figures(runs, ("ipc", "one core")),
                     "## All figures on free cores, over ipc", figures(runs, ("ipc", "free"))]

    text = arguments.document.read_text()
    before, _, rest = text.partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        raise SystemExit(f"report: \"{arguments.document}\" lacks the marks {BEGIN} and {END}")
    arguments.document.write_text(before + BEGIN + "\n\n" + "\n\n".join(sections) + "\n\n" + END + after)


if __name__ == "__main__":
    main()
