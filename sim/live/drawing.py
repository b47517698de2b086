"""How pictures look, and how one is written: as a small SVG with its text as text, in the style of each other."""

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402

GREEN, AMBER, BLUE, VIOLET, RED = "#2a9d5c", "#e08a00", "#2f6fb5", "#7b4fb0", "#d1242f"
INK, GREY, PALE = "#24292f", "#9aa4b0", "#d7dce2"
STYLE = {
    "svg.fonttype": "none", "svg.hashsalt": "orvix", "font.family": "sans-serif", "font.size": 8,
    "text.color": INK, "axes.labelcolor": INK, "xtick.color": INK, "ytick.color": INK, "axes.edgecolor": PALE,
    "axes.spines.top": False, "axes.spines.right": False, "figure.facecolor": "white", "legend.frameon": False,
    "axes.titlesize": 9, "axes.titleweight": "bold", "axes.titlelocation": "left", "grid.color": "#e8ebef",
}


def save(figure, path):
    figure.savefig(path, format="svg", metadata={"Date": None, "Creator": None})
    plt.close(figure)
