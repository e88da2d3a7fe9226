"""Says that something has changed when it is asked for /tell/PATHS, where PATHS is JSON. Its argument is the loop."""
from __future__ import annotations

import json
import sys
import threading
from typing import Any
from urllib.parse import unquote

from kemvi_helper import Stat, changed, serve


class Wordless:
    def __repr__(self) -> str:
        raise ValueError


class Changing:
    def getattr(self, path: str) -> Stat:
        if path.startswith("/tell/"):
            changed(json.loads(unquote(path[6:])))
        if path == "/tellFromThreads":
            threads = [threading.Thread(target=changed, args=(f"/{number}",)) for number in range(20)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        if path == "/tellOdd":
            odd: tuple[Any, ...] = (3, None, [4], Wordless())
            for each in odd:
                changed(each)
        if path == "/tellMany":
            changed(f"/{number}" for number in range(10_001))
        return Stat(is_directory=True)

    def readdir(self, path: str) -> list[Any]:
        return []

    def read(self, file: Any, offset: int, length: int) -> bytes:
        return b""


loop: Any = sys.argv[1]
serve(Changing(), loop=loop)
