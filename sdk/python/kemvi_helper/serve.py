"""The main loop of a helper."""
from __future__ import annotations

import os
import threading
import time
from collections.abc import Awaitable
from typing import Literal

from .changed import end_notices
from .file_system import FileSystem, async_functions, check_file_system
from .session import Session
from .streams import LineReader, read_some, report, take_streams, write_all

GRACE_SECONDS = 2.0
"""How long what goes on is waited for at the end: an unmount waits too."""

# Started by a mount: nothing that is printed may reach the answers, not even before serve is called.
if "KEMVI_DRIVE_ID" in os.environ:
    take_streams()


def serve(file_system: FileSystem, *, loop: Literal["blocking", "events"] | None = None, debug: bool | None = None) -> None:
    """Serves a file system over standard input and output until the input ends; then gives back what is open. What the
    program prints meanwhile goes to standard error.

    Returns when the input has ended. The process then ends by itself; if a thread still keeps it two seconds after the end
    of the program, it is ended, because an unmount waits for it.

    `loop` is how to wait for requests: in a blocking read, or in the event loop of asyncio, which runs the tasks of the file
    system meanwhile. When left out: the event loop if a function is `async`. `debug` says on standard error which loop is
    used and why; KEMVI_HELPER_DEBUG=1 in the environment does that too.

    Raises TypeError when the file system or an option is not what it must be. For a program that is in an event loop
    already there is `serve_async`.
    """
    if loop not in (None, "blocking", "events"):
        raise TypeError(f'serve: loop must be "blocking" or "events", not {loop!r}')
    run = Run(file_system, debug)
    declared = async_functions(file_system)
    chosen = loop or ("events" if declared else "blocking")
    reason = "as asked" if loop else f"{', '.join(declared)} async" if declared else "plain functions"
    run.say(f"{chosen} loop: {reason}")
    try:
        under_way = run.blocking() if chosen == "blocking" else None
        if under_way is not None:
            run.say("events loop from here on: a function returned something to await")
        if under_way is not None or chosen == "events":
            from .event_loop import run_events  # loads asyncio, which costs most helpers more than the rest of their start
            run_events(run, under_way)
    finally:
        run.end()


async def serve_async(file_system: FileSystem, *, debug: bool | None = None) -> None:
    """As `serve`, in the event loop of asyncio that the caller runs in."""
    from .event_loop import in_event_loop
    run = Run(file_system, debug)
    run.say("events loop: as asked")
    try:
        await in_event_loop(run, None)
    finally:
        run.end()


class Run:
    """One run over the process's streams."""

    def __init__(self, file_system: FileSystem, debug: bool | None) -> None:
        hints = check_file_system(file_system)
        streams = take_streams()
        self.requests = streams.requests
        self.lines = LineReader()
        self.unanswered: list[bytes] = []
        """Lines that came with the one that moved the helper to the event loop."""
        self.session = Session(file_system, lambda data: write_all(streams.answers, data), report)
        self.has_ended = False
        """Whether the session has been ended."""
        self._debug = debug if debug is not None else os.environ.get("KEMVI_HELPER_DEBUG") == "1"
        for hint in hints:
            report(hint)

    def say(self, text: str) -> None:
        """Where that was asked for."""
        if self._debug:
            report(text)

    def blocking(self) -> Awaitable[None] | None:
        """Waits in blocking reads. Returns at the end of the input, or with the answer under way when the file system turned
        out to be async."""
        answer = self.session.answer
        try:
            while chunk := read_some(self.requests):
                lines = self.lines.lines(chunk)
                for line in lines:
                    later = answer(line)
                    if later is not None:
                        self.unanswered = list(lines)
                        return later
        except BrokenPipeError:
            pass  # nobody reads the answers any more: the end too
        return None

    def end(self) -> None:
        """Gives back what is open, where the event loop has not done so."""
        if self.lines.has_rest:
            report("the input ended within a line")
        end_notices()
        if not self.has_ended:
            self.has_ended = True
            pending = self.session.end()
            if pending:
                from .event_loop import run_to_end
                run_to_end(pending)
        threading.Thread(target=_end_in_time, daemon=True).start()


def _end_in_time() -> None:
    """The main thread ends by itself; what then keeps the process are other threads."""
    threading.main_thread().join()
    time.sleep(GRACE_SECONDS)
    names = [thread.name for thread in threading.enumerate()
             if not thread.daemon and thread is not threading.main_thread()]
    report(f"still busy {GRACE_SECONDS:g} s after the end of the program ({', '.join(names)}); ending")
    os._exit(0)
