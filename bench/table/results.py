"""The results of a run, kept as JSON lines so that an interrupted run goes on.

The first line says what is measured: the mode and the commit. Each further line is one measurement that has ended: its
name, its exit status, its figures and what is missing. A run is finished when its last line says so.
"""
import json
import os


class Results:
    """The results in one file. Used by one process at a time."""

    def __init__(self, path, header):
        """Goes on with the run in the file if it has the same header and is not finished, and begins anew otherwise."""
        self.path, self.header = os.fspath(path), header
        self.measured = {}
        self.continued = False
        self._load()
        if not self.continued:
            self.measured = {}
            os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(json.dumps({"run": header}) + "\n")

    def _load(self):
        lines = read_lines(self.path)
        if not lines or lines[0].get("run") != self.header or any("finished" in line for line in lines):
            return
        self.continued = True
        # Without a line that was cut off: the next one would be appended to it.
        with open(self.path + ".new", "w", encoding="utf-8") as file:
            file.writelines(json.dumps(line) + "\n" for line in lines)
        os.replace(self.path + ".new", self.path)
        for line in lines[1:]:
            if "measurement" in line:
                self.measured[line["measurement"]] = line

    def add(self, name, outcome):
        self.measured[name] = {"measurement": name, **outcome}
        self._append(self.measured[name])

    def finish(self):
        self._append({"finished": True})

    def _append(self, line):
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps(line) + "\n")
            file.flush()
            os.fsync(file.fileno())

    def figures(self, measurement, row, side):
        """The figures of a side, [] without."""
        outcome = self.measured.get(measurement, {})
        return outcome.get("samples", {}).get(row, {}).get(side, [])

    def why_missing(self, measurement, row, side):
        outcome = self.measured.get(measurement)
        if outcome is None:
            return "it was not run"
        missing = outcome.get("missing", {})
        # A side that one row lacks for a reason is lacking in the others for the same one.
        reasons = [missing.get(row, {}).get(side), *(sides.get(side) for sides in missing.values()), outcome.get("reason")]
        return next(filter(None, reasons), None) or f"the program ended with {outcome.get('status')}"


def read_lines(path):
    """The whole lines of a file of JSON lines. A line that was cut off by an interruption is left out."""
    try:
        with open(path, encoding="utf-8") as file:
            text = file.read()
    except OSError:
        return []
    lines = []
    for line in text.split("\n")[:-1]:
        try:
            lines.append(json.loads(line))
        except ValueError:
            continue
    return lines


def parse(output):
    """The figures in a benchmark's output: (samples, missing), both row -> side -> figures or reason."""
    samples, missing = {}, {}
    for line in output.splitlines():
        words = line.split(" ", 3)
        # A kind of encoder may have blanks in its name; only the table's rows are without.
        if len(words) == 4 and words[0] == "sample":
            try:
                value = float(words[3])
            except ValueError:
                continue
            samples.setdefault(words[1], {}).setdefault(words[2], []).append(value)
        elif len(words) == 4 and words[0] == "missing":
            missing.setdefault(words[1], {})[words[2]] = words[3]
    return samples, missing
