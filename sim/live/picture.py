"""Draws a timeline of the demo: the whole run, the outage, a burst of requests through the queue and one of them alone.
Every line is a message, at the times at which it was sent and received."""

import statistics

import matplotlib.pyplot as plt
from drawing import AMBER, BLUE, GREEN, INK, PALE, RED, STYLE, save
from timeline import DOWN, EVENTS, UP

LANES = {"application": 2, "library": 1, "service": 0}


def draw(timeline, path):
    with plt.rc_context(STYLE | {"axes.spines.left": False}):
        figure = plt.figure(figsize=(9.4, 8.9))
        whole(figure.add_axes((0.09, 0.685, 0.895, 0.22)), timeline)
        outage(figure.add_axes((0.09, 0.395, 0.895, 0.19)), timeline)
        burst(figure.add_axes((0.205, 0.05, 0.32, 0.26)), timeline)
        alone(figure.add_axes((0.68, 0.05, 0.305, 0.26)), timeline)
        legend = {"Java to the service": GREEN, "the service to Java": AMBER, "the library's own": BLUE, "lost": RED}
        figure.legend([plt.Line2D([], [], color=colour, linewidth=1.6) for colour in legend.values()], legend.keys(),
                      ncols=4, loc="upper right", bbox_to_anchor=(0.99, 1.0), handlelength=1.4)
        save(figure, path)


def lanes(axes, timeline, scale, begin, end):
    """The lanes, as long as their processes live, and every message between them. Answers with the place of a time."""
    def at(when):
        return (when - begin) / scale

    def bar(name, left, right, colour):
        axes.plot([at(left), at(right)], [LANES[name]] * 2, color=colour, linewidth=3.4, solid_capstyle="butt",
                  zorder=3)

    for name, lane in LANES.items():
        axes.text(-0.01, lane, name, transform=axes.get_yaxis_transform(), ha="right", va="center")
        for born, died in timeline.lives("service" if name == "service" else "application").values():
            bar(name, max(born, begin), min(died, end), INK)
    # Without a service the library is pale.
    bound = [when for when, _, _, text in timeline.instants if text == "bound"]
    unbound = [born for born, _ in timeline.lives("application").values()]
    unbound += [way.event.begin for way in timeline.ways if way.name == EVENTS[DOWN]]
    for left, right in zip(unbound, bound):
        bar("library", max(left, begin), max(min(right, end), begin), PALE)
    lines, lost = {}, []
    for way in timeline.ways:
        goal = way.java or way.served
        if way.sent and goal and begin < goal.begin and way.sent.begin < end:
            start, colour = source(timeline, way)
            lines.setdefault(colour, []).append(((at(way.sent.begin), start), (at(goal.begin), lane_of(timeline, way))))
        elif way.sent and not goal and begin < way.sent.begin < end:
            lost.append((at(way.sent.begin), 0.3))
    for span in timeline.spans:  # what the library refused
        if span.name.startswith("JniHelper.send") and not timeline.inner(span) and begin < span.begin < end:
            lost.append((at(span.begin), LANES["library"] + 0.08))
    lines[RED] = [((when, LANES["application"]), (when, lane)) for when, lane in lost]
    for colour, each in lines.items():  # one path for all
        axes.plot([x for ends in each for x in (ends[0][0], ends[1][0], None)],
                  [y for ends in each for y in (ends[0][1], ends[1][1], None)], color=colour, linewidth=0.55, zorder=2)
    axes.plot([when for when, _ in lost], [lane for _, lane in lost], "x", color=RED, markersize=4, zorder=4)
    for way in timeline.ways:  # what Java is told of the service
        if way.name in (EVENTS[UP], EVENTS[DOWN]) and way.java and begin < way.java.begin < end:
            axes.annotate("", (at(way.java.begin), LANES["application"]), (at(way.event.begin), LANES["library"]),
                          arrowprops={"arrowstyle": "-|>", "color": BLUE, "linewidth": 1.4, "shrinkA": 0, "shrinkB": 0})
    axes.set(xlim=(0, at(end)), ylim=(-0.35, 2.4), yticks=[])
    return at


def source(timeline, way):
    """The lane of a message's sender, and its colour."""
    if timeline.processes[way.sent.pid] == "service":
        return LANES["service"], AMBER
    by_java = way.sent.outer and way.sent.outer.name.startswith("JniHelper.")
    return (LANES["application"], GREEN) if by_java else (LANES["library"], BLUE)


def lane_of(timeline, way):
    if way.java:
        return LANES["application"]
    return LANES["library" if timeline.processes[way.served.pid] == "application" else "service"]


def whole(axes, timeline):
    end = max(died for role in ("service", "application") for _, died in timeline.lives(role).values())
    at = lanes(axes, timeline, 1000, 0, end)
    chapters = [(when, text) for when, text in timeline.chapters if when < end]
    times = [when for when, _ in chapters] + [end]
    for number, (left, right, (_, text)) in enumerate(zip(times, times[1:], chapters)):
        axes.axvspan(at(left), at(right), color="white" if number % 2 else "#f1f4f8", zorder=0)
        wide = right - left > end / 4
        axes.text(at((left + right) / 2 if wide else left), 2.5 + number % 3 * 0.24, text, fontsize=7.5,
                  ha="center" if wide else "left" if left < end * 0.85 else "right")
    axes.set_title("The whole run", pad=34)
    axes.set_xlabel("milliseconds since the service was started", labelpad=2)


def outage(axes, timeline):
    (_, killed), (reborn, _) = list(timeline.lives("service").values())[:2]
    told = {way.name: way for way in timeline.ways if way.name in (EVENTS[UP], EVENTS[DOWN])}  # the last of each
    down, up = told[EVENTS[DOWN]].java.begin, told[EVENTS[UP]].java.begin
    margin = max(4000, (up - killed) * 0.6)
    at = lanes(axes, timeline, 1000, killed - margin, up + margin)
    axes.axvspan(at(killed), at(up), color="#fdecec", zorder=0)
    axes.plot(at(killed), 0, "X", color=RED, markersize=9, zorder=5)
    for when, lane, side, colour, text in (
            (killed, -0.22, "right", RED, "SIGKILL"), (reborn, -0.22, "left", INK, "started again"),
            (down, 2.22, "right", INK, f"Java is told false {(down - killed) / 1000:.1f} ms after the kill "),
            (up, 2.22, "left", INK, f" Java is told true {(up - reborn) / 1000:.1f} ms after the start")):
        axes.text(at(when), lane, text, ha=side, va="center", fontsize=7.5, color=colour)
    axes.set_title("The outage: what Java reports in it is lost", pad=8)
    axes.set_xlabel("milliseconds; the library is pale while it is bound to no service", labelpad=2)


def burst(axes, timeline):
    """Requests that were sent faster than Java took them."""
    chapter = [when for when, text in timeline.chapters if text.startswith(("3", "4"))]
    ways = [way for way in timeline.ways if way.sent and way.java and chapter[0] <= way.sent.begin < chapter[1]]
    ways = [way for at, way in enumerate(ways) if all(way.name != earlier.name for earlier in ways[:at])]
    begin = min(way.sent.begin for way in ways)
    for row, way in enumerate(ways):
        for left, right, colour, width in ((way.sent.begin, way.event.begin, AMBER, 1),
                                           (way.event.begin, way.event.end, BLUE, 3.4),
                                           (way.java.begin, way.java.end, GREEN, 3.4)):
            axes.plot([(left - begin) / 1000, (right - begin) / 1000], [row] * 2, color=colour, linewidth=width,
                      solid_capstyle="butt")
        axes.plot((way.sent.begin - begin) / 1000, row, "o", color=AMBER, markersize=2.4)
        axes.text(-0.02, row, way.name, fontsize=6, ha="right", va="center", transform=axes.get_yaxis_transform())
    axes.set(yticks=[], ylim=(len(ways) - 0.4, -0.6), xlim=(0, None))
    axes.set_title(f"{len(ways)} requests at once: sent, queued, called one at a time", x=-0.36, pad=8)
    axes.set_xlabel("milliseconds since the first was sent", labelpad=2)


def alone(axes, timeline):
    """A request that met an empty queue: the one of the median time from send to Java's return."""
    chapter = [when for when, text in timeline.chapters if text.startswith("5")]
    ways = [way for way in timeline.ways if way.sent and way.java and way.sent.begin > chapter[0]]
    times = [way.java.end - way.sent.begin for way in ways]
    way = ways[times.index(statistics.median_low(times))]
    begin = way.sent.begin
    steps = [(span.name, span, BLUE) for span in timeline.inner(way.event) if span.kind == "step"]
    rows = [("the service sends", way.sent, AMBER), ("queued, answered", way.served, AMBER),
            ("dispatch thread", way.event, BLUE), *steps, ("Java's method", way.java, GREEN)]
    for row, (text, span, colour) in enumerate(rows):
        axes.barh(row, max(span.end - span.begin, 0.5), left=span.begin - begin, height=0.62, color=colour)
        axes.text(-0.03, row, text, fontsize=7, ha="right", va="center", transform=axes.get_yaxis_transform())
        axes.annotate(f"{span.end - span.begin:.0f}", (span.end - begin, row), xytext=(3, 0),
                      textcoords="offset points", fontsize=7, va="center")
    axes.set(yticks=[], ylim=(len(rows) - 0.4, -0.6), xlim=(0, (way.java.end - begin) * 1.12))
    axes.set_title(f"One alone: {way.java.end - begin:.0f} µs, the median of {len(ways)}", x=-0.3, pad=8)
    axes.set_xlabel("microseconds since it was sent", labelpad=2)
