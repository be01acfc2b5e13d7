#!/usr/bin/env python3
"""Tests of the table: its arithmetic, its verdicts, going on after an interruption, and the page."""
import importlib.machinery
import importlib.util
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree
from pathlib import Path

sys.dont_write_bytecode = True
HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
import charts  # noqa: E402
import page  # noqa: E402
import rows as table  # noqa: E402
from figures import (AtMost, MoreAtMost, RatioAtMost, TimesFaster, judge, quantile, ratio, ratios, spread,  # noqa: E402
                     text)
from results import Results, parse, read_lines  # noqa: E402


def load_program():
    loader = importlib.machinery.SourceFileLoader("bench_run", str(HERE.parent / "run"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("bench_run", loader))
    loader.exec_module(module)
    return module


class Figures(unittest.TestCase):
    def test_quantiles_are_figures_that_were_measured(self):
        self.assertEqual(quantile([4, 1, 3, 2], 0.25), 1)
        self.assertEqual(quantile([4, 1, 3, 2], 0.75), 3)
        self.assertEqual(quantile([7], 0.25), 7)

    def test_a_ratio_by_zero_is_infinite_unless_both_are_zero(self):
        self.assertEqual(ratio(0, 0), 1)
        self.assertEqual(ratio(1, 0), float("inf"))

    def test_the_ratio_of_sides_is_that_of_their_medians_and_its_spread_that_of_the_pairs(self):
        middle, low, high = ratios([10, 20, 30, 40], [10, 10, 10, 10])
        self.assertEqual((middle, low, high), (2.5, 1, 3))

    def test_figures_have_three_digits_that_count(self):
        self.assertEqual([text(value) for value in (0, 0.1234, 1.234, 12.34, 123.4, 1234.5)],
                         ["0", "0.123", "1.23", "12.3", "123", "1234"])

    def test_a_spread_names_median_smallest_and_largest(self):
        self.assertEqual(spread([3, 1, 2]), "2.00 (1.00 to 3.00)")
        self.assertEqual(spread([5]), "5.00")


class Verdicts(unittest.TestCase):
    def test_a_median_over_its_limit_says_by_how_much(self):
        self.assertEqual(judge([AtMost(100)], [90, 130, 120], {}).words, "missed: median ≤ 100: 120, 20.0 over")
        self.assertEqual(judge([AtMost(120)], [90, 130, 120], {}).words, "met")

    def test_the_worst_figure_has_a_limit_of_its_own(self):
        goals = [AtMost(100), AtMost(125, worst=True)]
        self.assertEqual(judge(goals, [90, 130, 95], {}).words, "missed: worst ≤ 125: 130, 5.00 over")

    def test_each_other_side_counts(self):
        others = {"one": [500, 500, 500], "two": [499, 499, 499]}
        self.assertEqual(judge([TimesFaster(5)], [100, 90, 110], others).words, "missed: 4.99 times two")
        self.assertEqual(judge([TimesFaster(4.9)], [100, 90, 110], others).words, "met")

    def test_only_the_named_sides_count(self):
        others = {"one": [500], "two": [10]}
        self.assertEqual(judge([TimesFaster(1, ("one",))], [100], others).words, "met")

    def test_strictly_faster_is_more_than_equal(self):
        self.assertEqual(judge([TimesFaster(1)], [5], {"one": [5]}).words, "met")
        self.assertTrue(judge([TimesFaster(1, strictly=True)], [5], {"one": [5]}).missed)

    def test_without_other_sides_a_comparison_is_not_met(self):
        self.assertTrue(judge([TimesFaster(5)], [1], {}).missed)
        self.assertTrue(judge([RatioAtMost(2, "bare")], [1], {}).missed)

    def test_ratios_and_differences(self):
        self.assertEqual(judge([RatioAtMost(1.3, "bare")], [13], {"bare": [10]}).words, "met")
        self.assertTrue(judge([RatioAtMost(1.3, "bare")], [13.1], {"bare": [10]}).missed)
        self.assertEqual(judge([MoreAtMost(2, "floor")], [3], {"floor": [1]}).words, "met")
        self.assertTrue(judge([MoreAtMost(2, "floor")], [3.1], {"floor": [1]}).missed)

    def test_a_row_without_figures_says_why(self):
        self.assertEqual(judge([AtMost(1)], [], {}, "it is too early").words, "not measured: it is too early")

    def test_a_row_without_goals_is_printed(self):
        self.assertEqual(judge([], [1], {}).words, "printed")


class Keeping(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "some", "results.jsonl")
        self.header = {"mode": "short", "commit": "abc"}

    def outcome(self, *figures):
        return {"status": 0, "seconds": 1.0, "samples": {"row": {"ours": list(figures)}}, "missing": {}}

    def test_an_interrupted_run_goes_on(self):
        Results(self.path, self.header).add("one", self.outcome(1, 2))
        again = Results(self.path, self.header)
        self.assertTrue(again.continued)
        self.assertEqual(again.figures("one", "row", "ours"), [1, 2])
        again.add("two", self.outcome(3))
        self.assertEqual(set(Results(self.path, self.header).measured), {"one", "two"})

    def test_a_line_that_was_cut_off_is_measured_again(self):
        results = Results(self.path, self.header)
        results.add("one", self.outcome(1))
        with open(self.path, "a", encoding="utf-8") as file:
            file.write('{"measurement": "two", "sta')
        self.assertEqual(set(Results(self.path, self.header).measured), {"one"})

    def test_after_a_cut_off_line_further_results_are_whole(self):
        Results(self.path, self.header).add("one", self.outcome(1))
        with open(self.path, "a", encoding="utf-8") as file:
            file.write('{"measurement": "two", "sta')
        Results(self.path, self.header).add("three", self.outcome(3))
        self.assertEqual(set(Results(self.path, self.header).measured), {"one", "three"})

    def test_a_finished_run_and_one_of_other_code_begin_anew(self):
        results = Results(self.path, self.header)
        results.add("one", self.outcome(1))
        other = Results(self.path, {"mode": "short", "commit": "def"})
        self.assertFalse(other.continued)
        self.assertEqual(other.measured, {})
        other.add("one", self.outcome(1))
        other.finish()
        self.assertFalse(Results(self.path, {"mode": "short", "commit": "def"}).continued)

    def test_the_reason_of_missing_figures(self):
        results = Results(self.path, self.header)
        results.add("one", {"status": 77, "seconds": 0, "samples": {}, "missing": {"row": {"vlc": "it is not installed"}},
                            "reason": "no display"})
        self.assertEqual(results.why_missing("one", "row", "vlc"), "it is not installed")
        self.assertEqual(results.why_missing("one", "row", "ours"), "no display")
        self.assertEqual(results.why_missing("two", "row", "ours"), "it was not run")

    def test_the_output_of_a_benchmark(self):
        samples, missing = parse("noise\nsample row ours 1.5\nsample row ours 2\nsample row bare x\n"
                                 "missing row vlc it refuses to run\n")
        self.assertEqual(samples, {"row": {"ours": [1.5, 2.0]}})
        self.assertEqual(missing, {"row": {"vlc": "it refuses to run"}})


class Program(unittest.TestCase):
    """bench/run itself, with programs that only look like benchmarks."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.runs = self.folder / "runs"
        for name in {one.command[0] for one in table.measurements(table.MODES["brief"])}:
            self.program(name, "")

    def program(self, name, body):
        path = self.folder / name
        path.write_text(f'#!/bin/sh\necho "{name} $*" >>"{self.runs}"\n{body}\n', encoding="utf-8")
        path.chmod(0o755)

    def command(self, *more):
        return [sys.executable, str(HERE.parent / "run"), "--brief", "--bin", str(self.folder), "--results",
                str(self.folder / "results.jsonl"), *more]

    def run_it(self, *more):
        return subprocess.run(self.command(*more), capture_output=True, text=True, timeout=60, check=False)

    def test_an_interrupted_run_goes_on_where_it_was(self):
        self.program("event_bench", "echo 'sample path ours 13'; echo 'sample path bare 10'; echo 'sample path silent 10'")
        self.program("supervisor_bench", "exec sleep 30")
        with subprocess.Popen(self.command("--only", "^(events|launch)$"), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True) as first:
            until = time.monotonic() + 30
            while not (self.runs.exists() and "supervisor_bench" in self.runs.read_text()) and time.monotonic() < until:
                time.sleep(0.05)
            first.send_signal(signal.SIGINT)
            output, _ = first.communicate(timeout=30)
        self.assertEqual(first.returncode, 130, output)
        self.program("supervisor_bench", "echo 'sample launch ours 14'; echo 'sample launch bare 10'")
        again = self.run_it("--only", "^(events|launch)$")
        self.assertEqual(again.returncode, 0, again.stdout + again.stderr)
        runs = self.runs.read_text().splitlines()
        self.assertEqual([run.split()[0] for run in runs], ["event_bench", "supervisor_bench", "supervisor_bench"])
        self.assertRegex(again.stdout, r"event path +13\.0 µs +System V hop with a log line 10\.0 +1\.30 : 1 .* met")
        self.assertIn("selective take of 256", again.stdout)
        self.assertIn("not measured", again.stdout)

    def test_a_failed_benchmark_is_named_with_its_reason(self):
        self.program("event_bench", "echo 'event_bench: no queue' >&2; exit 1")
        done = self.run_it("--only", "^events$", "--assert")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertIn("exit status 1: event_bench: no queue", done.stdout)
        self.assertIn("Benchmarks that failed: events", done.stdout)

    def test_a_skipped_benchmark_is_no_failure(self):
        self.program("event_bench", "echo 'skipped: not on this machine'; exit 77")
        done = self.run_it("--only", "^events$", "--assert")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("not measured: not on this machine", done.stdout)

    def test_a_benchmark_that_hangs_is_ended(self):
        self.program("event_bench", "sleep 60")
        runner = load_program().Runner(self.folder)
        began = time.monotonic()
        outcome = runner.run(table.Measurement("events", ["event_bench"], limit=1))
        self.assertLess(time.monotonic() - began, 25)
        self.assertEqual(outcome["reason"], "it was not done after 1 s")


class Page(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = Path(folder.name) / "speed.md"
        self.results = Results(os.path.join(folder.name, "results.jsonl"), {"mode": "short"})
        name = "screen rtsp-unicast 720x576 key 1 s"
        samples = {"answer": {"ours-cold": [500, 700], "mpv": [800, 900]}, "gap": {"ours-cold": [3, 5], "mpv": [30, 20]}}
        samples.update({part: {"ours-cold": [1, 2]} for part in page.PART_NAMES})
        self.results.add(name, {"status": 0, "seconds": 1, "samples": samples,
                                "missing": {"answer": {"ours-warm": "nothing keeps it"}}})
        mode = table.MODES["short"]
        self.lines = page.fill([row for row in table.rows(mode) if row.ours[0] == name], self.results)
        self.places = [("cold", name, "ours-cold")]

    def test_only_the_figures_are_replaced(self):
        self.path.write_text(f"# Speed\n\nBefore.\n\n{page.BEGIN}\nold figures\n{page.END}\n\nAfter.\n", encoding="utf-8")
        page.write(self.path, self.lines, self.results, ["a machine"], self.places)
        written = self.path.read_text(encoding="utf-8")
        self.assertTrue(written.startswith("# Speed\n\nBefore.\n"))
        self.assertTrue(written.endswith("\n\nAfter.\n"))
        self.assertNotIn("old figures", written)
        self.assertIn("- a machine", written)
        self.assertIn("| answer, rtsp-unicast 720x576 key 1 s, cold | 600 (500 to 700) ms | mpv 850 (800 to 900)", written)
        self.assertIn("not measured: nothing keeps it", written)
        self.assertIn("select to launch", written)

    def test_a_page_without_a_place_for_the_figures_is_left_alone(self):
        self.path.write_text("# Speed\n", encoding="utf-8")
        with self.assertRaises(ValueError):
            page.write(self.path, self.lines, self.results, [], self.places)
        self.assertEqual(self.path.read_text(encoding="utf-8"), "# Speed\n")

    def test_charts_are_beside_the_page_and_well_formed(self):
        page.write(self.path, self.lines, self.results, [], self.places)
        for name in ("speed-answers.svg", "speed-gaps.svg"):
            chart = (self.path.parent / name).read_text(encoding="utf-8")
            root = xml.etree.ElementTree.fromstring(chart)
            dots = [part for part in root if part.tag.endswith("circle")]
            self.assertEqual(len(dots), 4, name)
            self.assertIn(f"]({name})", self.path.read_text(encoding="utf-8"))

    def test_an_axis_puts_larger_figures_to_the_right(self):
        axis = charts.Axis([1, 40, 700])
        self.assertEqual(axis.ticks, [1, 10, 100, 1000])
        self.assertLess(axis.x(1), axis.x(40))
        self.assertLess(axis.x(40), axis.x(700))


class Rows(unittest.TestCase):
    def test_each_row_takes_its_figures_from_a_measurement_that_exists(self):
        for mode in table.MODES.values():
            names = [one.name for one in table.measurements(mode)]
            self.assertEqual(len(names), len(set(names)))
            for row in table.rows(mode):
                for place in [row.ours, *row.beside.values()]:
                    self.assertIn(place[0], names, row.title)

    def test_each_goal_names_a_side_that_is_beside(self):
        for row in table.rows(table.MODES["all"]):
            for goal in row.goals:
                if isinstance(goal, (RatioAtMost, MoreAtMost)):
                    self.assertIn(goal.name, row.beside, row.title)

    def test_results_are_lines_of_json(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "results")
            Results(path, {"mode": "short"}).add("one", {"status": 0})
            with open(path, encoding="utf-8") as file:
                self.assertEqual([json.loads(line) for line in file], read_lines(path))


if __name__ == "__main__":
    unittest.main()
