#!/usr/bin/python3
"""Draws DIR/focus.png from a scenario run's DIR/trace.csv and DIR/summary.json.

    plot_trace.py DIR

Above: the focus motor's physical step and the true in-focus step of the subject the mode
aims at, over board time (each pass's values from its start; nothing is sampled while an
application call such as a zoom runs), with the scene's moments (dotted lines) and each
segment's lock (triangles, where the lock held from on) marked, and the stretches where the
lock held shaded. Below: the CL of the window the day focus chose and the encoder's fv2.

Needs Debian's python3-matplotlib (scripts/setup installs it); exits 1 with the reason on
its last line when it cannot draw.
"""
import csv
import json
import pathlib
import sys


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: plot_trace.py DIR")
    directory = pathlib.Path(sys.argv[1])
    try:
        import matplotlib

        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError as error:
        sys.exit(f"matplotlib is missing ({error}): install python3-matplotlib")
    try:
        with open(directory / "trace.csv", newline="") as f:
            rows = list(csv.DictReader(f))
        summary = json.loads((directory / "summary.json").read_text())
    except (OSError, ValueError) as error:
        sys.exit(f"cannot read the run in {directory}: {error}")
    if not rows:
        sys.exit("the trace has no pass")

    t = [float(r["t_s"]) for r in rows]
    figure, (top, bottom) = plt.subplots(
        2, 1, sharex=True, figsize=(11, 7), gridspec_kw={"height_ratios": [3, 2]})
    top.step(t, [int(r["focus_step"]) for r in rows], where="post", label="focus step")
    top.step(t, [float(r["true_focus_step"]) for r in rows], "--", where="post",
             label="true in-focus step")
    locked = [r["locked"] == "1" for r in rows]
    for i, is_locked in enumerate(locked):
        if is_locked:
            end = t[i + 1] if i + 1 < len(t) else t[i]
            top.axvspan(t[i], end, color="tab:green", alpha=0.08, linewidth=0)
    # Each moment at its time, named by the changes its first pass lists.
    segments = summary.get("segments", [])
    for segment in segments[1:]:
        at = segment["start_s"]
        text = next((r["event"] for r in rows if float(r["t_s"]) >= at and r["event"]),
                    segment["cause"])
        top.axvline(at, color="grey", linestyle=":", linewidth=1)
        top.annotate(text, (at, 1.0), xycoords=("data", "axes fraction"), rotation=90, va="top",
                     ha="right", fontsize=7, color="dimgrey")
    for segment in segments:
        if segment.get("lock_s") is not None:
            at = segment["start_s"] + segment["lock_s"]
            step = next((int(r["focus_step"]) for r in rows if float(r["t_s"]) >= at),
                        int(rows[-1]["focus_step"]))
            top.plot([at], [step], "v", color="tab:green", markersize=9)
    top.set_ylabel("focus motor step")
    top.legend(loc="lower right", fontsize=8)
    top.set_title(f"{summary.get('scene', directory.name)} (seed {summary.get('seed')}): "
                  f"focus against the truth; dotted: events, shaded: locked, triangles: locks")

    day = [(float(r["t_s"]), int(r["cl"])) for r in rows if r["cl"]]
    if day:
        bottom.plot(*zip(*day), ".", color="tab:purple", markersize=3, label="CL (chosen window)")
    bottom.set_ylabel("CL")
    bottom.set_ylim(0, 2100)
    fv_axis = bottom.twinx()
    fv_axis.step(t, [int(r["fv2"]) for r in rows], where="post", color="tab:orange", linewidth=1,
                 label="fv2")
    fv_axis.set_ylabel("fv2")
    handles = bottom.get_legend_handles_labels()
    more = fv_axis.get_legend_handles_labels()
    bottom.legend(handles[0] + more[0], handles[1] + more[1], loc="lower right", fontsize=8)
    bottom.set_xlabel("board time since start-up (s)")
    figure.tight_layout()
    figure.savefig(directory / "focus.png", dpi=100)


if __name__ == "__main__":
    main()
