# SPDX-License-Identifier: MIT
"""Prints benchmark results as a table: job, zel, best peer, limit, ratio of zel to the best peer.

A benchmark is named job/whose; "zel" is ours, "limit" the least work that could be written by hand,
everything else a peer. Arguments stand behind that and belong to the job. Times are medians of the
repetitions. Where the programs count system calls, a second table shows them: calls a message, a
lock or whatever the job consists of.
"""
import collections
import json
import sys

SCALE = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(paths):
    """Times by job and by whose, and the counts of system calls likewise."""
    jobs = collections.OrderedDict()
    calls = collections.OrderedDict()
    for path in paths:
        try:
            with open(path) as file:
                rows = json.load(file)["benchmarks"]
        except (OSError, ValueError, KeyError):
            continue  # a program in which no benchmark fits the filter
        for row in rows:
            if row.get("aggregate_name") != "median" or row.get("error_occurred"):
                continue
            # What the benchmark library appends to a name is not part of it.
            parts = [part for part in row["run_name"].split("/")
                     if part not in ("real_time", "process_time")
                     and not part.startswith(("threads:", "iterations:", "min_time:",
                                              "repeats:", "manual_time"))]
            arguments = []
            while parts[-1].isdigit():
                arguments.insert(0, parts.pop())
            whose = parts.pop()
            job = "/".join(parts + arguments)
            clock = "real_time" if "/real_time" in row["run_name"] else "cpu_time"
            jobs.setdefault(job, {})[whose] = row[clock] * SCALE[row["time_unit"]]
            if "calls" in row:
                calls.setdefault(job, {})[whose] = row["calls"]
    return jobs, calls


def shown(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size * 10:
            return f"{nanoseconds / size:.1f} {unit}"
    return f"{nanoseconds:.1f} ns"


def print_table(table):
    columns = len(table[0])
    widths = [max(len(row[column]) for row in table) for column in range(columns)]
    for row in table:
        print("  ".join(cell.ljust(width) if column in (0, 3) else cell.rjust(width)
                        for column, (cell, width) in enumerate(zip(row, widths))).rstrip())


def main(paths):
    jobs, calls = medians(paths)
    table = [("job", "zel", "best peer", "", "limit", "ratio")]
    for job, times in jobs.items():
        peers = {who: time for who, time in times.items() if who not in ("zel", "limit")}
        best = min(peers, key=peers.get, default=None)
        zel = times.get("zel")
        table.append((
            job,
            shown(zel) if zel else "-",
            shown(peers[best]) if best else "-",
            best or "",
            shown(times["limit"]) if "limit" in times else "",
            f"{zel / peers[best]:.2f}" if zel and best else "",
        ))
    print_table(table)
    if calls:
        print()
        print_table([("system calls of each", "zel", "peer", "")] + [
            (job, f"{counts['zel']:.3f}" if "zel" in counts else "-", f"{count:.3f}", who)
            for job, counts in calls.items() for who, count in counts.items() if who != "zel"])


main(sys.argv[1:])
