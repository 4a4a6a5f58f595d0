#!/usr/bin/env python3
"""zoomaf-scenario on two scenes of the gallery: the summary agrees with the trace, the same
seed gives the same bytes, a bad scene file is refused with its place, and the runner leaves
no System V object and no sandbox file behind.

    scenario_runner_test.py [EMULATOR...] RUNNER
"""
import csv
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

RUNNER = sys.argv[1:]
SCENES = pathlib.Path(__file__).resolve().parents[2] / "scenes"


def run(*args, sandbox=None):
    env = dict(os.environ, **({"TMPDIR": str(sandbox)} if sandbox else {}))
    process = subprocess.Popen(RUNNER + [str(a) for a in args], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, env=env)
    out, err = process.communicate(timeout=300)
    return process.pid, process.returncode, out, err


def sysv_objects_of(pid):
    """The shared memory segments a process created and the semaphore sets it set or used."""
    found = []
    with open("/proc/sysvipc/shm") as table:
        fields = next(table).split()
        for line in table:
            row = dict(zip(fields, line.split()))
            if int(row["cpid"]) == pid:
                found.append(f"segment {row['shmid']}")
    listing = subprocess.run(["ipcs", "-s"], capture_output=True, text=True, check=True).stdout
    for line in listing.splitlines():
        words = line.split()
        if len(words) > 1 and words[1].isdigit():
            detail = subprocess.run(["ipcs", "-s", "-i", words[1]], capture_output=True,
                                    text=True).stdout
            # semnum value ncount zcount pid: the last process that set or operated on it
            if any(w[-1] == str(pid) for w in map(str.split, detail.splitlines()) if len(w) == 5):
                found.append(f"semaphore set {words[1]}")
    return found


class RunnerOnTheGallery(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.dir = pathlib.Path(cls.tmp.name)
        cls.runs = {}
        for scene in ("walk_in", "night_laser"):
            sandbox = cls.dir / f"sandbox-{scene}"
            sandbox.mkdir()
            pid, status, out, err = run(SCENES / f"{scene}.yaml", "--out", cls.dir / scene,
                                        "--quiet", sandbox=sandbox)
            cls.runs[scene] = (pid, status, err, sandbox)

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def outputs(self, scene):
        pid, status, err, _ = self.runs[scene]
        self.assertEqual(status, 0, err)
        with open(self.dir / scene / "trace.csv", newline="") as f:
            rows = list(csv.DictReader(f))
        return json.loads((self.dir / scene / "summary.json").read_text()), rows

    def test_summary_agrees_with_the_trace(self):
        for scene in self.runs:
            with self.subTest(scene=scene):
                summary, rows = self.outputs(scene)
                self.assertEqual(summary["scene"], scene)
                segments = summary["segments"]
                self.assertEqual(sum(s["passes"] for s in segments), len(rows))
                first = 0
                for s in segments:
                    self.check_segment(s, rows[first:first + s["passes"]], rows[first + s["passes"]:],
                                       first == 0)
                    first += s["passes"]

    def check_segment(self, s, passes, later, at_start):
        self.assertTrue(passes, s)
        t = [float(r["t_s"]) for r in passes]
        # A moment's calls come before its segment's first pass, which lists its changes.
        self.assertGreaterEqual(t[0], s["start_s"])
        self.assertEqual(bool(passes[0]["event"]) or at_start, True, s)
        self.assertFalse(any(r["event"] for r in passes[1:]), s)
        last = passes[-1]
        for key in ("mode", "day_night"):
            self.assertEqual(s[key], last[key], s)
        self.assertEqual(f'{s["multiple"]:.2f}', last["multiple"])
        self.assertEqual(s["focus_step"], int(last["focus_step"]))
        self.assertAlmostEqual(s["true_focus_step"], float(last["true_focus_step"]), delta=0.05)
        self.assertAlmostEqual(s["error_steps"], s["focus_step"] - s["true_focus_step"], delta=0.1)

        locked = [r["locked"] == "1" for r in passes]
        self.assertEqual(s["locked"], locked[-1], s)
        k = s["passes_to_lock"]
        if not s["locked"]:
            self.assertIsNone(k)
            self.assertIsNone(s["lock_s"])
        else:
            self.assertTrue(all(locked[max(k - 1, 0):]), s)
            if k > 1:
                self.assertFalse(locked[k - 2], s)
                # The lock pass ends where the next pass begins.
                ends = t[k] if k < len(t) else float(later[0]["t_s"]) if later else None
                if ends is not None:
                    self.assertAlmostEqual(s["start_s"] + s["lock_s"], ends, delta=0.002)
            if k == 0:
                self.assertEqual(s["lock_s"], 0)

        # The first pass's move is not in the trace (a call may have moved the lens before it).
        steps = [int(r["focus_step"]) for r in passes]
        moves = sum(a != b for a, b in zip(steps, steps[1:]))
        self.assertGreaterEqual(s["focus_moves"], moves, s)
        self.assertLessEqual(s["focus_moves"], moves + 1, s)
        self.assertLessEqual(s["direction_reversals"], max(s["focus_moves"] - 1, 0), s)

    def test_same_seed_same_bytes(self):
        self.outputs("walk_in")
        trace = (self.dir / "walk_in" / "trace.csv").read_bytes()
        for seed, same in ((11, True), (12, False)):  # 11 is the scene's own
            out = self.dir / f"walk_in-{seed}"
            _, status, _, err = run(SCENES / "walk_in.yaml", "--out", out, "--seed", seed,
                                    "--quiet")
            self.assertEqual(status, 0, err)
            self.assertEqual((out / "trace.csv").read_bytes() == trace, same, seed)

    def test_leaves_nothing_behind(self):
        for scene, (pid, status, err, sandbox) in self.runs.items():
            with self.subTest(scene=scene):
                self.assertEqual(status, 0, err)
                self.assertEqual(list(sandbox.iterdir()), [])
                self.assertEqual(sysv_objects_of(pid), [])

    def test_a_bad_scene_file_is_refused_with_its_place(self):
        bad = self.dir / "bad.yaml"
        bad.write_text("name: bad\nwindows:\n  - {index: 48, distance_m: 3}\n")
        _, status, out, err = run(bad, "--out", self.dir / "bad")
        self.assertEqual(status, 2)
        self.assertIn(f"{bad}:3:", err)
        self.assertIn("window index 48 is outside 0 .. 47", err)
        self.assertFalse((self.dir / "bad").exists())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
