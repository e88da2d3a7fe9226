"""Lines, boxes and words of a picture. It brings its own ground, so that it is right on a light page and on a dark one,
whichever the reader's system prefers."""

from xml.sax.saxutils import escape

STYLE = """
    svg { color-scheme: light dark }
    .ground { fill: #ffffff; stroke: #d0d7de }
    .group { fill: #f3f5f8; stroke: #c3cad3; stroke-dasharray: 4 3 }
    .box { fill: #e3edfb; stroke: #3b6fb6 }
    .bad { fill: #fde8e4; stroke: #c0513b }
    .way { stroke: #57606a; fill: none; stroke-width: 1.4 }
    .tip { fill: #57606a }
    .grid { stroke: #dfe3e8 }
    .same { stroke: #57606a }
    .a { fill: #2f6fc4 } .b { fill: #7fb0ee } .c { fill: #d98034 }
    text { fill: #1f2328; font-family: -apple-system, "Segoe UI", "DejaVu Sans", sans-serif }
    .quiet { fill: #57606a }
    .mono, .typed { font-family: ui-monospace, "SF Mono", "DejaVu Sans Mono", monospace }
    .typed { font-weight: bold; fill: #14539a }
    @media (prefers-color-scheme: dark) {
      .ground { fill: #12161c; stroke: #30363d }
      .group { fill: #1a2029; stroke: #46505c }
      .box { fill: #1c2f4a; stroke: #6ea3e8 }
      .bad { fill: #43221c; stroke: #e58a74 }
      .way { stroke: #a3adb8 } .tip { fill: #a3adb8 }
      .grid { stroke: #2a313a } .same { stroke: #a3adb8 }
      .a { fill: #5b97e6 } .b { fill: #35598a } .c { fill: #e59a55 }
      text { fill: #e6edf3 } .quiet { fill: #a3adb8 } .typed { fill: #8ec1ff }
    }
"""


class Drawing:
    """A picture of the given size in pixels; `told` is what it shows, for whoever cannot see it."""

    def __init__(self, width, height, told):
        self._parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
                       f'height="{height}" role="img">', f"<title>{escape(told)}</title>", f"<style>{STYLE}</style>",
                       '<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" '
                       'orient="auto"><path class="tip" d="M0 0 8 4 0 8z"/></marker></defs>']
        self.box(0.5, 0.5, width - 1, height - 1, "ground", 6)

    def box(self, x, y, width, height, kind="box", corner=5):
        self._parts.append(f'<rect class="{kind}" x="{x:g}" y="{y:g}" width="{width:g}" height="{height:g}" '
                           f'rx="{corner}"/>')

    def text(self, x, y, words, kind="", anchor="start", size=13):
        kind = f' class="{kind}"' if kind else ""
        self._parts.append(f'<text{kind} x="{x:g}" y="{y:g}" font-size="{size}" text-anchor="{anchor}" '
                           f'xml:space="preserve">{escape(words)}</text>')

    def words(self, x, y, lines, kind="quiet", anchor="middle", size=12):
        for number, line in enumerate(lines):
            self.text(x, y + number * (size + 4), line, kind, anchor, size)

    def way(self, path):
        self._parts.append(f'<path class="way" marker-end="url(#tip)" d="{path}"/>')

    def line(self, x, top, bottom, kind):
        self._parts.append(f'<line class="{kind}" x1="{x:g}" y1="{top:g}" x2="{x:g}" y2="{bottom:g}"/>')

    def svg(self):
        return "\n".join([*self._parts, "</svg>", ""])
