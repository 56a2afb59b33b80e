"""The picture of a soak: what the broker held and what was seen of it, over time, with the faults behind it."""
import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402  (needs the choice above)

PALETTE = ("#4c72b0", "#dd8452", "#55a868", "#c44e52", "#8172b3", "#937860", "#da8bc3", "#8c8c8c", "#ccb974",
           "#64b5cd", "#222222")
FRESH_MS = 2000


def draw(path, samples, seconds, spans):
    """samples and seconds as in results.json; spans: rules.FaultSpan."""
    if not samples:
        return
    begin = samples[0]["tick"]
    figure, rows = pyplot.subplots(5, 1, sharex=True, figsize=(16, 13), layout="constrained")

    beside = {"loc": "upper left", "bbox_to_anchor": (1.005, 1), "borderaxespad": 0}  # never over the data

    def minutes(ticks):
        return [(tick - begin) / 60_000 for tick in ticks]

    def held(axes, key, label, **style):
        have = [sample for sample in samples if key in sample]
        axes.plot(minutes(sample["tick"] for sample in have), [sample[key] for sample in have], label=label,
                  linewidth=1, **style)

    rows[0].plot(minutes(sample["tick"] for sample in samples), [sample["dirtyKib"] / 1024 for sample in samples],
                 linewidth=1, color="#222222")
    rows[0].set_ylabel("private dirty\nmemory [MiB]")
    held(rows[1], "handles", "handles")
    held(rows[1], "threads", "threads")
    rows[1].set_ylabel("handles, threads\n[count]")
    rows[1].legend(**beside)
    held(rows[2], "gdi", "GDI objects", color="#222222")
    rows[2].set_ylabel("GDI objects\n[count]")
    ordered = sorted(seconds, key=lambda second: second["tick"])
    rows[3].plot(minutes(second["tick"] for second in ordered), [second["frames"] for second in ordered], ".",
                 markersize=3, color="#222222")
    rows[3].axhline(16, color="#888888", linewidth=0.8, linestyle="--")
    rows[3].set_ylim(bottom=0)
    rows[3].set_ylabel("pictures read\n[1/s]")
    seen = [second for second in ordered if second["ageMs"] >= 0]
    rows[4].plot(minutes(second["tick"] for second in seen), [second["ageMs"] for second in seen], ".", markersize=3,
                 color="#999999", label="newest picture\nthat was read")
    rows[4].plot(minutes(second["tick"] for second in ordered), [second["liveAgeMs"] for second in ordered], ".",
                 markersize=4, color="#c44e52", label="oldest update\nthat was Live")
    rows[4].axhline(FRESH_MS, color="#c44e52", linewidth=0.8, linestyle="--")
    rows[4].set_ylabel("age [ms]")
    rows[4].set_yscale("symlog", linthresh=100)
    rows[4].set_ylim(bottom=0)
    rows[4].legend(**beside)
    rows[4].set_xlabel("time [minutes]")
    colours = dict(zip(sorted({span.kind for span in spans}), PALETTE))
    for axes in rows:
        axes.grid(alpha=0.3)
        for span in spans:
            axes.axvspan(*minutes((span.begin_ms, max(span.end_ms, span.begin_ms + 300))), alpha=0.35, linewidth=0,
                         color=colours[span.kind])
    marks = [pyplot.Rectangle((0, 0), 1, 1, color=colour, alpha=0.5) for colour in colours.values()]
    rows[0].legend(marks, colours, loc="lower center", bbox_to_anchor=(0.5, 1.02), ncol=6,
                   title="what was done to the camera")
    figure.savefig(path, dpi=80)
