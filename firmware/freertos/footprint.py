"""Reads and judges what an image says of its stacks and its heap (footprint.h)."""
import pathlib
import re

from captures import ROOT, fail

PORTING = ROOT / "docs/porting.md"


def footprint_read(text):
    """({task: (words, never used)}, {figure of the heap: bytes})"""
    lines = [line.split() for line in text.splitlines()]
    stacks = {line[1]: (int(line[2]), int(line[3])) for line in lines if line[0] == "stack"}
    heap = {line[1]: int(line[2]) for line in lines if line[0] == "heap"}
    return stacks, heap


def published():
    """({task: words of its stack that it may use}, bytes of the heap that are always free), from the table of the docs."""
    text = pathlib.Path(PORTING).read_text()
    stacks = {name: int(words) for name, words in re.findall(r"^\| task `(\w+)` \| (\d+) words \|", text, re.MULTILINE)}
    lowest = re.search(r"^\| heap at its lowest \| ([\d,]+) bytes \|", text, re.MULTILINE)
    return stacks, int(lowest[1].replace(",", ""))


def given_back_check(footprint):
    stacks, heap = footprint
    if "service" not in stacks or set(heap) != {"lowest", "left"}:
        fail(f"the image says too little of its memory: {footprint}")
    if heap["left"] != 0:
        fail(f"{heap['left']} bytes of heap were not given back")


def footprint_check(footprint):
    """Nothing takes more than the docs say."""
    stacks, heap = footprint
    may_use, lowest = published()
    for name, (words, unused) in stacks.items():
        if not 0 < words - unused <= may_use[name] <= words:
            fail(f"task {name} has used {words - unused} of its stack's {words} words; it may use {may_use[name]}")
    if heap["lowest"] < lowest:
        fail(f"{heap['lowest']} bytes of heap were free at its lowest, fewer than {lowest}")


def footprint_worst(footprints):
    """A line with the most that each task has used of its stack, and all together of the heap."""
    used = {}
    for stacks, _ in footprints:
        for name, (words, unused) in stacks.items():
            used[name] = (max(used.get(name, (0, 0))[0], words - unused), words)
    figures = [f"{name} {most} of {words} words" for name, (most, words) in used.items()]
    return f"stacks: {', '.join(figures)}; heap at its lowest: {min(heap['lowest'] for _, heap in footprints)} bytes free"
