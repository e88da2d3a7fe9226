#!/usr/bin/env python3
"""Draws the pictures of the documents, beside this file or in the folder that is named.

The chart is made from the table in docs/performance.md, the first mount from first-mount.txt. That is what the demo
said, without what is of one machine or one day; `scripts/demo | docs/pictures/draw.py --recording` writes it anew.
"""

import argparse
import math
import re
import sys
from pathlib import Path

from drawing import Drawing

HERE = Path(__file__).resolve().parent
RECORDING = HERE / "first-mount.txt"


def read():
    """The way of one read, from a program to the helper and back."""
    drawing = Drawing(960, 318, "A read goes from the program through kernel, host and core to the helper, and its "
                                "bytes come back the same way")
    drawing.box(336, 46, 406, 208, "group")
    drawing.text(348, 66, "process of the mount: kemvi mount", "quiet", size=12)
    drawing.box(800, 46, 144, 208, "group")
    drawing.text(812, 66, "helper's process", "quiet", size=12)
    places = [(16, "program", ["cat", "notes/todo.txt"]), (176, "kernel", ["VFS, FUSE,", "page cache"]),
              (352, "host", ["hosts/fuse: files,", "rules of a Unix tree"]), (590, "core", ["volume/: items", "helper/: exchange"]),
              (812, "helper", ["node, Python,", "C++, ..."])]
    widths = [112, 112, 136, 136, 120]
    for (x, name, below), width in zip(places, widths):
        drawing.box(x, 84, width, 152)
        drawing.text(x + width / 2, 154, name, anchor="middle", size=16)
        drawing.words(x + width / 2, 176, below)
    ends = [(x, x + width) for (x, _, _), width in zip(places, widths)]
    there = ["read()", "READ", "read of an item", "line"]
    back = ["bytes", "reply", "bytes", "line"]
    for (_, right), (left, _), forth, answer in zip(ends, ends[1:], there, back):
        middle = (left + right) / 2
        drawing.way(f"M{right + 3} 112 H{left - 3}")
        drawing.text(middle, 104, forth, anchor="middle", size=12)
        drawing.way(f"M{left - 3} 218 H{right + 3}")
        drawing.text(middle, 210, answer, anchor="middle", size=12)
    drawing.text(944, 280, '-> {"id":"6","op":"read","handle":1,"offset":0,"length":65536}', "mono", "end", 12)
    drawing.text(944, 300, '<- {"id":"6","ok":true,"dataBase64":"QnV5IG1pbGsuCg=="}', "mono", "end", 12)
    drawing.text(16, 280, "What the kernel has in its cache", "quiet", size=12)
    drawing.text(16, 300, "causes none of this.", "quiet", size=12)
    return drawing


def states():
    """The states of a mount, as kemvi status names them."""
    drawing = Drawing(960, 380, "The states of a mount: starting, serving, waiting, helper dead, restarting, writing, ending")

    def state(x, y, name, kind="box"):
        drawing.box(x, y, 140, 50, kind, 25)
        drawing.text(x + 70, y + 30, name, anchor="middle", size=15)
    state(40, 90, "starting")
    state(340, 90, "serving")
    state(680, 90, "waiting")
    state(340, 270, "restarting")
    state(680, 270, "helper dead", "bad")
    state(40, 270, "ending")
    drawing.way("M110 30 V86")
    drawing.text(122, 52, "kemvi mount", "mono", size=12)
    drawing.way("M183 115 H336")
    drawing.words(260, 88, ["the helper has", "answered"])
    drawing.way("M483 104 H676")
    drawing.words(580, 76, ["a request lasts longer", "than a second"])
    drawing.way("M677 128 H484")
    drawing.words(580, 148, ["it is answered"])
    drawing.way("M750 143 V266")
    drawing.way("M470 141 L690 266")
    drawing.words(768, 196, ["the helper ends by itself:", "on_death=fail"], anchor="start")
    drawing.way("M425 143 V266")
    drawing.words(434, 206, ["on_death=restart,", "kemvi restart,", "--watch"], anchor="start")
    drawing.way("M395 267 V144")
    drawing.words(386, 198, ["the next helper", "serves"], anchor="end")
    drawing.way("M677 305 H484")
    drawing.words(590, 328, ["kemvi restart,", "a saved file with --watch"])
    drawing.way("M337 305 H184")
    drawing.words(266, 328, ["ten failures in a row", "within two minutes"])
    state(130, 178, "writing")
    drawing.way("M346 134 L263 182")
    drawing.way("M172 231 L136 267")
    drawing.words(122, 194, ["unmounted,", "told to end,", "on_death=exit"], anchor="end")
    drawing.way("M70 323 V364")
    drawing.text(80, 358, "the process is gone", "quiet", size=12)
    return drawing


def machines():
    """One tree on three machines: what each has of its own, and what they share."""
    drawing = Drawing(960, 372, "Three machines, each with a mount and a helper, share a PostgreSQL server and an object store")
    for number, x in enumerate((16, 332, 648), start=1):
        drawing.box(x, 40, 296, 116, "group")
        drawing.text(x + 12, 60, f"machine {number}", "quiet", size=12)
        for left, name, below in ((x + 14, "programs", "git, cp, ..."), (x + 112, "mount", "kernel, host"), (x + 204, "helper", "store.mjs")):
            drawing.box(left, 78, 78, 62)
            drawing.text(left + 39, 106, name, anchor="middle", size=14)
            drawing.text(left + 39, 126, below, "quiet", "middle", 11)
        drawing.way(f"M{x + 93} 109 H{x + 110}")
        drawing.way(f"M{x + 191} 109 H{x + 202}")
        drawing.text(x + 284, 60, "keeps attributes and chunks", "quiet", "end", 12)
        drawing.way(f"M{x + 236} 143 L{(300, 330, 360)[number - 1]} 268")
        drawing.way(f"M{x + 256} 143 L{(610, 640, 670)[number - 1]} 268")
    drawing.box(176, 272, 280, 84)
    drawing.text(316, 300, "PostgreSQL", anchor="middle", size=16)
    drawing.words(316, 322, ["names, attributes, lists of chunks,", "transactions; tells of changes"])
    drawing.box(504, 272, 280, 84)
    drawing.text(644, 300, "object store (S3)", anchor="middle", size=16)
    drawing.words(644, 322, ["chunks of contents; or these, too,", "in the database"])
    return drawing


def measured():
    """(workload, speeds of fresh, long-lived and C++ relative to sshfs) of each row of the table."""
    text = (HERE.parent / "performance.md").read_text(encoding="utf-8")
    table = text[text.index("| workload | sshfs | fresh: aim"):].split("\n\n")[0]
    for row in table.splitlines()[2:]:
        cells = [cell.strip() for cell in row.strip("|").split("|")]
        yield cells[0], [float(cells[column].split()[0]) for column in (3, 5, 7)]


def speed():
    """The figures of docs/performance.md: one bar per kind of mount, as long as its speed relative to sshfs."""
    rows = list(measured())
    left, right, top, bar, step = 190, 880, 84, 11, 45
    bottom = top + step * len(rows)
    drawing = Drawing(960, bottom + 38, "Speed of Kemvi relative to sshfs, by workload")
    drawing.text(16, 30, "Speed relative to sshfs over pipes (1: the same; logarithmic)", size=15)
    for x, kind, words in ((190, "a", "a mount just made"), (360, "b", "one that has served long"),
                           (580, "c", "the helper in C++, a mount just made")):
        drawing.box(x, 46, 12, 12, kind, 2)
        drawing.text(x + 18, 57, words, size=12)
    low, high = math.log(0.4), math.log(5)

    def place(ratio):
        return left + (right - left) * (math.log(ratio) - low) / (high - low)
    for tick in (0.5, 1, 2, 3, 4, 5):
        drawing.line(round(place(tick), 1), top - 6, bottom, "same" if tick == 1 else "grid")
        drawing.text(round(place(tick), 1), bottom + 18, f"{tick:g}", "quiet", "middle", 12)
    for number, (workload, ratios) in enumerate(rows):
        y = top + number * step
        drawing.text(left - 12, y + 22, workload, anchor="end")
        for index, (kind, ratio) in enumerate(zip("abc", ratios)):
            drawing.box(left, y + index * (bar + 1), round(place(ratio) - left, 1), bar, kind, 1)
            drawing.text(round(place(ratio) + 4, 1), y + index * (bar + 1) + 9.5, f"{ratio:.2f}", "quiet", size=10)
    return drawing


def first_mount():
    """What the demo says, as a terminal shows it."""
    lines = RECORDING.read_text(encoding="utf-8").rstrip("\n").split("\n")
    drawing = Drawing(760, 40 + 18 * len(lines), "A first mount in a terminal: init, mount, ls, cat, unmount")
    for number, line in enumerate(lines):
        drawing.text(20, 34 + 18 * number, line, "typed" if line.startswith("$ ") else "mono", size=13)
    return drawing


def recorded(demo):
    """The demo's commands and their output, as on any machine: folders, owner and times are replaced, and of many lines
    that tell of one check each the first and the last are shown."""
    blocks = re.split(r"^(?=\$ )", demo[demo.index("$ kemvi init"):demo.index("\nThe demo is done")], flags=re.M)
    shown = []
    for block in blocks[1:]:
        command, *output = block.strip().split("\n")
        if command.startswith("$ kemvi check"):
            output = [output[0], "...", output[-1]]
        shown.append("\n".join([command, *output]))
    text = "\n\n".join(shown) + "\n"
    for found, instead in ((r"/\S*/tree\b", "/home/you/tree"), (r"/\S*/\.local/", "/home/you/.local/"),
                           (r"/\S*/sdk/node/", "/home/you/kemvi/sdk/node/"),
                           (r"^(\S{10} \d+) \S+ \S+( +\d+) \w+ +\d+ [\d:]+", r"\1 you you\2 Jan  1 09:00")):
        text = re.sub(found, instead, text, flags=re.M)
    return text


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", nargs="?", type=Path, default=HERE)
    parser.add_argument("--recording", action="store_true", help="take what the demo says from standard input first")
    arguments = parser.parse_args()
    if arguments.recording:
        RECORDING.write_text(recorded(sys.stdin.read()), encoding="utf-8")
    for name, picture in (("read", read), ("states", states), ("speed", speed), ("machines", machines), ("first-mount", first_mount)):
        (arguments.folder / f"{name}.svg").write_text(picture().svg(), encoding="utf-8")


if __name__ == "__main__":
    main()
