"""Waits for requests in the event loop of asyncio, so that the tasks of the file system go on."""
from __future__ import annotations

import asyncio
import threading
from collections.abc import Awaitable
from typing import TYPE_CHECKING, Any

from .serve import GRACE_SECONDS
from .session import stack_of
from .streams import read_some, report

if TYPE_CHECKING:
    from .serve import Run


def run_events(run: Run, under_way: Awaitable[None] | None) -> None:
    """Returns at the end of the input, with the session ended. `under_way` is the answer to wait for before the next
    request."""
    asyncio.run(in_event_loop(run, under_way))


async def in_event_loop(run: Run, under_way: Awaitable[None] | None) -> None:
    """As `run_events`, for a caller who is in the loop."""
    arrived: asyncio.Queue[bytes] = asyncio.Queue()
    input_ended = asyncio.Event()
    asyncio.get_running_loop().set_exception_handler(_report_stray)
    _start_reading(run.requests, arrived, input_ended)
    try:
        if under_way is not None:
            await _settle(under_way, input_ended)
        for line in run.unanswered:
            await _answer(run, line, input_ended)
        while chunk := await arrived.get():
            for line in run.lines.lines(chunk):
                await _answer(run, line, input_ended)
    except BrokenPipeError:
        pass  # nobody reads the answers any more: the end too
    finally:
        run.has_ended = True
        await _settle_all(run.session.end())


def run_to_end(pending: list[Awaitable[Any]]) -> None:
    """Waits for what the end of a session left to be awaited."""
    asyncio.run(_settle_all(pending))


def _start_reading(requests: int, arrived: asyncio.Queue[bytes], input_ended: asyncio.Event) -> None:
    loop = asyncio.get_running_loop()

    def take(chunk: bytes) -> None:
        if not chunk:
            loop.remove_reader(requests)
            input_ended.set()
        arrived.put_nowait(chunk)

    def read_all() -> None:
        chunk = b"-"
        while chunk:
            chunk = read_some(requests)
            try:
                loop.call_soon_threadsafe(take, chunk)
            except RuntimeError:
                return  # the loop is closed: the helper has ended

    try:
        loop.add_reader(requests, lambda: take(read_some(requests)))
    except (OSError, NotImplementedError):  # a file, which cannot be waited for
        threading.Thread(target=read_all, daemon=True).start()


async def _answer(run: Run, line: bytes, input_ended: asyncio.Event) -> None:
    later = run.session.answer(line)
    if later is not None:
        await _settle(later, input_ended)


async def _settle(later: Awaitable[None], input_ended: asyncio.Event) -> None:
    """Waits for an answer; from the end of the input on, no longer than an unmount should."""
    answering = asyncio.ensure_future(later)
    ended = asyncio.ensure_future(input_ended.wait())
    await asyncio.wait({answering, ended}, return_when=asyncio.FIRST_COMPLETED)
    ended.cancel()
    if not answering.done():
        await asyncio.wait({answering}, timeout=GRACE_SECONDS)
    if not answering.done():
        report(f"an answer was not there {GRACE_SECONDS:g} s after the end of the input; ending")
        answering.cancel()
    try:
        await answering
    except asyncio.CancelledError:
        if not answering.cancelled():
            raise


async def _settle_all(pending: list[Awaitable[Any]]) -> None:
    if not pending:
        return
    _, late = await asyncio.wait([asyncio.ensure_future(each) for each in pending], timeout=GRACE_SECONDS)
    if late:
        report(f"still busy {GRACE_SECONDS:g} s after the end of the input; ending")


def _report_stray(loop: asyncio.AbstractEventLoop, context: dict[str, Any]) -> None:
    """Something failed where nobody waits for it."""
    error = context.get("exception")
    if isinstance(error, (SystemExit, KeyboardInterrupt)):
        return  # that is on its way up already
    report(f"unhandled: {stack_of(error) if error is not None else context.get('message')}")
