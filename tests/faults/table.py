"""Rows that tests/faults/run kept (--resume FILE ...), condensed: a line for each call and place.

    python3 tests/faults/table.py FILE ...
"""

import json
import re
import statistics
import sys


def rows(paths):
    """Case -> its last result."""
    found = {}
    for path in paths:
        with open(path) as file:
            found.update((row["case"], row) for row in map(json.loads, file))
    return found.values()


def figures(results, pattern):
    return [float(n) for result in results for n in re.findall(pattern, result)]


def spread(numbers, form):
    """Median and most."""
    return f"{statistics.median(numbers):{form}} / {max(numbers):{form}}" if numbers else "-"


def line(where, group):
    met = [row["result"] for row in group if not row["result"].startswith("not met")]
    faults = sorted({row["case"].split(":")[2] for row in group})
    ended = sum("recorder ended" in result for result in met)
    notes = [f"{ended} ended the process" if ended else "", *(f"**{row['case']}**" for row in group if row["broken"])]
    lost = spread(figures(met, r"(\d+) pictures lost"), ".0f")
    resumed = spread(figures(met, r"records after ([\d.]+) s"), ".1f")
    return f"| {where} | {' '.join(faults)} | {len(met)} | {lost} | {resumed} | {', '.join(filter(None, notes))} |"


def main():
    groups, kills = {}, []
    for row in rows(sys.argv[1:]):
        words = row["case"].split(":")
        if words[0] == "kill":
            kills.append(row)
        elif words[0] == "card":
            groups.setdefault(f"card {words[1]}", []).append(dict(row, case="::" + row["case"]))
        else:
            groups.setdefault(words[1].replace("@", " "), []).append(row)
    every = [row for group in groups.values() for row in group]
    print(f"{len(every)} cases, {sum(row['broken'] for row in every)} broken, "
          f"{sum(row['result'].startswith('not met') for row in every)} not met (the recorder made no such call)\n")
    print("| call and place | faults | met | pictures lost, median / most | records after, s | |\n|---|---|---|---|---|---|")
    for where in sorted(groups):
        print(line(where, groups[where]))
    if kills:
        results = [row["result"] for row in kills]
        print(f"\n{len(kills)} kills, {sum(row['broken'] for row in kills)} broken: "
              f"{spread(figures(results, r'([0-9]+) pictures lost'), '.0f')} pictures lost (median / most), "
              f"records after {spread(figures(results, r'records after ([0-9.]+) s'), '.1f')} s")


if __name__ == "__main__":
    main()
