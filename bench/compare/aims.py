"""The aims, set before the first measurement, and whether they are met."""

import statistics

from results import PLACES, number, table

ONE_CORE = [place for place in PLACES if place[1] == "one core"]


class Aim:
    """A bound for the ratios of two libraries, in all measured works of some kinds."""

    def __init__(self, text, kinds, bound, library="ours", other="bare libzmq", places=PLACES):
        self.text, self.kinds, self.bound, self.library, self.other, self.places = text, kinds, bound, library, other, places

    def figures(self, runs):
        """Work and place, figure, rounds, whether the aim is met, and the distance to it. Compares figures as printed."""
        for work in runs.works():
            if not any(kind in work for kind in self.kinds):
                continue
            for place in self.places:
                ratio = runs.ratio(work, place, self.library, self.other)
                if ratio:
                    figure = round(ratio.middle, 2)
                    off = figure - self.bound if ratio.less_is_better else self.bound - figure
                    yield f"{work}; {', '.join(place)}", f"{figure:.2f}", ratio.rounds, off <= 0, off


AIMS = [
    Aim("round trips on one core take at most 1.05 times as long as on bare libzmq",
        ["control round trip", "command to notification"], 1.05, places=ONE_CORE),
    Aim("lists of 1: at least 0.9 times as many messages as on bare libzmq", [", lists of 1,"], 0.9),
    Aim("lists of 100: at least 0.95 times as many messages as on bare libzmq", [", lists of 100,"], 0.95),
    # Less than 1, because figures have two decimals.
    Aim("control round trips take less time than gRPC's unary calls", ["control round trip"], 0.99, other="gRPC"),
    Aim("lists of 1: at least 4 times as many messages as on a gRPC stream", [", lists of 1,"], 4, other="gRPC"),
    Aim("lists of 1: at least 1.7 times as many messages as on a buffered gRPC stream", [", lists of 1,"], 1.7,
        other="gRPC, buffered"),
    Aim("lists of 100: as many messages as on a buffered gRPC stream", [", lists of 100,"], 1, other="gRPC, buffered"),
]

MOST_GROWTH = 1.1
MOST_IDLE_PERCENT, MOST_MEBIBYTES = 3, 1.5


def growth_figures(runs):
    by_engines = runs.growth()
    first = by_engines.get(2, {}).get("ours")
    for engines, both in by_engines.items():
        if not first or engines == 2 or "ours" not in both:
            continue
        pairs = list(zip(both["ours"].values("hostMicroseconds"), first.values("hostMicroseconds")))
        figure = round(statistics.median(many / one for many, one in pairs), 2)
        yield f"{engines} engines", f"{figure:.2f}", len(pairs), figure <= MOST_GROWTH, figure - MOST_GROWTH


def remote_figures(entries, what, most, unit, scale=1):
    for entry in entries:
        if entry["engines"] == 100 and entry["results"]:
            figure = statistics.median(result[what] for result in entry["results"]) / scale
            yield "100 engines", f"{number(figure)} {unit}", len(entry["results"]), figure <= most, figure - most


def judged(text, figures):
    """A row of the table, and the rounds of its figures. None if nothing of it was measured."""
    figures = list(figures)
    if not figures:
        return None
    missed = [f"{where}: {figure}" for where, figure, _, met, _ in figures if not met]
    worst = max(figures, key=lambda figure: figure[-1])
    return [text, f"{len(figures) - len(missed)} of {len(figures)}", worst[1], "<br>".join(missed) or "–"], [
        rounds for _, _, rounds, _, _ in figures]


def aims(runs, remote_entries):
    """The table, or None if no aim was measured."""
    rows = [judged(aim.text, aim.figures(runs)) for aim in AIMS] + [
        judged(f"a command costs the host at most {MOST_GROWTH} times the processor time that it costs with two engines, "
               "with up to 200", growth_figures(runs)),
        judged(f"100 idle engines take their host at most {MOST_IDLE_PERCENT} % of a core",
               remote_figures(remote_entries, "idleCorePercent", MOST_IDLE_PERCENT, "%")),
        judged(f"an engine takes its host at most {MOST_MEBIBYTES} MiB of resident memory",
               remote_figures(remote_entries, "residentKibibytes", MOST_MEBIBYTES, "MiB", 1024))]
    rows = [row for row in rows if row]
    if not rows:
        return None
    return table(["aim", "met in", "worst", "missed in"], [row for row, _ in rows], sum((rounds for _, rounds in rows), []))
