#!/usr/bin/env python3
"""Makes a page for the site of a manual page: `manual.py FILE`. mandoc makes its parts; headings become those of Markdown, so that
they stand in the page's own table of contents."""

import html
import re
import subprocess
import sys

HEADING = re.compile(r'<h([12])[^>]*id="[^"]*"[^>]*>(.*?)</h\1>', re.S)
FRAME = re.compile(r'</?section[^>]*>|<table class="(?:head|foot)">.*?</table>|</?div class="manual-text">', re.S)


def text_of(markup):
    return " ".join(html.unescape(re.sub("<[^>]*>", "", markup)).split())


def markdown(name, fragment):
    """Markdown takes markup as it is from a block's begin to its end: each part is one block, without an empty line in it."""
    fragment = FRAME.sub("", fragment).replace("\n<br/>\n", "\n")
    begin, *parts = HEADING.split(fragment)
    page = [f"# {name}", block(begin)]
    for level, title, part in zip(parts[::3], parts[1::3], parts[2::3], strict=True):
        page += [f"##{'#' * (int(level) - 1)} {text_of(title)}", block(part)]
    return "\n\n".join(each for each in page if each) + "\n"


def block(part):
    part = re.sub(r"\n\s*\n", "\n", part.strip())
    return f"<div>\n{part}\n</div>" if part else ""


def main(file):
    fragment = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", file], check=True, capture_output=True, text=True).stdout
    name, section = file.rsplit("/", 1)[-1].rsplit(".", 1)
    print(markdown(f"{name}({section})", fragment), end="")


if __name__ == "__main__":
    main(sys.argv[1])
