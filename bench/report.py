"""Runs the benchmarks of build/release and prints one table: each figure against its floor, with the aim for the ratio.

report.py: everything, with build/bench-kernel.rows as scripts/parts/bench-kernel printed it and the library of build/armhf.
report.py counts: only figures that are the same in each run.
Fails when a figure that is the same in each run misses its aim, or the higher limit of a row that gives a reason.
Times are compared, but do not decide: on machines that have other work they are noise.
"""
import concurrent.futures
import os
import re
import subprocess
import sys
from dataclasses import dataclass

BENCH = "build/release/bench"
ARM_LIBRARY = "build/armhf/frontpanelhw/libfrontpanelhw.so"

# A register write of the library as g++ 12 compiles it for x86_64. What makes it a tenth longer has to say why here.
REGISTER_WRITE = 458

# Cells, keys and pins. With fewer, the C library's heap has a cost of its own per pin.
GROWTH = [256, 1024, 4096]


@dataclass
class Row:
    name: str
    measured: float
    floor: float
    unit: str
    aim: float = None  # the most that the ratio of measured to floor may be, or the least
    at_least: bool = False
    repeats: bool = False  # the same in each run: decides
    limit: float = None  # the most that the ratio may be in a row that misses its aim for a known reason
    reason: str = ""

    @property
    def ratio(self):
        return self.measured / self.floor if self.floor else (1.0 if not self.measured else float("inf"))

    def misses(self, bound):
        if bound is None:
            return False
        return round(self.ratio, 2) < bound if self.at_least else round(self.ratio, 2) > bound

    @property
    def verdict(self):
        if self.aim is None:
            return ""
        if not self.misses(self.aim):
            return "met"
        return f"missed: {self.reason}" if self.reason else "missed"

    @property
    def fails(self):
        return self.repeats and self.misses(self.limit or self.aim)


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def instructions(name, count):
    """Instructions of one operation: the difference of two runs, exact but for what a start-up does now and then."""
    collected = []
    for times in (count, 2 * count):
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"{BENCH}/operations", name, str(times)],
            stderr=subprocess.PIPE, text=True)
        found = re.search(r"Collected : (\d+)", run.stderr)
        if run.returncode != 0 or not found:
            sys.exit(f"report: callgrind cannot count {name}:\n{run.stderr}")
        collected.append(int(found[1]))
    return (collected[1] - collected[0]) / count


def counted():
    names = output_of(f"{BENCH}/operations", "--names").split()
    sizes = {name: int(re.search(r"-(\d+)$", name)[1]) if re.search(r"-\d+$", name) else 16 for name in names}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        costs = dict(zip(names, pool.map(lambda name: instructions(name, max(4, 8000 // sizes[name])), names)))
    loop = costs["nothing"]

    rows = [Row("register write, against the recorded number", costs["write"] - loop, REGISTER_WRITE, "instructions",
                1.10, repeats=True)]
    # Plain loops and functions: on a device, they are less than one in a hundred of what a page takes.
    for what, name, aim in (("register write", "write", 1.50), ("register read", "read", 1.50),
                            ("data write, RA8803", "data-ra8803", 1.75), ("data write, RA8806", "data-ra8806", 1.75)):
        rows.append(Row(f"{what}, against its calls by hand", costs[name] - loop, costs[f"{name}-floor"] - loop,
                        "instructions", aim, repeats=True))
    rows.append(Row("scan of 16 keys, against 16 bare reads", costs["scan-16"], costs["scan-floor"], "instructions",
                    1.50, repeats=True, limit=12, reason="each read is under the lock"))
    rows.append(Row("scan of 16 keys, against 16 reads under a lock", costs["scan-16"], costs["scan-locked-floor"],
                    "instructions"))
    for what, name in (("a line's cell", "cells"), ("a scan's key", "scan"), ("a panel's pin", "pins")):
        early, late = ((costs[f"{name}-{b}"] - costs[f"{name}-{a}"]) / (b - a) for a, b in zip(GROWTH, GROWTH[1:]))
        rows.append(Row(f"{what}, among thousands against among hundreds", late, early, "instructions", 1.05,
                        repeats=True))
    for line in output_of(f"{BENCH}/operations", "--allocations").splitlines():
        what, measured, due = line.split("\t")
        rows.append(Row(f"{what}: against copies needed", int(measured), int(due), "allocations", 1, repeats=True))
    for chip in ("ra8803", "ra8806"):
        rows.append(Row(f"page, {chip.upper()}, without its waits", costs[f"page-{chip}"], 0, "instructions"))
    return rows


def rows_of(text, unit, aims):
    """Rows as the benchmarks print them; aims: what a name has to contain, and the row's further fields."""
    rows = []
    for line in text.splitlines():
        name, measured, floor = line.split("\t")
        fields = next((fields for part, fields in aims if part in name), {})
        rows.append(Row(name, float(measured), float(floor), unit, **fields))
    if not rows:
        sys.exit("report: a benchmark printed nothing")
    return rows


def timed():
    page = rows_of(output_of(f"{BENCH}/page-time"), "us", [
        ("against slack", {}), ("construction", {"aim": 1.02}), ("page", {"aim": 1.03})])
    layer = rows_of(output_of(f"{BENCH}/gpio-layer"), "ns", [
        ("opens", {"aim": 5, "at_least": True}), ("direction", {"aim": 1.10}), ("", {"aim": 1.05})])
    with open("build/bench-kernel.rows", encoding="utf-8") as file:
        kernel = rows_of(file.read(), "instructions", [
            ("libgpiod", {}), ("levels", {}), ("page, RA8803", {"aim": 0.40, "repeats": True}),
            ("page, RA8806", {"aim": 0.55, "repeats": True}), ("", {"aim": 1.05, "repeats": True})])
    for row in kernel:
        row.unit = "operations" if "levels" in row.name else row.unit
    through_panelsim = rows_of(output_of(f"{BENCH}/pin-round-trip"), "ns", [("", {"aim": 1.5})])
    return page + layer + kernel + through_panelsim


def arm_size():
    size, most = map(int, output_of("scripts/parts/arm-size").split())
    return Row("libfrontpanelhw.so for ARM, stripped, against 72 KiB", size, most, "bytes", 1.0, repeats=True)


def arm_start():
    """What the dynamic linker does when the library is loaded."""
    relocations = re.findall(r"R_ARM_\w+", output_of("arm-linux-gnueabihf-readelf", "--relocs", "--wide", ARM_LIBRARY))
    kinds = ", ".join(f"{relocations.count(kind)} {kind}" for kind in sorted(set(relocations)))
    initialisers = re.findall(r"_GLOBAL__sub_I_\w+", output_of("arm-linux-gnueabihf-nm", ARM_LIBRARY))
    return f"relocations when the ARM library is loaded: {kinds}\n" \
           f"its static initialisers: {len(initialisers)}: {', '.join(sorted(initialisers)) or 'none'}"


def show(rows):
    width = max(len(row.name) for row in rows)
    print(f"{'what':{width}}  {'measured':>12}  {'floor':>12}  {'unit':12}  ratio      aim")
    for row in rows:
        floor = f"{row.floor:12.1f}" if row.floor or row.aim else f"{'':12}"
        ratio = f"{row.ratio:5.2f}" if row.floor or row.aim else f"{'':5}"
        bound = ">=" if row.at_least else "<="
        aim = f"{bound}{row.aim:5.2f}" if row.aim is not None else f"{'':7}"
        line = f"{row.name:{width}}  {row.measured:12.1f}  {floor}  {row.unit:12}  {ratio}  {aim}  {row.verdict}"
        print(line.rstrip())


def main():
    rows = counted()
    if sys.argv[1:] != ["counts"]:
        rows += timed() + [arm_size()]
    show(rows)
    if sys.argv[1:] != ["counts"]:
        print(arm_start())
    failed = [row.name for row in rows if row.fails]
    if failed:
        sys.exit(f"report: missed, and the same in each run: {'; '.join(failed)}")


try:
    main()
except (OSError, ValueError, subprocess.CalledProcessError) as error:
    sys.exit(f"report: {error}")
