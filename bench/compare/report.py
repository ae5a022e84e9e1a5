#!/usr/bin/env python3
"""Makes tables and plots from the results of the program "compare".

Ratios are taken within each round, because both sides then ran under the same conditions. Each is printed as its median, with
its quartiles in brackets. Writes the tables between the two marks of DOCUMENT, and the plots into the folder beside it with the
same name.
"""

import argparse
import json
import pathlib
import statistics

import matplotlib

from aims import aims
from results import PLACES, ROUND_TRIP_PLACES, ROUND_TRIPS, Runs, number, table

matplotlib.use("svg")
# The same results produce identical files.
matplotlib.rcParams.update({"svg.hashsalt": "compare", "font.size": 9, "axes.grid": True, "grid.alpha": 0.3,
                            "axes.spines.top": False, "axes.spines.right": False})
import matplotlib.pyplot as plt  # noqa: E402: the kind of file is chosen first

BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"
COLOURS = {"ours": "#c0392b", "bare libzmq": "#2c3e50", "bare libzmq, guarded": "#8395a7",
           "bare libzmq, plain values": "#b08968", "gRPC": "#2980b9", "gRPC beside a stream": "#1f618d",
           "gRPC, buffered": "#7fb3d5",
           "gRPC client stream": "#16a085", "gRPC client stream, buffered": "#76d7c4", "in-process": "#999999"}


def spread(values, show):
    """The median, with minimum and maximum: there are too few values for quartiles."""
    return f"{show(statistics.median(values))} ({show(min(values))}–{show(max(values))})"


def ratios(runs, pairs, places=PLACES):
    """A row for each (name, work, library, other) with at least one result."""
    rows, rounds = [], []
    for name, work, library, other in pairs:
        row = [runs.ratio(work, place, library, other) for place in places]
        if any(row):
            rows.append([name] + [str(ratio) if ratio else "–" for ratio in row])
            rounds += [ratio.rounds for ratio in row if ratio]
    return rows, rounds


def beside(runs, other):
    """Ours beside another library for each work, and a list of where ours is behind. Empty if that was not measured."""
    rows, rounds = ratios(runs, [(work, work, "ours", other) for work in runs.works()])
    if not rows:
        return []
    behind = []
    for work in runs.works():
        found = [(place, runs.ratio(work, place, "ours", other)) for place in PLACES]
        where = [f"{', '.join(place)} ({ratio.middle:.2f})" for place, ratio in found if ratio and ratio.is_behind]
        if where:
            behind.append(f"- {work}: {'; '.join(where)}")
    sections = [table(["ours beside " + other] + [", ".join(place) for place in PLACES], rows, rounds)]
    if behind:
        sections += [f"Both quartiles show ours behind {other} in:", "\n".join(behind)]
    else:
        sections.append(f"Nowhere do both quartiles show ours behind {other}.")
    return sections


def streams(runs):
    """Whether ours or a gRPC stream is faster in round trips on free cores."""
    found = [(f"{work.removeprefix('command to notification round trip, ')}, {place[0]}: {ratio.middle:.2f}", ratio.middle)
             for work in runs.works() if work.startswith("command to notification") for place in PLACES
             if place[1] == "free" and (ratio := runs.ratio(work, place, "ours", "gRPC"))]
    if not found:
        return []
    figures = "; ".join(text for text, _ in found)
    longer = sum(figure > 1 for _, figure in found)
    claim = ("A gRPC stream is faster than ours" if longer == len(found) else "Ours is faster than a gRPC stream"
             if longer == 0 else "Neither ours nor a gRPC stream is always the faster one")
    return [f"{claim} in round trips of a command and its notification on free cores. Duration of ours, as a multiple of "
            f"gRPC's: {figures}."]


def extras(runs):
    """The cost of guarantees, and of framework objects."""
    guarded, plain = "bare libzmq, guarded", "bare libzmq, plain values"
    work = "control round trip"
    rows, rounds = ratios(runs, [(f"{one} beside {other}", work, one, other) for one, other in (
        (guarded, "bare libzmq"), ("ours", guarded))])
    sections = []
    places = [", ".join(place) for place in PLACES]
    if rows:
        sections += ["## What guarantees cost",
                     "With guarantees, a bare requester can send another request after a missing reply, recognises late replies, "
                     "and notices a dead peer within 3 s, as ours does.", table([work] + places, rows, rounds)]
    rows, rounds = ratios(runs, [(work, work, "ours", plain) for work in runs.works()])
    if rows:
        sections += ["## What framework objects cost",
                     "Plain values are written directly into protobuf messages and read from them. Neither side creates "
                     "collections of parameters, and the receiver creates no command or notification objects. Ours creates "
                     "all of these, because the framework's interfaces require them.",
                     table(["ours beside " + plain] + places, rows, rounds)]
    return sections


def figures(runs, place):
    rows, rounds = [], []
    for work in runs.works():
        for library in COLOURS:
            run = runs.of(work, place, library)
            if not run:
                continue
            speed = (f"{number(run.median('p50'))} µs, p99 {number(run.median('p99'))} µs" if run.is_round_trip
                     else f"{run.median('perSecond') / 1e6:.3f} M/s")
            rows.append([work, library, speed, number(run.median("hostMicroseconds")),
                         number(run.median("engineMicroseconds")) if library != "in-process" else "–"])
            rounds.append(len(run.results))
    return table(["work", "carried by", "median", "host, µs of a core each", "engine, µs of a core each"], rows, rounds)


def placements(runs, works):
    """The effect of the cores that the two processes run on."""
    rows, rounds = [], []
    for work in works:
        ours = [runs.of(work, place, "ours") for place in ROUND_TRIP_PLACES]
        rows.append([work] + [f"{number(run.median('p50'))} µs" if run else "–" for run in ours])
        rounds += [len(run.results) for run in ours if run]
    return table(["ours, median"] + [", ".join(place) for place in ROUND_TRIP_PLACES], rows, rounds)


def remote_engines(entries):
    rows = []
    for entry in entries:
        values = {what: [result[what] for result in entry["results"]] for what in entry["results"][0]}
        kibibytes = values["residentKibibytes"]
        rows.append([str(entry["engines"]), spread(values["wiredMilliseconds"], lambda value: f"{value:.0f}") + " ms",
                     spread([value / 1024 for value in kibibytes], number) + " MiB" if entry["engines"] > 1 else "–",
                     spread(values["idleCorePercent"], number) + " %",
                     spread(values["idleSwitchesPerSecond"], lambda value: f"{value:.0f}")])
    return table(["remote engines in one host", "submitted to wired", "resident memory of the host for each",
                  "idle host: of one core", "idle host: wake-ups each second"], rows,
                 [len(entry["results"]) for entry in entries])


def growth(runs):
    rows, rounds = [], []
    for count, both in runs.growth().items():
        row = [str(count)]
        for library in ("ours", "bare libzmq"):
            run = both.get(library)
            row += [f"{run.median('perSecond') / 1e6:.3f} M/s", number(run.median("hostMicroseconds")),
                    number(run.median("engineMicroseconds"))] if run else ["–"] * 3
            rounds += [len(run.results)] if run else []
        rows.append(row)
    return table(["engines", "ours", "host, µs each", "engine, µs each", "bare libzmq", "host, µs each", "engine, µs each"],
                 rows, rounds)


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
    by_engines = [run for both in runs.growth().values() for run in both.values()]
    by_size = [run for run in runs.all if run.measure == "commands" and run.engines == 1 and not run.withParameters
               and (run.transport, run.cores) == ("ipc", "one core")]
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.2))
    for axis, chosen, what, label in ((axes[0], by_engines, "engines", "engines in one process, lists of 10"),
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


def sections_of(report, folder):
    machine = report["machine"]
    runs = Runs(report["runs"])
    remote = [entry for entry in report["remote engines"] if entry["results"]]
    sections = [f"{machine['processor']}, {machine['cores']} cores, {machine['system']}; {machine['compiler']}, libzmq "
                f"{machine['libzmq']}, protobuf {machine['protobuf']}, gRPC {machine['gRPC']}."]
    judgement = aims(runs, remote)
    if judgement:
        sections += ["## Aims", "The aims were set before the channels were measured. A cost per command counts as constant if it grows "
                     "by at most a tenth. Each work counts once for each transport and placement of the processes. The "
                     "tables below contain the figures.", judgement]
    if runs.works():
        sections += ["## Ours beside bare libzmq and protobuf",
                     "Round trips: ratio of durations, less is better. Lists: ratio of messages per second, more is better. "
                     "Medians of the rounds' ratios, quartiles in brackets.",
                     *beside(runs, "bare libzmq"), *extras(runs),
                     "## Ours beside gRPC",
                     "The figures are ratios as above. Without buffering, each list is written at once; with it, a list may wait "
                     "for the next.",
                     *streams(runs), *beside(runs, "gRPC"), *beside(runs, "gRPC beside a stream"),
                     *beside(runs, "gRPC, buffered"),
                     *beside(runs, "gRPC client stream, buffered")]
    # A partial run may lack one kind of work.
    round_trips = [work for work in runs.works() if work.startswith(ROUND_TRIPS)]
    if round_trips:
        sections += ["## Where the processes run", placements(runs, round_trips),
                     f"![Round trips]({folder.name}/round-trips.svg)"]
        plot_round_trips(runs, round_trips, folder)
    if len(round_trips) < len(runs.works()):
        sections.append(f"![Throughput]({folder.name}/throughput.svg)")
        plot_throughput(runs, folder)
    if remote:
        sections += ["## A host with many remote engines",
                     "Each engine has its own process. Medians, with minimum and maximum in brackets.",
                     remote_engines(remote)]
    if any(run.engines > 1 for run in runs.all):
        sections += ["## Growth",
                     "All engines of a run are in one engine process, and their front ends in one host process, both on one core, so "
                     "these figures exclude the cost of further processes. Ours and bare libzmq are measured one after the "
                     "other here, not in turns: ignore small differences between them.",
                     growth(runs), f"![Growth]({folder.name}/growth.svg)"]
        plot_growth(runs, folder)
    for place, title in ((("ipc", "one core"), "All figures on one core, over ipc"),
                         (("ipc", "free"), "All figures on free cores, over ipc")):
        if any(runs.of(work, place, library) for work in runs.works() for library in COLOURS):
            sections += ["## " + title, figures(runs, place)]
    return sections


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("results", type=pathlib.Path, help="the JSON file written by compare")
    parser.add_argument("document", type=pathlib.Path, help="the Markdown file with the two marks")
    arguments = parser.parse_args()
    folder = arguments.document.with_suffix("")
    folder.mkdir(exist_ok=True)
    sections = sections_of(json.loads(arguments.results.read_text()), folder)

    text = arguments.document.read_text()
    before, _, rest = text.partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        raise SystemExit(f"report: \"{arguments.document}\" lacks the marks {BEGIN} and {END}")
    arguments.document.write_text(before + BEGIN + "\n\n" + "\n\n".join(sections) + "\n\n" + END + after)


if __name__ == "__main__":
    main()
