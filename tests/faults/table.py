"""Rows that tests/faults/run kept (--resume FILE ...), condensed: a line for each call and place.

    python3 tests/faults/table.py FILE ...
"""

import fileinput
import json
import re
import statistics


def spread(results, pattern, form):
    """Median and most of the number that the results have there."""
    numbers = [float(number) for result in results for number in re.findall(pattern, result)]
    return f"{statistics.median(numbers):{form}} / {max(numbers):{form}}" if numbers else "-"


def place_and_fault(case):
    kind, what, *rest = case.split(":")
    if kind == "card":
        return f"card {what}", "card"
    return what.replace("@", " ") if kind != "kill" else kind, rest[0]


def line(where, group):
    met = [row["result"] for row in group if not row["result"].startswith("not met")]
    faults = sorted({place_and_fault(row["case"])[1] for row in group})
    ended = sum("recorder ended" in result for result in met)
    notes = [f"{ended} ended the process" if ended else "", *(f"**{row['case']}**" for row in group if row["broken"])]
    lost = spread(met, r"(\d+) pictures lost", ".0f")
    resumed = spread(met, r"records after ([\d.]+) s", ".1f")
    return f"| {where} | {' '.join(faults)} | {len(met)} | {lost} | {resumed} | {', '.join(filter(None, notes))} |"


def main():
    rows = {row["case"]: row for row in map(json.loads, fileinput.input())}.values()  # each case's last result
    groups = {}
    for row in rows:
        groups.setdefault(place_and_fault(row["case"])[0], []).append(row)
    print(f"{len(rows)} cases, {sum(row['broken'] for row in rows)} broken, "
          f"{sum(row['result'].startswith('not met') for row in rows)} not met (the recorder made no such call)\n")
    print("| call and place | faults | met | pictures lost, median / most | records after, s | |\n|---|---|---|---|---|---|")
    for where in sorted(groups):
        print(line(where, groups[where]))


if __name__ == "__main__":
    main()
