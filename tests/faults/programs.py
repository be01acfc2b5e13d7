"""The fault programs: how each is called, its share of the time, and its title in docs/reliability.md."""
from typing import NamedTuple


class Program(NamedTuple):
    name: str           # of its state file and output in build/faults
    target: str         # what CMake builds, in the folder of the tests; "" for a script
    arguments: list     # in front of --state and --seconds; the first word of a script is its path from the top folder
    share: float        # of the time
    title: str          # in the page


PROGRAMS = [
    Program("chaos", "faults_chaos", [], 4, "Chaos"),
    Program("instants", "faults_instants", [], 1, "Every instant: SIGINT and SIGSEGV at 2,000 instants"),
    Program("scarcity", "faults_scarcity", ["supervisor"], 3,
            "Scarcity: every system call of the supervisor fails once with each error"),
    Program("power-cut", "faults_power_cut", [], 2, "Power cuts and kills at every change of a file"),
    Program("soak-tiny", "faults_soak", ["tiny"], 2, "Soak: 100,000 switches with tiny players"),
    Program("soak-real", "faults_soak", ["real"], 2, "Soak: 5,000 switches with real players"),
    Program("soak-day", "faults_soak", ["day"], 2, "Soak: 24 simulated hours"),
]
