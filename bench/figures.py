# SPDX-License-Identifier: Apache-2.0
"""What the benchmarks in Python share: how a figure is printed and kept."""
import json
import statistics


def report(options, name, ours, theirs, unit):
    """One line a figure, and one JSON object in the file that the options name."""
    ratios = [mine / other for mine, other in zip(ours, theirs)]
    ratio = statistics.median(ratios)
    mine, other = statistics.median(ours), statistics.median(theirs)
    low, high = min(ratios), max(ratios)
    q1, _, q3 = statistics.quantiles(ratios, n=4, method="inclusive") if len(ratios) > 1 else [ratio] * 3
    print(f"{name} {ratio:.3f} ({mine:.6g} {other:.6g} {unit}) [{low:.3f}, {q1:.3f}..{q3:.3f}, {high:.3f}]", flush=True)
    with open(options.json, "a", encoding="utf-8") as out:
        row = {"name": name, "ratio": ratio, "ours": mine, "theirs": other, "unit": unit, "min": low, "q1": q1,
               "q3": q3, "max": high, "rounds": len(ratios)}
        out.write(json.dumps(row) + "\n")
