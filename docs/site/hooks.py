"""What mkdocs does not do by itself: links to folders of the tree, and a look at every link once the site is built."""

import re
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

from mkdocs.exceptions import PluginError

LINK = re.compile(r"(?<!!)\]\(([^)\s#:]+)\)")


def on_nav(nav, config, files):
    """A page that no menu leads to is not found by anybody."""
    listed = {page.file.src_path for page in nav.pages}
    missing = {page.src_path for page in files.documentation_pages()} - listed
    if missing:
        raise PluginError(f"docs/site/mkdocs.yml: not in nav: {', '.join(sorted(missing))}")


def on_page_markdown(markdown, page, config, files):
    """The tree is read in a browser of sources too, where a folder shows its README.md: here that is said."""
    folder = (Path(config["docs_dir"]) / page.file.src_path).parent

    def with_readme(match):
        target = match[1].rstrip("/")
        return f"]({target}/README.md)" if (folder / target / "README.md").is_file() else match[0]
    return LINK.sub(with_readme, markdown)


class References(HTMLParser):
    """What one page refers to, and the places in it that can be referred to."""

    def __init__(self, page):
        super().__init__()
        self.targets, self.places = [], set()
        self.feed(page.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.places.update(attributes[name] for name in ("id", "name") if attributes.get(name))
        self.targets += [attributes[name] for name in ("href", "src") if attributes.get(name)]


def broken(site):
    pages = {page: References(page) for page in site.rglob("*.html") if page.name != "404.html"}
    for page, references in sorted(pages.items()):
        for target in references.targets:
            parts = urlsplit(target)
            if parts.netloc and parts.scheme not in ("http", "https"):
                yield page, target, "no address that a browser can open from disk"
            if parts.scheme or parts.netloc:
                continue
            file = (page.parent / unquote(parts.path)).resolve() if parts.path else page
            if not file.exists():
                yield page, target, "leads nowhere"
            elif parts.fragment and file in pages and unquote(parts.fragment) not in pages[file].places:
                yield page, target, "the page has no such heading"


def on_post_build(config):
    site = Path(config["site_dir"]).resolve()
    found = [f"{page.relative_to(site)}: {target}: {why}" for page, target, why in broken(site)]
    if found:
        raise PluginError("Broken links:\n" + "\n".join(found))
