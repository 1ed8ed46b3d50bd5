# SPDX-License-Identifier: MIT
"""Prints benchmark results as a table: job, zel, best peer, limit, ratio of zel to the best peer.

A benchmark is named job/whose; "zel" is ours, "limit" the least work that could be written by hand,
everything else a peer. Arguments stand behind that and belong to the job. Times are medians of the
repetitions. Where the programs count system calls, a second table shows them: calls a message, a
lock or whatever the job consists of. Where they count items, a third one shows how a job grows with
its size.
"""
import argparse
import collections
import datetime
import json
import math
from xml.sax.saxutils import escape

SCALE = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def job_and_whose(run_name):
    # What the benchmark library appends to a name is not part of it.
    parts = [part for part in run_name.split("/")
             if part not in ("real_time", "process_time")
             and not part.startswith(("threads:", "iterations:", "min_time:", "repeats:",
                                      "manual_time"))]
    arguments = []
    while parts[-1].isdigit():
        arguments.insert(0, parts.pop())
    whose = parts.pop()
    return "/".join(parts + arguments), whose


def read_results(paths):
    """{job: {whose: {"time": median in ns, "noise": relative spread, "calls", "item"}}}."""
    jobs = collections.OrderedDict()
    for path in paths:
        try:
            with open(path) as file:
                rows = json.load(file)["benchmarks"]
        except (OSError, ValueError, KeyError):
            continue  # a program in which no benchmark fits the filter
        for row in rows:
            aggregate = row.get("aggregate_name")
            if aggregate not in ("median", "cv") or row.get("error_occurred"):
                continue
            job, whose = job_and_whose(row["run_name"])
            clock = "real_time" if "/real_time" in row["run_name"] else "cpu_time"
            facts = jobs.setdefault(job, {}).setdefault(whose, {})
            if aggregate == "cv":
                facts["noise"] = row[clock]
                continue
            facts["time"] = row[clock] * SCALE[row["time_unit"]]
            if "calls" in row:
                facts["calls"] = row["calls"]
            if row.get("items_per_second"):
                facts["item"] = 1e9 / row["items_per_second"]
    return jobs


def best_peer(facts):
    peers = {who: row["time"] for who, row in facts.items() if who not in ("zel", "limit")}
    return min(peers, key=peers.get, default=None)


def ratio_of(facts):
    """zel's time to the best peer's, and its spread; None where either is missing."""
    best = best_peer(facts)
    if "zel" not in facts or best is None:
        return None
    noise = math.hypot(facts["zel"].get("noise", 0), facts[best].get("noise", 0))
    return facts["zel"]["time"] / facts[best]["time"], noise


def shown(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size * 10:
            return f"{nanoseconds / size:.1f} {unit}"
    return f"{nanoseconds:.1f} ns"


def print_table(table, left=(0,)):
    widths = [max(len(row[column]) for row in table) for column in range(len(table[0]))]
    for row in table:
        print("  ".join(cell.ljust(width) if column in left else cell.rjust(width)
                        for column, (cell, width) in enumerate(zip(row, widths))).rstrip())


def print_times(jobs):
    table = [("job", "zel", "best peer", "", "limit", "ratio")]
    for job, facts in jobs.items():
        best, ratio = best_peer(facts), ratio_of(facts)
        table.append((
            job,
            shown(facts["zel"]["time"]) if "zel" in facts else "-",
            shown(facts[best]["time"]) if best else "-",
            best or "",
            shown(facts["limit"]["time"]) if "limit" in facts else "",
            f"{ratio[0]:.2f}" if ratio else "",
        ))
    print_table(table, left=(0, 3))


def print_calls(jobs):
    table = [("system calls of each", "zel", "peer", "")]
    for job, facts in jobs.items():
        own = facts.get("zel", {}).get("calls")
        table += [(job, "-" if own is None else f"{own:.3f}", f"{row['calls']:.3f}", who)
                  for who, row in facts.items() if who != "zel" and "calls" in row]
    if len(table) > 1:
        print()
        print_table(table, left=(0, 3))


def growth_of(jobs):
    """{family: {size: ns an item}} of zel's rows whose last argument is a size, three and more."""
    families = collections.OrderedDict()
    for job, facts in jobs.items():
        family, _, size = job.rpartition("/")
        if size.isdigit() and int(size) >= 100 and "item" in facts.get("zel", {}):
            families.setdefault(family, {})[int(size)] = facts["zel"]["item"]
    return {family: sizes for family, sizes in families.items() if len(sizes) >= 3}


def print_growth(jobs):
    families = growth_of(jobs)
    if not families:
        return
    sizes = sorted({size for row in families.values() for size in row})
    table = [("nanoseconds an item", *(f"{size:,}" for size in sizes), "last : first")]
    for family, row in families.items():
        ends = row[max(row)] / row[min(row)]
        table.append((family, *(f"{row[size]:.1f}" if size in row else "" for size in sizes),
                      f"{ends:.2f}"))
    print()
    print_table(table)


def print_changes(old, new):
    """Rows whose ratio to the best peer moved by more than both runs scatter."""
    table = [("changed since then", "zel then", "now", "ratio then", "now", "change")]
    for job, facts in new["jobs"].items():
        now, then = ratio_of(facts), ratio_of(old["jobs"].get(job, {}))
        if not now or not then:
            continue
        change = now[0] / then[0] - 1
        if abs(change) > max(0.02, 2 * math.hypot(now[1], then[1])):
            table.append((job, shown(old["jobs"][job]["zel"]["time"]), shown(facts["zel"]["time"]),
                          f"{then[0]:.2f}", f"{now[0]:.2f}", f"{change:+.0%}"))
    print()
    if len(table) == 1:
        print(f"no ratio changed beyond the noise since {old['date']}")
    else:
        print_table(table)
    for job in old["jobs"]:
        if job not in new["jobs"]:
            print(f"not in this run: {job}")


def draw(run, path):
    """One bar a row on a logarithmic scale; 1.0 is marked, behind is another colour."""
    rows = [(job, ratio_of(facts)[0], best_peer(facts))
            for job, facts in run["jobs"].items() if ratio_of(facts)]
    left, width, height = 330, 420, 18
    low = min([0.1] + [ratio for _, ratio, _ in rows])
    high = max([2.0] + [ratio for _, ratio, _ in rows])

    def x(ratio):
        return left + width * math.log(ratio / low) / math.log(high / low)

    total = height * len(rows) + 60
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 170} {total}" '
           'font-family="sans-serif" font-size="11">',
           '<rect width="100%" height="100%" fill="white"/>',
           f'<text x="{left}" y="14">time of zel to the best peer, less is better; '
           f'{escape(run["date"])}, {escape(run["machine"])}</text>']
    for i, (job, ratio, best) in enumerate(rows):
        y = 30 + i * height
        colour = "#3b7d4f" if ratio <= 1 else "#c0562f"
        begin, end = sorted((x(1), x(ratio)))
        out.append(f'<text x="{left - 6}" y="{y + 11}" text-anchor="end">{escape(job)}</text>'
                   f'<rect x="{begin:.1f}" y="{y + 2}" width="{max(end - begin, 1):.1f}" '
                   f'height="{height - 6}" fill="{colour}"/>'
                   f'<text x="{left + width + 8}" y="{y + 11}">{ratio:.2f} of {escape(best)}</text>')
    out.append(f'<line x1="{x(1):.1f}" x2="{x(1):.1f}" y1="24" y2="{total - 24}" stroke="black"/>'
               f'<text x="{x(1):.1f}" y="{total - 10}" text-anchor="middle">1.0</text></svg>')
    with open(path, "w") as file:
        file.write("\n".join(out) + "\n")


def draw_growth(run, path):
    """One line a job, both scales logarithmic: a job whose cost an item does not grow is level."""
    families = growth_of(run["jobs"])
    sizes = [size for row in families.values() for size in row] or [1, 10]
    times = [time for row in families.values() for time in row.values()] or [1, 10]
    left, width, top, height = 60, 420, 30, 400
    low, high = math.floor(math.log10(min(times))), math.ceil(math.log10(max(times)))
    first, last = math.log10(min(sizes)), math.log10(max(sizes))

    def x(size):
        return left + width * (math.log10(size) - first) / max(last - first, 1)

    def y(time):
        return top + height * (high - math.log10(time)) / max(high - low, 1)

    total = max(top + height + 30, top + 16 * len(families) + 30)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 330} {total}" '
           'font-family="sans-serif" font-size="11">',
           '<rect width="100%" height="100%" fill="white"/>',
           f'<text x="{left}" y="14">nanoseconds an item by the number of items; '
           f'{escape(run["date"])}, {escape(run["machine"])}</text>']
    for power in range(low, high + 1):
        at = y(10 ** power)
        out.append(f'<line x1="{left}" x2="{left + width}" y1="{at:.1f}" y2="{at:.1f}" '
                   f'stroke="#ddd"/><text x="{left - 6}" y="{at + 4:.1f}" text-anchor="end">'
                   f'{10.0 ** power:g}</text>')
    for size in sorted({10 ** round(math.log10(size)) for size in sizes}):
        out.append(f'<text x="{x(size):.1f}" y="{top + height + 16}" text-anchor="middle">'
                   f'{size:,}</text>')
    # The names stand in the order in which the lines end, so that they hardly cross.
    order = sorted(families.items(), key=lambda each: y(each[1][max(each[1])]))
    for i, (family, row) in enumerate(order):
        colour = f"hsl({360 * i // len(order)},60%,38%)"
        points = " ".join(f"{x(size):.1f},{y(time):.1f}" for size, time in sorted(row.items()))
        out.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>'
                   f'<text x="{left + width + 12}" y="{top + 10 + 16 * i}" fill="{colour}">'
                   f'{escape(family)}</text>')
    with open(path, "w") as file:
        file.write("\n".join(out + ["</svg>"]) + "\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--machine", default="")
    parser.add_argument("--json")
    parser.add_argument("--compare")
    parser.add_argument("--plot")
    parser.add_argument("--plot-growth")
    parser.add_argument("results", nargs="*")
    arguments = parser.parse_args()
    run = {"date": datetime.date.today().isoformat(), "machine": arguments.machine,
           "jobs": read_results(arguments.results)}
    print_times(run["jobs"])
    print_calls(run["jobs"])
    print_growth(run["jobs"])
    if arguments.compare:
        with open(arguments.compare) as file:
            print_changes(json.load(file), run)
    if arguments.json:
        with open(arguments.json, "w") as file:
            json.dump(run, file, indent=1)
    if arguments.plot:
        draw(run, arguments.plot)
    if arguments.plot_growth:
        draw_growth(run, arguments.plot_growth)


main()
