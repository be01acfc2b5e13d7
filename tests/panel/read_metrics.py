#!/usr/bin/python3
"""Reads the panel's figures with Prometheus' own client and checks what its practice asks of names and values.

read_metrics.py FILE. Exit status 77: the client is not installed.
"""
import re
import sys

try:
    from prometheus_client.parser import text_string_to_metric_families
except ImportError:
    sys.exit(77)

NAME = re.compile(r"^skelmor_[a-z0-9]+(_[a-z0-9]+)*$")


def faults(families):
    seen = set()
    for family in families:
        if not NAME.match(family.name):
            yield f"{family.name}: not a good name"
        if not family.documentation or not family.documentation.endswith("."):
            yield f"{family.name}: its help is not a sentence"
        if family.name in seen:
            yield f"{family.name}: comes twice"
        seen.add(family.name)
        if not family.samples:
            yield f"{family.name}: has no value"
        if family.type == "unknown":
            yield f"{family.name}: has no type"
        keys = set()
        for sample in family.samples:
            key = (sample.name, tuple(sorted(sample.labels.items())))
            if key in keys:
                yield f"{key}: comes twice"
            keys.add(key)
            if family.type == "counter" and not sample.name.endswith("_total"):
                yield f"{sample.name}: a counter ends in _total"
            if family.type == "counter" and sample.value < 0:
                yield f"{sample.name}: a counter is not negative"


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        families = list(text_string_to_metric_families(file.read()))
    found = list(faults(families))
    print("\n".join(found) if found else f"{len(families)} families of figures")
    return 1 if found or len(families) < 10 else 0


sys.exit(main())
