"""Writes a copy of the source tree in which every mutant waits to be switched on."""

import json
import subprocess


def weave(top, into, places, kept):
    """Copies what git knows and returns the number of each mutant by its id. Numbers stay the same from run to run (they
    are in the file `kept`) and an unchanged file keeps its time, so that little is built again."""
    listed = subprocess.run(["git", "-C", top, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            check=True, capture_output=True, text=True).stdout
    names = [name for name in listed.split("\0") if name and (top / name).is_file()]
    numbers = json.loads(kept.read_text()) if kept.exists() else {}
    by_file = {}
    for place in places:
        by_file.setdefault(place.file, []).append((place, [numbers.setdefault(one, len(numbers)) for one in place.ids]))
    kept.write_text(json.dumps(numbers))
    for name in names:
        contents = (top / name).read_bytes()
        if name in by_file:
            contents = woven(contents, by_file[name])
        update(into / name, contents, (top / name).stat().st_mode)
    for old in set(path for path in into.rglob("*") if path.is_file()) - set(into / name for name in names):
        old.unlink()
    return numbers


def update(path, contents, mode):
    path.parent.mkdir(parents=True, exist_ok=True)
    if not path.is_file() or path.read_bytes() != contents:
        path.write_bytes(contents)
    path.chmod(mode)


def woven(contents, places):
    """Places are nested, never crossed: what begins first and ends last is outermost."""
    edits = []  # (offset, 0 closing or 1 opening, order among those of one offset, end of the text replaced, new text)
    ordered = sorted(places, key=lambda one: (one[0].start, -one[0].end, one[0].form == "condition" and -1 or 0))
    for depth, (place, numbers) in enumerate(ordered):
        opening, closing = brackets(place, numbers)
        edits.append((place.start, 1, depth, place.start, opening))
        edits.append((place.end, 0, -depth, place.end, closing))
        if place.operator:
            edits.append((place.operator[0], 1, -1, place.operator[1], "), ("))
    result = []
    at = 0
    for start, _, _, end, text in sorted(edits):
        result += [contents[at:start], text.encode()]
        at = end
    return b"".join([*result, contents[at:]])


def brackets(place, numbers):
    by_change = dict(zip(place.changes, numbers))
    if place.form == "condition":
        always, never = by_change.get("always true", -1), by_change.get("always false", -1)
        return f"::mutants::decided({always}, {never}, static_cast<bool>(", "))"
    if place.form == "declared":
        # The name that is declared is what stands before the first "=".
        name = place.text.split("=")[0].split()[-1].lstrip("*&")
        return "", f"; ::mutants::decided(-1, {numbers[0]}, static_cast<bool>({name}))"
    if place.form == "statement":
        return f"(::mutants::leftOut({numbers[0]}) ? void() : void(", "))"
    return f"::mutants::{place.form}({numbers[0]}, (", "))"
