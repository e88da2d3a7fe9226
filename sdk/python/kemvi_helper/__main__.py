"""Serves the folder in KEMVI_REPO_ROOT."""
from __future__ import annotations

import os
import sys

from .errors import message_of
from .local import LocalFileSystem
from .serve import serve


def main() -> None:
    root = os.environ.get("KEMVI_REPO_ROOT")
    try:
        if not root:
            raise FileNotFoundError("it is not set")
        tree = LocalFileSystem(root)
    except OSError as error:
        sys.exit(f"kemvi-helper: cannot serve the folder in KEMVI_REPO_ROOT ({root or ''}): {message_of(error)}")
    serve(tree)


if __name__ == "__main__":
    main()
