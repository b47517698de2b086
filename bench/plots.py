"""Draws what bench.py has measured, each figure beside its floor of the same run."""

import statistics

import matplotlib.pyplot as plt
from drawing import AMBER, BLUE, GREEN, GREY, STYLE, VIOLET, save

LIBRARY, FLOOR = BLUE, GREY
PARTS = {"queued and taken": AMBER, "attach": BLUE, "look up": VIOLET, "call and detach": GREEN}


def draw(samples, folder):
    """Three files: latencies.svg, call-out.svg, queue.svg."""
    folder.mkdir(parents=True, exist_ok=True)
    with plt.rc_context(STYLE):
        for name, figure in (("latencies", latencies(samples["latencies"])), ("call-out", parts(samples["parts"])),
                             ("queue", queue(samples["queue"], samples["instructions"]))):
            save(figure, folder / f"{name}.svg")


def latencies(measured):
    """The share that has arrived after so long."""
    ways = list(dict.fromkeys(way for way, _, _ in measured))
    figure, panels = plt.subplots(1, 2, figsize=(9.4, 3.6), sharey=True, layout="constrained")
    for panel, way in zip(panels, ways):
        for (of, state, side), values in measured.items():
            if of == way:
                ordered = [value / 1000 for value in sorted(values)]
                median = ordered[len(ordered) // 2]
                panel.plot(ordered, [100 * (at + 1) / len(ordered) for at in range(len(ordered))], linewidth=1.4,
                           color=LIBRARY if side == "library" else FLOOR, linestyle="-" if state == "idle" else "--",
                           label=f"{side}, {state}: half within {median:.0f} µs")
        panel.set(xscale="log", xlabel="microseconds", title=f"From {way}", ylim=(0, 100.5))
        panel.xaxis.set_major_formatter("{x:g}")
        panel.grid(axis="both")
        panel.legend(loc="lower right", fontsize=7)
    panels[0].set_ylabel("% arrived")
    return figure


def parts(measured):
    """The medians of what a call-out consists of."""
    figure, panel = plt.subplots(figsize=(9.4, 2.2), layout="constrained")
    for row, side in enumerate(("library", "floor")):
        left = 0
        for part, (name, shade) in enumerate(PARTS.items()):
            value = statistics.median(each[part] for each in measured[side]) / 1000
            panel.barh(row, value, left=left, color=shade, height=0.55, label=name if row == 0 else None)
            if value > 0.6:
                panel.text(left + value / 2, row, f"{value:.1f}", ha="center", va="center", color="white")
            left += value
        panel.text(left + 0.2, row, f"{left:.1f} µs", va="center")
    panel.set(yticks=(0, 1), yticklabels=("library", "floor"), ylim=(1.5, -0.5), xlabel="microseconds, medians")
    panel.set_title("A call-out on a real Java VM, by its parts")
    panel.legend(loc="upper center", bbox_to_anchor=(0.5, -0.3), ncols=4)
    panel.margins(x=0.1)
    return figure


def queue(times, instructions):
    figure, (left, right) = plt.subplots(1, 2, figsize=(9.4, 3.2), layout="constrained")
    for (side, producers), values in times.items():
        left.plot(list(values), list(values.values()), "o-" if producers == 1 else "s--", markersize=4, linewidth=1.4,
                  color=LIBRARY if side == "library" else FLOOR,
                  label=f"{side}, {producers} producer{'s' if producers > 1 else ''}")
    left.set_title("An event pushed and drained: time")
    left.set_ylabel("nanoseconds")
    right.plot(list(instructions), list(instructions.values()), "o-", markersize=4, linewidth=1.4, color=LIBRARY,
               label="library, with its log line")
    right.axhline(instructions[min(instructions)], color=FLOOR, linewidth=1.4, label="of a queue of 1,000")
    right.set_title("… and instructions")
    for panel in (left, right):
        panel.set(xscale="log", xlabel="events in the queue")
        panel.set_ylim(0, panel.get_ylim()[1] * 1.15)
        panel.xaxis.set_major_formatter("{x:,.0f}")
        panel.grid()
        panel.legend(fontsize=7)
    return figure
