#!/usr/bin/env python3
"""Lens data generator of the zoom camera module.

Builds, from one model of the lens, every piece of lens data the system ships:

  motor/tracking_tables.cpp           the zoom-focus tracking tables of the 4.71 mm and
                                      4.49 mm lens (rows by zoom multiple x 10)
  twin/module/lens_model_data.cpp     the knots of the model, for the twin's true lens
  data/zy_240408_tvk_update.csv       the default lens table (170 rows by zoom multiple,
                                      107 columns by subject distance)
  twin/module/pd_conversion_data.cpp  the sensor's true PD conversion and the module's
                                      calibrated DCC values, for the twin's sensor
  data/0416_-1930_-1960               the default DCC file: the 48 calibrated DCC values,
                                      big-endian 16-bit, knot by knot (96 bytes)

Run it by hand after changing the model; the build does not run it. `--check` writes
everything into a temporary directory and compares it with the committed files (exit 1
on any difference), so a test guards that the committed data is what this script makes.
Every run also checks the data it makes (check_* below: the published rows kept exactly,
rows monotone and inside the motors' ranges, the lens table's end rows and its agreement
with the tracking table, the DCC values' range, error and smoothness) and fails on a
violation, so the committed data holds those properties too.

The model
---------
Only a few rows of the tracking tables are published (the "telling rows" below); the rest
come from a monotone model through them, which keeps them exactly.

* The lens state is the zoom motor position. The two tables sample one physical lens at
  different multiples; what they share is the effective focal length (EFL, 0.01 mm):
  their rows at EFL 1976 and 4943 are identical. So all published rows of both tables
  become knots of one lens, sorted by zoom position (six distinct knots).
* Between the knots, the EFL and each focus column are monotone piecewise-cubic
  (Fritsch-Carlson / PCHIP) functions of the zoom position. PCHIP passes through every
  knot and keeps each curve monotone, so zoom falls and focus falls as the multiple rises.
  Beyond the outer knots (the last ~100 zoom steps at the wide end, ~40 at the tele end)
  each curve continues along the secant of its end interval.
* A table row for multiple key k: the nominal EFL of the key is a PCHIP of that table's
  published (key, EFL) points; the zoom position is where the lens has that EFL, rounded
  to a whole step (the position the motor really goes to); the focus columns are the
  model's focus steps at that whole zoom position, rounded. At the published keys this
  gives back the published rows exactly.

Subject distance
----------------
The focus columns 3..8 are named "100", "10", "50", "30", "20", "15" (metres) while their
values rise from column 3 to column 8 in every row. The names are kept as they are (the
motor driver's lookup reads them so). Physically the focus step rises as the subject comes
closer, so the physical lens reads the six values as the six distances in falling order:
column 3 is 100 m, then 50, 30, 20, 15 and column 8 is 10 m. Between those distances the
step is linear in 1/distance (the thin-lens law: image shift in proportion to 1/u); beyond
them (nearer than 10 m, farther than 100 m, up to infinity) it continues linearly in
1/distance at the average rate of the six columns, (step at 10 m - step at 100 m) / 0.09.

PD conversion (DCC)
-------------------
The sensor reports a phase difference (PD) per window; the defocus library turns it into
a defocus of DCC x PD in 1/16384 focus step, with the DCC interpolated over 8 x 6 knots
at x = 264 + 496 i, y = 260 + 496 j of the 4000 x 3000 sensor. Phase-detection pixels see
the exit pupil more obliquely towards the edges, so more defocus goes with one PD unit
there: the module's calibration is radial, 1930 at the optical centre (2000, 1500)
rising with the squared normalised radius to 1960 at the corner knots (the DCC file's
name tells that range). The unit's true conversion differs from its calibration by a
tilt of the lens against the sensor, 1.2 % across the width (larger on the right), so the
calibrated values match the truth within a few per cent, as a real module's do.

Lens table CSV
--------------
170 lines, one per multiple x1.0 .. x17.9 (row r is multiple 1.0 + 0.1 r), of 107 integers:
  column 0        the row's label, the multiple x 10 (r + 10); not a focus step
  columns 1..100  the in-focus step for a subject at 1..100 m
  columns 101..105 the in-focus step at 200, 300, 400, 500 and 600 m
  column 106      the smallest step of the row, the lower end of its focus range: the
                  in-focus step at infinity less an over-infinity margin of 50 steps, so
                  that a unit whose lens sits a little lower still reaches far focus
The rows use the 4.49 mm lens (the table the motor driver loads) and its zoom positions;
multiples outside its range x3.5 .. x11.0 (the motor driver clamps to it) repeat the row
of the nearest end. Steps outside the focus motor's mechanical range (the lens cannot
focus a subject that close, at the wide end) are clamped to the range.
"""

import argparse
import filecmp
import math
import os
import sys
import tempfile

FOCUS_MIN, FOCUS_MAX = -2574, 3022
ZOOM_MIN, ZOOM_MAX = -5430, 1606

COLUMN_NAMES = ("100", "10", "50", "30", "20", "15")
# Physical subject distance of focus columns 3..8, in metres (see "Subject distance").
COLUMN_DISTANCES_M = (100.0, 50.0, 30.0, 20.0, 15.0, 10.0)

# The published rows: key (multiple x 10), EFL (0.01 mm), zoom position, focus 3..8.
PUBLISHED = {
    "471": [
        (33, 1552, 1504, (2820, 2832, 2845, 2863, 2885, 2907)),
        (42, 1976, -32, (2103, 2118, 2136, 2159, 2188, 2217)),
        (70, 3298, -3024, (-14, 13, 42, 82, 131, 179)),
        (105, 4943, -5392, (-2452, -2413, -2370, -2314, -2243, -2173)),
    ],
    "449": [
        (35, 1573, 1416, (2784, 2797, 2810, 2828, 2851, 2873)),
        (44, 1976, -32, (2103, 2118, 2136, 2159, 2188, 2217)),
        (74, 3326, -3072, (-57, -30, 0, 40, 89, 138)),
        (110, 4943, -5392, (-2452, -2413, -2370, -2314, -2243, -2173)),
    ],
}
LENS_NAMES = {"471": "4.71mm", "449": "4.49mm"}

TABLE_ROWS = 80
CSV_ROWS = 170
CSV_DISTANCES_M = [float(c) for c in range(1, 101)] + [200.0, 300.0, 400.0, 500.0, 600.0]
OVER_INFINITY_MARGIN = 50
CSV_LENS = "449"

GENERATOR = "tools/lensdata/generate.py"
TRACKING_TABLES = "motor/tracking_tables.cpp"
LENS_MODEL_DATA = "twin/module/lens_model_data.cpp"
LENS_TABLE_CSV = "data/zy_240408_tvk_update.csv"
PD_CONVERSION_DATA = "twin/module/pd_conversion_data.cpp"
DCC_FILE = "data/0416_-1930_-1960"

DCC_KNOTS_X = [264 + 496 * i for i in range(8)]
DCC_KNOTS_Y = [260 + 496 * j for j in range(6)]
DCC_CENTRE = (2000.0, 1500.0)
DCC_AT_CENTRE = 1930.0
DCC_RISE_TO_CORNER = 15.0  # per unit of squared normalised radius; the corners are at 2
DCC_TILT = 0.012           # true / calibrated - 1 at the right-most knots


def round_half_up(value):
    """Whole step nearest to value, halves upwards (the same in every language)."""
    return int(math.floor(value + 0.5))


class Pchip:
    """Monotone piecewise-cubic Hermite curve through (xs, ys), xs strictly rising.

    Knot slopes by Fritsch-Carlson (weighted harmonic mean inside, the shape-preserving
    three-point formula at the ends). Outside the knots: the secant of the end interval.
    twin/module/lens_model.cpp evaluates the same curve; keep the two in step."""

    def __init__(self, xs, ys):
        if len(xs) != len(ys) or len(xs) < 3:
            raise ValueError("a curve needs at least three knots")
        if any(b <= a for a, b in zip(xs, xs[1:])):
            raise ValueError("knots must rise strictly")
        self.xs = [float(x) for x in xs]
        self.ys = [float(y) for y in ys]
        n = len(xs)
        h = [self.xs[k + 1] - self.xs[k] for k in range(n - 1)]
        delta = [(self.ys[k + 1] - self.ys[k]) / h[k] for k in range(n - 1)]
        slopes = [0.0] * n
        for k in range(1, n - 1):
            if delta[k - 1] * delta[k] > 0:
                w1 = 2 * h[k] + h[k - 1]
                w2 = h[k] + 2 * h[k - 1]
                slopes[k] = (w1 + w2) / (w1 / delta[k - 1] + w2 / delta[k])
        slopes[0] = self._end_slope(h[0], h[1], delta[0], delta[1])
        slopes[-1] = self._end_slope(h[-1], h[-2], delta[-1], delta[-2])
        self.h, self.delta, self.slopes = h, delta, slopes

    @staticmethod
    def _end_slope(h0, h1, d0, d1):
        slope = ((2 * h0 + h1) * d0 - h0 * d1) / (h0 + h1)
        if slope * d0 <= 0:
            return 0.0
        if d0 * d1 < 0 and abs(slope) > 3 * abs(d0):
            return 3 * d0
        return slope

    def __call__(self, x):
        xs, ys = self.xs, self.ys
        if x <= xs[0]:
            return ys[0] + self.delta[0] * (x - xs[0])
        if x >= xs[-1]:
            return ys[-1] + self.delta[-1] * (x - xs[-1])
        k = 0
        while x > xs[k + 1]:
            k += 1
        h = self.h[k]
        t = (x - xs[k]) / h
        return ((1 + 2 * t) * (1 - t) * (1 - t) * ys[k] + t * (1 - t) * (1 - t) * h * self.slopes[k] +
                t * t * (3 - 2 * t) * ys[k + 1] + t * t * (t - 1) * h * self.slopes[k + 1])


class LensModel:
    """The one physical lens behind every table."""

    def __init__(self, published):
        by_zoom = {}
        for rows in published.values():
            for _key, efl, zoom, focus in rows:
                knot = (efl, tuple(focus))
                if by_zoom.setdefault(zoom, knot) != knot:
                    raise ValueError(f"two published rows at zoom {zoom} disagree")
        self.zoom_knots = sorted(by_zoom)
        self.efl_knots = [by_zoom[z][0] for z in self.zoom_knots]
        self.focus_knots = [[by_zoom[z][1][c] for z in self.zoom_knots] for c in range(6)]
        self.efl = Pchip(self.zoom_knots, self.efl_knots)
        self.focus_columns = [Pchip(self.zoom_knots, ys) for ys in self.focus_knots]
        self.inverse_distances = [1.0 / d for d in COLUMN_DISTANCES_M]

    def zoom_position_for_efl(self, efl):
        """Zoom position at which the lens has this EFL (the EFL falls as zoom rises)."""
        low, high = float(ZOOM_MIN), float(ZOOM_MAX)
        for _ in range(200):
            middle = 0.5 * (low + high)
            if self.efl(middle) > efl:
                low = middle
            else:
                high = middle
        return 0.5 * (low + high)

    def in_focus_focus_step(self, zoom, distance_m):
        """In-focus focus step of the lens alone; math.inf is a subject at infinity."""
        columns = [curve(zoom) for curve in self.focus_columns]
        xs = self.inverse_distances  # rising: 1/100 .. 1/10
        x = 0.0 if math.isinf(distance_m) else 1.0 / distance_m
        if xs[0] <= x <= xs[-1]:
            k = 0
            while x > xs[k + 1]:
                k += 1
            t = (x - xs[k]) / (xs[k + 1] - xs[k])
            return columns[k] + t * (columns[k + 1] - columns[k])
        rate = (columns[-1] - columns[0]) / (xs[-1] - xs[0])
        if x < xs[0]:
            return columns[0] + rate * (x - xs[0])
        return columns[-1] + rate * (x - xs[-1])


def tracking_rows(model, published):
    """All rows of one tracking table: [key, EFL, zoom, focus 3..8]."""
    keys = [row[0] for row in published]
    nominal_efl = Pchip(keys, [row[1] for row in published])
    rows = []
    for key in range(keys[0], keys[-1] + 1):
        efl = nominal_efl(key)
        zoom = round_half_up(model.zoom_position_for_efl(efl))
        focus = [round_half_up(curve(zoom)) for curve in model.focus_columns]
        rows.append([key, round_half_up(efl), zoom] + focus)
    by_key = {row[0]: row for row in rows}
    for key, efl, zoom, focus in published:
        if by_key[key] != [key, efl, zoom] + list(focus):
            raise ValueError(f"published row {key} not kept: {by_key[key]}")
    return rows


def lens_table(model, rows):
    """The 170 rows of the lens table CSV from the rows of one tracking table."""
    zoom_by_key = {row[0]: row[2] for row in rows}
    first, last = rows[0][0], rows[-1][0]
    table = []
    for r in range(CSV_ROWS):
        label = r + 10
        zoom = zoom_by_key[min(max(label, first), last)]
        steps = [model.in_focus_focus_step(zoom, d) for d in CSV_DISTANCES_M]
        steps.append(model.in_focus_focus_step(zoom, math.inf) - OVER_INFINITY_MARGIN)
        table.append([label] + [min(max(round_half_up(s), FOCUS_MIN), FOCUS_MAX) for s in steps])
    return table


def check_tracking_rows(rows):
    for row in rows:
        if not ZOOM_MIN <= row[2] <= ZOOM_MAX:
            raise ValueError(f"zoom out of range in row {row}")
        if any(not FOCUS_MIN <= v <= FOCUS_MAX for v in row[3:]):
            raise ValueError(f"focus out of range in row {row}")
        if any(b <= a for a, b in zip(row[3:], row[4:])):
            raise ValueError(f"focus columns not rising in row {row}")
    for above, below in zip(rows, rows[1:]):
        if any(b >= a for a, b in zip(above[2:], below[2:])):
            raise ValueError(f"row {below[0]} does not fall from row {above[0]}")


def check_lens_table(table, tracking):
    """The lens table against its own rules and the tracking table it is made from."""
    if len(table) != CSV_ROWS or any(len(row) != 107 for row in table):
        raise ValueError("the lens table must be 170 rows of 107 values")
    for r, row in enumerate(table):
        steps = row[1:]
        if row[0] != r + 10 or any(not FOCUS_MIN <= s <= FOCUS_MAX for s in steps):
            raise ValueError(f"bad lens table row {r}: {row}")
        if any(b > a for a, b in zip(steps, steps[1:])):
            raise ValueError(f"lens table row {r} rises with distance")
    for r in range(1, CSV_ROWS):
        if any(b > a for a, b in zip(table[r - 1][1:], table[r][1:])):
            raise ValueError(f"lens table row {r} rises with the multiple")
    # Multiples outside the lens repeat its end rows; at the tracking table's distances
    # (columns 10, 15, 20, 30, 50, 100 m) the values are the table's own.
    first, last = tracking[0][0], tracking[-1][0]
    for r, row in enumerate(table):
        end = table[min(max(r + 10, first), last) - 10]
        if row[1:] != end[1:]:
            raise ValueError(f"lens table row {r} is not its lens row")
    for key, _efl, _zoom, *focus in tracking:
        for distance, step in zip(COLUMN_DISTANCES_M, focus):
            if table[key - 10][int(distance)] != step:
                raise ValueError(f"lens table disagrees with the tracking table at key {key}")


def dcc_knots():
    """Per knot, row by row: (calibrated DCC as stored, true DCC of the unit)."""
    half_x = DCC_KNOTS_X[-1] - DCC_CENTRE[0]
    half_y = DCC_KNOTS_Y[-1] - DCC_CENTRE[1]
    knots = []
    for y in DCC_KNOTS_Y:
        for x in DCC_KNOTS_X:
            dx, dy = (x - DCC_CENTRE[0]) / half_x, (y - DCC_CENTRE[1]) / half_y
            calibrated = DCC_AT_CENTRE + DCC_RISE_TO_CORNER * (dx * dx + dy * dy)
            knots.append((round_half_up(calibrated), calibrated * (1.0 + DCC_TILT * dx)))
    return knots


def check_dcc_knots(knots):
    """The calibrated values lie in the DCC file's range, within a few per cent of the truth
    but not the truth itself, and vary smoothly over the grid (row neighbours within 10)."""
    if len(knots) != 48:
        raise ValueError("the DCC grid has 48 knots")
    for stored, true in knots:
        if not 1930 <= stored <= 1960 or abs(true / stored - 1.0) > 0.03:
            raise ValueError(f"DCC knot out of its range: {stored}, {true}")
        if stored == round_half_up(true):
            raise ValueError(f"DCC knot {stored} is the truth itself, not a calibration")
    for k in range(48):
        if k % 8 != 7 and abs(knots[k][0] - knots[k + 1][0]) > 10:
            raise ValueError(f"DCC knots {k} and {k + 1} differ by more than 10")


HEADER_NOTE = "Generated by " + GENERATOR + " from the lens model: do not edit by hand."


def render_tracking_tables(tables):
    out = [
        f"// {HEADER_NOTE}",
        "// The zoom-focus tracking tables of the 4.71 mm and the 4.49 mm lens. Column 0 is the",
        "// multiple x 10, 1 the focal length in 0.01 mm, 2 the zoom position, 3..8 the focus",
        "// positions for the distances named by the column names. Rows beyond the row count and",
        "// the tenth column are zero.",
        '#include "zoomaf/lib_motor.h"',
        "",
        'extern "C" {',
    ]
    for lens, rows in tables.items():
        names = ", ".join(f'"{n}"' for n in (LENS_NAMES[lens], "EFL", "zoom") + COLUMN_NAMES)
        out += [
            "",
            f"const uint16_t rows_{lens} = {len(rows)};",
            f"const uint16_t column_{lens} = 9;",
            f"const uint8_t distance_unit_{lens} = 0;",
            f"const uint8_t data_len_{lens} = 8;",
            f"const char column_name_{lens}[TRACKING_TABLE_COLUMNS][TRACKING_NAME_LENGTH] = {{",
            f"    {names}}};",
            f"const int16_t focus_zoom_data_{lens}[TRACKING_TABLE_ROWS][TRACKING_TABLE_COLUMNS] = {{",
        ]
        out += ["    {" + ", ".join(str(v) for v in row) + "}," for row in rows]
        out.append("};")
    out += ["", '}  // extern "C"', ""]
    return "\n".join(out)


def render_lens_model_data(model):
    def doubles(values):
        return "{" + ", ".join(repr(float(v)) for v in values) + "}"

    out = [
        f"// {HEADER_NOTE}",
        "// The knots of the twin's true lens: the published tracking-table rows of both lenses,",
        "// by zoom position, and the physical subject distance of each focus column.",
        '#include "twin/module/lens_model.hpp"',
        "",
        "namespace zoomaf::twin {",
        "",
        "const LensKnots kLensKnots = {",
        f"    .zoom_steps = {doubles(model.zoom_knots)},",
        f"    .efl = {doubles(model.efl_knots)},",
        f"    .distance_m = {doubles(COLUMN_DISTANCES_M)},",
        "    .focus_steps = {{",
    ]
    out += [f"        {doubles(ys)}," for ys in model.focus_knots]
    out += [
        "    }},",
        "};",
        "",
        "}  // namespace zoomaf::twin",
        "",
    ]
    return "\n".join(out)


def render_pd_conversion_data(knots):
    def numbers(values, per_line):
        lines = []
        for i in range(0, len(values), per_line):
            lines.append("        " + ", ".join(values[i:i + per_line]) + ",")
        return lines

    out = [
        f"// {HEADER_NOTE}",
        "// The twin sensor's true PD conversion and the module's calibrated DCC values, knot by",
        "// knot (8 columns by 6 rows, row by row).",
        '#include "twin/module/pd_conversion.hpp"',
        "",
        "namespace zoomaf::twin {",
        "",
        "const PdConversionKnots kPdConversionKnots = {",
        "    .x = {" + ", ".join(repr(float(x)) for x in DCC_KNOTS_X) + "},",
        "    .y = {" + ", ".join(repr(float(y)) for y in DCC_KNOTS_Y) + "},",
        "    .true_dcc = {",
    ]
    out += numbers([repr(true) for _stored, true in knots], 4)
    out.append("    },")
    out.append("    .calibrated_dcc = {")
    out += numbers([str(stored) for stored, _true in knots], 8)
    out += [
        "    },",
        "};",
        "",
        "}  // namespace zoomaf::twin",
        "",
    ]
    return "\n".join(out)


def render_dcc_file(knots):
    return b"".join(stored.to_bytes(2, "big") for stored, _true in knots)


def render_csv(table):
    return "".join(",".join(str(v) for v in row) + "\n" for row in table)


def generate(root):
    model = LensModel(PUBLISHED)
    tables = {lens: tracking_rows(model, rows) for lens, rows in PUBLISHED.items()}
    for rows in tables.values():
        if len(rows) > TABLE_ROWS:
            raise ValueError("too many rows for the table")
        check_tracking_rows(rows)
    table = lens_table(model, tables[CSV_LENS])
    check_lens_table(table, tables[CSV_LENS])
    knots = dcc_knots()
    check_dcc_knots(knots)
    files = {
        TRACKING_TABLES: render_tracking_tables(tables),
        LENS_MODEL_DATA: render_lens_model_data(model),
        LENS_TABLE_CSV: render_csv(table),
        PD_CONVERSION_DATA: render_pd_conversion_data(knots),
        DCC_FILE: render_dcc_file(knots),
    }
    for path, content in files.items():
        full = os.path.join(root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        if isinstance(content, bytes):
            with open(full, "wb") as f:
                f.write(content)
        else:
            with open(full, "w", encoding="ascii", newline="\n") as f:
                f.write(content)
    return sorted(files)


def main():
    repo = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    parser = argparse.ArgumentParser(description="Generate the lens data from the lens model.")
    parser.add_argument("--check", action="store_true",
                        help="compare freshly generated files with the committed ones")
    parser.add_argument("--root", default=repo, help="repository root (default: %(default)s)")
    args = parser.parse_args()
    if not args.check:
        for path in generate(args.root):
            print(f"wrote {path}")
        return 0
    with tempfile.TemporaryDirectory() as scratch:
        differing = [p for p in generate(scratch)
                     if not os.path.exists(os.path.join(args.root, p)) or
                     not filecmp.cmp(os.path.join(scratch, p), os.path.join(args.root, p),
                                     shallow=False)]
    for path in differing:
        print(f"{path} differs from what {GENERATOR} makes")
    if differing:
        return 1
    print("lens data is up to date")
    return 0


if __name__ == "__main__":
    sys.exit(main())
